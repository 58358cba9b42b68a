// What the iterators of sets and maps have in common. Each function is a part of the exported one whose place it is
// given.
#pragma once

#include "internal/hashTable.h"
#include "internal/owned.h"

namespace cu::internal
{

template <typename Entry>
struct TableIterator {
    cu_allocator* allocator;
    typename HashTable<Entry>::Walk walk;
};

template <typename Iterator, typename Container>
cu_ErrorCode newIterator(Iterator** handle, const Container* container, Place here)
{
    if (handle == nullptr || *handle != nullptr || container == nullptr)
        return reportInvalidArgument(here);

    Owned<Iterator> iterator;
    CU_TRY_AT(here, iterator.allocate(nullptr));
    iterator->walk = decltype(iterator->walk)(container->table);
    *handle = iterator.release();
    return 0;
}

template <typename Iterator>
cu_ErrorCode deleteIterator(Iterator** handle, Place here)
{
    if (handle == nullptr || *handle == nullptr)
        return reportInvalidArgument(here);

    CU_TRY_AT(here, freeObject(handle));
    return 0;
}

template <typename Iterator>
cu_ErrorCode hasNext(const Iterator* iterator, bool* result, Place here)
{
    if (iterator == nullptr || result == nullptr)
        return reportInvalidArgument(here);

    *result = iterator->walk.hasNext();
    return 0;
}

} // namespace cu::internal
