#include <cUtil/variant.h>

#include "internal/rollback.h"
#include "internal/variantConversion.h"

#include <cUtil/tools/safeMalloc.h>

#include <cstdlib>
#include <type_traits>

static_assert(offsetof(cu_Variant, type) == 0 && offsetof(cu_Variant, value) == 8 && alignof(cu_Variant) == 8);
static_assert(offsetof(cu_VariantBinary, data) == 0 && offsetof(cu_VariantBinary, length) == sizeof(void*));
static_assert(offsetof(cu_VariantVector, items) == 0 && offsetof(cu_VariantVector, count) == sizeof(void*));
static_assert(sizeof(void*) != 4 || (sizeof(cu_Variant) == 16 && sizeof(cu_VariantBinary) == 8));
static_assert(sizeof(void*) != 8 || (sizeof(cu_Variant) == 24 && sizeof(cu_VariantBinary) == 16));

namespace
{

bool ownsNothing(const cu_Variant& variant)
{
    return variant.type < cu_VARIANT_STRING;
}

// Makes a variant null without a call, as far as that will do.
bool vacate(cu_Variant* variant)
{
    if (variant == nullptr || !ownsNothing(*variant))
        return false;
    variant->type = cu_VARIANT_NULL;
    return true;
}

// Gives up a fresh value that could not be made or not be put into its place.
[[gnu::cold]] cu_ErrorCode discard(cu_Variant& fresh, cu_ErrorCode outcome, cu_ErrorCode freed, internal::Place place)
{
    if (freed != 0)
        internal::passOn(freed, place);
    const internal::Rollback unused([&] { return cu_Variant_free(&fresh); }, place);
    return freed != 0 ? freed : outcome;
}

// Puts a fresh value into a variant, or the failure to make one. What the variant held goes in both cases, and goes
// last: the fresh value may have been made from it.
[[gnu::always_inline]] inline cu_ErrorCode replace(cu_Variant* variant, cu_Variant& fresh, cu_ErrorCode outcome,
                                                   internal::Place place)
{
    const cu_ErrorCode freed = vacate(variant) ? 0 : cu_Variant_free(variant);
    if ((freed | outcome) != 0) [[unlikely]]
        return discard(fresh, outcome, freed, place);
    *variant = fresh;
    return 0;
}

cu_ErrorCode copyItems(cu_VariantVector& vector, const cu_Variant* items, uint32_t count, internal::Place place)
{
    const uint64_t size = uint64_t{count} * sizeof(cu_Variant);
    if (size > UINT32_MAX)
        return internal::report(cu_ERROR_COM_MALLOC_FAILED, 0, place, nullptr);
    void* block = nullptr;
    CU_TRY_AT(place, cu_safeMalloc(&block, static_cast<uint32_t>(size)));
    vector.items = static_cast<cu_Variant*>(block);
    for (; vector.count < count; ++vector.count) {
        cu_Variant_init(&vector.items[vector.count]);
        CU_TRY_AT(place, cu_Variant_clone(&vector.items[vector.count], &items[vector.count]));
    }
    return 0;
}

cu_ErrorCode copyOwned(cu_Variant& copy, const cu_Variant& source, internal::Place place)
{
    const cu_VariantValue& value = source.value;
    switch (source.type) {
    case cu_VARIANT_STRING:
        CU_TRY_AT(place, cu_Variant_set_string(&copy, value.string));
        return 0;
    case cu_VARIANT_BINARY:
        CU_TRY_AT(place, cu_Variant_set_binary(&copy, value.binary.data, value.binary.length));
        return 0;
    case cu_VARIANT_VECTOR:
        CU_TRY_AT(place, cu_Variant_set_vector(&copy, value.vector.items, value.vector.count));
        return 0;
    default:
        return internal::report(cu_ERROR_COM_INVARIANT, 0, place, internal::unexpectedVariantType,
                                static_cast<int>(source.type));
    }
}

template <typename T>
int order(T a, T b)
{
    return (a > b) - (a < b); // 0 for a NaN and anything
}

int order(const cu_VariantBinary& a, const cu_VariantBinary& b)
{
    if (a.length != b.length)
        return order(a.length, b.length);
    if (a.data == nullptr || b.data == nullptr)
        return order(a.data != nullptr, b.data != nullptr);
    return memcmp(a.data, b.data, a.length);
}

// A negative result says that a is less, a positive one that b is.
cu_ErrorCode compare(int& result, const cu_Variant& a, const cu_Variant& b, internal::Place place)
{
    if (a.type != b.type) {
        result = order(a.type, b.type);
        return 0;
    }
    const cu_VariantValue& left = a.value;
    const cu_VariantValue& right = b.value;
    switch (a.type) {
    case cu_VARIANT_NULL:
        result = 0;
        return 0;
    case cu_VARIANT_BOOL:
        result = order(left.boolean, right.boolean);
        return 0;
    case cu_VARIANT_SINT8:
        result = order(left.sint8, right.sint8);
        return 0;
    case cu_VARIANT_UINT8:
        result = order(left.uint8, right.uint8);
        return 0;
    case cu_VARIANT_SINT16:
        result = order(left.sint16, right.sint16);
        return 0;
    case cu_VARIANT_UINT16:
        result = order(left.uint16, right.uint16);
        return 0;
    case cu_VARIANT_SINT32:
        result = order(left.sint32, right.sint32);
        return 0;
    case cu_VARIANT_UINT32:
        result = order(left.uint32, right.uint32);
        return 0;
    case cu_VARIANT_SINT64:
        result = order(left.sint64, right.sint64);
        return 0;
    case cu_VARIANT_UINT64:
        result = order(left.uint64, right.uint64);
        return 0;
    case cu_VARIANT_IEEE32:
        result = order(left.ieee32, right.ieee32);
        return 0;
    case cu_VARIANT_IEEE64:
        result = order(left.ieee64, right.ieee64);
        return 0;
    case cu_VARIANT_STRING:
        result = strcmp(left.string, right.string);
        return 0;
    case cu_VARIANT_BINARY:
        result = order(left.binary, right.binary);
        return 0;
    case cu_VARIANT_VECTOR:
        result = order(left.vector.count, right.vector.count);
        // Each pair is looked at once: asking for less and then for greater would double the work with every level.
        for (uint32_t at = 0; result == 0 && at < left.vector.count; ++at)
            CU_TRY_AT(place, compare(result, left.vector.items[at], right.vector.items[at], place));
        return 0;
    default:
        return internal::report(cu_ERROR_COM_INVARIANT, 0, place, internal::unexpectedVariantType,
                                static_cast<int>(a.type));
    }
}

// Tells why a getter fails; all of them test for it at once.
[[gnu::cold]] cu_ErrorCode refuseToGet(const cu_Variant* variant, const void* value, internal::Place place)
{
    if (variant == nullptr || value == nullptr)
        return internal::reportInvalidArgument(place);
    return internal::report(cu_ERROR_COM_INVARIANT, 0, place, nullptr);
}

template <typename T>
cu_ErrorCode release(T*& payload)
{
    const cu_ErrorCode code = cu_safeFreeImpl(payload);
    payload = nullptr;
    return code;
}

} // namespace

cu_ErrorCode cu_Variant_init(cu_Variant* variant)
{
    CU_REQUIRE(variant != nullptr);
    variant->type = cu_VARIANT_NULL;
    return 0;
}

cu_ErrorCode cu_Variant_free(cu_Variant* variant)
{
    CU_REQUIRE(variant != nullptr);
    cu_VariantValue& value = variant->value;
    switch (variant->type) {
    case cu_VARIANT_STRING:
        CU_TRY(release(value.string));
        break;
    case cu_VARIANT_BINARY:
        CU_TRY(release(value.binary.data));
        break;
    case cu_VARIANT_VECTOR:
        for (uint32_t at = 0; at < value.vector.count; ++at)
            CU_TRY(cu_Variant_free(&value.vector.items[at]));
        CU_TRY(release(value.vector.items));
        break;
    default:
        break;
    }
    variant->type = cu_VARIANT_NULL;
    return 0;
}

cu_ErrorCode cu_Variant_getType(const cu_Variant* variant, cu_VariantType* type)
{
    CU_REQUIRE(variant != nullptr);
    CU_REQUIRE(type != nullptr);
    *type = variant->type;
    return 0;
}

cu_ErrorCode cu_Variant_clone(cu_Variant* destination, const cu_Variant* source)
{
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(source != nullptr);
    cu_Variant fresh = {cu_VARIANT_NULL, {}};
    cu_ErrorCode outcome = 0;
    if (ownsNothing(*source))
        fresh = *source;
    else
        outcome = copyOwned(fresh, *source, CU_HERE);
    return replace(destination, fresh, outcome, CU_HERE);
}

cu_ErrorCode cu_Variant_set_string(cu_Variant* variant, const char* text)
{
    CU_REQUIRE(text != nullptr);
    cu_Variant fresh = {cu_VARIANT_STRING, {.string = strdup(text)}};
    // NOLINTNEXTLINE(clang-analyzer-unix.Malloc): the variant owns the copy
    const cu_ErrorCode outcome = fresh.value.string != nullptr ? 0 : CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    return replace(variant, fresh, outcome, CU_HERE);
}

cu_ErrorCode cu_Variant_set_binary(cu_Variant* variant, const uint8_t* data, uint32_t length)
{
    void* copy = nullptr;
    cu_ErrorCode outcome = 0;
    // Compatibility: without bytes the length is kept all the same.
    if (data != nullptr && length != 0) {
        outcome = cu_safeMalloc(&copy, length);
        if (outcome == 0)
            memcpy(copy, data, length);
        else
            internal::passOn(outcome, CU_HERE);
    }
    cu_Variant fresh = {cu_VARIANT_BINARY, {.binary = {static_cast<uint8_t*>(copy), length}}};
    return replace(variant, fresh, outcome, CU_HERE);
}

cu_ErrorCode cu_Variant_set_vector(cu_Variant* variant, const cu_Variant* items, uint32_t count)
{
    CU_REQUIRE(items != nullptr);
    CU_REQUIRE(count != 0);
    cu_Variant fresh = {cu_VARIANT_VECTOR, {.vector = {nullptr, 0}}};
    const cu_ErrorCode outcome = copyItems(fresh.value.vector, items, count, CU_HERE);
    return replace(variant, fresh, outcome, CU_HERE);
}

// Setting, getting and converting to a type whose value is a plain number.
#define CU_VARIANT_NUMBER(name, tag, Value, member)                                                                    \
    cu_ErrorCode cu_Variant_set_##name(cu_Variant* variant, Value value)                                               \
    {                                                                                                                  \
        if (!vacate(variant))                                                                                          \
            CU_TRY(cu_Variant_free(variant));                                                                          \
        variant->value.member = value;                                                                                 \
        variant->type = tag;                                                                                           \
        return 0;                                                                                                      \
    }                                                                                                                  \
    CU_VARIANT_GETTER(name, tag, Value, variant->value.member)                                                         \
    CU_VARIANT_CONVERSION(name, tag)

#define CU_VARIANT_GETTER(name, tag, Value, expression)                                                                \
    cu_ErrorCode cu_Variant_get_##name(const cu_Variant* variant, std::add_pointer_t<Value> value)                     \
    {                                                                                                                  \
        if (variant == nullptr || value == nullptr || variant->type != (tag)) [[unlikely]]                             \
            return refuseToGet(variant, value, CU_HERE);                                                               \
        *value = expression;                                                                                           \
        return 0;                                                                                                      \
    }

#define CU_VARIANT_CONVERSION(name, tag)                                                                               \
    cu_ErrorCode cu_Variant_convert_##name(cu_Variant* variant)                                                        \
    {                                                                                                                  \
        return internal::convertVariant(variant, tag, CU_HERE);                                                        \
    }

CU_VARIANT_NUMBER(bool, cu_VARIANT_BOOL, bool, boolean)
CU_VARIANT_NUMBER(sint8, cu_VARIANT_SINT8, int8_t, sint8)
CU_VARIANT_NUMBER(uint8, cu_VARIANT_UINT8, uint8_t, uint8)
CU_VARIANT_NUMBER(sint16, cu_VARIANT_SINT16, int16_t, sint16)
CU_VARIANT_NUMBER(uint16, cu_VARIANT_UINT16, uint16_t, uint16)
CU_VARIANT_NUMBER(sint32, cu_VARIANT_SINT32, int32_t, sint32)
CU_VARIANT_NUMBER(uint32, cu_VARIANT_UINT32, uint32_t, uint32)
CU_VARIANT_NUMBER(sint64, cu_VARIANT_SINT64, int64_t, sint64)
CU_VARIANT_NUMBER(uint64, cu_VARIANT_UINT64, uint64_t, uint64)
CU_VARIANT_NUMBER(ieee32, cu_VARIANT_IEEE32, float, ieee32)
CU_VARIANT_NUMBER(ieee64, cu_VARIANT_IEEE64, double, ieee64)

CU_VARIANT_GETTER(string, cu_VARIANT_STRING, const char*, variant->value.string)
CU_VARIANT_GETTER(binary, cu_VARIANT_BINARY, const cu_VariantBinary*, &variant->value.binary)
CU_VARIANT_GETTER(vector, cu_VARIANT_VECTOR, const cu_VariantVector*, &variant->value.vector)
CU_VARIANT_CONVERSION(string, cu_VARIANT_STRING)
CU_VARIANT_CONVERSION(binary, cu_VARIANT_BINARY)
CU_VARIANT_CONVERSION(vector, cu_VARIANT_VECTOR)

cu_ErrorCode cu_Variant_convert_null(cu_Variant* variant)
{
    CU_TRY(cu_Variant_free(variant));
    return 0;
}

cu_ErrorCode cu_Variant_convert(cu_Variant* variant, cu_VariantType type)
{
    CU_REQUIRE(variant != nullptr);
    cu_ErrorCode code = 0;
    switch (type) {
#define CU_VARIANT_CASE(tag, name)                                                                                     \
    case tag:                                                                                                          \
        code = cu_Variant_convert_##name(variant);                                                                     \
        break;
        CU_VARIANT_CASE(cu_VARIANT_NULL, null)
        CU_VARIANT_CASE(cu_VARIANT_BOOL, bool)
        CU_VARIANT_CASE(cu_VARIANT_SINT8, sint8)
        CU_VARIANT_CASE(cu_VARIANT_UINT8, uint8)
        CU_VARIANT_CASE(cu_VARIANT_SINT16, sint16)
        CU_VARIANT_CASE(cu_VARIANT_UINT16, uint16)
        CU_VARIANT_CASE(cu_VARIANT_SINT32, sint32)
        CU_VARIANT_CASE(cu_VARIANT_UINT32, uint32)
        CU_VARIANT_CASE(cu_VARIANT_SINT64, sint64)
        CU_VARIANT_CASE(cu_VARIANT_UINT64, uint64)
        CU_VARIANT_CASE(cu_VARIANT_IEEE32, ieee32)
        CU_VARIANT_CASE(cu_VARIANT_IEEE64, ieee64)
        CU_VARIANT_CASE(cu_VARIANT_STRING, string)
        CU_VARIANT_CASE(cu_VARIANT_BINARY, binary)
        CU_VARIANT_CASE(cu_VARIANT_VECTOR, vector)
    default:
        // Compatibility: the text tells what the variant is, not what was asked for.
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, internal::unexpectedVariantType, static_cast<int>(variant->type));
    }
    CU_TRY(code);
    return 0;
}

cu_ErrorCode cu_Variant_lessThan(bool* result, const cu_Variant* a, const cu_Variant* b)
{
    CU_REQUIRE(result != nullptr);
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    int comparison = 0;
    const cu_ErrorCode code = compare(comparison, *a, *b, CU_HERE);
    if (code != 0)
        return code;
    // Compatibility: two vectors without elements leave the result as it is.
    if (comparison != 0 || a->type != cu_VARIANT_VECTOR || a->value.vector.count != 0)
        *result = comparison < 0;
    return 0;
}
