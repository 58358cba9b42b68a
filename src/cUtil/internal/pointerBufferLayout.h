// The slots of a pointer buffer.
#pragma once

#include "internal/gate.h"

#include <cUtil/pointerBuffer.h>

#include <atomic>
#include <cstdint>

namespace cu::internal
{

/// A place with its own turn. For the value number n (free-running, 32 bits) it is free while the turn is 2n and filled
/// while it is 2n + 1; emptied it waits for the value n + capacity. So nobody overtakes a thread that has drawn a place
/// but not yet filled or emptied it.
struct Slot {
    std::atomic<uint32_t> turn;
    void* value;
};

constexpr std::size_t cacheLine = 64;

} // namespace cu::internal

// The allocator promises no alignment beyond the usual, so what producers and consumers write is kept apart by filling.
struct cu_PointerBuffer {
    cu_allocator* allocator;
    cu::internal::Slot* slots;
    uint32_t capacity;
    char filling1[cu::internal::cacheLine];
    std::atomic<uint32_t> readCounter;
    char filling2[cu::internal::cacheLine];
    std::atomic<uint32_t> writeCounter;
    char filling3[cu::internal::cacheLine];
    cu::internal::Gate notFull;
    char filling4[cu::internal::cacheLine];
    cu::internal::Gate notEmpty;
};
