#include <cUtil/fifo.h>

#include "internal/report.h"
#include "internal/rollback.h"

#include <cUtil/ipcSemaphore.h>

#include <bit>
#include <cstddef>

namespace
{

// What the processes share. The counters only change under the lock.
struct Header {
    uint32_t capacity;
    uint32_t entrySize;
    uint32_t readCounter;
    uint32_t writeCounter;
    sem_t filled;
    sem_t free;
    sem_t lock;
};
static_assert(offsetof(Header, capacity) == 0 && offsetof(Header, entrySize) == 4);
static_assert(offsetof(Header, readCounter) == 8 && offsetof(Header, writeCounter) == 12);
static_assert(offsetof(Header, filled) == 16 && offsetof(Header, free) == 16 + sizeof(sem_t));
static_assert(offsetof(Header, lock) == 16 + 2 * sizeof(sem_t) && sizeof(Header) <= CU_FIFO_HEADER_SIZE);
static_assert(CU_FIFO_HEADER_SIZE == (sizeof(void*) == 4 ? 64 : 128));

Header* headerOf(void* block)
{
    return static_cast<Header*>(block);
}

void* entryAt(Header* header, uint32_t counter)
{
    const std::size_t index = counter & (header->capacity - 1);
    return reinterpret_cast<std::byte*>(header) + CU_FIFO_HEADER_SIZE + index * header->entrySize;
}

// The two ends of the queue mirror each other: each takes from one semaphore and gives to the other.
struct End {
    sem_t Header::*available;
    uint32_t Header::*counter;
    sem_t Header::*opposite;
};
constexpr End reading = {&Header::filled, &Header::readCounter, &Header::free};
constexpr End writing = {&Header::free, &Header::writeCounter, &Header::filled};

// Takes the lock for a transaction that has its entry or free place already. Like the next two it is a part of the
// exported function whose place it is given.
cu_ErrorCode openTransaction(Header* header, const End& end, void** entry, internal::Place place)
{
    if (const cu_ErrorCode code = cu_ipcSem_lock(&header->lock); code != 0) [[unlikely]] {
        if (const cu_ErrorCode fatal = cu_ipcSem_unlock(&(header->*end.available)); fatal != 0)
            internal::failFatally(fatal, place);
        return internal::passOn(code, place);
    }
    *entry = entryAt(header, header->*end.counter);
    return 0;
}

// Gives the lock back and adds an entry or a free place.
cu_ErrorCode closeTransaction(Header* header, sem_t* grown, internal::Place place)
{
    int32_t count = 0;
    cu_ErrorCode code = cu_ipcSem_unlock(&header->lock);
    if (code == 0)
        code = cu_ipcSem_getCount(grown, &count);
    if (code == 0 && count >= 0 && static_cast<uint32_t>(count) >= header->capacity) [[unlikely]]
        return internal::report(cu_ERROR_COM_INVARIANT, 0, place, nullptr);
    if (code == 0)
        code = cu_ipcSem_unlock(grown);
    return code == 0 ? 0 : internal::passOn(code, place);
}

cu_ErrorCode commit(Header* header, const End& end, internal::Place place)
{
    ++(header->*end.counter);
    return closeTransaction(header, &(header->*end.opposite), place);
}

cu_ErrorCode rollBack(Header* header, const End& end, internal::Place place)
{
    return closeTransaction(header, &(header->*end.available), place);
}

} // namespace

cu_ErrorCode cu_Fifo_init(void* block, uint32_t capacity, uint32_t entrySize, const void* initialEntry)
{
    CU_REQUIRE(block != nullptr);
    CU_REQUIRE(capacity != 0);
    CU_REQUIRE(std::has_single_bit(capacity));
    CU_REQUIRE(entrySize != 0);
    CU_REQUIRE(initialEntry != nullptr);

    Header* header = headerOf(block);
    header->capacity = capacity;
    header->entrySize = entrySize;
    header->readCounter = 0;
    header->writeCounter = 0;
    for (uint32_t index = 0; index < capacity; ++index)
        memcpy(entryAt(header, index), initialEntry, entrySize);

    CU_TRY(cu_ipcSem_init(&header->filled));
    CU_ROLLBACK(freeFilled, cu_ipcSem_free(&header->filled));
    CU_TRY(cu_ipcSem_init(&header->free));
    CU_ROLLBACK(freeFree, cu_ipcSem_free(&header->free));
    CU_TRY(cu_ipcSem_init(&header->lock));
    CU_ROLLBACK(freeLock, cu_ipcSem_free(&header->lock));
    bool taken = false;
    CU_TRY(cu_ipcSem_tryLock(&header->filled, &taken));
    if (!taken)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
    for (uint32_t place = 1; place < capacity; ++place)
        CU_TRY(cu_ipcSem_unlock(&header->free));
    freeLock.dismiss();
    freeFree.dismiss();
    freeFilled.dismiss();
    return 0;
}

cu_ErrorCode cu_Fifo_cleanup(void* block)
{
    CU_REQUIRE(block != nullptr);

    Header* header = headerOf(block);
    cu_ipcSem_free(&header->lock);
    cu_ipcSem_free(&header->free);
    cu_ipcSem_free(&header->filled);
    return 0;
}

cu_ErrorCode cu_Fifo_attach(void* block)
{
    CU_REQUIRE(block != nullptr);

    const Header* header = headerOf(block);
    if (!std::has_single_bit(header->capacity) || header->entrySize == 0)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
    return 0;
}

cu_ErrorCode cu_Fifo_detach(void* block)
{
    CU_REQUIRE(block != nullptr);
    return 0;
}

cu_ErrorCode cu_Fifo_getLengthInfos(void* block, uint32_t* capacity, int32_t* free, int32_t* used)
{
    CU_REQUIRE(block != nullptr);
    CU_REQUIRE(capacity != nullptr);
    CU_REQUIRE(free != nullptr);
    CU_REQUIRE(used != nullptr);

    Header* header = headerOf(block);
    int32_t freeCount = 0;
    int32_t usedCount = 0;
    CU_TRY(cu_ipcSem_getCount(&header->free, &freeCount));
    CU_TRY(cu_ipcSem_getCount(&header->filled, &usedCount));
    *capacity = header->capacity;
    *free = freeCount > 0 ? freeCount : 0;
    *used = usedCount > 0 ? usedCount : 0;
    return 0;
}

cu_ErrorCode cu_Fifo_get(void* block, void** entry)
{
    CU_REQUIRE(block != nullptr);
    CU_REQUIRE(entry != nullptr);

    Header* header = headerOf(block);
    CU_TRY(cu_ipcSem_lock(&header->filled));
    return openTransaction(header, reading, entry, CU_HERE);
}

cu_ErrorCode cu_Fifo_tryGet(void* block, void** entry)
{
    CU_REQUIRE(block != nullptr);
    CU_REQUIRE(entry != nullptr);

    Header* header = headerOf(block);
    bool taken = false;
    *entry = nullptr;
    CU_TRY(cu_ipcSem_tryLock(&header->filled, &taken));
    return taken ? openTransaction(header, reading, entry, CU_HERE) : 0;
}

cu_ErrorCode cu_Fifo_timedGet(void* block, void** entry, const cu_TimeValue* deadline)
{
    CU_REQUIRE(block != nullptr);
    CU_REQUIRE(entry != nullptr);
    CU_REQUIRE(deadline != nullptr);

    Header* header = headerOf(block);
    bool taken = false;
    *entry = nullptr;
    CU_TRY(cu_ipcSem_timedLock(&header->filled, deadline, &taken));
    return taken ? openTransaction(header, reading, entry, CU_HERE) : 0;
}

cu_ErrorCode cu_Fifo_getCommit(void* block)
{
    CU_REQUIRE(block != nullptr);
    return commit(headerOf(block), reading, CU_HERE);
}

cu_ErrorCode cu_Fifo_getRollback(void* block)
{
    CU_REQUIRE(block != nullptr);
    return rollBack(headerOf(block), reading, CU_HERE);
}

cu_ErrorCode cu_Fifo_put(void* block, void** entry)
{
    CU_REQUIRE(block != nullptr);
    CU_REQUIRE(entry != nullptr);

    Header* header = headerOf(block);
    CU_TRY(cu_ipcSem_lock(&header->free));
    return openTransaction(header, writing, entry, CU_HERE);
}

cu_ErrorCode cu_Fifo_tryPut(void* block, void** entry)
{
    CU_REQUIRE(block != nullptr);
    CU_REQUIRE(entry != nullptr);

    Header* header = headerOf(block);
    bool taken = false;
    *entry = nullptr;
    CU_TRY(cu_ipcSem_tryLock(&header->free, &taken));
    return taken ? openTransaction(header, writing, entry, CU_HERE) : 0;
}

cu_ErrorCode cu_Fifo_timedPut(void* block, void** entry, const cu_TimeValue* deadline)
{
    CU_REQUIRE(block != nullptr);
    CU_REQUIRE(entry != nullptr);
    CU_REQUIRE(deadline != nullptr);

    Header* header = headerOf(block);
    bool taken = false;
    *entry = nullptr;
    CU_TRY(cu_ipcSem_timedLock(&header->free, deadline, &taken));
    return taken ? openTransaction(header, writing, entry, CU_HERE) : 0;
}

cu_ErrorCode cu_Fifo_putCommit(void* block)
{
    CU_REQUIRE(block != nullptr);
    return commit(headerOf(block), writing, CU_HERE);
}

cu_ErrorCode cu_Fifo_putRollback(void* block)
{
    CU_REQUIRE(block != nullptr);
    return rollBack(headerOf(block), writing, CU_HERE);
}

cu_ErrorCode cu_Fifo_tryMove(void* src, void* dst, void** srcEntry, void** dstEntry)
{
    CU_REQUIRE(src != dst);
    CU_REQUIRE(src != nullptr);
    CU_REQUIRE(dst != nullptr);
    CU_REQUIRE(srcEntry != nullptr);
    CU_REQUIRE(dstEntry != nullptr);
    CU_REQUIRE(headerOf(src)->entrySize == headerOf(dst)->entrySize);

    *srcEntry = nullptr;
    *dstEntry = nullptr;
    CU_TRY(cu_Fifo_tryPut(dst, dstEntry));
    if (*dstEntry == nullptr)
        return 0;
    CU_ROLLBACK(freePlace, cu_Fifo_putRollback(dst));
    CU_TRY(cu_Fifo_tryGet(src, srcEntry));
    // Compatibility: the destination's entry is left set when the source is empty.
    if (*srcEntry != nullptr)
        freePlace.dismiss();
    return 0;
}

cu_ErrorCode cu_Fifo_tryMoveCommit(void* src, void* dst)
{
    CU_REQUIRE(src != dst);
    CU_REQUIRE(src != nullptr);
    CU_REQUIRE(dst != nullptr);

    CU_MUST(cu_Fifo_putCommit(dst));
    CU_MUST(cu_Fifo_getCommit(src));
    return 0;
}

cu_ErrorCode cu_Fifo_tryMoveRollback(void* src, void* dst)
{
    CU_REQUIRE(src != dst);
    CU_REQUIRE(src != nullptr);
    CU_REQUIRE(dst != nullptr);

    CU_MUST(cu_Fifo_putRollback(dst));
    CU_MUST(cu_Fifo_getRollback(src));
    return 0;
}
