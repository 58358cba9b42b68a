#include <cUtil/thread.h>

#include "internal/owned.h"
#include "internal/report.h"
#include "internal/rollback.h"
#include "internal/signalsBlocked.h"
#include "internal/threadLayout.h"

#include <sys/syscall.h>
#include <unistd.h>

namespace
{

constexpr char name[] = "cu-thread";

// The state orders nothing: the worker reads it after the release, the owners write it under the mutex.
uint32_t stateOf(const cu_Thread* me)
{
    return me->state.load(std::memory_order_relaxed);
}

void setState(cu_Thread* me, uint32_t state)
{
    me->state.store(state, std::memory_order_relaxed);
}

// A function that sees the flag cleared also sees what its owner did before.
void setRunning(cu_Thread* me, bool running)
{
    std::atomic_ref(me->running).store(running, std::memory_order_release);
}

// The worker's turns, until it is shut down or one fails.
cu_ErrorCode serve(cu_Thread* me)
{
    for (;;) {
        CU_TRY(cu_Semaphore_p(me->release));
        if (stateOf(me) == cu_THREAD_SHUT_DOWN)
            return cu_Semaphore_v(me->done);
        if (const cu_ErrorCode code = cu_Runnable_execute(me->runnable, &me->running, &me->result); code != 0) {
            // Told before the owner can know that the execution is over.
            me->workerLeft.store(true, std::memory_order_relaxed);
            internal::passOn(code, CU_HERE);
            cu_Semaphore_v(me->done);
            return code;
        }
        CU_TRY(cu_Semaphore_v(me->done));
    }
}

void* work(void* thread)
{
    auto* me = static_cast<cu_Thread*>(thread);
    const internal::SignalsBlocked blocked; // whatever the mask was in the thread that made this one
    pthread_setname_np(pthread_self(), name);
    if (cu_Semaphore_v(me->started) == 0)
        serve(me);
    cu_Semaphore_v(me->started);
    return nullptr;
}

// Lets the worker exit.
cu_ErrorCode dismissWorker(cu_Thread* me)
{
    const uint32_t before = stateOf(me);
    setState(me, cu_THREAD_SHUT_DOWN);
    const cu_ErrorCode code = cu_Semaphore_v(me->release);
    if (code != 0)
        setState(me, before); // it still waits to be released
    return code;
}

cu_ErrorCode joinWorker(cu_Thread* me)
{
    if (const int error = pthread_join(me->worker, nullptr); error != 0)
        return CU_REPORT(cu_ERROR_THREAD_JOIN_FAILED, error, nullptr);
    me->isJoined = true;
    return 0;
}

void requestStop(cu_Thread* me)
{
    setRunning(me, false);
    setState(me, cu_THREAD_STOPPED);
}

// Waits for the end of the execution of a stopped thread.
cu_ErrorCode collect(cu_Thread* me, uintptr_t* result)
{
    if (const cu_ErrorCode code = cu_Semaphore_p(me->done); code != 0)
        return code;
    *result = me->result;
    me->runnable = nullptr;
    me->result = 0;
    setState(me, cu_THREAD_IDLE);
    return 0;
}

// Ends the worker from any state. The state tells how far it came: when a step fails, the next call goes on there.
cu_ErrorCode shutDown(cu_Thread* me)
{
    if (stateOf(me) == cu_THREAD_RUNNING)
        requestStop(me);
    if (stateOf(me) == cu_THREAD_STOPPED) {
        uintptr_t dropped = 0;
        CU_TRY(collect(me, &dropped));
    }
    if (stateOf(me) == cu_THREAD_IDLE) {
        if (me->workerLeft.load(std::memory_order_relaxed)) {
            setState(me, cu_THREAD_SHUT_DOWN);
        } else {
            CU_TRY(dismissWorker(me));
            CU_TRY(cu_Semaphore_p(me->done));
        }
    }
    if (me->isJoined)
        return 0;
    CU_TRY(cu_Semaphore_p(me->started));
    return joinWorker(me);
}

cu_ErrorCode deleteSemaphore(cu_Semaphore** semaphore)
{
    return *semaphore != nullptr ? cu_Semaphore_delete(semaphore) : 0;
}

} // namespace

cu_ErrorCode cu_Thread_new(cu_Thread** me, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);

    internal::Owned<cu_Thread> thread;
    CU_TRY(thread.allocate(allocator));
    setState(thread.get(), cu_THREAD_CREATED);
    CU_TRY(cu_Mutex_new(&thread->mutex, false, thread->allocator));
    CU_ROLLBACK(mutex, cu_Mutex_delete(&thread->mutex));
    CU_TRY(cu_Semaphore_new(&thread->started, 0, thread->allocator));
    CU_ROLLBACK(started, cu_Semaphore_delete(&thread->started));
    CU_TRY(cu_Semaphore_new(&thread->release, 0, thread->allocator));
    CU_ROLLBACK(release, cu_Semaphore_delete(&thread->release));
    CU_TRY(cu_Semaphore_new(&thread->done, 0, thread->allocator));
    CU_ROLLBACK(done, cu_Semaphore_delete(&thread->done));
    {
        const internal::SignalsBlocked blocked; // there is no moment in which the worker could take one
        if (const int error = pthread_create(&thread->worker, nullptr, work, thread.get()); error != 0)
            return CU_REPORT(cu_ERROR_THREAD_CREATE_FAILED, error, nullptr);
    }
    CU_ROLLBACK(join, joinWorker(thread.get()));
    CU_ROLLBACK(dismiss, dismissWorker(thread.get()));
    CU_TRY(cu_Semaphore_p(thread->started));

    setState(thread.get(), cu_THREAD_IDLE);
    dismiss.dismiss();
    join.dismiss();
    done.dismiss();
    release.dismiss();
    started.dismiss();
    mutex.dismiss();
    *me = thread.release();
    return 0;
}

cu_ErrorCode cu_Thread_delete(cu_Thread** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    cu_Thread* thread = *me;
    {
        CU_TRY(cu_Mutex_lock(thread->mutex));
        CU_ROLLBACK(unlock, cu_Mutex_unlock(thread->mutex));
        if (stateOf(thread) == cu_THREAD_CREATED)
            return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, "Illegal thread state!");
        CU_TRY(shutDown(thread));
        unlock.dismiss();
        CU_TRY(cu_Mutex_unlock(thread->mutex));
    }
    CU_TRY(deleteSemaphore(&thread->release));
    CU_TRY(deleteSemaphore(&thread->done));
    CU_TRY(deleteSemaphore(&thread->started));
    CU_TRY(cu_Mutex_delete(&thread->mutex));
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_Thread_start(cu_Thread* me, cu_Runnable* runnable)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(runnable != nullptr);

    CU_TRY(cu_Mutex_lock(me->mutex));
    CU_ROLLBACK(unlock, cu_Mutex_unlock(me->mutex));
    if (const uint32_t state = stateOf(me); state != cu_THREAD_IDLE)
        return CU_REPORT(cu_ERROR_THREAD_START_FAILED, 0, "Thread not in idle state: %d", static_cast<int>(state));
    if (me->workerLeft.load(std::memory_order_relaxed))
        return CU_REPORT(cu_ERROR_THREAD_START_FAILED, 0, nullptr);
    CU_TRY(cu_Runnable_lock(runnable));
    CU_ROLLBACK(withdraw, cu_Runnable_unlock(runnable));
    me->runnable = runnable;
    setRunning(me, true);
    setState(me, cu_THREAD_RUNNING);
    if (const cu_ErrorCode code = cu_Semaphore_v(me->release); code != 0) {
        me->runnable = nullptr;
        setState(me, cu_THREAD_IDLE);
        return internal::passOn(code, CU_HERE);
    }
    withdraw.dismiss();
    unlock.dismiss();
    CU_TRY(cu_Mutex_unlock(me->mutex));
    return 0;
}

cu_ErrorCode cu_Thread_stop(cu_Thread* me, bool wait)
{
    CU_REQUIRE(me != nullptr);

    CU_TRY(cu_Mutex_lock(me->mutex));
    CU_ROLLBACK(unlock, cu_Mutex_unlock(me->mutex));
    if (const uint32_t state = stateOf(me); state != cu_THREAD_RUNNING)
        return CU_REPORT(cu_ERROR_THREAD_STOP_FAILED, 0, "Thread not in running state: %d", static_cast<int>(state));
    requestStop(me);
    if (wait) {
        uintptr_t dropped = 0;
        CU_TRY(collect(me, &dropped));
    }
    unlock.dismiss();
    CU_TRY(cu_Mutex_unlock(me->mutex));
    return 0;
}

cu_ErrorCode cu_Thread_join(cu_Thread* me, uintptr_t* result)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(result != nullptr);

    CU_TRY(cu_Mutex_lock(me->mutex));
    CU_ROLLBACK(unlock, cu_Mutex_unlock(me->mutex));
    if (const uint32_t state = stateOf(me); state != cu_THREAD_STOPPED)
        return CU_REPORT(cu_ERROR_THREAD_JOIN_FAILED, 0, "Thread not in stopped state: %d", static_cast<int>(state));
    CU_TRY(collect(me, result));
    unlock.dismiss();
    CU_TRY(cu_Mutex_unlock(me->mutex));
    return 0;
}

cu_ErrorCode cu_Thread_getState(const cu_Thread* me, uint32_t* state)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(state != nullptr);

    *state = stateOf(me);
    return 0;
}

cu_ErrorCode cu_Thread_getThreadID(const cu_Thread* me, cu_ThreadID* threadID)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(threadID != nullptr);

    *threadID = me->worker;
    return 0;
}

cu_ThreadID cu_Thread_getCurrentThreadID(void)
{
    return pthread_self();
}

int32_t cu_Thread_getProcessID(void)
{
    return getpid();
}

int32_t cu_Thread_getCurrentNativeThreadID(void)
{
    return static_cast<int32_t>(syscall(SYS_gettid));
}

cu_ErrorCode cu_ThreadID_equals(const cu_ThreadID* a, const cu_ThreadID* b, bool* equal)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    CU_REQUIRE(equal != nullptr);

    *equal = *a == *b;
    return 0;
}
