#include "internal/threadPoolLayout.h"

#include "internal/owned.h"
#include "internal/report.h"
#include "internal/rollback.h"
#include "internal/threadLayout.h"

#include <cUtil/time/timer.h>

#include <algorithm>
#include <cstdio>
#include <pthread.h>

namespace
{

constexpr uint32_t pollMilliSeconds = 10;
constexpr uint32_t resizeMilliSeconds = 1000;
constexpr uint32_t defaultThreads = 16;
constexpr uint32_t defaultQueue = 32;

cu_Runnable* asJob(void* entry)
{
    return static_cast<cu_Runnable*>(entry);
}

bool takeRetireRequest(cu_ThreadPool* me)
{
    uint32_t wanted = 1;
    return me->retireRequest.load(std::memory_order_relaxed) == wanted &&
           me->retireRequest.compare_exchange_strong(wanted, 0);
}

// Waits for a job for a poll period.
cu_ErrorCode awaitJob(cu_ThreadPool* me, void** job, bool* got)
{
    cu_TimeValue deadline = {};
    CU_TRY(cu_makeTimeoutMilliSecond(&deadline, pollMilliSeconds, CLOCK_REALTIME));
    CU_TRY(cu_PointerBuffer_timedGet(me->jobs, job, &deadline, got));
    return 0;
}

// Between jobs that come one on the heels of the other a worker does not count as idle.
uintptr_t workerLoop(void* running, void* context)
{
    auto* me = static_cast<cu_ThreadPool*>(context);
    bool isIdle = true;
    while (cu_Thread_isRunning(running)) {
        void* job = nullptr;
        bool got = false;
        CU_TRY(cu_PointerBuffer_tryGet(me->jobs, &job, &got));
        if (!got && !isIdle) {
            me->idleCount.fetch_add(1, std::memory_order_relaxed);
            isIdle = true;
        }
        if (!got)
            CU_TRY(awaitJob(me, &job, &got));
        if (got && !cu_Thread_isRunning(running)) {
            CU_TRY(cu_Runnable_unlock(asJob(job)));
        } else if (got) {
            if (isIdle)
                me->idleCount.fetch_sub(1, std::memory_order_relaxed);
            isIdle = false;
            uintptr_t result = 0;
            CU_TRY(cu_Runnable_execute(asJob(job), running, &result));
        }
        if (takeRetireRequest(me)) {
            if (!isIdle)
                me->idleCount.fetch_add(1, std::memory_order_relaxed);
            me->retiringWorker = cu_Thread_getCurrentThreadID();
            CU_TRY(cu_Semaphore_v(me->retired));
            return 0;
        }
    }
    return 0;
}

void nameThread(cu_Thread* thread, const char* name)
{
    cu_ThreadID id = {};
    if (cu_Thread_getThreadID(thread, &id) == 0)
        pthread_setname_np(id, name);
}

cu_ErrorCode makeWorker(cu_ThreadPool* me, cu_Thread** worker)
{
    CU_TRY(cu_Thread_new(worker, me->allocator));
    char name[16];
    snprintf(name, sizeof(name), "cu-pool-%u", me->namedWorkers++);
    nameThread(*worker, name);
    return 0;
}

void addToList(cu_ThreadPool* me, cu_Thread* worker)
{
    worker->next = me->workers;
    me->workers = worker;
    me->workerCount.fetch_add(1, std::memory_order_relaxed);
}

// Takes a worker out of the list and deletes it; its place is that of the link to it.
cu_ErrorCode removeWorker(cu_ThreadPool* me, cu_Thread** link)
{
    cu_Thread* worker = *link;
    cu_Thread* next = worker->next;
    CU_TRY(cu_Thread_delete(&worker));
    *link = next;
    me->workerCount.fetch_sub(1, std::memory_order_relaxed);
    return 0;
}

cu_ErrorCode grow(cu_ThreadPool* me)
{
    cu_Thread* worker = nullptr;
    CU_TRY(makeWorker(me, &worker));
    CU_ROLLBACK(undo, cu_Thread_delete(&worker));
    CU_TRY(cu_Thread_start(worker, me->workerRunnable));
    undo.dismiss();
    addToList(me, worker);
    me->idleCount.fetch_add(1, std::memory_order_relaxed);
    return 0;
}

cu_ErrorCode removeRetired(cu_ThreadPool* me)
{
    for (cu_Thread** link = &me->workers; *link != nullptr; link = &(*link)->next) {
        cu_ThreadID id = {};
        bool equal = false;
        CU_TRY(cu_Thread_getThreadID(*link, &id));
        CU_TRY(cu_ThreadID_equals(&id, &me->retiringWorker, &equal));
        if (equal) {
            CU_TRY(removeWorker(me, link));
            me->idleCount.fetch_sub(1, std::memory_order_relaxed);
            return 0;
        }
    }
    return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
}

// Waits for a poll period for a worker that retires.
cu_ErrorCode awaitRetired(cu_ThreadPool* me, bool* taken)
{
    cu_TimeValue deadline = {};
    CU_TRY(cu_makeTimeoutMilliSecond(&deadline, pollMilliSeconds, CLOCK_REALTIME));
    CU_TRY(cu_Semaphore_timedP(me->retired, &deadline, taken));
    return 0;
}

// Waits for a worker that retires. When the pool or the wait ends before, the request is withdrawn, unless a worker has
// taken it.
cu_ErrorCode shrink(cu_ThreadPool* me, const void* running)
{
    me->retireRequest.store(1);
    for (bool taken = false; !taken;) {
        if (!cu_Thread_isRunning(running) && takeRetireRequest(me))
            return 0;
        if (const cu_ErrorCode code = awaitRetired(me, &taken); code != 0) {
            takeRetireRequest(me);
            return code;
        }
    }
    CU_TRY(removeRetired(me));
    return 0;
}

uintptr_t controllerLoop(void* running, void* context)
{
    auto* me = static_cast<cu_ThreadPool*>(context);
    cu_TimeValue next = {};
    CU_TRY(cu_getTime(&next, CLOCK_MONOTONIC));
    cu_TimeValue expiry = next;
    CU_TRY(cu_addMilliSeconds(&expiry, resizeMilliSeconds));
    cu_Timer timer = {};
    CU_TRY(cu_Timer_init(&timer, &expiry, CLOCK_MONOTONIC));
    while (cu_Thread_isRunning(running)) {
        bool expired = false;
        CU_TRY(cu_addMilliSeconds(&next, pollMilliSeconds));
        CU_TRY(cu_sleepAbsolute(&next, CLOCK_MONOTONIC));
        CU_TRY(cu_Timer_isExpired(&timer, &expired));
        if (!expired)
            continue;
        const uint32_t idle = me->idleCount.load(std::memory_order_relaxed);
        if (idle < me->configuredIdle)
            CU_TRY(grow(me));
        else if (idle > me->configuredIdle)
            CU_TRY(shrink(me, running));
        // A grid of whole periods, not measured from now. Those that the wait for a worker took are not made up.
        CU_TRY(cu_getTime(&next, CLOCK_MONOTONIC));
        while (expired) {
            CU_TRY(cu_addMilliSeconds(&expiry, resizeMilliSeconds));
            CU_TRY(cu_Timer_set(&timer, &expiry));
            CU_TRY(cu_Timer_isExpired(&timer, &expired));
        }
    }
    return 0;
}

// Gives back what was announced of the jobs that nobody has begun.
cu_ErrorCode giveJobsBack(cu_ThreadPool* me)
{
    for (;;) {
        void* job = nullptr;
        bool got = false;
        CU_TRY(cu_PointerBuffer_tryGet(me->jobs, &job, &got));
        if (!got)
            return 0;
        CU_TRY(cu_Runnable_unlock(asJob(job)));
    }
}

// Lets all workers stop at once; each is waited for later.
cu_ErrorCode stopWorkers(cu_ThreadPool* me)
{
    for (cu_Thread* worker = me->workers; worker != nullptr; worker = worker->next) {
        uint32_t state = cu_THREAD_IDLE;
        CU_TRY(cu_Thread_getState(worker, &state));
        if (state == cu_THREAD_RUNNING)
            CU_TRY(cu_Thread_stop(worker, false));
    }
    return 0;
}

// Ends what a pool has, which may be a part of one.
cu_ErrorCode endParts(cu_ThreadPool* me)
{
    if (me->controller != nullptr)
        CU_TRY(cu_Thread_delete(&me->controller));
    if (me->retired != nullptr)
        CU_TRY(cu_Semaphore_delete(&me->retired));
    CU_TRY(stopWorkers(me));
    while (me->workers != nullptr)
        CU_TRY(removeWorker(me, &me->workers));
    if (me->jobs != nullptr)
        CU_TRY(giveJobsBack(me));
    if (me->controllerRunnable != nullptr)
        CU_TRY(cu_Runnable_delete(&me->controllerRunnable));
    if (me->workerRunnable != nullptr)
        CU_TRY(cu_Runnable_delete(&me->workerRunnable));
    if (me->jobs != nullptr)
        CU_TRY(cu_PointerBuffer_delete(&me->jobs));
    return 0;
}

pthread_mutex_t defaultMutex = PTHREAD_MUTEX_INITIALIZER;
cu_ThreadPool* defaultPool = nullptr;

} // namespace

cu_ErrorCode cu_ThreadPool_new(cu_ThreadPool** me, uint32_t threadCount, uint32_t queueSize, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(threadCount != 0);
    CU_REQUIRE(queueSize != 0);

    internal::Owned<cu_ThreadPool> pool;
    CU_TRY(pool.allocate(allocator));
    CU_ROLLBACK(undo, endParts(pool.get()));
    pool->configuredIdle = threadCount;
    for (uint32_t count = 0; count < threadCount; ++count) {
        cu_Thread* worker = nullptr;
        CU_TRY(makeWorker(pool.get(), &worker));
        addToList(pool.get(), worker);
    }
    pool->idleCount = threadCount;
    CU_TRY(cu_Semaphore_new(&pool->retired, 0, pool->allocator));
    CU_TRY(cu_Thread_new(&pool->controller, pool->allocator));
    nameThread(pool->controller, "cu-pool-ctl");
    CU_TRY(cu_Runnable_new(&pool->controllerRunnable, controllerLoop, pool.get(), pool->allocator));
    CU_TRY(cu_PointerBuffer_new(&pool->jobs, queueSize, pool->allocator));
    CU_TRY(cu_Runnable_new(&pool->workerRunnable, workerLoop, pool.get(), pool->allocator));
    // From its start on the list is the controller's, and each worker from its own.
    cu_Thread* next = pool->workers;
    CU_TRY(cu_Thread_start(pool->controller, pool->controllerRunnable));
    while (next != nullptr) {
        cu_Thread* worker = next;
        next = worker->next;
        CU_TRY(cu_Thread_start(worker, pool->workerRunnable));
    }
    undo.dismiss();
    *me = pool.release();
    return 0;
}

cu_ErrorCode cu_ThreadPool_delete(cu_ThreadPool** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    CU_TRY(endParts(*me));
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_ThreadPool_insert(cu_ThreadPool* me, cu_Runnable* job)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(job != nullptr);

    CU_TRY(cu_Runnable_lock(job));
    CU_ROLLBACK(giveBack, cu_Runnable_unlock(job));
    CU_TRY(cu_PointerBuffer_put(me->jobs, job));
    giveBack.dismiss();
    return 0;
}

cu_ErrorCode cu_ThreadPool_tryInsert(cu_ThreadPool* me, cu_Runnable* job, bool* inserted)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(job != nullptr);
    CU_REQUIRE(inserted != nullptr);

    CU_TRY(cu_Runnable_lock(job));
    CU_ROLLBACK(giveBack, cu_Runnable_unlock(job));
    CU_TRY(cu_PointerBuffer_tryPut(me->jobs, job, inserted));
    if (*inserted)
        giveBack.dismiss();
    return 0;
}

cu_ErrorCode cu_ThreadPool_timedInsert(cu_ThreadPool* me, cu_Runnable* job, const cu_TimeValue* deadline,
                                       bool* inserted)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(job != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(inserted != nullptr);

    CU_TRY(cu_Runnable_lock(job));
    CU_ROLLBACK(giveBack, cu_Runnable_unlock(job));
    CU_TRY(cu_PointerBuffer_timedPut(me->jobs, job, deadline, inserted));
    if (*inserted)
        giveBack.dismiss();
    return 0;
}

cu_ThreadPool* cu_ThreadPool_default(void)
{
    pthread_mutex_lock(&defaultMutex);
    if (defaultPool == nullptr)
        cu_ThreadPool_new(&defaultPool, defaultThreads, defaultQueue, nullptr);
    cu_ThreadPool* pool = defaultPool;
    pthread_mutex_unlock(&defaultMutex);
    return pool;
}

cu_ErrorCode cu_ThreadPool_cleanup(void)
{
    if (const int error = pthread_mutex_lock(&defaultMutex); error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_LOCK_FAILED, error, nullptr);
    cu_ThreadPool* pool = defaultPool;
    defaultPool = nullptr;
    if (const int error = pthread_mutex_unlock(&defaultMutex); error != 0)
        return CU_REPORT(cu_ERROR_MUTEX_UNLOCK_FAILED, error, nullptr);
    if (pool != nullptr)
        CU_TRY(cu_ThreadPool_delete(&pool));
    return 0;
}
