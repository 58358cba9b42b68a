#include <cUtil/algorithm/set.h>

#include "internal/tableIterator.h"

namespace
{

struct Entry {
    void* key;
};

using Table = internal::HashTable<Entry>;

} // namespace

struct cu_Set {
    cu_allocator* allocator;
    Table table;
    void (*destroy)(void* element);
    void* (*clone)(const void* element);
};

struct cu_Set_Iterator : internal::TableIterator<Entry> {
};

struct cu_Set_ConstIterator : internal::TableIterator<Entry> {
};

namespace
{

bool add(Table& table, uint32_t hash, void* element)
{
    if (!table.makeRoom())
        return false;
    table.add(hash, {element});
    return true;
}

// Adds what both sets have, or what one of them has.
bool combine(Table& combined, const Table& a, const Table& b, bool inBoth)
{
    bool complete = true;
    a.forEach([&](uint32_t hash, const Entry& entry) {
        if (complete && (!inBoth || b.find(hash, entry.key) != nullptr))
            complete = add(combined, hash, entry.key);
    });
    if (!inBoth)
        b.forEach([&](uint32_t hash, const Entry& entry) {
            if (complete && a.find(hash, entry.key) == nullptr)
                complete = add(combined, hash, entry.key);
        });
    return complete;
}

// A union or intersection: the exported function whose place it is given.
cu_ErrorCode newCombined(cu_Set** result, const cu_Set* a, const cu_Set* b, cu_allocator* allocator, bool inBoth,
                         internal::Place here)
{
    if (result == nullptr || *result != nullptr || a == nullptr || b == nullptr)
        return internal::reportInvalidArgument(here);
    if (!a->table.hasFunctionsOf(b->table) || a->destroy != b->destroy || a->clone != b->clone)
        return internal::report(cu_ERROR_COM_INVARIANT, 0, here, nullptr);

    internal::Owned<cu_Set> set;
    CU_TRY_AT(here, set.allocate(allocator));
    set->table = a->table.emptyOne();
    set->destroy = a->destroy;
    set->clone = a->clone;
    Table combined = a->table.emptyOne();
    const bool complete = combined.makeRoom() && combine(combined, a->table, b->table, inBoth);
    combined.clear();
    // Compatibility: the outcome is inverted. A set that could be combined is given up as if memory were out; one that
    // could not is handed out without elements.
    if (complete)
        return internal::report(cu_ERROR_COM_MALLOC_FAILED, 0, here, nullptr);
    *result = set.release();
    return 0;
}

} // namespace

cu_ErrorCode cu_Set_new(cu_Set** set, uint32_t (*hash)(const void* element),
                        int32_t (*equality)(const void* a, const void* b), void (*destroy)(void* element),
                        void* (*clone)(const void* element), cu_allocator* allocator)
{
    CU_REQUIRE(set != nullptr);
    CU_REQUIRE(*set == nullptr);
    CU_REQUIRE(hash != nullptr);
    CU_REQUIRE(equality != nullptr);
    CU_REQUIRE(destroy != nullptr);
    CU_REQUIRE(clone != nullptr);

    internal::Owned<cu_Set> object;
    CU_TRY(object.allocate(allocator));
    object->table = Table(hash, equality);
    if (!object->table.makeRoom())
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    object->destroy = destroy;
    object->clone = clone;
    *set = object.release();
    return 0;
}

cu_ErrorCode cu_Set_delete(cu_Set** set)
{
    CU_REQUIRE(set != nullptr);
    CU_REQUIRE(*set != nullptr);

    cu_Set* object = *set;
    object->table.forEach([&](uint32_t, const Entry& entry) { object->destroy(entry.key); });
    object->table.clear();
    CU_TRY(internal::freeObject(set));
    return 0;
}

cu_ErrorCode cu_Set_insert(cu_Set* set, void** element, bool* inserted)
{
    CU_REQUIRE(set != nullptr);
    CU_REQUIRE(element != nullptr && *element != nullptr);
    CU_REQUIRE(inserted != nullptr);

    const uint32_t hash = set->table.hashOf(*element);
    // Compatibility: stays true when the element cannot be added.
    *inserted = set->table.find(hash, *element) == nullptr;
    if (!*inserted)
        return 0;
    if (!add(set->table, hash, *element))
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    *element = nullptr;
    return 0;
}

cu_ErrorCode cu_Set_constInsert(cu_Set* set, const void* element, bool* inserted)
{
    CU_REQUIRE(set != nullptr);
    CU_REQUIRE(element != nullptr);
    CU_REQUIRE(inserted != nullptr);

    const uint32_t hash = set->table.hashOf(element);
    // Compatibility: stays true when there is no memory.
    *inserted = set->table.find(hash, element) == nullptr;
    if (!*inserted)
        return 0;
    void* clone = set->clone(element);
    if (clone == nullptr)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    if (!add(set->table, hash, clone)) {
        set->destroy(clone);
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    }
    return 0;
}

cu_ErrorCode cu_Set_remove(cu_Set* set, const void* element, bool* removed)
{
    CU_REQUIRE(set != nullptr);
    CU_REQUIRE(element != nullptr);
    CU_REQUIRE(removed != nullptr);

    const Entry old = set->table.take(element);
    *removed = old.key != nullptr;
    if (old.key != nullptr)
        set->destroy(old.key);
    return 0;
}

cu_ErrorCode cu_Set_hasValue(const cu_Set* set, const void* element, bool* found)
{
    CU_REQUIRE(set != nullptr);
    CU_REQUIRE(element != nullptr);
    CU_REQUIRE(found != nullptr);

    *found = set->table.find(set->table.hashOf(element), element) != nullptr;
    return 0;
}

cu_ErrorCode cu_Set_getSize(const cu_Set* set, uint32_t* size)
{
    CU_REQUIRE(set != nullptr);
    CU_REQUIRE(size != nullptr);

    const uint32_t count = set->table.size();
    if (count > INT32_MAX)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
    *size = count;
    return 0;
}

cu_ErrorCode cu_Set_union(cu_Set** result, const cu_Set* a, const cu_Set* b, cu_allocator* allocator)
{
    return newCombined(result, a, b, allocator, false, CU_HERE);
}

cu_ErrorCode cu_Set_intersect(cu_Set** result, const cu_Set* a, const cu_Set* b, cu_allocator* allocator)
{
    return newCombined(result, a, b, allocator, true, CU_HERE);
}

cu_ErrorCode cu_Set_Iterator_new(cu_Set_Iterator** iterator, cu_Set* set)
{
    return internal::newIterator(iterator, set, CU_HERE);
}

cu_ErrorCode cu_Set_Iterator_delete(cu_Set_Iterator** iterator)
{
    return internal::deleteIterator(iterator, CU_HERE);
}

cu_ErrorCode cu_Set_Iterator_next(cu_Set_Iterator* iterator, void** element)
{
    CU_REQUIRE(iterator != nullptr);
    CU_REQUIRE(element != nullptr);

    *element = iterator->walk.next().key;
    return 0;
}

cu_ErrorCode cu_Set_Iterator_hasNext(const cu_Set_Iterator* iterator, bool* result)
{
    return internal::hasNext(iterator, result, CU_HERE);
}

cu_ErrorCode cu_Set_ConstIterator_new(cu_Set_ConstIterator** iterator, const cu_Set* set)
{
    return internal::newIterator(iterator, set, CU_HERE);
}

cu_ErrorCode cu_Set_ConstIterator_delete(cu_Set_ConstIterator** iterator)
{
    return internal::deleteIterator(iterator, CU_HERE);
}

cu_ErrorCode cu_Set_ConstIterator_next(cu_Set_ConstIterator* iterator, const void** element)
{
    CU_REQUIRE(iterator != nullptr);
    CU_REQUIRE(element != nullptr);

    *element = iterator->walk.next().key;
    return 0;
}

cu_ErrorCode cu_Set_ConstIterator_hasNext(const cu_Set_ConstIterator* iterator, bool* result)
{
    return internal::hasNext(iterator, result, CU_HERE);
}
