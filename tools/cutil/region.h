// Shared-memory regions and the rings in them, as the commands of cutil hold them.
#pragma once

#include <cUtil/ringBuffer.h>
#include <cUtil/sharedMemory.h>

#include <memory>

namespace cutil
{

class Json;

struct DeleteRegion {
    void operator()(cu_SharedMemory* region) const;
};
using Region = std::unique_ptr<cu_SharedMemory, DeleteRegion>;

struct DeleteRing {
    void operator()(cu_RingBuffer* ring) const;
};
using Ring = std::unique_ptr<cu_RingBuffer, DeleteRing>;

/// The bytes of a region.
struct Memory {
    void* base = nullptr;
    uint32_t size = 0;
};

/// Gives the bytes of a region. @return 0, or the library's code
[[nodiscard]] cu_ErrorCode memoryOf(const Region& region, Memory& memory);

/// Opens a region. @return #done, or #failed and the reason is told
[[nodiscard]] int openRegion(const char* name, Region& region, Memory& memory);

/// What stands in the header of a ring buffer, and what the library says to it.
struct RingShape {
    uint32_t size = 0; ///< Of the data area, in bytes.
    bool readerLock = false;
    bool writerLock = false;
};

enum class RingState {
    absent,
    damaged, ///< There is the mark, but not all that it says can be true.
    usable,
};

/// Looks for a ring buffer at the start of a region; opens it when it is usable.
[[nodiscard]] RingState findRing(const Memory& memory, Ring& ring, RingShape& shape);

/// Prints, or adds to an object, what lies at the start of a region: a ring buffer, an RPC queue or channel, or a FIFO.
/// @return #done, or #failed and the reason is told
[[nodiscard]] int showContents(const Memory& memory, Json* json);

} // namespace cutil
