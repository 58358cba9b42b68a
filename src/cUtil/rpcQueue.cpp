#include <cUtil/rpcQueue.h>

#include "internal/owned.h"
#include "internal/report.h"

#include <cUtil/semaphore.h>

#include <atomic>
#include <cstddef>
#include <semaphore.h>

namespace
{

struct Header {
    uint32_t payloadSize;
    sem_t semaphore;
};
static_assert(offsetof(Header, payloadSize) == 0);
static_assert(offsetof(Header, semaphore) == (sizeof(void*) == 4 ? 4 : 8));
static_assert(sizeof(Header) <= CU_RPC_QUEUE_HEADER_SIZE && CU_RPC_QUEUE_HEADER_SIZE == 4096);

} // namespace

struct cu_RPCQueue {
    cu_allocator* allocator;
    void* region;
    Header* header;
    cu_Semaphore* semaphore;
};

cu_ErrorCode cu_RPCQueue_create(cu_RPCQueue** queue, void* region, uint32_t size, cu_allocator* allocator)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(*queue == nullptr);
    CU_REQUIRE(region != nullptr);
    CU_REQUIRE(reinterpret_cast<uintptr_t>(region) % CU_RPC_QUEUE_HEADER_SIZE == 0);
    CU_REQUIRE(size >= CU_RPC_QUEUE_MINIMUM_SIZE);

    memset(region, 0, size);
    internal::Owned<cu_RPCQueue> object;
    CU_TRY(object.allocate(allocator));
    object->region = region;
    object->header = static_cast<Header*>(region);
    object->header->payloadSize = size - CU_RPC_QUEUE_HEADER_SIZE;
    CU_TRY(cu_Semaphore_create(&object->semaphore, 0, &object->header->semaphore, allocator));
    *queue = object.release();
    return 0;
}

cu_ErrorCode cu_RPCQueue_open(cu_RPCQueue** queue, void* region, cu_allocator* allocator)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(*queue == nullptr);
    CU_REQUIRE(region != nullptr);

    internal::Owned<cu_RPCQueue> object;
    CU_TRY(object.allocate(allocator));
    object->region = region;
    object->header = static_cast<Header*>(region);
    CU_TRY(cu_Semaphore_open(&object->semaphore, &object->header->semaphore, allocator));
    *queue = object.release();
    return 0;
}

cu_ErrorCode cu_RPCQueue_delete(cu_RPCQueue** queue)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(*queue != nullptr);

    CU_MUST(cu_Semaphore_delete(&(*queue)->semaphore));
    CU_MUST(internal::freeObject(queue));
    return 0;
}

cu_ErrorCode cu_RPCQueue_getSize(cu_RPCQueue* queue, uint32_t* size)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(size != nullptr);

    *size = std::atomic_ref(queue->header->payloadSize).load(std::memory_order_relaxed);
    return 0;
}

cu_ErrorCode cu_RPCQueue_get(cu_RPCQueue* queue, void** payload)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(payload != nullptr);

    *payload = static_cast<std::byte*>(queue->region) + CU_RPC_QUEUE_HEADER_SIZE;
    return 0;
}

cu_ErrorCode cu_RPCQueue_signal(cu_RPCQueue* queue)
{
    CU_REQUIRE(queue != nullptr);

    CU_TRY(cu_Semaphore_v(queue->semaphore));
    return 0;
}

cu_ErrorCode cu_RPCQueue_wait(cu_RPCQueue* queue)
{
    CU_REQUIRE(queue != nullptr);

    CU_TRY(cu_Semaphore_p(queue->semaphore));
    return 0;
}

cu_ErrorCode cu_RPCQueue_tryWait(cu_RPCQueue* queue, bool* taken)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(taken != nullptr);

    CU_TRY(cu_Semaphore_tryP(queue->semaphore, taken));
    return 0;
}

cu_ErrorCode cu_RPCQueue_timedWait(cu_RPCQueue* queue, const cu_TimeValue* deadline, bool* taken)
{
    CU_REQUIRE(queue != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(taken != nullptr);

    CU_TRY(cu_Semaphore_timedP(queue->semaphore, deadline, taken));
    return 0;
}
