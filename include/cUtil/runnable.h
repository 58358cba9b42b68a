/** @file
 *  A callable that counts its executions.
 *
 *  A runnable is a function and its user data, and the number of its executions that are announced or under way, so
 *  that its owner can wait until none is left. Each execution is announced by cu_Runnable_lock() before it is handed to
 *  whoever runs it, and is over when cu_Runnable_execute() has called the function.
 *
 *  Announcing and ending an execution takes no lock and makes no system call, unless somebody waits for the last one.
 */
#ifndef CUTIL_RUNNABLE_H
#define CUTIL_RUNNABLE_H

#include <cUtil/allocator.h>
#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A function with its user data and a count of pending executions. */
typedef struct cu_Runnable cu_Runnable;

/**
 * What a runnable runs.
 *
 * @param argument  from whoever executes it; a thread passes its running flag (see cu_Thread_isRunning())
 * @param userData  from the runnable's creation
 * @return a result for whoever collects it
 */
typedef uintptr_t (*cu_RunnableFunction)(void* argument, void* userData);

/**
 * Makes a runnable with no pending execution.
 *
 * @param me         receives the runnable; must hold null
 * @param function   what it runs
 * @param userData   passed to the function; it stays the caller's and may be null
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_MUTEX_INIT_FAILED;
 *         cu_ERROR_CONDWAIT_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Runnable_new(cu_Runnable** me, cu_RunnableFunction function, void* userData,
                                       cu_allocator* allocator);

/**
 * Announces an execution. Whoever announces one sees to it that it is executed, or takes it back by
 * cu_Runnable_unlock().
 *
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT. Any thread may call it; does not block.
 */
CU_EXPORT cu_ErrorCode cu_Runnable_lock(cu_Runnable* me);

/**
 * Ends an announced execution. With the last one whoever waits is woken, and the runnable may be gone when the call
 * returns.
 *
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT when no execution is pending, and then nothing has
 *         changed; the codes of cu_Mutex_lock(), cu_Mutex_unlock() and cu_ConditionWait_broadcast(). Any thread may
 *         call it; blocks only for the moment that somebody needs to begin or end a wait.
 */
CU_EXPORT cu_ErrorCode cu_Runnable_unlock(cu_Runnable* me);

/**
 * Calls the function and ends the execution, which must have been announced.
 *
 * @param me        the runnable
 * @param argument  the function's first argument; not null
 * @param result    receives what the function returns
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, and then the function is not called and the execution still pending; the
 *         codes of cu_Runnable_unlock(). Any thread may call it; blocks as long as the function does.
 */
CU_EXPORT cu_ErrorCode cu_Runnable_execute(cu_Runnable* me, void* argument, uintptr_t* result);

/**
 * Waits until no execution is pending.
 *
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; the codes of cu_Mutex_lock(), cu_Mutex_unlock() and
 *         cu_ConditionWait_wait(). Any thread may call it except one that executes the runnable; blocks without limit.
 */
CU_EXPORT cu_ErrorCode cu_Runnable_wait(cu_Runnable* me);

/**
 * Waits until no execution is pending. The deadline does not end the wait.
 *
 * @param me         the runnable
 * @param deadline   absolute, on the monotonic clock; the wait goes on when it passes
 * @param signalled  receives true, always
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; the codes of cu_Mutex_lock(), cu_Mutex_unlock() and
 *         cu_ConditionWait_timedWait(). Any thread may call it except one that executes the runnable; blocks without
 *         limit.
 */
CU_EXPORT cu_ErrorCode cu_Runnable_timedWait(cu_Runnable* me, const cu_TimeValue* deadline, bool* signalled);

/**
 * Waits until no execution is pending and frees the runnable. Nobody may announce an execution any more, nor wait.
 *
 * @param me  holds the runnable; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; the codes of cu_Runnable_wait(), cu_ConditionWait_delete() and
 *         cu_Mutex_delete(), and then the object is kept. Blocks without limit.
 */
CU_EXPORT cu_ErrorCode cu_Runnable_delete(cu_Runnable** me);

CU_END_DECLS

#endif
