// Bytes that wait to be sent, or to become a whole.
#pragma once

#include <cUtil/allocator.h>

#include <cstddef>
#include <cstdint>
#include <sys/uio.h>

namespace cu::internal
{

class ByteQueue;

/// Where queues get their memory, and how many bytes wait in all of them.
struct ByteStock {
    cu_allocator* allocator;
    bool (*makeRoom)(void* owner, const ByteQueue& asker); ///< clears another queue if it can, when there is no memory
    void* owner;
    uint64_t waiting = 0;
};

/// Bytes in the order in which they came. Memory is only there for bytes that are: it comes in blocks, each at most as
/// large as all that waits already, and goes block by block. A queue belongs to the stock that all its calls name, and
/// is cleared before its end.
class ByteQueue
{
public:
    bool isEmpty() const { return size_ == 0; }
    uint64_t size() const { return size_; }

    /// Adds all bytes, or none when there is no memory for them.
    bool append(ByteStock& stock, const void* bytes, uint32_t size);

    /// Adds what waits in a queue of a stock, which is empty then.
    void take(ByteStock& stock, ByteQueue& other, ByteStock& others);

    /// Where the first bytes are; gives the number of pieces and whether they are all.
    uint32_t pieces(iovec* result, uint32_t room, bool* all) const;

    /// Removes the first so many bytes.
    void drop(ByteStock& stock, uint64_t size);
    void clear(ByteStock& stock) { drop(stock, size_); }

private:
    struct Block {
        Block* next;
        uint32_t begin;
        uint32_t end;
        uint32_t capacity;
        uint8_t* bytes() { return static_cast<uint8_t*>(static_cast<void*>(this + 1)); }
    };

    Block* first_ = nullptr;
    Block* last_ = nullptr;
    uint64_t size_ = 0;
};

} // namespace cu::internal
