// Variants of every type, converted to every other one, beside exact arithmetic; texts to numbers, and numbers to texts
// and back. The first byte of the input chooses the type, the rest is the value.
#include "holds.h"

#include <cUtil/errorCodes.h>
#include <cUtil/variant.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <limits>
#include <string>

namespace
{

bool isInteger(cu_VariantType type)
{
    return type >= cu_VARIANT_BOOL && type <= cu_VARIANT_UINT64;
}

bool isNumber(cu_VariantType type)
{
    return isInteger(type) || type == cu_VARIANT_IEEE32 || type == cu_VARIANT_IEEE64;
}

// Holds every value of every type exactly.
long double numberOf(const cu_Variant& variant)
{
    static_assert(std::numeric_limits<long double>::digits >= 64);
    const cu_VariantValue& value = variant.value;
    switch (variant.type) {
    case cu_VARIANT_BOOL:
        return value.boolean;
    case cu_VARIANT_SINT8:
        return value.sint8;
    case cu_VARIANT_UINT8:
        return value.uint8;
    case cu_VARIANT_SINT16:
        return value.sint16;
    case cu_VARIANT_UINT16:
        return value.uint16;
    case cu_VARIANT_SINT32:
        return value.sint32;
    case cu_VARIANT_UINT32:
        return value.uint32;
    case cu_VARIANT_SINT64:
        return static_cast<long double>(value.sint64);
    case cu_VARIANT_UINT64:
        return static_cast<long double>(value.uint64);
    case cu_VARIANT_IEEE32:
        return static_cast<long double>(value.ieee32);
    default:
        return static_cast<long double>(value.ieee64);
    }
}

// Whether a number may become one of another type, and which.
bool expected(const cu_Variant& from, cu_VariantType type, long double& result)
{
    const long double number = numberOf(from);
    if (type == cu_VARIANT_BOOL) {
        result = number != 0 ? 1 : 0;
    } else if (type == cu_VARIANT_IEEE32) {
        result = static_cast<float>(number);
    } else if (type == cu_VARIANT_IEEE64) {
        result = static_cast<double>(number);
    } else {
        const int bits = 8 << (type - cu_VARIANT_SINT8) / 2;
        const bool hasSign = (type - cu_VARIANT_SINT8) % 2 == 0;
        const long double least = hasSign ? -std::ldexp(1.0L, bits - 1) : 0;
        const long double most = std::ldexp(1.0L, hasSign ? bits - 1 : bits) - 1;
        long double bound = most;
        if (from.type == cu_VARIANT_IEEE32)
            bound = static_cast<float>(most);
        else if (from.type == cu_VARIANT_IEEE64)
            bound = static_cast<double>(most);
        if (number < least || number > bound)
            return false;
        result = std::isnan(number) ? 0 : std::min(std::trunc(number), most);
    }
    return true;
}

bool same(long double a, long double b)
{
    return a == b || (std::isnan(a) && std::isnan(b));
}

bool less(const cu_Variant& a, const cu_Variant& b)
{
    bool result = false;
    HOLDS(cu_Variant_lessThan(&result, &a, &b) == 0);
    return result;
}

// A number as a text is, read again, the number; with six decimals if it has a fraction.
void holdAgainstItsText(const cu_Variant& number)
{
    cu_Variant copy = number;
    HOLDS(cu_Variant_convert_string(&copy) == 0);
    HOLDS(cu_Variant_convert(&copy, number.type) == 0);
    const long double before = numberOf(number);
    const long double after = numberOf(copy);
    const long double precision = number.type == cu_VARIANT_IEEE32 ? 0x1p-23L : 0x1p-52L;
    HOLDS(same(before, after) ||
          (!isInteger(number.type) && std::fabs(after - before) <= 0.5000001e-6L + std::fabs(before) * precision));
}

// Vectors double at each level, so only some are let into each other.
cu_Variant variantOf(cu_VariantType type, const std::string& bytes, int levels = 6)
{
    cu_Variant variant = {};
    if (isNumber(type)) {
        variant.type = type;
        memcpy(&variant.value, bytes.data(), std::min<std::size_t>(bytes.size(), 8));
        variant.value.boolean &= type == cu_VARIANT_BOOL ? 1 : 0xFF;
    } else if (type == cu_VARIANT_STRING) {
        HOLDS(cu_Variant_set_string(&variant, bytes.c_str()) == 0);
    } else if (type == cu_VARIANT_BINARY) {
        const auto* data = static_cast<const uint8_t*>(static_cast<const void*>(bytes.data()));
        HOLDS(cu_Variant_set_binary(&variant, data, static_cast<uint32_t>(bytes.size())) == 0);
    } else if (type == cu_VARIANT_VECTOR && !bytes.empty() && levels != 0) {
        cu_Variant item = variantOf(static_cast<unsigned char>(bytes[0]) % 15, bytes.substr(1), levels - 1);
        const cu_Variant items[] = {item, {}, item};
        HOLDS(cu_Variant_set_vector(&variant, items, 3) == 0);
        HOLDS(cu_Variant_free(&item) == 0);
    }
    return variant;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    if (size == 0)
        return 0;
    cu_Variant from = variantOf(data[0] % 15, std::string(data + 1, data + std::min<std::size_t>(size, 1000)));
    for (cu_VariantType type = cu_VARIANT_BOOL; type <= cu_VARIANT_VECTOR; ++type) {
        cu_Variant variant = {};
        HOLDS(cu_Variant_clone(&variant, &from) == 0);
        HOLDS(!less(variant, from) && !less(from, variant));
        const bool converted = cu_Variant_convert(&variant, type) == 0;
        HOLDS(variant.type == (converted ? type : from.type));
        HOLDS(converted || (!less(variant, from) && !less(from, variant)));
        if (isNumber(from.type) && isNumber(type)) {
            long double number = 0;
            HOLDS(converted == expected(from, type, number));
            HOLDS(!converted || same(numberOf(variant), number));
        } else if (isNumber(type)) {
            HOLDS(!converted || from.type == cu_VARIANT_STRING);
        } else {
            HOLDS(converted == (type == from.type || (type == cu_VARIANT_STRING && isNumber(from.type)) ||
                                (type == cu_VARIANT_BINARY && from.type == cu_VARIANT_STRING)));
        }
        if (converted && isNumber(type))
            holdAgainstItsText(variant);
        HOLDS(cu_Variant_free(&variant) == 0);
    }
    HOLDS(cu_Variant_free(&from) == 0);
    return 0;
}
