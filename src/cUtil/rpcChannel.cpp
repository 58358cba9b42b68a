#include <cUtil/rpcChannel.h>

#include "internal/owned.h"
#include "internal/report.h"
#include "internal/rollback.h"

#include <cUtil/rpcQueue.h>

#include <cstddef>

struct cu_RPCChannel {
    cu_allocator* allocator;
    cu_RPCQueue* receive;
    cu_RPCQueue* transmit;
};

namespace
{

// A second half that starts elsewhere than on a page was never formatted, and a wait on it could crash the process.
bool canBeFollowedByAHalf(const void* region, uint32_t payloadSize)
{
    constexpr uint32_t page = CU_RPC_QUEUE_HEADER_SIZE;
    return payloadSize != 0 && payloadSize % page == 0 && payloadSize <= UINT32_MAX - page &&
           payloadSize + page <= UINTPTR_MAX - reinterpret_cast<uintptr_t>(region);
}

} // namespace

cu_ErrorCode cu_RPCChannel_create(cu_RPCChannel** channel, void* region, uint32_t size, cu_allocator* allocator)
{
    CU_REQUIRE(channel != nullptr);
    CU_REQUIRE(*channel == nullptr);
    CU_REQUIRE(region != nullptr);

    const uint32_t half = size / 2;
    internal::Owned<cu_RPCChannel> object;
    CU_TRY(object.allocate(allocator));
    CU_TRY(cu_RPCQueue_create(&object->receive, region, half, allocator));
    CU_ROLLBACK(deleteReceive, cu_RPCQueue_delete(&object->receive));
    CU_TRY(cu_RPCQueue_create(&object->transmit, static_cast<std::byte*>(region) + half, half, allocator));
    deleteReceive.dismiss();
    *channel = object.release();
    return 0;
}

cu_ErrorCode cu_RPCChannel_open(cu_RPCChannel** channel, void* region, cu_allocator* allocator)
{
    CU_REQUIRE(channel != nullptr);
    CU_REQUIRE(*channel == nullptr);
    CU_REQUIRE(region != nullptr);

    internal::Owned<cu_RPCChannel> object;
    CU_TRY(object.allocate(allocator));
    CU_TRY(cu_RPCQueue_open(&object->transmit, region, allocator));
    CU_ROLLBACK(deleteTransmit, cu_RPCQueue_delete(&object->transmit));
    uint32_t payloadSize = 0;
    CU_TRY(cu_RPCQueue_getSize(object->transmit, &payloadSize));
    if (!canBeFollowedByAHalf(region, payloadSize))
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
    void* secondHalf = static_cast<std::byte*>(region) + payloadSize + CU_RPC_QUEUE_HEADER_SIZE;
    CU_TRY(cu_RPCQueue_open(&object->receive, secondHalf, allocator));
    deleteTransmit.dismiss();
    *channel = object.release();
    return 0;
}

cu_ErrorCode cu_RPCChannel_delete(cu_RPCChannel** channel)
{
    CU_REQUIRE(channel != nullptr);
    CU_REQUIRE(*channel != nullptr);

    CU_MUST(cu_RPCQueue_delete(&(*channel)->transmit));
    CU_MUST(cu_RPCQueue_delete(&(*channel)->receive));
    CU_MUST(internal::freeObject(channel));
    return 0;
}

cu_ErrorCode cu_RPCChannel_getSize(cu_RPCChannel* channel, uint32_t* size)
{
    CU_REQUIRE(channel != nullptr);
    CU_REQUIRE(size != nullptr);

    CU_TRY(cu_RPCQueue_getSize(channel->receive, size));
    return 0;
}

cu_ErrorCode cu_RPCChannel_getRxBuffer(cu_RPCChannel* channel, void** payload)
{
    CU_REQUIRE(channel != nullptr);
    CU_REQUIRE(payload != nullptr);

    CU_TRY(cu_RPCQueue_get(channel->receive, payload));
    return 0;
}

cu_ErrorCode cu_RPCChannel_getTxBuffer(cu_RPCChannel* channel, void** payload)
{
    CU_REQUIRE(channel != nullptr);
    CU_REQUIRE(payload != nullptr);

    CU_TRY(cu_RPCQueue_get(channel->transmit, payload));
    return 0;
}

cu_ErrorCode cu_RPCChannel_signalTx(cu_RPCChannel* channel)
{
    CU_REQUIRE(channel != nullptr);

    CU_TRY(cu_RPCQueue_signal(channel->transmit));
    return 0;
}

cu_ErrorCode cu_RPCChannel_waitRx(cu_RPCChannel* channel)
{
    CU_REQUIRE(channel != nullptr);

    CU_TRY(cu_RPCQueue_wait(channel->receive));
    return 0;
}

cu_ErrorCode cu_RPCChannel_tryWaitRx(cu_RPCChannel* channel, bool* taken)
{
    CU_REQUIRE(channel != nullptr);
    CU_REQUIRE(taken != nullptr);

    CU_TRY(cu_RPCQueue_tryWait(channel->receive, taken));
    return 0;
}

cu_ErrorCode cu_RPCChannel_timedWaitRx(cu_RPCChannel* channel, const cu_TimeValue* deadline, bool* taken)
{
    CU_REQUIRE(channel != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(taken != nullptr);

    CU_TRY(cu_RPCQueue_timedWait(channel->receive, deadline, taken));
    return 0;
}
