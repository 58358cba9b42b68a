#include <cUtil/convert.h>

#include "support/inject.h"
#include "support/refusal.h"
#include "support/scale.h"

#include <gmock/gmock.h>

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

constexpr int untouched = 77;

// What a call leaves in its out variable and in errno, and how it fails.
struct Outcome {
    std::string value;
    int error;
    Failure failure;
};

template <typename Integer>
Outcome outcomeOf(Member<Integer> member, int32_t base, const std::string& text)
{
    Integer out = untouched;
    errno = EDOM;
    Failure failure = failureOf([&] { return member(&out, base, text.c_str()); });
    return {std::to_string(out), errno, std::move(failure)};
}

std::string textOf(uint64_t value, int base)
{
    char text[64];
    return {text, std::to_chars(text, std::end(text), value, base).ptr};
}

// A text gives a value, and a failure if it is no number or too large for its type.
template <typename Integer>
void expectReading(const char* name, Member<Integer> member, int32_t base, const std::string& text, Integer value,
                   bool fails = false)
{
    SCOPED_TRACE(std::string(name) + " '" + text + "' base " + std::to_string(base));
    const Outcome outcome = outcomeOf(member, base, text);
    EXPECT_EQ(outcome.value, std::to_string(value));
    if (fails) {
        EXPECT_EQ(outcome.failure, badNumber(name, text, std::to_string(static_cast<uint32_t>(base))));
    } else {
        EXPECT_EQ(outcome.failure.code, 0U);
        EXPECT_EQ(outcome.error, 0);
    }
}

// A border is taken, with a fraction of zeros, too. The next number is not: wide members then give the border.
template <typename Integer>
void expectBorders(const char* name, Member<Integer> member)
{
    struct {
        int32_t base;
        int digits; // the base that they are written in
        const char* prefix;
    } const forms[] = {{2, 2, ""}, {10, 10, ""}, {16, 16, "0X"}, {36, 36, ""}, {0, 10, ""}, {0, 8, "0"}, {0, 16, "0x"}};
    for (const auto& form : forms) {
        for (const Integer border : {std::numeric_limits<Integer>::min(), std::numeric_limits<Integer>::max()}) {
            const auto bits = static_cast<uint64_t>(border);
            const uint64_t magnitude = border < 0 ? 0 - bits : bits;
            const std::string prefix = std::string(border < 0 ? "-" : " +") + form.prefix;
            const std::string text = prefix + textOf(magnitude, form.digits);
            expectReading(name, member, form.base, text, border);
            expectReading(name, member, form.base, text + ".00", border);
            if (border != 0) {
                const std::string beyond =
                    magnitude != UINT64_MAX ? prefix + textOf(magnitude + 1, form.digits) : text + '0';
                expectReading(name, member, form.base, beyond, sizeof(border) >= 4 ? border : Integer{untouched}, true);
            }
        }
    }
}

TEST(Convert, everyIntegerHasItsRangeInEveryBase)
{
    expectBorders("cu_Convert_sint8", cu_Convert_sint8);
    expectBorders("cu_Convert_uint8", cu_Convert_uint8);
    expectBorders("cu_Convert_sint16", cu_Convert_sint16);
    expectBorders("cu_Convert_uint16", cu_Convert_uint16);
    expectBorders("cu_Convert_sint32", cu_Convert_sint32);
    expectBorders("cu_Convert_uint32", cu_Convert_uint32);
    expectBorders("cu_Convert_sint64", cu_Convert_sint64);
    expectBorders("cu_Convert_uint64", cu_Convert_uint64);
}

TEST(Convert, integersAreReadLikeStrtolDoesIt)
{
    struct {
        int32_t value;
        std::vector<const char*> texts;
        int32_t base = 10;
        bool fails = true;
    } const rows[] = {
        {0, {"", ".0"}, 10, false},
        {-255, {"-0xFf", " \t\n\v\f\r-fF.0"}, 16, false},
        {42, {"42.", "42.01", "42.0 ", "42 "}},
        {0, {"0x", "08"}, 0},
        {INT32_MAX, {"zzzzzzzzzzzzzzzzzzzz"}, 36},
        {0, {"1", " "}, -1},
        {0, {"1"}, INT32_MIN},
    };
    for (const auto& row : rows) {
        for (const char* text : row.texts)
            expectReading("cu_Convert_sint32", cu_Convert_sint32, row.base, text, row.value, row.fails);
    }
    EXPECT_EQ(outcomeOf(cu_Convert_sint32, 37, "").failure.code, 0U); // a bad base takes an empty text only
    // A sign behind white space negates an unsigned number, within the range of the wider member.
    expectReading<uint32_t>("cu_Convert_uint32", cu_Convert_uint32, 10, " -1", UINT32_MAX);
    expectReading<uint64_t>("cu_Convert_uint64", cu_Convert_uint64, 10, " -18446744073709551616", UINT64_MAX, true);
    expectReading<uint16_t>("cu_Convert_uint16", cu_Convert_uint16, 10, " -4294967295", 1);
    expectReading<uint16_t>("cu_Convert_uint16", cu_Convert_uint16, 10, " -1", untouched, true);
    expectReading<uint8_t>("cu_Convert_uint8", cu_Convert_uint8, 10, "300.0", untouched, true);
}

TEST(Convert, aFailureNamesWhoFoundItAndWhoPassedItOn)
{
    // The text is told without a fraction of zeros.
    const Outcome tooLarge = outcomeOf(cu_Convert_sint8, 10, "99999999999.00");
    EXPECT_EQ(tooLarge.failure, badNumber("cu_Convert_sint32", "99999999999", "10"));
    EXPECT_EQ(tooLarge.value, std::to_string(untouched));
    EXPECT_THAT(support::trace(), testing::MatchesRegex("cu_Convert_sint16  -  .*\ncu_Convert_sint8  -  .*\n"));
    EXPECT_EQ(outcomeOf(cu_Convert_sint32, 16, "-0X.0").failure, badNumber("cu_Convert_sint32", "-0X", "16"));

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

TEST(Convert, badArgumentsAreRefused)
{
    std::tuple<bool, char, int8_t, uint8_t, int16_t, uint16_t, int32_t, uint32_t, int64_t, uint64_t, float, double> out;
    const auto addresses = std::apply([](auto&... value) { return std::tuple{"1", &value...}; }, out);
    EXPECT_NULLS_REFUSED(file, addresses, cu_Convert_bool, cu_Convert_char, cu_Convert_sint8, cu_Convert_uint8,
                         cu_Convert_sint16, cu_Convert_uint16, cu_Convert_sint32, cu_Convert_uint32, cu_Convert_sint64,
                         cu_Convert_uint64, cu_Convert_ieee32, cu_Convert_ieee64);
    char character = 'x';
    EXPECT_REFUSED(cu_Convert_char(&character, ""), "cu_Convert_char", file);
    EXPECT_EQ(character, 'x');
    for (const auto& [name, outcome] : {std::pair{"cu_Convert_sint8", outcomeOf(cu_Convert_sint8, 10, "")},
                                        {"cu_Convert_uint8", outcomeOf(cu_Convert_uint8, 10, "")}}) {
        EXPECT_EQ(outcome.failure, (Failure{cu_ERROR_COM_INVALID_ARGUMENT, name, file, ""}));
        EXPECT_EQ(outcome.value, std::to_string(untouched));
    }
}

TEST(Convert, booleansAreFourWordsAndACharacterIsTheFirstOne)
{
    for (const char* word : {"0", "false", "fALSE", "1", "true", "TRUE"}) {
        const bool expected = strchr("1tT", word[0]) != nullptr;
        bool out = !expected;
        EXPECT_EQ(cu_Convert_bool(&out, word), 0U) << word;
        EXPECT_EQ(out, expected) << word;
    }
    for (const std::string word : {"", " 1", "01", "tru", "falsex"}) {
        bool out = true;
        EXPECT_FAILURE(cu_Convert_bool(&out, word.c_str()), cu_ERROR_CONVERSION_FAILED, "cu_Convert_bool", file,
                       "Invalid input for conversion '" + word + '\'');
        EXPECT_TRUE(out);
    }
    char out = '\0';
    EXPECT_EQ(cu_Convert_char(&out, "\xffy"), 0U);
    EXPECT_EQ(out, '\xff');
}

bool isSame(double a, double b)
{
    return std::bit_cast<uint64_t>(a) == std::bit_cast<uint64_t>(b);
}

TEST(Convert, doublesAreReadLikeStrtodDoesIt)
{
    struct {
        double value;
        std::vector<std::string> texts;
        bool fails = true;
    } const rows[] = {
        {2.5, {" \t\n\v\f\r+.25e+1", "0X2.8", "0." + std::string(200000, '0') + "25e200001"}, false},
        {-0.0, {"-0", "-0e99999999999999999999"}, false},
        {2.5, {"2.5 ", "2.5.", "2.5e+", "0x2.8p"}},
        {0, {".", ".e1", "- 1"}},
        {infinity, {"1e999", "1.7976931348623159e308"}},
    };
    for (const auto& row : rows) {
        for (const std::string& text : row.texts) {
            double out = untouched;
            const Failure failure = failureOf([&] { return cu_Convert_ieee64(&out, text.c_str()); });
            EXPECT_TRUE(isSame(out, row.value)) << text << ' ' << out;
            EXPECT_EQ(failure.code, row.fails ? cu_ErrorCode{cu_ERROR_CONVERSION_FAILED} : 0) << text;
            EXPECT_EQ(failure.description, row.fails ? "source='" + text + '\'' : "");
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

// Texts that are hard to round, and texts of every form.
std::string decimalText(std::mt19937_64& random)
{
    const auto below = [&](unsigned bound) { return static_cast<int>(random() % bound); };
    const auto scientific = [](auto value, int precision) {
        char text[1000];
        const auto end = std::to_chars(text, std::end(text), value, std::chars_format::scientific, precision).ptr;
        return std::string(text, end);
    };
    const std::string sign = below(2) == 0 ? "-" : "";
    const int form = below(5);
    if (form < 2) {
        return sign + std::to_string(random()).substr(0, static_cast<std::size_t>(below(20))) + '.' +
               std::to_string(random()) + 'e' + std::to_string(form == 0 ? below(700) - 360 : below(60) - 40);
    }
    const uint64_t bits = random() % (below(8) == 0 ? 1ULL << 52 : 0x7FEULL << 52);
    const double value = form == 2 ? std::ldexp(1.0 + below(1000), below(100) - 50) : std::bit_cast<double>(bits);
    if (form == 3)
        return sign + scientific(value, below(25));
    // The middle between a number and the next one, where a long double can hold it: in all of its digits, cut, or a
    // little beside it.
    const auto middle = (static_cast<long double>(value) + std::nextafter(value, infinity)) / 2;
    std::string text = sign + scientific(middle, below(3) == 0 ? 800 : 15 + below(20));
    if (below(2) == 0)
        text.insert(text.find('e'), below(2) == 0 ? "0001" : "0000");
    return text;
}

TEST(Convert, doublesAreRoundedAsStrtodRoundsThemInEveryMode)
{
    const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
    std::mt19937_64 random(20240607);
    for (int i = 0; i < support::scaled(100'000); ++i) {
        const std::string text = decimalText(random);
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
            ASSERT_TRUE(code != 0 || error == expectedError) << text;
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
    std::jthread watcher([](const std::stop_token& stop) {
        while (!stop.stop_requested())
            EXPECT_STREQ(setlocale(LC_NUMERIC, nullptr), "comma");
    });
    double out = 0;
    for (int i = 0; i < support::scaled(100'000); ++i) {
        for (const char* text : {"1.5", "0x1.8", "15000000000000000000000000000000000000000000000e-46"}) {
            out = 0;
            EXPECT_EQ(cu_Convert_ieee64(&out, text), 0U) << text;
            EXPECT_EQ(out, 1.5) << text;
        }
        EXPECT_EQ(cu_Convert_ieee64(&out, "1,5"), cu_ERROR_CONVERSION_FAILED);
    }
    watcher.request_stop();
    watcher.join();
    // The board runs all tests in one process.
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
