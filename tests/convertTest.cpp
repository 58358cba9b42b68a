#include <cUtil/convert.h>

#include "support/inject.h"
#include "support/record.h"
#include "support/scale.h"

#include <cUtil/errorCodes.h>

#include <gmock/gmock.h>

#include <atomic>
#include <bit>
#include <cerrno>
#include <cfenv>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <locale.h>
#include <random>
#include <string>
#include <thread>
#include <unistd.h>
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

// What a call leaves in its out variable and in errno, and how it fails.
struct Outcome {
    std::string value;
    int error;
    Failure failure;
};

constexpr int untouched = 77;

template <typename Integer>
Outcome outcomeOf(Member<Integer> member, int32_t base, const std::string& text)
{
    Integer out = untouched;
    errno = EDOM;
    Failure failure = failureOf([&] { return member(&out, base, text.c_str()); });
    return {std::to_string(out), errno, std::move(failure)};
}

template <typename Visitor>
void forEachInteger(Visitor visit)
{
    visit("cu_Convert_sint8", cu_Convert_sint8);
    visit("cu_Convert_uint8", cu_Convert_uint8);
    visit("cu_Convert_sint16", cu_Convert_sint16);
    visit("cu_Convert_uint16", cu_Convert_uint16);
    visit("cu_Convert_sint32", cu_Convert_sint32);
    visit("cu_Convert_uint32", cu_Convert_uint32);
    visit("cu_Convert_sint64", cu_Convert_sint64);
    visit("cu_Convert_uint64", cu_Convert_uint64);
}

std::string textOf(uint64_t value, int base)
{
    char text[64];
    return {text, std::to_chars(text, std::end(text), value, base).ptr};
}

std::string increment(std::string digits, int base)
{
    for (std::size_t i = digits.size(); i-- != 0;) {
        const int digit = digits[i] <= '9' ? digits[i] - '0' : digits[i] - 'a' + 10;
        digits[i] = textOf(static_cast<unsigned>((digit + 1) % base), base)[0];
        if (digit + 1 != base)
            return digits;
    }
    return '1' + digits;
}

// A border is taken, with a fraction of zeros, too. The next number is not: wide members then give the border.
template <typename Integer>
void expectBorder(const char* name, Member<Integer> member, const std::string& sign, Integer border)
{
    struct Form {
        int32_t base;
        int digits; // the base that they are written in
        const char* prefix;
    };
    constexpr Form forms[] = {{2, 2, ""},   {8, 8, ""},  {10, 10, ""}, {16, 16, ""}, {16, 16, "0X"},
                              {36, 36, ""}, {0, 10, ""}, {0, 8, "0"},  {0, 16, "0x"}};
    for (const Form& form : forms) {
        const auto bits = static_cast<uint64_t>(border);
        const std::string digits = textOf(border < 0 ? 0 - bits : bits, form.digits);
        const std::string prefix = sign + form.prefix;
        for (const std::string& text : {prefix + digits, prefix + digits + ".00"}) {
            const Outcome within = outcomeOf(member, form.base, text);
            EXPECT_EQ(within.failure.code, 0U) << name << ' ' << text << ' ' << form.base;
            EXPECT_EQ(within.value, std::to_string(border)) << text << ' ' << form.base;
        }
        const std::string text = prefix + increment(digits, form.digits);
        const Outcome beyond = outcomeOf(member, form.base, text);
        EXPECT_EQ(beyond.failure, badNumber(name, text, std::to_string(form.base)));
        EXPECT_EQ(beyond.value, std::to_string(sizeof(border) >= 4 ? border : Integer{untouched})) << text;
    }
}

TEST(Convert, everyIntegerHasItsRangeInEveryBase)
{
    forEachInteger([]<typename Integer>(const char* name, Member<Integer> member) {
        using Limits = std::numeric_limits<Integer>;
        expectBorder(name, member, " +", Limits::max());
        if (Limits::is_signed)
            expectBorder(name, member, "-", Limits::min());
    });
}

// Texts that have the same result.
template <typename Value>
struct Group {
    Value value;
    std::vector<std::string> texts;
    int32_t base = 10;
};

template <typename Integer>
void expectTaken(Member<Integer> member, std::initializer_list<Group<Integer>> groups)
{
    for (const Group<Integer>& group : groups) {
        for (const std::string& text : group.texts) {
            const Outcome outcome = outcomeOf(member, group.base, text);
            EXPECT_EQ(outcome.failure.code, 0U) << '\'' << text << "' base " << group.base;
            EXPECT_EQ(outcome.value, std::to_string(group.value)) << '\'' << text << "' base " << group.base;
            EXPECT_EQ(outcome.error, 0) << '\'' << text << "' base " << group.base;
        }
    }
}

template <typename Integer>
void expectFailing(const char* name, Member<Integer> member, std::initializer_list<Group<Integer>> groups)
{
    for (const Group<Integer>& group : groups) {
        const std::string base = std::to_string(static_cast<uint32_t>(group.base));
        for (const std::string& text : group.texts) {
            const Outcome outcome = outcomeOf(member, group.base, text);
            EXPECT_EQ(outcome.failure, badNumber(name, text, base));
            EXPECT_EQ(outcome.value, std::to_string(group.value)) << '\'' << text << "' base " << group.base;
        }
    }
}

TEST(Convert, integersAreReadLikeStrtolDoesIt)
{
    expectTaken<int32_t>(cu_Convert_sint32, {{42, {"42.000", " \t\n\v\f\r42", "+042"}},
                                             {0, {"", ".0", "-0"}},
                                             {-255, {"-0xFf", "-0Xff", "-fF.0"}, 16},
                                             {8, {"0x8", "010", "8"}, 0},
                                             {33 * 36 + 1, {"0x1"}, 36}});
    expectFailing<int32_t>("cu_Convert_sint32", cu_Convert_sint32,
                           {{42, {"42.", "42.01", "42.0.0", "42.0 ", "42 ", "42:", "42/"}},
                            {0, {".", " ", "+-1", "- 1", "\x1c 42", "\xa0 42", "x42", "0x42"}},
                            {5, {"1012"}, 2},
                            {15, {"fg", "f`", "F@", "F["}, 16},
                            {0, {"0x", "0xg", "0x0x1", "0b1", "08"}, 0},
                            {INT32_MAX, {"zzzzzzzzzzzzzzzzzzzz"}, 36},
                            {INT32_MIN, {"-9876543210x"}},
                            {0, {"1", " ", "x"}, -1},
                            {0, {"1", " 0"}, 1},
                            {0, {"1"}, 37},
                            {0, {"1"}, INT32_MIN}});
    expectTaken<uint32_t>(cu_Convert_uint32, {{UINT32_MAX, {" -1"}}, {1, {" -4294967295"}}});
    expectFailing<uint32_t>("cu_Convert_uint32", cu_Convert_uint32,
                            {{UINT32_MAX, {" -4294967296", "4294967295x", "18446744073709551617"}}});
    expectTaken<uint64_t>(cu_Convert_uint64, {{1, {" -18446744073709551615"}}});
    expectFailing<uint64_t>("cu_Convert_uint64", cu_Convert_uint64, {{UINT64_MAX, {" -18446744073709551616"}}});
    // Within the range of the wider member, so that the narrow one finds it.
    expectTaken<int16_t>(cu_Convert_sint16, {{0, {""}}});
    expectTaken<uint16_t>(cu_Convert_uint16, {{0, {""}}, {1, {" -4294967295"}}});
    expectFailing<uint16_t>("cu_Convert_uint16", cu_Convert_uint16, {{untouched, {" -1"}}});
    expectFailing<uint8_t>("cu_Convert_uint8", cu_Convert_uint8, {{untouched, {"300.0"}}});
    // A bad base takes an empty text only.
    EXPECT_EQ(outcomeOf(cu_Convert_sint32, 37, "").failure.code, 0U);
}

TEST(Convert, aFailureTellsTheTextWithoutAFractionOfZeros)
{
    for (const std::string text : {" ", "-", "x", "42x", " -0X", "9876543210"})
        EXPECT_EQ(outcomeOf(cu_Convert_sint32, 16, text + ".0").failure, badNumber("cu_Convert_sint32", text, "16"));
}

TEST(Convert, aFailureNamesWhoFoundItAndWhoPassedItOn)
{
    const Outcome tooLarge = outcomeOf(cu_Convert_sint8, 10, "99999999999.00");
    EXPECT_EQ(tooLarge.failure, badNumber("cu_Convert_sint32", "99999999999", "10"));
    EXPECT_EQ(tooLarge.value, std::to_string(untouched));
    EXPECT_THAT(support::trace(), testing::MatchesRegex("cu_Convert_sint16  -  .*\ncu_Convert_sint8  -  .*\n"));

    const Outcome negative = outcomeOf(cu_Convert_uint64, 0, "-1");
    EXPECT_EQ(negative.failure,
              (Failure{cu_ERROR_CONVERSION_FAILED, "cu_Convert_uint64", file, "The argument str (-1) is negative!"}));
    EXPECT_EQ(negative.value, std::to_string(untouched));
    EXPECT_EQ(outcomeOf(cu_Convert_uint8, 0, "-1").failure.function, "cu_Convert_uint32");
}

TEST(Convert, onlyLongTextsNeedMemory)
{
    const std::string zeros(254, '0');
    const std::string bad = zeros + "12x";
    EXPECT_EQ(outcomeOf(cu_Convert_uint64, 10, zeros + "12." + zeros).value, "12");
    EXPECT_EQ(outcomeOf(cu_Convert_uint64, 10, bad + ".0").failure, badNumber("cu_Convert_uint64", bad, "10"));

    const auto noMemory = support::Injection::ofEvery("strdup", ENOMEM);
    for (const std::string& text : {zeros + "7", ' ' + zeros.substr(3) + "7.0"})
        EXPECT_EQ(outcomeOf(cu_Convert_sint32, 10, text).value, "7");
    for (const std::string& text : {zeros + "12", "1." + zeros, bad}) {
        const Outcome outcome = outcomeOf(cu_Convert_sint32, 10, text);
        EXPECT_EQ(outcome.failure,
                  (Failure{cu_ERROR_COM_MALLOC_FAILED, "cu_str_clone", "src/cUtil/tools/safeStringOps", ""}));
        EXPECT_THAT(support::trace(), HasSubstr("cu_Convert_sint32  -  "));
        EXPECT_EQ(outcome.value, std::to_string(untouched));
    }
}

template <typename Out, typename Call>
void expectRefusals(const char* name, Out out, bool takesEmpty, Call call)
{
    const Out before = out;
    EXPECT_REFUSED(call(static_cast<Out*>(nullptr), "1"), name, file);
    EXPECT_REFUSED(call(&out, nullptr), name, file);
    if (!takesEmpty) {
        EXPECT_REFUSED(call(&out, ""), name, file);
    }
    EXPECT_EQ(out, before);
}

TEST(Convert, badArgumentsAreRefused)
{
    forEachInteger([]<typename Integer>(const char* name, Member<Integer> member) {
        expectRefusals(name, Integer{untouched}, sizeof(Integer) > 1,
                       [=](Integer* out, const char* text) { return member(out, 10, text); });
    });
    expectRefusals("cu_Convert_bool", true, true, cu_Convert_bool);
    expectRefusals("cu_Convert_char", 'x', false, cu_Convert_char);
    expectRefusals("cu_Convert_ieee64", 1.5, true, cu_Convert_ieee64);
    expectRefusals("cu_Convert_ieee32", 1.5F, true, cu_Convert_ieee32);
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

bool isSame(double a, double b)
{
    return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b);
}

TEST(Convert, doublesAreReadLikeStrtodDoesIt)
{
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double largest = std::numeric_limits<double>::max();
    const std::string zeros(200000, '0');
    const std::string longOne = "0." + zeros + "25e200001";
    const auto expectDoubles = [](std::initializer_list<Group<double>> groups, bool fails) {
        for (const Group<double>& group : groups) {
            for (const std::string& text : group.texts) {
                double out = untouched;
                const Failure failure = failureOf([&] { return cu_Convert_ieee64(&out, text.c_str()); });
                EXPECT_TRUE(std::isnan(group.value) ? std::isnan(out) : isSame(out, group.value)) << text << ' ' << out;
                EXPECT_EQ(failure.code, fails ? cu_ErrorCode{cu_ERROR_CONVERSION_FAILED} : 0) << text;
                EXPECT_EQ(failure.description, fails ? "source='" + text + '\'' : "");
            }
        }
    };
    expectDoubles({{2.5, {"2.5", " \t\n\v\f\r+.25e+1", "25.E-1", "0x1.4p1", "0X2.8", longOne}},
                   {0, {"", "1e-999"}},
                   {-0.0, {"-0", "-0e99999999999999999999"}},
                   {infinity, {"inf", "+InFinity"}},
                   {nan, {"nan", "-NAN(0x12)"}},
                   {largest, {"1.7976931348623158e308"}}},
                  false);
    expectDoubles({{2.5, {"2.5 ", "2.5.", "2.5e", "2.5e+", "2.5x", "25e-1e", "25e-1.0", "0x2.8p"}},
                   {0, {".", ".e1", "- 1", "+-1", "x", " ", "0x"}},
                   {2, {"2,5"}},
                   {infinity, {"1e999", "1e999x", "1.7976931348623159e308", "infinit"}},
                   {-infinity, {"-1e999"}},
                   {nan, {"nan("}}},
                  true);
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

// Texts that are hard to round, and texts of every form.
class DecimalTexts
{
public:
    std::string next()
    {
        const int form = random(4);
        if (form == 0)
            return scientific(anyDouble(), random(25));
        if (form == 1)
            return nearMiddle(random(2) == 0 ? anyDouble() : std::ldexp(1.0 + random(1000), random(100) - 50));
        if (form == 2)
            return digits(1 + random(30)) + 'e' + std::to_string(random(700) - 360);
        return digits(random(25)) + '.' + digits(1 + random(25)) + 'e' + std::to_string(random(60) - 30);
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

    template <typename Real>
    static std::string scientific(Real value, int precision)
    {
        char text[1000];
        return {text, std::to_chars(text, std::end(text), value, std::chars_format::scientific, precision).ptr};
    }

    // The middle between a number and the next one, where a long double can hold it: in all of its digits, cut, or a
    // little beside it.
    std::string nearMiddle(double value)
    {
        int exponent = 0;
        const auto mantissa = static_cast<int64_t>(std::ldexp(std::frexp(value, &exponent), 53));
        const long double middle = std::ldexp(static_cast<long double>(2 * mantissa + 1), exponent - 54);
        std::string text = scientific(middle, random(3) == 0 ? 800 : 15 + random(20));
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
            ASSERT_TRUE(isSame(out, expected)) << text << " in mode " << mode << " gives " << out;
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
    std::filesystem::create_directories(folder + "/comma");
    std::ofstream(folder + "/comma/LC_NUMERIC")
        .write(reinterpret_cast<const char*>(head), sizeof(head))
        .write(body, sizeof(body));
    setenv("LOCPATH", folder.c_str(), 1);
    EXPECT_STREQ(setlocale(LC_NUMERIC, "comma"), "comma");
    EXPECT_EQ(strtod("1,5", nullptr), 1.5);
    std::filesystem::remove_all(folder);
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
    unsetenv("LOCPATH");
    EXPECT_STREQ(setlocale(LC_NUMERIC, "C"), "C");
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
