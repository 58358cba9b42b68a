#include "internal/variantConversion.h"

#include <cUtil/convert.h>
#include <cUtil/tools/safeStringOps.h>

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <limits>
#include <utility>

namespace
{

// Beyond the range of a single there is infinity.
static_assert(std::numeric_limits<float>::is_iec559 && std::numeric_limits<double>::is_iec559);

// A number in the widest type of its kind. Singles stay what they are, as their limits differ from those of doubles.
struct Number {
    enum { isSigned, isUnsigned, isSingle, isDouble } kind;
    union {
        int64_t sint;
        uint64_t uint;
        float ieee32;
        double ieee64;
    };

    Number(int64_t value) : kind(isSigned), sint(value) {}
    Number(uint64_t value) : kind(isUnsigned), uint(value) {}
    Number(float value) : kind(isSingle), ieee32(value) {}
    Number(double value) : kind(isDouble), ieee64(value) {}
};

// Calls what takes any kind of number.
template <typename Use>
auto use(const Number& number, Use call)
{
    switch (number.kind) {
    case Number::isSigned:
        return call(number.sint);
    case Number::isUnsigned:
        return call(number.uint);
    case Number::isSingle:
        return call(number.ieee32);
    default:
        return call(number.ieee64);
    }
}

bool isNumber(cu_VariantType type)
{
    return type >= cu_VARIANT_BOOL && type <= cu_VARIANT_IEEE64;
}

Number numberOf(const cu_Variant& variant)
{
    switch (variant.type) {
    case cu_VARIANT_BOOL:
        return uint64_t{variant.value.boolean != 0};
    case cu_VARIANT_SINT8:
        return int64_t{variant.value.sint8};
    case cu_VARIANT_UINT8:
        return uint64_t{variant.value.uint8};
    case cu_VARIANT_SINT16:
        return int64_t{variant.value.sint16};
    case cu_VARIANT_UINT16:
        return uint64_t{variant.value.uint16};
    case cu_VARIANT_SINT32:
        return int64_t{variant.value.sint32};
    case cu_VARIANT_UINT32:
        return uint64_t{variant.value.uint32};
    case cu_VARIANT_SINT64:
        return variant.value.sint64;
    case cu_VARIANT_UINT64:
        return variant.value.uint64;
    case cu_VARIANT_IEEE32:
        return variant.value.ieee32;
    default:
        return variant.value.ieee64;
    }
}

// What an integer type holds.
// Compatibility: singles and doubles are held against its limits as they have them, where 2^31 - 1 may be 2^31.
struct Range {
    int64_t minimum;
    uint64_t maximum;
    float singles[2];
    double doubles[2];
};

template <typename Integer>
constexpr Range rangeOf()
{
    constexpr Integer minimum = std::numeric_limits<Integer>::min();
    constexpr Integer maximum = std::numeric_limits<Integer>::max();
    return {minimum,
            maximum,
            {static_cast<float>(minimum), static_cast<float>(maximum)},
            {static_cast<double>(minimum), static_cast<double>(maximum)}};
}

constexpr Range ranges[] = {rangeOf<int8_t>(),  rangeOf<uint8_t>(),  rangeOf<int16_t>(), rangeOf<uint16_t>(),
                            rangeOf<int32_t>(), rangeOf<uint32_t>(), rangeOf<int64_t>(), rangeOf<uint64_t>()};

// Each gives the integer in two's complement, unless it is out of range.

bool toInteger(int64_t value, const Range& range, uint64_t& integer)
{
    integer = static_cast<uint64_t>(value);
    return value < 0 ? value >= range.minimum : integer <= range.maximum;
}

bool toInteger(uint64_t value, const Range& range, uint64_t& integer)
{
    integer = value;
    return value <= range.maximum;
}

template <typename Float>
bool truncate(Float value, const Float (&limits)[2], uint64_t maximum, uint64_t& integer)
{
    if (value < limits[0] || value > limits[1])
        return false;
    if (value == limits[1])
        integer = maximum; // which the limit may exceed by one
    else if (value < 0)
        integer = static_cast<uint64_t>(static_cast<int64_t>(value));
    else
        integer = std::isnan(value) ? 0 : static_cast<uint64_t>(value); // a NaN passes every bound
    return true;
}

bool toInteger(float value, const Range& range, uint64_t& integer)
{
    return truncate(value, range.singles, range.maximum, integer);
}

bool toInteger(double value, const Range& range, uint64_t& integer)
{
    return truncate(value, range.doubles, range.maximum, integer);
}

bool convertNumber(const Number& number, cu_Variant& result)
{
    cu_VariantValue& value = result.value;
    if (result.type == cu_VARIANT_BOOL) {
        value.boolean = use(number, [](auto given) { return given != 0; });
        return true;
    }
    if (result.type == cu_VARIANT_IEEE32) {
        value.ieee32 = use(number, [](auto given) { return static_cast<float>(given); });
        return true;
    }
    if (result.type == cu_VARIANT_IEEE64) {
        value.ieee64 = use(number, [](auto given) { return static_cast<double>(given); });
        return true;
    }

    const Range& range = ranges[result.type - cu_VARIANT_SINT8];
    uint64_t integer = 0;
    if (!use(number, [&](auto given) { return toInteger(given, range, integer); }))
        return false;
    switch (result.type) {
    case cu_VARIANT_SINT8:
    case cu_VARIANT_UINT8:
        value.uint8 = static_cast<uint8_t>(integer);
        break;
    case cu_VARIANT_SINT16:
    case cu_VARIANT_UINT16:
        value.uint16 = static_cast<uint16_t>(integer);
        break;
    case cu_VARIANT_SINT32:
    case cu_VARIANT_UINT32:
        value.uint32 = static_cast<uint32_t>(integer);
        break;
    default:
        value.uint64 = integer;
    }
    return true;
}

cu_ErrorCode parseNumber(const char* text, cu_Variant& result)
{
    cu_VariantValue& value = result.value;
    switch (result.type) {
    case cu_VARIANT_BOOL: {
        bool truth = false;
        const cu_ErrorCode code = cu_Convert_bool(&truth, text);
        value.boolean = truth;
        return code;
    }
    case cu_VARIANT_SINT8:
        return cu_Convert_sint8(&value.sint8, 0, text);
    case cu_VARIANT_UINT8:
        return cu_Convert_uint8(&value.uint8, 0, text);
    case cu_VARIANT_SINT16:
        return cu_Convert_sint16(&value.sint16, 0, text);
    case cu_VARIANT_UINT16:
        return cu_Convert_uint16(&value.uint16, 0, text);
    case cu_VARIANT_SINT32:
        return cu_Convert_sint32(&value.sint32, 0, text);
    case cu_VARIANT_UINT32:
        return cu_Convert_uint32(&value.uint32, 0, text);
    case cu_VARIANT_SINT64:
        return cu_Convert_sint64(&value.sint64, 0, text);
    case cu_VARIANT_UINT64:
        return cu_Convert_uint64(&value.uint64, 0, text);
    case cu_VARIANT_IEEE32:
        return cu_Convert_ieee32(&value.ieee32, text);
    default:
        return cu_Convert_ieee64(&value.ieee64, text);
    }
}

cu_ErrorCode printNumber(const cu_Variant& variant, cu_Variant& result)
{
    char text[1024];
    const Number number = numberOf(variant);
    if (variant.type == cu_VARIANT_BOOL)
        snprintf(text, sizeof(text), "%s", number.uint != 0 ? "true" : "false");
    else if (number.kind == Number::isSigned)
        snprintf(text, sizeof(text), "%" PRId64, number.sint);
    else if (number.kind == Number::isUnsigned)
        snprintf(text, sizeof(text), "%" PRIu64, number.uint);
    else
        snprintf(text, sizeof(text), "%f", use(number, [](auto given) { return static_cast<double>(given); }));
    return cu_str_clone(&result.value.string, text);
}

} // namespace

namespace cu::internal
{

cu_ErrorCode convertVariant(cu_Variant* variant, cu_VariantType type, Place place)
{
    if (variant == nullptr)
        return reportInvalidArgument(place);
    if (variant->type > cu_VARIANT_VECTOR)
        return report(cu_ERROR_COM_INVARIANT, 0, place, unexpectedVariantType, static_cast<int>(variant->type));
    if (variant->type == type)
        return 0;

    cu_Variant result = {type, {}};
    if (variant->type == cu_VARIANT_STRING && isNumber(type)) {
        CU_TRY_AT(place, parseNumber(variant->value.string, result));
    } else if (isNumber(variant->type) && type == cu_VARIANT_STRING) {
        CU_TRY_AT(place, printNumber(*variant, result));
    } else if (variant->type == cu_VARIANT_STRING && type == cu_VARIANT_BINARY) {
        const std::size_t length = strlen(variant->value.string);
        if (!std::in_range<uint32_t>(length))
            return report(cu_ERROR_CONVERSION_FAILED, 0, place, nullptr);
        result.value.binary = {static_cast<uint8_t*>(static_cast<void*>(variant->value.string)),
                               static_cast<uint32_t>(length)};
        variant->type = cu_VARIANT_NULL; // the characters stay
    } else if (!isNumber(variant->type) || !isNumber(type) || !convertNumber(numberOf(*variant), result)) {
        return report(cu_ERROR_CONVERSION_FAILED, 0, place, nullptr);
    }
    CU_TRY_AT(place, cu_Variant_free(variant));
    *variant = result;
    return 0;
}

} // namespace cu::internal
