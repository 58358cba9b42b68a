#include "region.h"

#include "cutil.h"

#include <cUtil/errorCodes.h>

#include <cstring>

namespace cutil
{

void DeleteRegion::operator()(cu_SharedMemory* region) const
{
    if (const cu_ErrorCode code = cu_SharedMemory_delete(&region, false); code != 0)
        static_cast<void>(failByRecord(code, "closing the region"));
}

void DeleteRing::operator()(cu_RingBuffer* ring) const
{
    if (const cu_ErrorCode code = cu_RingBuffer_delete(&ring); code != 0)
        static_cast<void>(failByRecord(code, "closing the ring"));
}

cu_ErrorCode memoryOf(const Region& region, Memory& memory)
{
    const cu_ErrorCode code = cu_SharedMemory_getMappedSize(region.get(), &memory.size);
    return code == 0 ? cu_SharedMemory_getShared(region.get(), &memory.base) : code;
}

int openRegion(const char* name, Region& region, Memory& memory)
{
    cu_SharedMemory* opened = nullptr;
    cu_ErrorCode code = cu_SharedMemory_open(&opened, name, nullptr);
    if (code == 0) {
        region.reset(opened);
        code = memoryOf(region, memory);
    }
    return code == 0 ? done : failByRecord(code, name);
}

RingState findRing(const Memory& memory, Ring& ring, RingShape& shape)
{
    if (memory.size < CU_RING_BUFFER_HEADER_SIZE)
        return RingState::absent;
    // The words of the layout that ringBuffer.h tells.
    const auto* header = static_cast<const unsigned char*>(memory.base);
    memcpy(&shape.size, header + 8, sizeof(shape.size));
    shape.readerLock = header[20] != 0;
    shape.writerLock = header[21] != 0;

    cu_RingBuffer* opened = nullptr;
    const cu_ErrorCode code = cu_RingBuffer_open(&opened, memory.base, nullptr);
    if (code == cu_ERROR_INVALID_MAGIC)
        return RingState::absent;
    if (code != 0)
        return RingState::damaged;
    ring.reset(opened);
    // The library trusts the header as to the length of the region.
    if (shape.size > memory.size - CU_RING_BUFFER_HEADER_SIZE) {
        ring.reset();
        return RingState::damaged;
    }
    return RingState::usable;
}

} // namespace cutil
