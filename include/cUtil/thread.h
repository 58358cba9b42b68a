/** @file
 *  Reusable worker threads.
 *
 *  A cu_Thread is one POSIX thread, made once, that sleeps until it is handed a runnable, runs it once, and is then
 *  stopped and joined by its owner; after that it can be started again:
 *
 *      new -> IDLE -- start --> RUNNING -- stop --> STOPPED -- join --> IDLE ...  delete (from each of these)
 *
 *  Stopping is cooperative. The runnable's function gets the address of the thread's running flag as its first argument
 *  and is expected to return when cu_Thread_isRunning() tells that it has become false. The function may also return
 *  earlier; the thread still has to be stopped and joined. A function that starts late sees the flag already false, but
 *  it is always called.
 *
 *  Start, stop, join and delete exclude each other: while one owner's join blocks, another owner's call waits. So a
 *  runnable's function never calls them on its own thread. cu_Thread_getState() and cu_Thread_getThreadID() do not
 *  wait.
 *
 *  All signals are blocked in a worker, which shows in a debugger as "cu-thread". After fork() the child has the object
 *  but not the worker, and must leave it alone.
 */
#ifndef CUTIL_THREAD_H
#define CUTIL_THREAD_H

#include <cUtil/allocator.h>
#include <cUtil/runnable.h>
#include <cUtil/types.h>

#include <pthread.h>

CU_BEGIN_DECLS

/** A reusable worker thread. */
typedef struct cu_Thread cu_Thread;

/** The id of a thread of this process. */
typedef pthread_t cu_ThreadID;

/** What cu_Thread_getState() tells. */
enum {
    cu_THREAD_IDLE = 0,     /**< Can be started. */
    cu_THREAD_RUNNING = 1,  /**< Runs a runnable, or has finished it and waits to be stopped. */
    cu_THREAD_STOPPED = 2,  /**< Asked to stop; the result is not collected yet. */
    cu_THREAD_CREATED = 3,  /**< Being made; a caller never sees it. */
    cu_THREAD_SHUT_DOWN = 4 /**< Being deleted. */
};

/**
 * Makes a thread and waits until its worker is ready.
 *
 * @param me         receives the thread; must hold null
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_MUTEX_INIT_FAILED;
 *         cu_ERROR_SEM_INIT_FAILED; cu_ERROR_THREAD_CREATE_FAILED with the system's error code; the codes of
 *         cu_Semaphore_p(). Blocks until the worker runs.
 */
CU_EXPORT cu_ErrorCode cu_Thread_new(cu_Thread** me, cu_allocator* allocator);

/**
 * Ends the worker from whatever state the thread is in, and frees the thread. A running execution is asked to stop and
 * waited for; its result is dropped.
 *
 * @param me  holds the thread; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT; cu_ERROR_THREAD_JOIN_FAILED; the codes of the
 *         mutex and the semaphores. The object is kept when it fails, and the call can be repeated. Blocks as long as
 *         the execution lasts.
 */
CU_EXPORT cu_ErrorCode cu_Thread_delete(cu_Thread** me);

/**
 * Hands a runnable to the idle thread, which executes it once. The execution is announced to the runnable, so deleting
 * the runnable waits for it.
 *
 * @param me        the thread
 * @param runnable  what to run; it stays the caller's
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_THREAD_START_FAILED when the thread is not idle, or when its
 *         worker ended because an execution failed; the codes of the mutex, the semaphores and the runnable. Nothing
 *         has been started then. Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_Thread_start(cu_Thread* me, cu_Runnable* runnable);

/**
 * Clears the running flag.
 *
 * @param me    the thread
 * @param wait  whether to join as well; the result is dropped
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_THREAD_STOP_FAILED when the thread is not running; the codes of
 *         the mutex and the semaphores. Any thread may call it but the worker; with `wait` it blocks as long as the
 *         execution lasts.
 */
CU_EXPORT cu_ErrorCode cu_Thread_stop(cu_Thread* me, bool wait);

/**
 * Waits until the execution of a stopped thread has ended. The thread is idle afterwards.
 *
 * @param me      the thread
 * @param result  receives what the function returned
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_THREAD_JOIN_FAILED when the thread is not stopped; the codes of
 *         the mutex and the semaphores. Any thread may call it but the worker; blocks as long as the execution lasts.
 */
CU_EXPORT cu_ErrorCode cu_Thread_join(cu_Thread* me, uintptr_t* result);

/**
 * Gives the state, one of cu_THREAD_IDLE and its like. It may have changed by the time that the caller looks at it.
 *
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT. Any thread may call it; does not block.
 */
CU_EXPORT cu_ErrorCode cu_Thread_getState(const cu_Thread* me, uint32_t* state);

/**
 * Gives the id of the worker.
 *
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT. Any thread may call it; does not block.
 */
CU_EXPORT cu_ErrorCode cu_Thread_getThreadID(const cu_Thread* me, cu_ThreadID* threadID);

/** Gives the id of the calling thread. */
CU_EXPORT cu_ThreadID cu_Thread_getCurrentThreadID(void);

/** Gives the id of this process. */
CU_EXPORT int32_t cu_Thread_getProcessID(void);

/** Gives the kernel's id of the calling thread. */
CU_EXPORT int32_t cu_Thread_getCurrentNativeThreadID(void);

/**
 * Compares two thread ids, bit by bit.
 *
 * @param a      one id
 * @param b      the other
 * @param equal  receives whether they are the same
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_ThreadID_equals(const cu_ThreadID* a, const cu_ThreadID* b, bool* equal);

/**
 * Tells a runnable's function whether to go on. Once this is false, the function sees all that the owner did before it
 * stopped the thread.
 *
 * @param runningFlag  the function's first argument: the address of a byte (`bool`) that the owner may change
 */
static inline bool cu_Thread_isRunning(const void* runningFlag)
{
#ifdef __cplusplus
    const bool* flag = static_cast<const bool*>(runningFlag);
#else
    const bool* flag = runningFlag;
#endif
    return __atomic_load_n(flag, __ATOMIC_ACQUIRE);
}

CU_END_DECLS

#endif
