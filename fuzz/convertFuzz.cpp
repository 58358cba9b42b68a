// cu_Convert_* beside the standard functions on a copy of the text. The first byte of the input tells the base, the
// rest is the text. The standard ones are asked for 64 bits; what they would say for fewer follows from that.
#include "holds.h"

#include <cUtil/convert.h>
#include <cUtil/errorCodes.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

namespace
{

constexpr int untouched = 77;

/// What a member gives: its code, and its value where it sets one.
template <typename T>
struct Result {
    cu_ErrorCode code;
    T value;
};

int baseOf(unsigned char byte)
{
    constexpr int favourites[] = {0, 10, 16, 8, 2, 36};
    return byte < std::size(favourites) ? favourites[byte] : byte % 40 - 2;
}

template <typename Integer>
Result<Integer> expectedInteger(int base, const std::string& text)
{
    using Limits = std::numeric_limits<Integer>;
    if (!Limits::is_signed && text[0] == '-')
        return {cu_ERROR_CONVERSION_FAILED, untouched};

    std::string copy = text;
    const std::size_t point = copy.find('.');
    if (point < copy.size() - 1 && copy.find_first_not_of('0', point + 1) == std::string::npos)
        copy.resize(point);

    char* end = copy.data();
    errno = 0;
    Integer value = 0;
    bool clamped = false;
    if (base < 0 || base == 1 || base > 36) {
        // AddressSanitizer's own strtoll() sets the end to anything here.
    } else if constexpr (Limits::is_signed) {
        const long long wide = strtoll(copy.c_str(), &end, base);
        value = static_cast<Integer>(std::clamp<long long>(wide, Limits::min(), Limits::max()));
        clamped = errno == ERANGE || value != wide;
    } else {
        const unsigned long long wide = strtoull(copy.c_str(), &end, base);
        const std::size_t first = copy.find_first_not_of(" \t\n\v\f\r");
        const bool negated = first != std::string::npos && copy[first] == '-';
        const unsigned long long magnitude = negated ? 0 - wide : wide;
        clamped = errno == ERANGE || magnitude > Limits::max();
        value = clamped ? Limits::max() : static_cast<Integer>(wide);
    }
    return {clamped || *end != '\0' ? cu_ErrorCode{cu_ERROR_CONVERSION_FAILED} : 0U, value};
}

template <typename Integer, typename Wide>
Result<Integer> narrowed(Result<Wide> wide)
{
    if (wide.code == 0 &&
        (wide.value < std::numeric_limits<Integer>::min() || wide.value > std::numeric_limits<Integer>::max()))
        wide.code = cu_ERROR_CONVERSION_FAILED;
    return {wide.code, wide.code == 0 ? static_cast<Integer>(wide.value) : Integer{untouched}};
}

Result<double> expectedDouble(const std::string& text)
{
    char* end = nullptr;
    errno = 0;
    const double value = strtod(text.c_str(), &end);
    const bool overflow = std::isinf(value) && errno == ERANGE;
    return {overflow || *end != '\0' ? cu_ErrorCode{cu_ERROR_CONVERSION_FAILED} : 0U, value};
}

template <typename T>
bool same(T a, T b)
{
    if constexpr (std::is_floating_point_v<T>)
        return (std::isnan(a) && std::isnan(b)) || (a == b && std::signbit(a) == std::signbit(b));
    return a == b;
}

template <typename T, typename Call>
void compare(Result<T> expected, Call call)
{
    T out = untouched;
    HOLDS(call(&out) == expected.code);
    HOLDS(same(out, expected.value));
}

template <typename Integer>
void compare(cu_ErrorCode (*member)(Integer*, int32_t, const char*), int base, const std::string& text,
             Result<Integer> expected)
{
    if (sizeof(Integer) == 1 && text.empty())
        expected = {cu_ERROR_COM_INVALID_ARGUMENT, untouched};
    compare(expected, [&](Integer* out) { return member(out, base, text.c_str()); });
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    if (size == 0)
        return 0;
    const int base = baseOf(data[0]);
    const std::string text(std::string(data + 1, data + size).c_str());

    const auto s32 = expectedInteger<int32_t>(base, text);
    const auto u32 = expectedInteger<uint32_t>(base, text);
    compare(cu_Convert_sint8, base, text, narrowed<int8_t>(s32));
    compare(cu_Convert_uint8, base, text, narrowed<uint8_t>(u32));
    compare(cu_Convert_sint16, base, text, narrowed<int16_t>(s32));
    compare(cu_Convert_uint16, base, text, narrowed<uint16_t>(u32));
    compare(cu_Convert_sint32, base, text, s32);
    compare(cu_Convert_uint32, base, text, u32);
    compare(cu_Convert_sint64, base, text, expectedInteger<int64_t>(base, text));
    compare(cu_Convert_uint64, base, text, expectedInteger<uint64_t>(base, text));

    const Result<double> real = expectedDouble(text);
    compare(real, [&](double* out) { return cu_Convert_ieee64(out, text.c_str()); });
    compare<float>({real.code, real.code == 0 ? static_cast<float>(real.value) : float{untouched}},
                   [&](float* out) { return cu_Convert_ieee32(out, text.c_str()); });

    bool truth = false;
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](char c) { return c >= 'A' && c <= 'Z' ? c + 32 : c; });
    const bool isTrue = lower == "1" || lower == "true";
    const bool isFalse = lower == "0" || lower == "false";
    HOLDS(cu_Convert_bool(&truth, text.c_str()) == (isTrue || isFalse ? 0 : cu_ERROR_CONVERSION_FAILED));
    HOLDS(truth == isTrue);
    return 0;
}
