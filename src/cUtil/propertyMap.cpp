#include <cUtil/propertyMap.h>

#include "internal/rollback.h"

#include <cUtil/tools/safeMalloc.h>
#include <cUtil/tools/safeStringOps.h>

#include <bit>

static_assert(offsetof(cu_Property, name) == 0 && offsetof(cu_Property, value) == 8);
static_assert(offsetof(cu_PropertyMap, count) == 0 && offsetof(cu_PropertyMap, properties) == sizeof(void*));
static_assert(sizeof(void*) != 4 || (sizeof(cu_Property) == 24 && sizeof(cu_PropertyMap) == 8));

namespace
{

cu_ErrorCode cu_Property_init(cu_Property* property, const char* name, const cu_Variant* value)
{
    cu_Property fresh = {nullptr, {cu_VARIANT_NULL, {}}};
    CU_TRY(cu_str_clone(&fresh.name, name));
    CU_ROLLBACK(named, cu_safeFreeImpl(fresh.name));
    CU_TRY(cu_Variant_clone(&fresh.value, value));
    named.dismiss();
    *property = fresh;
    return 0;
}

// The value goes first: it alone can refuse.
cu_ErrorCode release(cu_Property& property)
{
    const cu_ErrorCode code = cu_Variant_free(&property.value);
    return code == 0 ? cu_safeFreeImpl(property.name) : code;
}

// The array has at least this room for so many properties, in every map: it seldom moves, and no record says how large
// it is.
uint32_t roomFor(uint32_t count)
{
    return count != 0 ? std::bit_ceil(count) : 0;
}

cu_ErrorCode resize(cu_PropertyMap* map, uint32_t count, internal::Place place)
{
    const uint64_t size = uint64_t{roomFor(count)} * sizeof(cu_Property);
    if (size > UINT32_MAX)
        return internal::report(cu_ERROR_COM_MALLOC_FAILED, 0, place, nullptr);
    void* block = map->properties;
    CU_TRY_AT(place, cu_safeRealloc(&block, static_cast<uint32_t>(size)));
    map->properties = static_cast<cu_Property*>(block);
    return 0;
}

// Where a name is or belongs.
uint32_t find(const cu_PropertyMap* map, const char* name, bool& found)
{
    uint32_t first = 0;
    for (uint32_t end = map->count; first != end;) {
        const uint32_t middle = first + (end - first) / 2;
        const int order = strcmp(map->properties[middle].name, name);
        if (order == 0) {
            found = true;
            return middle;
        }
        if (order < 0)
            first = middle + 1;
        else
            end = middle;
    }
    found = false;
    return first;
}

} // namespace

cu_ErrorCode cu_PropertyMap_init(cu_PropertyMap* map)
{
    CU_REQUIRE(map != nullptr);
    *map = {0, nullptr};
    return 0;
}

cu_ErrorCode cu_PropertyMap_free(cu_PropertyMap* map)
{
    CU_REQUIRE(map != nullptr);
    for (; map->count != 0; --map->count)
        CU_TRY(release(map->properties[map->count - 1]));
    CU_TRY(cu_safeFreeImpl(map->properties));
    map->properties = nullptr;
    return 0;
}

cu_ErrorCode cu_PropertyMap_clear(cu_PropertyMap* map)
{
    CU_REQUIRE(map != nullptr);
    CU_TRY(cu_PropertyMap_free(map));
    return 0;
}

cu_ErrorCode cu_PropertyMap_getSize(const cu_PropertyMap* map, uint32_t* size)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(size != nullptr);
    *size = map->count;
    return 0;
}

cu_ErrorCode cu_PropertyMap_insert(cu_PropertyMap* map, const char* name, const cu_Variant* value)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(name != nullptr && *name != '\0');
    CU_REQUIRE(value != nullptr);
    bool found = false;
    const uint32_t at = find(map, name, found);
    if (found) {
        // The stored value goes only when there is a copy to take its place.
        cu_Variant fresh = {cu_VARIANT_NULL, {}};
        CU_TRY(cu_Variant_clone(&fresh, value));
        CU_ROLLBACK(copied, cu_Variant_free(&fresh));
        CU_TRY(cu_Variant_free(&map->properties[at].value));
        copied.dismiss();
        map->properties[at].value = fresh;
        return 0;
    }

    // The copies come first: the array that moves may hold what is copied.
    cu_Property fresh;
    CU_TRY(cu_Property_init(&fresh, name, value));
    CU_ROLLBACK(copied, release(fresh));
    if (roomFor(map->count + 1) != roomFor(map->count))
        CU_TRY(resize(map, map->count + 1, CU_HERE));
    copied.dismiss();
    cu_Property* place = &map->properties[at];
    memmove(place + 1, place, (map->count - at) * sizeof(cu_Property));
    *place = fresh;
    ++map->count;
    return 0;
}

cu_ErrorCode cu_PropertyMap_get(const cu_PropertyMap* map, const char* name, cu_Variant* value)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(name != nullptr && *name != '\0');
    CU_REQUIRE(value != nullptr);
    // The name may be the text that the variant holds, so it is looked for first.
    bool found = false;
    const uint32_t at = find(map, name, found);
    if (found)
        CU_TRY(cu_Variant_clone(value, &map->properties[at].value));
    else
        CU_TRY(cu_Variant_free(value));
    return 0;
}

cu_ErrorCode cu_PropertyMap_erase(cu_PropertyMap* map, const char* name)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(name != nullptr && *name != '\0');
    bool found = false;
    const uint32_t at = find(map, name, found);
    if (!found)
        return 0;
    cu_Property* place = &map->properties[at];
    CU_TRY(release(*place));
    --map->count;
    memmove(place, place + 1, (map->count - at) * sizeof(cu_Property));
    return 0;
}

cu_ErrorCode cu_PropertyMap_clone(cu_PropertyMap* destination, const cu_PropertyMap* source)
{
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(source != nullptr);
    cu_PropertyMap fresh = {0, nullptr};
    CU_ROLLBACK(copied, cu_PropertyMap_free(&fresh));
    CU_TRY(resize(&fresh, source->count, CU_HERE));
    for (; fresh.count < source->count; ++fresh.count) {
        const cu_Property& property = source->properties[fresh.count];
        CU_TRY(cu_Property_init(&fresh.properties[fresh.count], property.name, &property.value));
    }
    CU_TRY(cu_PropertyMap_free(destination));
    copied.dismiss();
    *destination = fresh;
    return 0;
}
