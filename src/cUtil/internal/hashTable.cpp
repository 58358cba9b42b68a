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
    return size <= PTRDIFF_MAX ? calloc(1, static_cast<std::size_t>(size)) : nullptr;
}

} // namespace cu::internal
