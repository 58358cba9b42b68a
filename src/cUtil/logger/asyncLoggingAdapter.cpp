#include <cUtil/logger/asyncLoggingAdapter.h>

#include "internal/gate.h"
#include "internal/newAdapter.h"
#include "internal/rollback.h"

#include <cUtil/mutex.h>
#include <cUtil/ringBuffer.h>
#include <cUtil/runnable.h>
#include <cUtil/thread.h>
#include <cUtil/time/time.h>

namespace
{

constexpr uint32_t bufferUnit = 4096;
constexpr uint32_t firstLineSize = 4096;
constexpr uint32_t flagPeriod = 100; // milliseconds between two looks at the running flag
constexpr uint32_t drainPeriod = 10; // milliseconds between two looks at what is left

// A line in the ring: this, then the text with its NUL.
struct Head {
    uint32_t length; // of what follows it
    uint32_t level;
};
static_assert(sizeof(Head) == 8 && offsetof(Head, level) == 4);

struct AsyncAdapter {
    cu_logger_Adapter* adapter;
    cu_allocator* allocator;
    cu_RingBuffer* ring; // put to under the mutex, got from by the thread alone
    cu_Mutex* mutex;
    internal::Gate gate; // where the thread sleeps
    cu_Thread* thread;
    cu_Runnable* runnable;
    cu_logger_Adapter* wrapped;
    std::atomic<uint32_t> lines; // ever put, whole ones
    std::atomic<bool> hasEnded;  // nothing is passed on any more
};

// Sleeps until there is another line than the `passed` ones, for the flag period at most.
cu_ErrorCode waitForLine(AsyncAdapter* me, uint32_t passed)
{
    cu_TimeValue deadline = {};
    if (const cu_ErrorCode code = cu_makeTimeoutMilliSecond(&deadline, flagPeriod, CLOCK_REALTIME); code != 0)
        return code;
    bool woken = false;
    cu_ErrorCode code = 0;
    me->gate.announce();
    if (me->lines.load(std::memory_order_seq_cst) == passed)
        code = me->gate.sleep(&deadline, &woken);
    me->gate.leave();
    return code;
}

cu_ErrorCode cu_logger_AsyncLoggingAdapter_forward(AsyncAdapter* me, const void* running)
{
    void* buffer = nullptr;
    uint32_t size = firstLineSize;
    CU_TRY(cu_allocator_alloc(me->allocator, &buffer, size));
    CU_ROLLBACK(release, cu_allocator_free(me->allocator, &buffer));

    uint32_t passed = 0;
    while (cu_Thread_isRunning(running)) {
        // Sees the line that it counts.
        if (me->lines.load(std::memory_order_acquire) == passed) {
            CU_TRY(waitForLine(me, passed));
            continue;
        }
        uint32_t length = 0;
        bool isThere = false;
        CU_TRY(cu_RingBuffer_get(me->ring, &length, sizeof(length), &isThere));
        if (!isThere)
            return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
        if (length > size) {
            CU_TRY(cu_allocator_realloc(me->allocator, &buffer, length));
            size = length;
        }
        CU_TRY(cu_RingBuffer_get(me->ring, buffer, length, &isThere));
        if (!isThere)
            return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
        ++passed;
        uint32_t level = 0;
        memcpy(&level, buffer, sizeof(level));
        CU_TRY(cu_logger_Adapter_logMessage(me->wrapped, level, static_cast<const char*>(buffer) + sizeof(level)));
    }
    return 0;
}

uintptr_t forward(void* running, void* adapter)
{
    auto* me = static_cast<AsyncAdapter*>(adapter);
    const cu_ErrorCode code = cu_logger_AsyncLoggingAdapter_forward(me, running);
    me->hasEnded.store(true, std::memory_order_relaxed);
    return code;
}

// Puts a line if there is room for all of it.
cu_ErrorCode putLine(AsyncAdapter* me, uint32_t level, const char* text, std::size_t size)
{
    uint32_t room = 0;
    if (const cu_ErrorCode code = cu_RingBuffer_putAvailable(me->ring, &room); code != 0)
        return code;
    if (sizeof(Head) + size > room)
        return 0;
    const auto textSize = static_cast<uint32_t>(size);
    const Head head = {static_cast<uint32_t>(sizeof(level)) + textSize, level};
    bool isPut = false;
    if (const cu_ErrorCode code = cu_RingBuffer_put(me->ring, &head, sizeof(head), &isPut); code != 0)
        return code;
    if (const cu_ErrorCode code = cu_RingBuffer_put(me->ring, text, textSize, &isPut); code != 0)
        return code;
    me->lines.fetch_add(1, std::memory_order_seq_cst);
    return 0;
}

cu_ErrorCode cu_logger_AsyncLoggingAdapter_logMessage(void* context, uint32_t level, const char* text)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(text != nullptr);

    auto* me = static_cast<AsyncAdapter*>(context);
    const std::size_t size = strlen(text) + 1;
    {
        CU_TRY(cu_Mutex_lock(me->mutex));
        CU_ROLLBACK(unlock, cu_Mutex_unlock(me->mutex));
        CU_TRY(putLine(me, level, text, size));
        unlock.dismiss();
        CU_TRY(cu_Mutex_unlock(me->mutex));
    }
    CU_TRY(me->gate.wake());
    return 0;
}

// Waits until the thread has taken what there is.
cu_ErrorCode drain(const AsyncAdapter* me)
{
    while (!me->hasEnded.load(std::memory_order_relaxed)) {
        uint32_t left = 0;
        if (const cu_ErrorCode code = cu_RingBuffer_getAvailable(me->ring, &left); code != 0 || left == 0)
            return code;
        cu_TimeValue next = {};
        if (const cu_ErrorCode code = cu_makeTimeoutMilliSecond(&next, drainPeriod, CLOCK_MONOTONIC); code != 0)
            return code;
        if (const cu_ErrorCode code = cu_sleepAbsolute(&next, CLOCK_MONOTONIC); code != 0)
            return code;
    }
    return 0;
}

cu_ErrorCode cu_logger_AsyncLoggingAdapter_destruct(void* context)
{
    CU_REQUIRE(context != nullptr);

    auto* me = static_cast<AsyncAdapter*>(context);
    uintptr_t result = 0;
    CU_MUST(drain(me));
    CU_MUST(cu_Thread_stop(me->thread, false));
    CU_MUST(me->gate.wake());
    CU_MUST(cu_Thread_join(me->thread, &result));
    CU_MUST(cu_Runnable_delete(&me->runnable));
    CU_MUST(cu_Thread_delete(&me->thread));
    CU_MUST(me->gate.close());
    CU_MUST(cu_Mutex_delete(&me->mutex));
    CU_MUST(cu_RingBuffer_delete(&me->ring));
    CU_MUST(cu_logger_Adapter_destruct(&me->wrapped));
    CU_MUST(internal::freeAdapter(me));
    return 0;
}

} // namespace

cu_ErrorCode cu_logger_AsyncLoggingAdapter_new(cu_logger_Adapter** adapter, cu_logger_Adapter* wrappedAdapter,
                                               uint32_t bufferSize, cu_allocator* allocator)
{
    CU_REQUIRE(adapter != nullptr);
    CU_REQUIRE(*adapter == nullptr);
    CU_REQUIRE(wrappedAdapter != nullptr);
    CU_REQUIRE(bufferSize % bufferUnit == 0);

    internal::NewAdapter<AsyncAdapter> made;
    CU_TRY(made.allocate(allocator));
    made->wrapped = wrappedAdapter;
    CU_TRY(cu_RingBuffer_new(&made->ring, bufferSize, false, false, made->allocator));
    CU_ROLLBACK(ring, cu_RingBuffer_delete(&made->ring));
    CU_TRY(cu_Mutex_new(&made->mutex, false, made->allocator));
    CU_ROLLBACK(mutex, cu_Mutex_delete(&made->mutex));
    CU_TRY(made->gate.open(made->allocator));
    CU_ROLLBACK(gate, made->gate.close());
    CU_TRY(cu_Thread_new(&made->thread, made->allocator));
    CU_ROLLBACK(thread, cu_Thread_delete(&made->thread));
    CU_TRY(cu_Runnable_new(&made->runnable, forward, made.get(), made->allocator));
    CU_ROLLBACK(runnable, cu_Runnable_delete(&made->runnable));
    CU_TRY(cu_Thread_start(made->thread, made->runnable));

    runnable.dismiss();
    thread.dismiss();
    gate.dismiss();
    mutex.dismiss();
    ring.dismiss();
    *adapter = made.release(cu_logger_AsyncLoggingAdapter_logMessage, cu_logger_AsyncLoggingAdapter_destruct);
    return 0;
}
