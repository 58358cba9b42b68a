// Texts to numbers, beside what the C and the C++ library and GLib offer for it. Only GLib's call for floating-point
// numbers ignores the process's locale as ours does.
#include <cUtil/convert.h>

#include <benchmark/benchmark.h>
#include <glib.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>

namespace
{

// What is converted in turn, so that no branch is known beforehand.
using Texts = std::array<const char*, 8>;

constexpr Texts shortIntegers = {"7", "42", "-815", "1000", "65535", "-12", "300000", "99"};
constexpr Texts longIntegers = {"2147483647", "-1999999999", "1234567890", "-2147483648",
                                "1073741824", "-987654321",  "1717171717", "2000000000"};
constexpr Texts hexIntegers = {"0x1F", "0x7fffffff", "0xC0FFEE", "0x0", "0x12345678", "0xA5", "0xDEAD", "0x10000"};
constexpr Texts zeroFractions = {"7.0", "42.00", "-815.0", "1000.000", "65535.0", "-12.0", "300000.00", "99.0"};
constexpr Texts shortDoubles = {"1.5", "-0.25", "3.14159", "100", "1e6", "-273.15", "0.001", "6.02e23"};
constexpr Texts longDoubles = {"3.1415926535897931",  "-2.7182818284590451",    "1.4142135623730951e-17",
                               "0.10000000000000001", "6.6260701500000004e-34", "-1.7976931348623157e+300",
                               "299792458.12345678",  "1.2345678901234567e+57"};
constexpr Texts manyDigits = {"3.14159265358979323846264338327950288",  "-2.71828182845904523536028747135266249",
                              "1.41421356237309504880168872420969807",  "0.1000000000000000055511151231257827",
                              "0.57721566490153286060651209008240243",  "-1.61803398874989484820458683436563811",
                              "299792458.1234567890123456789012345678", "1.20205690315959428539973816151144999"};
constexpr Texts extremes = {"4.9406564584124654e-324",
                            "2.2250738585072009e-308",
                            "1.7976931348623157e308",
                            "9007199254740993.0",
                            "-1e-310",
                            "9007199254740992.5",
                            "0x1.8p3",
                            "1e308"};

template <typename Convert>
void measure(benchmark::State& state, const Texts& texts, Convert convert)
{
    std::size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(convert(texts[i++ % texts.size()]));
}

int32_t integerByOurs(const char* text)
{
    int32_t value = 0;
    cu_Convert_sint32(&value, 10, text);
    return value;
}

int32_t hexByOurs(const char* text)
{
    int32_t value = 0;
    cu_Convert_sint32(&value, 16, text);
    return value;
}

double doubleByOurs(const char* text)
{
    double value = 0;
    cu_Convert_ieee64(&value, text);
    return value;
}

// A length and a prefix are for their user to find.
int32_t integerByFromChars(const char* text)
{
    int32_t value = 0;
    std::from_chars(text, text + strlen(text), value);
    return value;
}

int32_t hexByFromChars(const char* text)
{
    int32_t value = 0;
    std::from_chars(text + 2, text + strlen(text), value, 16);
    return value;
}

double doubleByFromChars(const char* text)
{
    double value = 0;
    std::from_chars(text, text + strlen(text), value);
    return value;
}

void registerIntegers(const std::string& work, const Texts& texts)
{
    benchmark::RegisterBenchmark((work + "/cUtil").c_str(), [&](auto& s) { measure(s, texts, integerByOurs); });
    benchmark::RegisterBenchmark((work + "/strtol").c_str(), [&](auto& s) {
        measure(s, texts, [](const char* text) { return strtol(text, nullptr, 10); });
    });
    benchmark::RegisterBenchmark((work + "/std::from_chars").c_str(),
                                 [&](auto& s) { measure(s, texts, integerByFromChars); });
}

void registerDoubles(const std::string& work, const Texts& texts)
{
    benchmark::RegisterBenchmark((work + "/cUtil").c_str(), [&](auto& s) { measure(s, texts, doubleByOurs); });
    benchmark::RegisterBenchmark((work + "/strtod").c_str(), [&](auto& s) {
        measure(s, texts, [](const char* text) { return strtod(text, nullptr); });
    });
    benchmark::RegisterBenchmark((work + "/g_ascii_strtod").c_str(), [&](auto& s) {
        measure(s, texts, [](const char* text) { return g_ascii_strtod(text, nullptr); });
    });
    benchmark::RegisterBenchmark((work + "/std::from_chars").c_str(),
                                 [&](auto& s) { measure(s, texts, doubleByFromChars); });
}

const int registered = [] {
    registerIntegers("integer, 1 to 6 digits", shortIntegers);
    registerIntegers("integer, 10 digits", longIntegers);
    registerIntegers("integer, fraction of zeros", zeroFractions);
    benchmark::RegisterBenchmark("hexadecimal/cUtil", [](auto& s) { measure(s, hexIntegers, hexByOurs); });
    benchmark::RegisterBenchmark("hexadecimal/strtol", [](auto& s) {
        measure(s, hexIntegers, [](const char* text) { return strtol(text, nullptr, 16); });
    });
    benchmark::RegisterBenchmark("hexadecimal/std::from_chars",
                                 [](auto& s) { measure(s, hexIntegers, hexByFromChars); });
    registerDoubles("double, 1 to 6 digits", shortDoubles);
    registerDoubles("double, 17 digits", longDoubles);
    registerDoubles("double, 35 digits", manyDigits);
    registerDoubles("double, extreme", extremes);
    return 0;
}();

} // namespace
