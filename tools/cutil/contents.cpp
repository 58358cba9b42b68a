// What cutil shm show finds at the start of a region.
#include "cutil.h"
#include "json.h"
#include "region.h"

#include <cUtil/fifo.h>
#include <cUtil/rpcChannel.h>
#include <cUtil/rpcQueue.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <optional>
#include <semaphore.h>

namespace cutil
{

namespace
{

int showRing(const Ring& ring, const RingShape& shape, Json* json)
{
    uint32_t used = 0;
    uint32_t free = 0;
    cu_ErrorCode code = cu_RingBuffer_getAvailable(ring.get(), &used);
    if (code == 0)
        code = cu_RingBuffer_putAvailable(ring.get(), &free);
    if (code != 0)
        return failByRecord(code, "reading the ring buffer");
    if (json != nullptr) {
        json->add("contents", "ring buffer").add("bytes", shape.size).add("used", used).add("free", free);
        json->add("readerLock", shape.readerLock).add("writerLock", shape.writerLock);
        return done;
    }
    const char* const locks[] = {"none", "reader", "writer", "reader and writer"};
    printf("ring buffer: %u bytes\n"
           "  used:      %u\n"
           "  free:      %u\n"
           "  locks:     %s\n",
           shape.size, used, free, locks[(shape.readerLock ? 1 : 0) + (shape.writerLock ? 2 : 0)]);
    return done;
}

// The words of the layout that rpcQueue.h tells.
constexpr uint32_t semaphoreOffset = std::max<uint32_t>(sizeof(uint32_t), alignof(sem_t));
constexpr uint32_t reservedOffset = semaphoreOffset + sizeof(sem_t);

/// Signals that wait in what looks like an RPC queue of that many bytes at that address; nothing when it does not.
// A queue carries no mark. But its size is told twice, and nearly all of its header is 0.
std::optional<int> findQueue(void* region, uint32_t size)
{
    auto* bytes = static_cast<unsigned char*>(region);
    const auto isZero = [](unsigned char byte) { return byte == 0; };
    uint32_t payloadSize = 0;
    memcpy(&payloadSize, bytes, sizeof(payloadSize));
    if (payloadSize != size - CU_RPC_QUEUE_HEADER_SIZE ||
        !std::all_of(bytes + sizeof(payloadSize), bytes + semaphoreOffset, isZero) ||
        !std::all_of(bytes + reservedOffset, bytes + CU_RPC_QUEUE_HEADER_SIZE, isZero))
        return std::nullopt;
    int signals = -1;
    if (sem_getvalue(static_cast<sem_t*>(static_cast<void*>(bytes + semaphoreOffset)), &signals) != 0 || signals < 0)
        return std::nullopt;
    return signals;
}

/// Whether something was found and shown.
bool showRpc(const Memory& memory, Json* json)
{
    constexpr uint32_t smallest = CU_RPC_QUEUE_MINIMUM_SIZE;
    if (memory.size < smallest)
        return false;
    if (const std::optional<int> signals = findQueue(memory.base, memory.size)) {
        const uint32_t payload = memory.size - CU_RPC_QUEUE_HEADER_SIZE;
        if (json != nullptr)
            json->add("contents", "RPC queue").add("bytes", payload).add("signals", *signals);
        else
            printf("RPC queue:   %u bytes of payload, from the looks of it (it carries no mark)\n"
                   "  signals:   %d\n",
                   payload, *signals);
        return true;
    }
    const uint32_t half = memory.size / 2;
    if (half < smallest || memory.size % (2 * CU_RPC_QUEUE_HEADER_SIZE) != 0)
        return false;
    const std::optional<int> toCreator = findQueue(memory.base, half);
    const std::optional<int> fromCreator = findQueue(static_cast<unsigned char*>(memory.base) + half, half);
    if (!toCreator || !fromCreator)
        return false;
    const uint32_t payload = half - CU_RPC_QUEUE_HEADER_SIZE;
    if (json != nullptr) {
        json->add("contents", "RPC channel").add("bytes", payload);
        json->add("signalsToCreator", *toCreator).add("signalsFromCreator", *fromCreator);
    } else {
        printf("RPC channel: twice %u bytes of payload, from the looks of it (it carries no mark)\n"
               "  signals:   %d to the side that created it, %d to the other one\n",
               payload, *toCreator, *fromCreator);
    }
    return true;
}

/// The first two words of a FIFO's block.
struct FifoShape {
    uint32_t capacity;
    uint32_t entrySize;
};

// A FIFO carries no mark, so what lies there is one when all that it says fits together and into the region.
std::optional<FifoShape> findFifo(const Memory& memory)
{
    if (memory.size < CU_FIFO_HEADER_SIZE || cu_Fifo_attach(memory.base) != 0)
        return std::nullopt;
    FifoShape shape{};
    memcpy(&shape, memory.base, sizeof(shape));
    const uint32_t needed = cu_Fifo_getBlockSize(shape.capacity, shape.entrySize);
    if (needed == 0 || needed > memory.size)
        return std::nullopt;
    return shape;
}

int showNothing(Json* json)
{
    if (json != nullptr)
        json->add("contents", nullptr);
    else
        puts("FIFO:        none");
    return done;
}

int showFifo(const Memory& memory, Json* json)
{
    const std::optional<FifoShape> shape = findFifo(memory);
    if (!shape)
        return showNothing(json);
    uint32_t capacity = 0;
    int32_t free = 0;
    int32_t used = 0;
    const cu_ErrorCode code = cu_Fifo_getLengthInfos(memory.base, &capacity, &free, &used);
    if (code != 0)
        return failByRecord(code, "reading the FIFO");
    // The two are read one after the other, and open transactions count as neither.
    if (free > static_cast<int64_t>(capacity) || used > static_cast<int64_t>(capacity))
        return showNothing(json);
    if (json != nullptr) {
        json->add("contents", "FIFO").add("entries", capacity).add("entryBytes", shape->entrySize);
        json->add("used", used).add("free", free);
        return done;
    }
    printf("FIFO:        %u entries of %u bytes\n"
           "  used:      %d\n"
           "  free:      %d\n",
           capacity, shape->entrySize, used, free);
    return done;
}

} // namespace

// From what is told for certain to what is told by its looks only.
int showContents(const Memory& memory, Json* json)
{
    Ring ring;
    RingShape shape;
    switch (findRing(memory, ring, shape)) {
    case RingState::usable:
        return showRing(ring, shape, json);
    case RingState::damaged:
        if (json != nullptr)
            json->add("contents", "damaged ring buffer").add("bytes", shape.size);
        else
            printf("ring buffer: damaged; %u bytes by its header\n", shape.size);
        return done;
    case RingState::absent:
        break;
    }
    return showRpc(memory, json) ? done : showFifo(memory, json);
}

} // namespace cutil
