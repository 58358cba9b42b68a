#include "internal/hashTable.h"

#include <iterator>

namespace cu::internal
{

namespace
{

constexpr uint32_t primes[] = {
    193,      389,      769,      1543,      3079,      6151,      12289,     24593,
    49157,    98317,    196613,   393241,    786433,    1572869,   3145739,   6291469,
    12582917, 25165843, 50331653, 100663319, 201326611, 402653189, 805306457, 1610612741,
};

} // namespace

uint64_t bucketCount(uint32_t growths, uint32_t entries)
{
    return growths < std::size(primes) ? primes[growths] : uint64_t{10} * entries;
}

void* allocateZeroed(uint64_t size)
{
    constexpr uint64_t page = 4096;
    void* block = size <= PTRDIFF_MAX ? calloc(1, static_cast<std::size_t>(size)) : nullptr;
    // A page that is read before it is written costs two faults, and a prefetch of one that is not there is void.
    if (block != nullptr)
        for (uint64_t at = 0; at < size; at += page)
            static_cast<volatile char*>(block)[at] = 0;
    return block;
}

} // namespace cu::internal
