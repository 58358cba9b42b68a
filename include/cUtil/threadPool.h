/** @file
 *  A pool of worker threads that run the jobs put into a bounded queue.
 *
 *  A controller thread looks once a second how many workers are idle, and starts one worker more when there are fewer
 * than at creation, or retires one when there are more. Workers look for jobs, for a stop and for a wish to retire
 * every 10 ms, the controller for its stop as often. The threads are named "cu-pool-0" and so on and "cu-pool-ctl".
 *
 *  Nobody waits for a job through the pool: each insertion announces an execution of the job's runnable, and
 *  cu_Runnable_wait() waits for it.
 *
 *  A child process inherits no workers: after a fork it may neither use nor delete a pool of its parent's.
 */
#ifndef CUTIL_THREAD_POOL_H
#define CUTIL_THREAD_POOL_H

#include <cUtil/allocator.h>
#include <cUtil/runnable.h>
#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A pool of threads. */
typedef struct cu_ThreadPool cu_ThreadPool;

/**
 * Makes a pool and starts its threads.
 *
 * @param me           receives the pool; must hold null
 * @param threadCount  workers at first, and idle workers that the controller aims at; not 0
 * @param queueSize    jobs that may wait, a power of two
 * @param allocator    gives the memory; null: the shared heap allocator. It is used by the controller, too.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_THREAD_CREATE_FAILED; or what its
 * parts fail with
 */
CU_EXPORT cu_ErrorCode cu_ThreadPool_new(cu_ThreadPool** me, uint32_t threadCount, uint32_t queueSize,
                                         cu_allocator* allocator);

/**
 * Ends a pool. Waits for the jobs that run to return; they see that their running flag is cleared. Jobs that have not
 * begun are not run, but what was announced of them is taken back, so that nobody waits for them for ever.
 *
 * @param me  holds the pool; null afterwards. Nobody may insert any more.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the first failing step says, and then the rest is left
 */
CU_EXPORT cu_ErrorCode cu_ThreadPool_delete(cu_ThreadPool** me);

/**
 * Hands a job to the pool, waiting without limit while the queue is full.
 *
 * @param me   the pool
 * @param job  the job; its function gets the worker's running flag (see cu_Thread_isRunning()) and its user data. It
 *             must last until it has run. It may be inserted several times and then runs as often, maybe at once.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the queue fails with. Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_ThreadPool_insert(cu_ThreadPool* me, cu_Runnable* job);

/**
 * Hands a job to the pool unless the queue is full; does not block.
 *
 * @param me        the pool
 * @param job       as for cu_ThreadPool_insert()
 * @param inserted  receives whether the job was taken; a full queue is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the queue fails with. Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_ThreadPool_tryInsert(cu_ThreadPool* me, cu_Runnable* job, bool* inserted);

/**
 * Hands a job to the pool, waiting until a point in time while the queue is full.
 *
 * @param me        the pool
 * @param job       as for cu_ThreadPool_insert()
 * @param deadline  absolute, on the real-time clock (see cu_makeTimeoutMilliSecond())
 * @param inserted  receives whether the job was taken; a deadline that passes is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the queue fails with. Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_ThreadPool_timedInsert(cu_ThreadPool* me, cu_Runnable* job, const cu_TimeValue* deadline,
                                                 bool* inserted);

/** Gives the process's default pool, with 16 workers and a queue of 32; the first call makes it.
 *  @return the pool, which stays the library's; null when it cannot be made, and then the next call tries again. Any
 *          thread may call it. */
CU_EXPORT cu_ThreadPool* cu_ThreadPool_default(void);

/** Deletes the default pool, if there is one; the next cu_ThreadPool_default() makes a new one.
 *  @return 0; or what the deletion says. Nobody may use the default pool any more. */
CU_EXPORT cu_ErrorCode cu_ThreadPool_cleanup(void);

CU_END_DECLS

#endif
