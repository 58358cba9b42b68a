#include <cUtil/convert.h>

#include "internal/decimal.h"
#include "internal/report.h"

#include <cUtil/tools/safeMalloc.h>
#include <cUtil/tools/safeStringOps.h>

#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <locale.h>
#include <strings.h>
#include <type_traits>

namespace
{

constexpr std::size_t ordinaryLength = 255;

// What strtol tells: the value, where the number ends, and errno.
template <typename Integer>
struct Parsed {
    Integer value;
    const char* end;
    int error;
};

uint32_t digitOf(char character)
{
    const auto byte = static_cast<unsigned char>(character);
    const uint32_t decimal = byte - uint32_t{'0'};
    if (decimal < 10)
        return decimal;
    const uint32_t letter = (byte | 0x20U) - 'a';
    return letter < 26 ? letter + 10 : UINT32_MAX;
}

// Reads as many digits as there are.
template <typename Unsigned, typename Base>
inline const char* readDigits(const char* at, Base base, Unsigned& magnitude, bool& overflow)
{
    for (uint32_t digit = 0; (digit = digitOf(*at)) < base; ++at) {
        overflow |= __builtin_mul_overflow(magnitude, Unsigned{base}, &magnitude);
        overflow |= __builtin_add_overflow(magnitude, digit, &magnitude);
    }
    return at;
}

// strtol, strtoul and their kin, with the width of the integer on every host.
template <typename Integer>
inline Parsed<Integer> parse(const char* text, int32_t base)
{
    using Limits = std::numeric_limits<Integer>;
    using Unsigned = std::make_unsigned_t<Integer>;
    using Ten = std::integral_constant<uint32_t, 10>;

    // The standard function leaves its end pointer alone here. It is given as where the text begins, so that nothing
    // but an empty text is taken.
    if (base < 0 || base == 1 || base > 36) [[unlikely]]
        return {0, text, EINVAL};

    const char* end = text;
    const char* at = internal::skipSpace(text);
    const bool negative = *at == '-';
    at += negative || *at == '+';
    if ((base == 0 || base == 16) && at[0] == '0' && (at[1] | 0x20) == 'x') {
        base = 16;
        end = at + 1; // a number unless digits follow
        at += 2;
    } else if (base == 0) {
        base = *at == '0' ? 8 : 10;
    }

    Unsigned magnitude = 0;
    bool overflow = false;
    const char* const digits = at;
    at = base == 10 ? readDigits(at, Ten{}, magnitude, overflow)
                    : readDigits(at, static_cast<uint32_t>(base), magnitude, overflow);
    if (at != digits)
        end = at;

    const bool below = std::is_signed_v<Integer> && negative;
    if (overflow || magnitude > static_cast<Unsigned>(Limits::max()) + below) [[unlikely]]
        return {below ? Limits::min() : Limits::max(), end, ERANGE};
    return {static_cast<Integer>(negative ? Unsigned{0} - magnitude : magnitude), end, 0};
}

// Where a fraction of at least one zero ends, if there is one here.
const char* skipZeroFraction(const char* at)
{
    if (at[0] == '.' && at[1] == '0') {
        do
            ++at;
        while (*at == '0');
    }
    return at;
}

// The copy of a text; a heap block when it is long.
class Copy
{
public:
    Copy() = default;
    Copy(const Copy&) = delete;
    Copy& operator=(const Copy&) = delete;

    ~Copy()
    {
        if (text_ != buffer_)
            CU_MUST(cu_safeFreeImpl(text_));
    }

    cu_ErrorCode take(const char* text)
    {
        const std::size_t length = strnlen(text, ordinaryLength + 1);
        if (length > ordinaryLength)
            return cu_str_clone(&text_, text);
        memcpy(buffer_, text, length + 1);
        return 0;
    }

    // Cuts off a fraction of zeros.
    void fixRedundantDecimalPoint()
    {
        char* point = strchr(text_, '.');
        if (point != nullptr && *skipZeroFraction(point) == '\0')
            *point = '\0';
    }

    const char* get() const { return text_; }

private:
    char buffer_[ordinaryLength + 1];
    char* text_ = buffer_;
};

// Compatibility: the description lacks its closing quotation mark.
[[gnu::cold]] cu_ErrorCode reportBadNumber(const char* text, int32_t base, internal::Place place)
{
    return internal::report(cu_ERROR_CONVERSION_FAILED, 0, place, "source='%s' base='%u", text,
                            static_cast<uint32_t>(base));
}

// Sets the value if the text is ordinary: its number is in range and all there is.
template <typename Integer>
inline bool settle(Integer* out, Parsed<Integer> parsed, const char* text)
{
    const char* end = skipZeroFraction(parsed.end);
    if (*end != '\0' || parsed.error != 0 || end - text > static_cast<std::ptrdiff_t>(ordinaryLength)) [[unlikely]]
        return false;
    errno = 0;
    *out = parsed.value;
    return true;
}

// The same for every other text.
template <typename Integer>
[[gnu::noinline]] cu_ErrorCode settleOnCopy(Integer* out, Parsed<Integer> parsed, const char* text, int32_t base,
                                            internal::Place place)
{
    Copy copy;
    CU_TRY_AT(place, copy.take(text));
    copy.fixRedundantDecimalPoint();
    errno = parsed.error;
    // Compatibility: the value is set even if the call fails.
    *out = parsed.value;
    if (parsed.error == ERANGE || copy.get()[parsed.end - text] != '\0')
        return reportBadNumber(copy.get(), base, place);
    return 0;
}

// Compatibility: only the first character is looked at. Behind white space a sign negates an unsigned number.
bool hasSign(const char* text)
{
    return text[0] == '-';
}

[[gnu::cold]] cu_ErrorCode reportSign(const char* text, internal::Place place)
{
    return internal::report(cu_ERROR_CONVERSION_FAILED, 0, place, "The argument str (%s) is negative!", text);
}

template <typename Narrow, typename Integer>
bool fits(Integer value)
{
    return value >= std::numeric_limits<Narrow>::min() && value <= std::numeric_limits<Narrow>::max();
}

// The C library has this locale at hand, so nothing is allocated. Records bear the name of this function.
cu_ErrorCode setLocale(locale_t* locale)
{
    *locale = newlocale(LC_ALL_MASK, "C", nullptr);
    return *locale != nullptr ? 0 : CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
}

} // namespace

cu_ErrorCode cu_Convert_bool(bool* out, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    if (strcmp(text, "0") == 0 || strcasecmp(text, "false") == 0)
        *out = false;
    else if (strcmp(text, "1") == 0 || strcasecmp(text, "true") == 0)
        *out = true;
    else
        return CU_REPORT(cu_ERROR_CONVERSION_FAILED, 0, "Invalid input for conversion '%s'", text);
    return 0;
}

cu_ErrorCode cu_Convert_char(char* out, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(text[0] != '\0');
    *out = text[0];
    return 0;
}

cu_ErrorCode cu_Convert_sint8(int8_t* out, int32_t base, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    // Compatibility: an empty text is refused here, and 0 for the wider members.
    CU_REQUIRE(text[0] != '\0');
    int16_t value = 0;
    CU_TRY(cu_Convert_sint16(&value, base, text));
    if (!fits<int8_t>(value))
        return reportBadNumber(text, base, CU_HERE);
    *out = static_cast<int8_t>(value);
    return 0;
}

cu_ErrorCode cu_Convert_uint8(uint8_t* out, int32_t base, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(text[0] != '\0');
    uint16_t value = 0;
    CU_TRY(cu_Convert_uint16(&value, base, text));
    if (!fits<uint8_t>(value))
        return reportBadNumber(text, base, CU_HERE);
    *out = static_cast<uint8_t>(value);
    return 0;
}

cu_ErrorCode cu_Convert_sint16(int16_t* out, int32_t base, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    int32_t value = 0;
    CU_TRY(cu_Convert_sint32(&value, base, text));
    if (!fits<int16_t>(value))
        return reportBadNumber(text, base, CU_HERE);
    *out = static_cast<int16_t>(value);
    return 0;
}

cu_ErrorCode cu_Convert_uint16(uint16_t* out, int32_t base, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    uint32_t value = 0;
    CU_TRY(cu_Convert_uint32(&value, base, text));
    if (!fits<uint16_t>(value))
        return reportBadNumber(text, base, CU_HERE);
    *out = static_cast<uint16_t>(value);
    return 0;
}

cu_ErrorCode cu_Convert_sint32(int32_t* out, int32_t base, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    const auto parsed = parse<int32_t>(text, base);
    return settle(out, parsed, text) ? 0 : settleOnCopy(out, parsed, text, base, CU_HERE);
}

cu_ErrorCode cu_Convert_uint32(uint32_t* out, int32_t base, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    if (hasSign(text))
        return reportSign(text, CU_HERE);
    const auto parsed = parse<uint32_t>(text, base);
    return settle(out, parsed, text) ? 0 : settleOnCopy(out, parsed, text, base, CU_HERE);
}

cu_ErrorCode cu_Convert_sint64(int64_t* out, int32_t base, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    const auto parsed = parse<int64_t>(text, base);
    return settle(out, parsed, text) ? 0 : settleOnCopy(out, parsed, text, base, CU_HERE);
}

cu_ErrorCode cu_Convert_uint64(uint64_t* out, int32_t base, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    if (hasSign(text))
        return reportSign(text, CU_HERE);
    const auto parsed = parse<uint64_t>(text, base);
    return settle(out, parsed, text) ? 0 : settleOnCopy(out, parsed, text, base, CU_HERE);
}

cu_ErrorCode cu_Convert_ieee64(double* out, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    if (internal::parseDecimal(text, *out)) [[likely]] {
        errno = 0;
        return 0;
    }

    locale_t locale = nullptr;
    CU_TRY(setLocale(&locale));
    char* end = nullptr;
    errno = 0;
    // Compatibility: the value is set even if the call fails.
    *out = strtod_l(text, &end, locale);
    const bool overflow = std::isinf(*out) && errno == ERANGE;
    freelocale(locale);
    if (overflow || *end != '\0')
        return CU_REPORT(cu_ERROR_CONVERSION_FAILED, 0, "source='%s'", text);
    return 0;
}

cu_ErrorCode cu_Convert_ieee32(float* out, const char* text)
{
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(text != nullptr);
    double value = 0;
    CU_TRY(cu_Convert_ieee64(&value, text));
    *out = static_cast<float>(value);
    return 0;
}
