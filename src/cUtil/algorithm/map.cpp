#include <cUtil/algorithm/map.h>

#include "internal/tableIterator.h"

namespace
{

struct Entry {
    void* key;
    void* value;
};

using Table = internal::HashTable<Entry>;

// A copy that is destroyed unless the map has taken it, which leaves null.
struct Clone {
    void* object;
    void (*destroy)(void*);

    ~Clone()
    {
        if (object != nullptr)
            destroy(object);
    }
};

} // namespace

struct cu_Map {
    cu_allocator* allocator;
    Table table;
    void (*keyDestroy)(void* key);
    void (*valueDestroy)(void* value);
    void* (*keyClone)(const void* key);
    void* (*valueClone)(const void* value);
};

struct cu_Map_Iterator : internal::TableIterator<Entry> {
};

struct cu_Map_ConstIterator : internal::TableIterator<Entry> {
};

cu_ErrorCode cu_Map_new(cu_Map** map, uint32_t (*hash)(const void* key),
                        int32_t (*equality)(const void* a, const void* b), void (*keyDestroy)(void* key),
                        void (*valueDestroy)(void* value), void* (*keyClone)(const void* key),
                        void* (*valueClone)(const void* value), cu_allocator* allocator)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(*map == nullptr);
    CU_REQUIRE(hash != nullptr);
    CU_REQUIRE(equality != nullptr);
    CU_REQUIRE(keyDestroy != nullptr);
    CU_REQUIRE(valueDestroy != nullptr);
    CU_REQUIRE(keyClone != nullptr);
    CU_REQUIRE(valueClone != nullptr);

    internal::Owned<cu_Map> object;
    CU_TRY(object.allocate(allocator));
    object->table = Table(hash, equality);
    if (!object->table.makeRoom())
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    object->keyDestroy = keyDestroy;
    object->valueDestroy = valueDestroy;
    object->keyClone = keyClone;
    object->valueClone = valueClone;
    *map = object.release();
    return 0;
}

cu_ErrorCode cu_Map_delete(cu_Map** map)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(*map != nullptr);

    cu_Map* object = *map;
    object->table.forEach([&](uint32_t, const Entry& entry) {
        object->keyDestroy(entry.key);
        object->valueDestroy(entry.value);
    });
    object->table.clear();
    CU_TRY(internal::freeObject(map));
    return 0;
}

cu_ErrorCode cu_Map_insert(cu_Map* map, void** key, void** value)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(key != nullptr && *key != nullptr);
    CU_REQUIRE(value != nullptr && *value != nullptr);

    // Compatibility: room is made even where a key is only replaced.
    if (!map->table.makeRoom())
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    const Entry entry = {*key, *value};
    *key = nullptr;
    *value = nullptr;
    const uint32_t hash = map->table.hashOf(entry.key);
    Entry* found = map->table.find(hash, entry.key);
    if (found == nullptr) {
        map->table.add(hash, entry);
        return 0;
    }
    const Entry old = *found;
    *found = entry;
    if (old.key != entry.key)
        map->keyDestroy(old.key);
    if (old.value != entry.value)
        map->valueDestroy(old.value);
    return 0;
}

cu_ErrorCode cu_Map_constKeyInsert(cu_Map* map, const void* key, void** value)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(key != nullptr);
    CU_REQUIRE(value != nullptr && *value != nullptr);

    Clone clone = {map->keyClone(key), map->keyDestroy};
    if (clone.object == nullptr)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    CU_TRY(cu_Map_insert(map, &clone.object, value));
    return 0;
}

cu_ErrorCode cu_Map_constValueInsert(cu_Map* map, void** key, const void* value)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(key != nullptr && *key != nullptr);
    CU_REQUIRE(value != nullptr);

    Clone clone = {map->valueClone(value), map->valueDestroy};
    if (clone.object == nullptr)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    CU_TRY(cu_Map_insert(map, key, &clone.object));
    return 0;
}

cu_ErrorCode cu_Map_constInsert(cu_Map* map, const void* key, const void* value)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(key != nullptr);
    CU_REQUIRE(value != nullptr);

    Clone keyClone = {map->keyClone(key), map->keyDestroy};
    if (keyClone.object == nullptr)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    Clone valueClone = {map->valueClone(value), map->valueDestroy};
    if (valueClone.object == nullptr)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    CU_TRY(cu_Map_insert(map, &keyClone.object, &valueClone.object));
    return 0;
}

cu_ErrorCode cu_Map_lookup(const cu_Map* map, const void* key, void** value)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(key != nullptr);
    CU_REQUIRE(value != nullptr);

    const Entry* entry = map->table.find(map->table.hashOf(key), key);
    *value = entry != nullptr ? entry->value : nullptr;
    return 0;
}

cu_ErrorCode cu_Map_remove(cu_Map* map, const void* key, bool* removed)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(key != nullptr);
    CU_REQUIRE(removed != nullptr);

    const Entry old = map->table.take(key);
    *removed = old.key != nullptr;
    if (old.key != nullptr) {
        map->keyDestroy(old.key);
        map->valueDestroy(old.value);
    }
    return 0;
}

cu_ErrorCode cu_Map_getSize(const cu_Map* map, uint32_t* size)
{
    CU_REQUIRE(map != nullptr);
    CU_REQUIRE(size != nullptr);

    *size = map->table.size();
    return 0;
}

cu_ErrorCode cu_Map_Iterator_new(cu_Map_Iterator** iterator, cu_Map* map)
{
    return internal::newIterator(iterator, map, CU_HERE);
}

cu_ErrorCode cu_Map_Iterator_delete(cu_Map_Iterator** iterator)
{
    return internal::deleteIterator(iterator, CU_HERE);
}

cu_ErrorCode cu_Map_Iterator_next(cu_Map_Iterator* iterator, void** key, void** value)
{
    CU_REQUIRE(iterator != nullptr);
    CU_REQUIRE(key != nullptr);
    CU_REQUIRE(value != nullptr);

    const Entry entry = iterator->walk.next();
    *key = entry.key;
    *value = entry.value;
    return 0;
}

cu_ErrorCode cu_Map_Iterator_nextKey(cu_Map_Iterator* iterator, void** key)
{
    CU_REQUIRE(iterator != nullptr);
    CU_REQUIRE(key != nullptr);

    *key = iterator->walk.next().key;
    return 0;
}

cu_ErrorCode cu_Map_Iterator_hasNext(const cu_Map_Iterator* iterator, bool* result)
{
    return internal::hasNext(iterator, result, CU_HERE);
}

cu_ErrorCode cu_Map_ConstIterator_new(cu_Map_ConstIterator** iterator, const cu_Map* map)
{
    return internal::newIterator(iterator, map, CU_HERE);
}

cu_ErrorCode cu_Map_ConstIterator_delete(cu_Map_ConstIterator** iterator)
{
    return internal::deleteIterator(iterator, CU_HERE);
}

cu_ErrorCode cu_Map_ConstIterator_next(cu_Map_ConstIterator* iterator, const void** key, const void** value)
{
    CU_REQUIRE(iterator != nullptr);
    CU_REQUIRE(key != nullptr);
    CU_REQUIRE(value != nullptr);

    const Entry entry = iterator->walk.next();
    *key = entry.key;
    *value = entry.value;
    return 0;
}

cu_ErrorCode cu_Map_ConstIterator_hasNext(const cu_Map_ConstIterator* iterator, bool* result)
{
    return internal::hasNext(iterator, result, CU_HERE);
}
