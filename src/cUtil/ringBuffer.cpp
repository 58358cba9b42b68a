#include <cUtil/ringBuffer.h>

#include "internal/owned.h"
#include "internal/report.h"
#include "internal/rollback.h"

#include <cUtil/semaphore.h>

#include <atomic>
#include <bit>
#include <cstddef>
#include <semaphore.h>

namespace
{

constexpr unsigned char magic[8] = {0x40, 0x40, 0x30, 0x30, 0x20, 0x20, 0x10, 0x10};

// What the processes share. Each word is written by one side only: by the consumer, or whoever holds the reader lock,
// `read` and `writeCopy`; by the producer, or whoever holds the writer lock, the other two.
struct Header {
    unsigned char magic[8];
    uint32_t size;
    uint32_t read;
    uint32_t write;
    uint8_t hasReaderLock;
    uint8_t hasWriterLock;
    uint32_t writeCopy;
    alignas(8) std::byte readerLock[56];
    uint32_t readCopy;
    alignas(8) std::byte writerLock[56];
};
static_assert(offsetof(Header, size) == 8 && offsetof(Header, read) == 12 && offsetof(Header, write) == 16);
static_assert(offsetof(Header, hasReaderLock) == 20 && offsetof(Header, hasWriterLock) == 21);
static_assert(offsetof(Header, writeCopy) == 24 && offsetof(Header, readerLock) == 32);
static_assert(offsetof(Header, readCopy) == 88 && offsetof(Header, writerLock) == 96);
static_assert(sizeof(sem_t) <= sizeof(Header::readerLock) && alignof(sem_t) <= 8);
static_assert(sizeof(Header) <= CU_RING_BUFFER_HEADER_SIZE && CU_RING_BUFFER_HEADER_SIZE == 4096);
static_assert(std::atomic_ref<uint32_t>::is_always_lock_free);

// A word of one's own; and the other side's copy, whose age nobody relies on.
uint32_t own(uint32_t& word)
{
    return std::atomic_ref(word).load(std::memory_order_relaxed);
}

void setOwn(uint32_t& word, uint32_t value)
{
    std::atomic_ref(word).store(value, std::memory_order_relaxed);
}

// The other side's position: what it copied before it moved there has been copied. Pairs with publish().
uint32_t others(uint32_t& word)
{
    return std::atomic_ref(word).load(std::memory_order_acquire);
}

void publish(uint32_t& word, uint32_t value)
{
    std::atomic_ref(word).store(value, std::memory_order_release);
}

} // namespace

struct cu_RingBuffer {
    cu_allocator* allocator;
    Header* header;
    std::byte* data;
    uint32_t mask; // size - 1; the word in the header is not looked at again
    bool ownsMemory;
    cu_Semaphore* readerLock;
    cu_Semaphore* writerLock;
};

namespace
{

// All but the magic, which comes last: what is half made is no ring.
void format(Header* header, uint32_t size, bool readerLock, bool writerLock)
{
    memset(header->magic, 0, sizeof(magic));
    header->size = size;
    header->hasReaderLock = readerLock;
    header->hasWriterLock = writerLock;
    setOwn(header->read, 0);
    setOwn(header->write, 0);
    setOwn(header->readCopy, 0);
    setOwn(header->writeCopy, 0);
}

uint32_t usedBytes(uint32_t read, uint32_t write, uint32_t mask)
{
    return (write - read) & mask;
}

uint32_t freeBytes(uint32_t read, uint32_t write, uint32_t mask)
{
    return ~(write - read) & mask;
}

// Copies the first and the last bytes of a piece that is at most twice as long as a word.
template <typename Word>
[[gnu::always_inline]] inline void copyByTwo(std::byte* to, const std::byte* from, uint32_t length)
{
    Word first;
    Word last;
    memcpy(&first, from, sizeof(Word));
    memcpy(&last, from + length - sizeof(Word), sizeof(Word));
    memcpy(to, &first, sizeof(Word));
    memcpy(to + length - sizeof(Word), &last, sizeof(Word));
}

// memcpy() with the lengths of most records in line: the call would cost as much as the copy.
[[gnu::always_inline]] inline void copyBytes(std::byte* to, const std::byte* from, uint32_t length)
{
    typedef uint8_t Word16 __attribute__((vector_size(16)));
    if (length > 64 || length < 4) {
        memcpy(to, from, length);
    } else if (length > 32) {
        copyByTwo<Word16>(to, from, 32);
        copyByTwo<Word16>(to + length - 32, from + length - 32, 32);
    } else if (length >= 16) {
        copyByTwo<Word16>(to, from, length);
    } else if (length >= 8) {
        copyByTwo<uint64_t>(to, from, length);
    } else {
        copyByTwo<uint32_t>(to, from, length);
    }
}

// Positions may hold anything in a region that others can write; masked they point into the data area, and whatever the
// copies say, no more bytes fit or are there than the area has.
[[gnu::always_inline]] inline bool putRecord(cu_RingBuffer* me, const void* record, uint32_t length)
{
    Header* header = me->header;
    const uint32_t mask = me->mask;
    const uint32_t write = own(header->write) & mask;
    const uint32_t copy = own(header->readCopy);
    if (length > freeBytes(copy, write, mask)) {
        const uint32_t read = others(header->read);
        // A store would take the line away from the other side, again and again while this one polls.
        if (read == copy)
            return false;
        setOwn(header->readCopy, read);
        if (length > freeBytes(read, write, mask))
            return false;
    }
    const uint32_t untilEnd = mask - write + 1;
    const auto* from = static_cast<const std::byte*>(record);
    if (length > untilEnd) {
        memcpy(me->data + write, from, untilEnd);
        memcpy(me->data, from + untilEnd, length - untilEnd);
    } else {
        copyBytes(me->data + write, from, length);
    }
    publish(header->write, (write + length) & mask);
    return true;
}

[[gnu::always_inline]] inline bool getRecord(cu_RingBuffer* me, void* record, uint32_t length)
{
    Header* header = me->header;
    const uint32_t mask = me->mask;
    const uint32_t read = own(header->read) & mask;
    const uint32_t copy = own(header->writeCopy);
    if (length > usedBytes(read, copy, mask)) {
        const uint32_t write = others(header->write);
        if (write == copy)
            return false;
        setOwn(header->writeCopy, write);
        if (length > usedBytes(read, write, mask))
            return false;
    }
    const uint32_t untilEnd = mask - read + 1;
    auto* to = static_cast<std::byte*>(record);
    if (length > untilEnd) {
        memcpy(to, me->data + read, untilEnd);
        memcpy(to + untilEnd, me->data, length - untilEnd);
    } else {
        copyBytes(to, me->data + read, length);
    }
    publish(header->read, (read + length) & mask);
    return true;
}

// Put and get with a lock, out of the way of the calls without; each is a part of the exported function that it names.
[[gnu::noinline]] cu_ErrorCode putUnderLock(cu_RingBuffer* me, const void* record, uint32_t length, bool* written,
                                            const char* function)
{
    CU_TRY_AT((internal::Place{function, __LINE__, sourcePath.text}), cu_Semaphore_p(me->writerLock));
    *written = putRecord(me, record, length);
    CU_TRY_AT((internal::Place{function, __LINE__, sourcePath.text}), cu_Semaphore_v(me->writerLock));
    return 0;
}

[[gnu::noinline]] cu_ErrorCode getUnderLock(cu_RingBuffer* me, void* record, uint32_t length, bool* read,
                                            const char* function)
{
    CU_TRY_AT((internal::Place{function, __LINE__, sourcePath.text}), cu_Semaphore_p(me->readerLock));
    *read = getRecord(me, record, length);
    CU_TRY_AT((internal::Place{function, __LINE__, sourcePath.text}), cu_Semaphore_v(me->readerLock));
    return 0;
}

} // namespace

cu_ErrorCode cu_RingBuffer_new(cu_RingBuffer** me, uint32_t size, bool readerLock, bool writerLock,
                               cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(std::has_single_bit(size));

    internal::Owned<cu_RingBuffer> object;
    CU_TRY(object.allocate(allocator));
    internal::Owned<Header> header;
    CU_TRY(header.allocateBytes(allocator, CU_RING_BUFFER_HEADER_SIZE));
    internal::Owned<std::byte> data;
    CU_TRY(data.allocateBytes(allocator, size));
    format(header.get(), size, readerLock, writerLock);
    if (readerLock)
        CU_TRY(cu_Semaphore_new(&object->readerLock, 1, allocator));
    CU_ROLLBACK(deleteLock, readerLock ? cu_Semaphore_delete(&object->readerLock) : 0);
    if (writerLock)
        CU_TRY(cu_Semaphore_new(&object->writerLock, 1, allocator));
    deleteLock.dismiss();
    memcpy(header->magic, magic, sizeof(magic));
    object->header = header.release();
    object->data = data.release();
    object->mask = size - 1;
    object->ownsMemory = true;
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_RingBuffer_create(cu_RingBuffer** me, void* region, uint32_t size, bool readerLock, bool writerLock,
                                  cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(region != nullptr);
    CU_REQUIRE(std::has_single_bit(size));

    internal::Owned<cu_RingBuffer> object;
    CU_TRY(object.allocate(allocator));
    object->header = static_cast<Header*>(region);
    object->data = static_cast<std::byte*>(region) + CU_RING_BUFFER_HEADER_SIZE;
    object->mask = size - 1;
    format(object->header, size, readerLock, writerLock);
    memset(object->data, 0, size);
    if (readerLock)
        CU_TRY(cu_Semaphore_create(&object->readerLock, 1, object->header->readerLock, allocator));
    CU_ROLLBACK(deleteLock, readerLock ? cu_Semaphore_delete(&object->readerLock) : 0);
    if (writerLock)
        CU_TRY(cu_Semaphore_create(&object->writerLock, 1, object->header->writerLock, allocator));
    deleteLock.dismiss();
    memcpy(object->header->magic, magic, sizeof(magic));
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_RingBuffer_open(cu_RingBuffer** me, void* region, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(region != nullptr);

    auto* header = static_cast<Header*>(region);
    if (memcmp(header->magic, magic, sizeof(magic)) != 0)
        return CU_REPORT(cu_ERROR_INVALID_MAGIC, 0, nullptr);
    const uint32_t size = own(header->size);
    if (!std::has_single_bit(size) || own(header->read) >= size || own(header->write) >= size)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);

    const bool readerLock = header->hasReaderLock != 0;
    internal::Owned<cu_RingBuffer> object;
    CU_TRY(object.allocate(allocator));
    object->header = header;
    object->data = static_cast<std::byte*>(region) + CU_RING_BUFFER_HEADER_SIZE;
    object->mask = size - 1;
    if (readerLock)
        CU_TRY(cu_Semaphore_open(&object->readerLock, header->readerLock, allocator));
    CU_ROLLBACK(deleteLock, readerLock ? cu_Semaphore_delete(&object->readerLock) : 0);
    if (header->hasWriterLock != 0)
        CU_TRY(cu_Semaphore_open(&object->writerLock, header->writerLock, allocator));
    deleteLock.dismiss();
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_RingBuffer_delete(cu_RingBuffer** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    cu_RingBuffer* object = *me;
    if (object->writerLock != nullptr)
        CU_TRY(cu_Semaphore_delete(&object->writerLock));
    if (object->readerLock != nullptr)
        CU_TRY(cu_Semaphore_delete(&object->readerLock));
    if (object->ownsMemory) {
        CU_TRY(internal::freeArray(object->allocator, &object->data));
        CU_TRY(internal::freeArray(object->allocator, &object->header));
        object->ownsMemory = false;
    }
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_RingBuffer_put(cu_RingBuffer* me, const void* data, uint32_t length, bool* written)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(data != nullptr);
    CU_REQUIRE(length != 0);
    CU_REQUIRE(written != nullptr);

    if (me->writerLock != nullptr)
        return putUnderLock(me, data, length, written, __func__);
    *written = putRecord(me, data, length);
    return 0;
}

cu_ErrorCode cu_RingBuffer_get(cu_RingBuffer* me, void* buffer, uint32_t length, bool* read)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(buffer != nullptr);
    CU_REQUIRE(length != 0);
    CU_REQUIRE(read != nullptr);

    if (me->readerLock != nullptr)
        return getUnderLock(me, buffer, length, read, __func__);
    *read = getRecord(me, buffer, length);
    return 0;
}

cu_ErrorCode cu_RingBuffer_getAvailable(cu_RingBuffer* me, uint32_t* used)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(used != nullptr);

    const uint32_t read = others(me->header->read);
    *used = usedBytes(read, others(me->header->write), me->mask);
    return 0;
}

cu_ErrorCode cu_RingBuffer_putAvailable(cu_RingBuffer* me, uint32_t* free)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(free != nullptr);

    const uint32_t read = others(me->header->read);
    *free = freeBytes(read, others(me->header->write), me->mask);
    return 0;
}
