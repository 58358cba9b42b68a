#include <cUtil/convert.h>

#include "support/inject.h"
#include "support/record.h"
#include "support/scale.h"

#include <cUtil/errorCodes.h>

#include <gmock/gmock.h>

#include <atomic>
#include <bit>
#include <cctype>
#include <cerrno>
#include <cfenv>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <locale.h>
#include <random>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <vector>

namespace
{

using support::Failure;
using support::failureOf;
using testing::HasSubstr;

constexpr char file[] = "src/cUtil/convert";
constexpr double infinity = std::numeric_limits<double>::infinity();

template <typename Integer>
using Member = cu_ErrorCode (*)(Integer* out, int32_t base, const char* text);

Failure badNumber(const std::string& function, const std::string& text, const std::string& base)
{
    return {cu_ERROR_CONVERSION_FAILED, function, file, "source='" + text + "' base='" + base};
}

// What a call leaves in its out variable, and how it fails.
struct Outcome {
    std::string value;
    Failure failure;
};

constexpr int untouched = 77;

template <typename Integer>
Outcome outcomeOf(Member<Integer> member, int32_t base, const std::string& text)
{
    Integer out = untouched;
    Failure failure = failureOf([&] { return member(&out, base, text.c_str()); });
    return {std::to_string(out), std::move(failure)};
}

template <typename Integer>
std::string textOf(Integer value, int base)
{
    char text[65];
    return {text, std::to_chars(text, std::end(text), value, base).ptr};
}

std::string increment(std::string digits, int base)
{
    for (std::size_t i = digits.size(); i-- != 0;) {
        const int digit = digits[i] <= '9' ? digits[i] - '0' : digits[i] - 'a' + 10;
        digits[i] = textOf((digit + 1) % base, base)[0];
        if (digit + 1 != base)
            return digits;
    }
    return '1' + digits;
}

std::string inCapitals(std::string text)
{
    for (char& c : text)
        c = static_cast<char>(toupper(c));
    return text;
}

template <typename Integer>
void expectBorders(const char* type, Member<Integer> member)
{
    using Limits = std::numeric_limits<Integer>;
    const std::string name = std::string("cu_Convert_") + type;
    struct Form {
        int32_t base;
        int digits; // the base that they are written in
        const char* prefix;
    };
    for (const Form form : {Form{2, 2, ""},
                            {8, 8, ""},
                            {10, 10, ""},
                            {16, 16, ""},
                            {16, 16, "0X"},
                            {36, 36, ""},
                            {0, 10, ""},
                            {0, 8, "0"},
                            {0, 16, "0x"}}) {
        const std::string prefix = form.prefix;
        const auto expectBorder = [&](const std::string& sign, Integer border) {
            using Unsigned = std::make_unsigned_t<Integer>;
            const auto magnitude = static_cast<Unsigned>(border < 0 ? Unsigned{0} - static_cast<Unsigned>(border)
                                                                    : static_cast<Unsigned>(border));
            const std::string digits = textOf(magnitude, form.digits);
            for (const std::string& text : {sign + prefix + digits, sign + prefix + inCapitals(digits) + ".00"}) {
                const Outcome within = outcomeOf(member, form.base, text);
                EXPECT_EQ(within.failure.code, 0U) << name << ' ' << text << ' ' << form.base;
                EXPECT_EQ(within.value, std::to_string(border)) << text << ' ' << form.base;
            }
            const std::string text = sign + prefix + increment(digits, form.digits);
            const Outcome beyond = outcomeOf(member, form.base, text);
            EXPECT_EQ(beyond.failure, badNumber(name, text, std::to_string(form.base)));
            EXPECT_EQ(beyond.value, std::to_string(sizeof(border) >= 4 ? border : Integer{untouched})) << text;
        };
        expectBorder("", Limits::max());
        expectBorder(" +", Limits::max());
        if (Limits::is_signed)
            expectBorder("-", Limits::min());
    }
}

TEST(Convert, everyIntegerHasItsRangeInEveryBase)
{
    expectBorders<int8_t>("sint8", cu_Convert_sint8);
    expectBorders<uint8_t>("uint8", cu_Convert_uint8);
    expectBorders<int16_t>("sint16", cu_Convert_sint16);
    expectBorders<uint16_t>("uint16", cu_Convert_uint16);
    expectBorders<int32_t>("sint32", cu_Convert_sint32);
    expectBorders<uint32_t>("uint32", cu_Convert_uint32);
    expectBorders<int64_t>("sint64", cu_Convert_sint64);
    expectBorders<uint64_t>("uint64", cu_Convert_uint64);
}

template <typename Integer>
struct Case {
    int32_t base;
    std::string text;
    Integer value;
    bool fails = false;
    std::string source = text; // as the description tells it
};

template <typename Integer>
void expectCases(const char* function, Member<Integer> member, std::initializer_list<Case<Integer>> cases)
{
    for (const Case<Integer>& c : cases) {
        const Outcome outcome = outcomeOf(member, c.base, c.text);
        EXPECT_EQ(outcome.value, std::to_string(c.value)) << '\'' << c.text << "' base " << c.base;
        if (c.fails) {
            EXPECT_EQ(outcome.failure, badNumber(function, c.source, std::to_string(static_cast<uint32_t>(c.base))));
        } else {
            EXPECT_EQ(outcome.failure.code, 0U) << '\'' << c.text << "' base " << c.base;
        }
    }
}

TEST(Convert, integersAreReadLikeStrtolDoesIt)
{
    constexpr int32_t low = INT32_MIN;
    constexpr int32_t high = INT32_MAX;
    expectCases<int32_t>("cu_Convert_sint32", cu_Convert_sint32,
                         {
                             {10, "42.000", 42},
                             {10, "42.", 42, true},
                             {10, "42.01", 42, true},
                             {10, "42.0.0", 42, true},
                             {10, "42.0 ", 42, true},
                             {10, ".0", 0}, // nothing is left
                             {10, ".", 0, true},
                             {10, " .0", 0, true, " "},
                             {10, "-.0", 0, true, "-"},
                             {10, "x.0", 0, true, "x"},
                             {10, "42x.0", 42, true, "42x"},
                             {10, "9876543210.0", high, true, "9876543210"},
                             {10, "-9876543210x", low, true},
                             {10, std::string(100, '9') + '0', high, true},
                             {36, "zzzzzzzzzzzzzzzzzzzz", high, true},
                             {10, " \t\n\v\f\r42", 42},
                             {10, "\x1c 42", 0, true},
                             {10,
                              "\xa0"
                              "42",
                              0, true},
                             {10, "42 ", 42, true},
                             {10, "", 0},
                             {10, " ", 0, true},
                             {10, "+", 0, true},
                             {10, "+-1", 0, true},
                             {10, "- 1", 0, true},
                             {10, "+007", 7},
                             {10, "1:", 1, true},
                             {10, "/1", 0, true},
                             {2, "102", 2, true},
                             {8, "0778", 63, true},
                             {16, "fg", 15, true},
                             {16, "-0xFf", -255},
                             {16, "F`", 15, true},
                             {16, "@", 0, true},
                             {0, "0x10", 16},
                             {0, "010", 8},
                             {0, "08", 0, true},
                             {0, "0", 0},
                             {0, "0x", 0, true}, // the 0 is read
                             {16, "0x", 0, true},
                             {0, "0xg", 0, true},
                             {0, "0x0x1", 0, true},
                             {0, "0x-1", 0, true},
                             {0, " -0X.0", 0, true, " -0X"},
                             {0, "0b1", 0, true},
                             {10, "0x1", 0, true},
                             {36, "0x1", 33 * 36 + 1},
                             {-1, "1", 0, true},
                             {1, "1", 0, true},
                             {37, " 1", 0, true},
                             {37, "", 0},
                             {low, "1", 0, true},
                         });
    expectCases<uint32_t>("cu_Convert_uint32", cu_Convert_uint32,
                          {
                              {10, " -1", UINT32_MAX},
                              {10, " -4294967295", 1},
                              {10, " -4294967296", UINT32_MAX, true},
                              {10, " -2147483648", 0x80000000},
                              {10, "4294967295x", UINT32_MAX, true},
                              {10, "18446744073709551617", UINT32_MAX, true}, // 2^64 + 1
                              {16, "\t-0xFFFFFFFF.0", 1},
                              {0, "037777777777", UINT32_MAX},
                          });
    expectCases<uint64_t>("cu_Convert_uint64", cu_Convert_uint64,
                          {
                              {10, " -1", UINT64_MAX},
                              {10, " -18446744073709551615", 1},
                              {10, " -18446744073709551616", UINT64_MAX, true},
                          });
    // Within the range of the wider member, so that the narrow one finds it.
    expectCases<uint16_t>("cu_Convert_uint16", cu_Convert_uint16,
                          {{10, "", 0}, {10, " -4294967295", 1}, {10, " -1", untouched, true}});
    expectCases<int16_t>("cu_Convert_sint16", cu_Convert_sint16, {{10, "", 0}, {10, "40000.0", untouched, true}});
    expectCases<uint8_t>("cu_Convert_uint8", cu_Convert_uint8, {{0, ".0", 0}, {10, "300.0", untouched, true}});
}

TEST(Convert, aFailureNamesWhoFoundItAndWhoPassedItOn)
{
    const Outcome tooLarge = outcomeOf(cu_Convert_sint8, 10, "99999999999.00");
    EXPECT_EQ(tooLarge.failure, badNumber("cu_Convert_sint32", "99999999999", "10"));
    EXPECT_EQ(tooLarge.value, std::to_string(untouched));
    const std::string trace = support::trace();
    EXPECT_THAT(trace, testing::MatchesRegex("cu_Convert_sint16  -  .*\ncu_Convert_sint8  -  .*\n"));

    constexpr char negative[] = "The argument str (-1) is negative!";
    uint8_t u8 = untouched;
    uint64_t u64 = untouched;
    EXPECT_FAILURE(cu_Convert_uint8(&u8, 0, "-1"), cu_ERROR_CONVERSION_FAILED, "cu_Convert_uint32", file, negative);
    EXPECT_FAILURE(cu_Convert_uint64(&u64, 0, "-1"), cu_ERROR_CONVERSION_FAILED, "cu_Convert_uint64", file, negative);
    EXPECT_EQ(u8, untouched);
    EXPECT_EQ(u64, unsigned{untouched});
}

TEST(Convert, textsOfOrdinaryLengthNeedNoMemory)
{
    const auto noMemory = support::Injection::ofEvery("strdup", ENOMEM);
    const std::string ordinary(254, '0');
    const std::string longest = ordinary + "12";
    for (const std::string& text : {ordinary + "7", ' ' + ordinary.substr(3) + "7.0"})
        EXPECT_EQ(outcomeOf(cu_Convert_sint32, 10, text).value, "7");
    for (const std::string& text : {longest, "1." + ordinary, "x" + longest}) {
        const Outcome outcome = outcomeOf(cu_Convert_sint32, 10, text);
        EXPECT_EQ(outcome.failure,
                  (Failure{cu_ERROR_COM_MALLOC_FAILED, "cu_str_clone", "src/cUtil/tools/safeStringOps", ""}));
        EXPECT_THAT(support::trace(), HasSubstr("cu_Convert_sint32  -  "));
        EXPECT_EQ(outcome.value, std::to_string(untouched));
    }
}

TEST(Convert, longTextsAreReadLikeOthers)
{
    const std::string zeros(5000, '0');
    EXPECT_EQ(outcomeOf(cu_Convert_uint64, 10, zeros + "12." + zeros).value, "12");
    const std::string text = std::string(500, ' ') + "12x";
    const Outcome failed = outcomeOf(cu_Convert_uint64, 10, text + ".0");
    EXPECT_EQ(failed.value, "12");
    EXPECT_EQ(failed.failure, badNumber("cu_Convert_uint64", text, "10"));
}

template <typename Out, typename Call>
void expectRefusals(const std::string& type, bool takesEmpty, Call call)
{
    Out out{};
    EXPECT_REFUSED(call(static_cast<Out*>(nullptr), "1"), "cu_Convert_" + type, file);
    EXPECT_REFUSED(call(&out, nullptr), "cu_Convert_" + type, file);
    if (!takesEmpty) {
        EXPECT_REFUSED(call(&out, ""), "cu_Convert_" + type, file);
    }
    EXPECT_EQ(out, Out{});
}

template <typename Integer>
void expectRefusals(const char* type, bool takesEmpty, Member<Integer> member)
{
    expectRefusals<Integer>(std::string(type), takesEmpty,
                            [=](Integer* out, const char* text) { return member(out, 10, text); });
}

TEST(Convert, badArgumentsAreRefused)
{
    expectRefusals<bool>(std::string("bool"), true, cu_Convert_bool);
    expectRefusals<char>(std::string("char"), false, cu_Convert_char);
    expectRefusals<int8_t>("sint8", false, cu_Convert_sint8);
    expectRefusals<uint8_t>("uint8", false, cu_Convert_uint8);
    expectRefusals<int16_t>("sint16", true, cu_Convert_sint16);
    expectRefusals<uint16_t>("uint16", true, cu_Convert_uint16);
    expectRefusals<int32_t>("sint32", true, cu_Convert_sint32);
    expectRefusals<uint32_t>("uint32", true, cu_Convert_uint32);
    expectRefusals<int64_t>("sint64", true, cu_Convert_sint64);
    expectRefusals<uint64_t>("uint64", true, cu_Convert_uint64);
    expectRefusals<double>(std::string("ieee64"), true, cu_Convert_ieee64);
    expectRefusals<float>(std::string("ieee32"), true, cu_Convert_ieee32);
}

TEST(Convert, booleansAreFourWords)
{
    for (const char* word : {"0", "1", "false", "true", "FALSE", "TRUE", "False", "tRUE"}) {
        const bool expected = strchr("1tT", word[0]) != nullptr;
        bool out = !expected;
        EXPECT_EQ(cu_Convert_bool(&out, word), 0U) << word;
        EXPECT_EQ(out, expected) << word;
    }
    for (const std::string word : {"", " 1", "1 ", "01", "2", "yes", "tru", "falsex"}) {
        bool out = true;
        EXPECT_FAILURE(cu_Convert_bool(&out, word.c_str()), cu_ERROR_CONVERSION_FAILED, "cu_Convert_bool", file,
                       "Invalid input for conversion '" + word + '\'');
        EXPECT_TRUE(out);
    }
}

TEST(Convert, aCharacterIsTheFirstOneWhateverItIs)
{
    for (const char* text : {"x", " y", "\xff\xfe", "12"}) {
        char out = '\0';
        EXPECT_EQ(cu_Convert_char(&out, text), 0U);
        EXPECT_EQ(out, text[0]);
    }
}

TEST(Convert, doublesAreReadLikeStrtodDoesIt)
{
    struct DoubleCase {
        std::string text;
        double value;
        bool fails = false;
        int error = 0;
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const DoubleCase cases[] = {
        {"1.5", 1.5},
        {" \t\n\v\f\r-.5e+1", -5},
        {"+5.E-1", 0.5},
        {"", 0},
        {"-0", -0.0},
        {"-0e99999999999999999999", -0.0},
        {"0x1.8p1", 3},
        {"-0X.8", -0.5},
        {"inf", infinity},
        {"-InFinity", -infinity},
        {"nan", nan},
        {"NAN(0x12)", nan},
        {"1e-999", 0, false, ERANGE},
        {"4.9e-324", 4.9e-324, false, ERANGE},
        {"1." + std::string(100000, '0') + "1e+" + std::string(100000, '0') + "2", 100},
        {"0." + std::string(200000, '0') + "25e200001", 2.5},
        {"1e999", infinity, true, ERANGE},
        {"-1.8e308", -infinity, true, ERANGE},
        {"1e999x", infinity, true, ERANGE},
        {"1.5 ", 1.5, true},
        {"1,5", 1, true},
        {"1.5.", 1.5, true},
        {"1e", 1, true},
        {"1e+", 1, true},
        {"1e5e", 1e5, true},
        {"1e1.0", 10, true},
        {"0x", 0, true},
        {"0x1p", 1, true},
        {".", 0, true},
        {".e1", 0, true},
        {"- 1", 0, true},
        {"+-1", 0, true},
        {"infinit", infinity, true},
        {"nan(", nan, true},
        {"x", 0, true},
        {" ", 0, true},
    };
    for (const DoubleCase& c : cases) {
        double out = untouched;
        errno = EDOM;
        const Failure failure = failureOf([&] { return cu_Convert_ieee64(&out, c.text.c_str()); });
        EXPECT_EQ(std::isnan(out), std::isnan(c.value)) << c.text;
        if (!std::isnan(c.value)) {
            EXPECT_EQ(std::bit_cast<uint64_t>(out), std::bit_cast<uint64_t>(c.value)) << c.text << " is " << out;
        }
        if (c.fails) {
            EXPECT_EQ(failure,
                      (Failure{cu_ERROR_CONVERSION_FAILED, "cu_Convert_ieee64", file, "source='" + c.text + '\''}));
        } else {
            EXPECT_EQ(failure.code, 0U) << c.text;
            EXPECT_EQ(errno, c.error) << c.text;
        }
    }
}

TEST(Convert, floatsAreNarrowedDoubles)
{
    float out = untouched;
    EXPECT_EQ(cu_Convert_ieee32(&out, "1e39"), 0U);
    EXPECT_EQ(out, std::numeric_limits<float>::infinity());
    EXPECT_EQ(cu_Convert_ieee32(&out, "-1e-50"), 0U);
    EXPECT_TRUE(out == 0 && std::signbit(out));
    // Rounded twice: to the middle between two floats, and from there to the even one.
    EXPECT_EQ(cu_Convert_ieee32(&out, "1.00000005960464478"), 0U);
    EXPECT_EQ(out, 1.0F);
    out = untouched;
    EXPECT_FAILURE(cu_Convert_ieee32(&out, "1e999"), cu_ERROR_CONVERSION_FAILED, "cu_Convert_ieee64", file,
                   "source='1e999'");
    EXPECT_THAT(support::trace(), HasSubstr("cu_Convert_ieee32  -  "));
    EXPECT_EQ(out, float{untouched});
}

TEST(Convert, errnoIsThatOfTheStandardFunctions)
{
    int32_t out = 0;
    errno = EDOM;
    EXPECT_EQ(cu_Convert_sint32(&out, 10, "1"), 0U);
    EXPECT_EQ(errno, 0);
    errno = EDOM;
    EXPECT_EQ(cu_Convert_sint32(&out, 10, "1.0"), 0U);
    EXPECT_EQ(errno, 0);
}

// Texts that are hard to round, and texts of every form.
class DecimalTexts
{
public:
    std::string next()
    {
        switch (random(8)) {
        case 0:
            return printed("%.17g", anyDouble());
        case 1:
            return printed("%.16e", anyDouble());
        case 2:
            return printed("%.*e", random(25), anyDouble());
        case 3:
            return printed("%.*f", random(25), std::ldexp(static_cast<double>(bits()), -random(100)));
        case 4:
            return nearMiddle(anyDouble());
        case 5:
            return nearMiddle(std::ldexp(1.0, random(100) - 50) * (random(1000) + 1));
        case 6:
            return digits(1 + random(30)) + 'e' + std::to_string(random(700) - 360);
        default:
            return digits(random(25)) + '.' + digits(1 + random(25)) + 'e' + std::to_string(random(60) - 30);
        }
    }

private:
    uint64_t bits() { return engine_(); }
    int random(int bound) { return static_cast<int>(bits() % static_cast<unsigned>(bound)); }

    double anyDouble()
    {
        double value = NAN;
        while (!std::isfinite(value))
            value = std::bit_cast<double>(random(8) == 0 ? bits() & 0x800FFFFFFFFFFFFF : bits());
        return value;
    }

    std::string digits(int count)
    {
        std::string text;
        while (count-- > 0)
            text += static_cast<char>('0' + random(10));
        return text;
    }

    [[gnu::format(printf, 1, 2)]] static std::string printed(const char* format, ...)
    {
        char text[2000];
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(text, sizeof(text), format, arguments);
        va_end(arguments);
        return text;
    }

    // The middle between a number and the next one, where a long double can hold it: in all of its digits, cut, or a
    // little beside it.
    std::string nearMiddle(double value)
    {
        int exponent = 0;
        const auto mantissa = static_cast<int64_t>(std::ldexp(std::frexp(value, &exponent), 53));
        const long double middle = std::ldexp(static_cast<long double>(2 * mantissa + 1), exponent - 54);
        std::string text = printed("%.*Le", random(3) == 0 ? 800 : 15 + random(20), middle);
        if (random(2) == 0)
            text.insert(text.find('e'), random(2) == 0 ? "0001" : "0000");
        return text;
    }

    std::mt19937_64 engine_{20240607};
};

TEST(Convert, doublesAreRoundedAsStrtodRoundsThemInEveryMode)
{
    const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    DecimalTexts texts;
    for (int i = 0; i < support::scaled(100'000); ++i) {
        const std::string text = texts.next();
        for (const int mode : {FE_TONEAREST, FE_UPWARD, FE_DOWNWARD, FE_TOWARDZERO}) {
            ASSERT_EQ(fesetround(mode), 0);
            errno = 0;
            const double expected = strtod_l(text.c_str(), nullptr, locale);
            const int expectedError = errno;
            double out = untouched;
            const cu_ErrorCode code = cu_Convert_ieee64(&out, text.c_str());
            const int error = errno;
            fesetround(FE_TONEAREST);
            ASSERT_EQ(std::bit_cast<uint64_t>(out), std::bit_cast<uint64_t>(expected)) << text << " mode " << mode;
            ASSERT_EQ(code == 0, !std::isinf(expected)) << text;
            if (code == 0) {
                ASSERT_EQ(error, expectedError) << text;
            }
        }
    }
    freelocale(locale);
}

// A numeric locale with a decimal comma, as the C library reads it from its files. Systems need not have any.
void setDecimalComma()
{
    constexpr uint32_t head[] = {0x20031115U ^ LC_NUMERIC, 6, 32, 34, 35, 36, 40, 44};
    constexpr char body[] = ",\0\0\x7f,\0\0\0\0\0\0\0UTF-8";
    const std::string folder = testing::TempDir() + "koc-locale-" + std::to_string(getpid());
    const std::string path = folder + "/comma";
    mkdir(folder.c_str(), 0755);
    mkdir(path.c_str(), 0755);
    FILE* out = fopen((path + "/LC_NUMERIC").c_str(), "w");
    ASSERT_NE(out, nullptr);
    fwrite(head, sizeof(head), 1, out);
    fwrite(body, sizeof(body), 1, out);
    fclose(out);
    setenv("LOCPATH", folder.c_str(), 1);
    EXPECT_STREQ(setlocale(LC_NUMERIC, "comma"), "comma");
    EXPECT_EQ(strtod("1,5", nullptr), 1.5);
    EXPECT_EQ(system(("rm -r " + folder).c_str()), 0);
}

TEST(Convert, theLocaleIsNeitherUsedNorTouched)
{
    setDecimalComma();
    std::atomic<bool> over{false};
    std::atomic<int> watched{0};
    std::thread watcher([&] {
        for (; !over; ++watched)
            EXPECT_STREQ(setlocale(LC_NUMERIC, nullptr), "comma");
    });
    double out = 0;
    for (int i = 0; i < support::scaled(100'000) || watched < 1000; ++i) {
        for (const char* text : {"1.5", "0x1.8", "15000000000000000000000000000000000000000000000e-46"}) {
            out = 0;
            EXPECT_EQ(cu_Convert_ieee64(&out, text), 0U) << text;
            EXPECT_EQ(out, 1.5) << text;
        }
        EXPECT_EQ(cu_Convert_ieee64(&out, "1,5"), cu_ERROR_CONVERSION_FAILED);
    }
    over = true;
    watcher.join();
}

TEST(Convert, aMissingLocaleIsReported)
{
    const support::Injection injection("newlocale", ENOENT);
    double out = untouched;
    EXPECT_FAILURE(cu_Convert_ieee64(&out, "0x1"), cu_ERROR_COM_INVARIANT, "setLocale", file, "");
    EXPECT_THAT(support::trace(), HasSubstr("cu_Convert_ieee64  -  "));
    EXPECT_EQ(out, double{untouched});
}

} // namespace
