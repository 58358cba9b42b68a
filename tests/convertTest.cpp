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
#include <thread>
#include <unistd.h>
#include <utility>

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

// A border is taken, with a fraction of zeros, too. The next number is not: wide members then give the border.
template <typename Integer>
void expectBorders(const std::string& name, Member<Integer> member)
{
    for (const Integer border : {std::numeric_limits<Integer>::min(), std::numeric_limits<Integer>::max()}) {
        const std::string text = std::to_string(border);
        SCOPED_TRACE(name + ' ' + text);
        const Outcome taken = outcomeOf(member, 10, text + ".00");
        EXPECT_EQ(taken.value, text);
        EXPECT_EQ(taken.failure.code, 0U);
        EXPECT_EQ(taken.error, 0);
        if (border == 0)
            continue;
        std::string next = text;
        ++next.back();
        const Outcome beyond = outcomeOf(member, 0, next);
        EXPECT_EQ(beyond.value, sizeof(border) >= 4 ? text : std::to_string(untouched));
        EXPECT_EQ(beyond.failure.code, cu_ErrorCode{cu_ERROR_CONVERSION_FAILED});
        EXPECT_EQ(beyond.failure.function, name);
    }
}

// What a number is, in which base and of which value, is beside strtol() and strtod() in the fuzz target.
TEST(Convert, everyIntegerHasItsRange)
{
    expectBorders("cu_Convert_sint8", cu_Convert_sint8);
    expectBorders("cu_Convert_uint8", cu_Convert_uint8);
    expectBorders("cu_Convert_sint16", cu_Convert_sint16);
    expectBorders("cu_Convert_uint16", cu_Convert_uint16);
    expectBorders("cu_Convert_sint32", cu_Convert_sint32);
    expectBorders("cu_Convert_uint32", cu_Convert_uint32);
    expectBorders("cu_Convert_sint64", cu_Convert_sint64);
    expectBorders("cu_Convert_uint64", cu_Convert_uint64);
    EXPECT_EQ(outcomeOf(cu_Convert_sint32, 16, " -0xfF").value, "-255");
    EXPECT_EQ(outcomeOf(cu_Convert_uint64, 36, "zZ").value, "1295");
}

TEST(Convert, aFailureNamesWhoFoundItAndWhoPassedItOn)
{
    // The text is told without a fraction of zeros, and the base as an unsigned number.
    EXPECT_EQ(outcomeOf(cu_Convert_sint8, 10, "99999999999.00").failure,
              badNumber("cu_Convert_sint32", "99999999999", "10"));
    EXPECT_THAT(support::trace(), testing::MatchesRegex("cu_Convert_sint16  -  .*\ncu_Convert_sint8  -  .*\n"));
    EXPECT_EQ(outcomeOf(cu_Convert_uint64, -1, " 1").failure, badNumber("cu_Convert_uint64", " 1", "4294967295"));
    EXPECT_EQ(outcomeOf(cu_Convert_uint8, 10, "300.0").failure, badNumber("cu_Convert_uint8", "300.0", "10"));
    EXPECT_EQ(outcomeOf(cu_Convert_uint64, 0, "-1").failure,
              (Failure{cu_ERROR_CONVERSION_FAILED, "cu_Convert_uint64", file, "The argument str (-1) is negative!"}));
    EXPECT_EQ(outcomeOf(cu_Convert_uint8, 0, "-1").failure.function, "cu_Convert_uint32");
}

TEST(Convert, onlyLongTextsNeedMemory)
{
    const std::string zeros(254, '0');
    EXPECT_EQ(outcomeOf(cu_Convert_uint64, 10, zeros + "12." + zeros).value, "12");
    EXPECT_EQ(outcomeOf(cu_Convert_uint64, 10, zeros + "12x.0").failure,
              badNumber("cu_Convert_uint64", zeros + "12x", "10"));

    const auto noMemory = support::Injection::ofEvery("strdup", ENOMEM);
    for (const std::string& text : {zeros + "7", ' ' + zeros.substr(3) + "7.0"})
        EXPECT_EQ(outcomeOf(cu_Convert_sint32, 10, text).value, "7");
    EXPECT_EQ(outcomeOf(cu_Convert_sint32, 10, "7x").failure, badNumber("cu_Convert_sint32", "7x", "10"));
    for (const std::string& text : {zeros + "12", "1." + zeros}) {
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
    EXPECT_EQ(cu_Convert_char(&character, "\xffy"), 0U);
    EXPECT_EQ(character, '\xff');
    for (const auto& [name, outcome] : {std::pair{"cu_Convert_sint8", outcomeOf(cu_Convert_sint8, 10, "")},
                                        {"cu_Convert_uint8", outcomeOf(cu_Convert_uint8, 10, "")}}) {
        EXPECT_EQ(outcome.failure, (Failure{cu_ERROR_COM_INVALID_ARGUMENT, name, file, ""}));
        EXPECT_EQ(outcome.value, std::to_string(untouched));
    }
    bool truth = true;
    EXPECT_FAILURE(cu_Convert_bool(&truth, "falsex"), cu_ERROR_CONVERSION_FAILED, "cu_Convert_bool", file,
                   "Invalid input for conversion 'falsex'");
    EXPECT_TRUE(truth);
}

TEST(Convert, aDoubleIsSetEvenIfItFailsAndAFloatIsNot)
{
    double wide = untouched;
    EXPECT_EQ(cu_Convert_ieee64(&wide, ("0." + std::string(200000, '0') + "25e200001").c_str()), 0U);
    EXPECT_EQ(wide, 2.5);
    EXPECT_FAILURE(cu_Convert_ieee64(&wide, "0x5p"), cu_ERROR_CONVERSION_FAILED, "cu_Convert_ieee64", file,
                   "source='0x5p'");
    EXPECT_EQ(wide, 5);
    float narrow = untouched;
    EXPECT_FAILURE(cu_Convert_ieee32(&narrow, "1e999"), cu_ERROR_CONVERSION_FAILED, "cu_Convert_ieee64", file,
                   "source='1e999'");
    EXPECT_THAT(support::trace(), HasSubstr("cu_Convert_ieee32  -  "));
    EXPECT_EQ(narrow, float{untouched});
    // Rounded twice: to the middle between two floats, and from there to the even one.
    EXPECT_EQ(cu_Convert_ieee32(&narrow, "1.00000005960464478"), 0U);
    EXPECT_EQ(narrow, 1.0F);

    const support::Injection noLocale("newlocale", ENOENT);
    EXPECT_FAILURE(cu_Convert_ieee64(&wide, "0x1"), cu_ERROR_COM_INVARIANT, "setLocale", file, "");
    EXPECT_THAT(support::trace(), HasSubstr("cu_Convert_ieee64  -  "));
    EXPECT_EQ(wide, 5);
}

// Texts that are hard to round, and texts of every form.
std::string decimalText(std::mt19937_64& random)
{
    const auto below = [&](unsigned bound) { return static_cast<int>(random() % bound); };
    const std::string sign = below(2) == 0 ? "-" : "";
    if (below(2) == 0) {
        return sign + std::to_string(random()).substr(0, static_cast<std::size_t>(below(20))) + '.' +
               std::to_string(random()) + 'e' + std::to_string(below(2) == 0 ? below(700) - 360 : below(60) - 40);
    }
    // A number, or the middle between it and the next one where a long double can hold that: in all of its digits, cut,
    // or a little beside it.
    const auto value = std::bit_cast<double>(random() % (0x7FEULL << 52));
    const auto middle = (static_cast<long double>(value) + std::nextafter(value, infinity)) / 2;
    char digits[1000];
    const auto end = std::to_chars(digits, std::end(digits), below(2) == 0 ? value : middle,
                                   std::chars_format::scientific, below(3) == 0 ? 800 : below(35));
    std::string text(digits, end.ptr);
    if (below(2) == 0 && text[1] == '.')
        text.insert(text.find('e'), "0001");
    return sign + text;
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
            ASSERT_EQ(std::bit_cast<uint64_t>(out), std::bit_cast<uint64_t>(expected))
                << text << " in mode " << mode << " gives " << out;
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
            EXPECT_EQ(cu_Convert_ieee64(&out, text), 0U) << text;
            EXPECT_EQ(std::exchange(out, 0), 1.5) << text;
        }
        EXPECT_EQ(cu_Convert_ieee64(&out, "1,5"), cu_ERROR_CONVERSION_FAILED);
    }
    watcher.request_stop();
    watcher.join();
    // The board runs all tests in one process.
    unsetenv("LOCPATH");
    EXPECT_STREQ(setlocale(LC_NUMERIC, "C"), "C");
}

} // namespace
