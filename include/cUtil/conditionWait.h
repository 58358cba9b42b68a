/** @file
 *  Conditions that threads of one process wait for under a mutex of their own.
 *
 *  As with every condition: hold the mutex, look whether what you wait for is there, wait while it is not, and look
 *  again, for a wait may also end without a signal. A signal that comes while nobody waits is lost.
 */
#ifndef CUTIL_CONDITION_WAIT_H
#define CUTIL_CONDITION_WAIT_H

#include <cUtil/allocator.h>
#include <cUtil/mutex.h>
#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A condition. */
typedef struct cu_ConditionWait cu_ConditionWait;

/**
 * Makes a condition. Its deadlines lie on the monotonic clock.
 *
 * @param me         receives the condition; must hold null
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_CONDWAIT_INIT_FAILED with the system's
 *         error code and a text
 */
CU_EXPORT cu_ErrorCode cu_ConditionWait_new(cu_ConditionWait** me, cu_allocator* allocator);

/**
 * Wakes all waiters and ends the condition. It is freed as soon as they do not touch it any more; they may still be
 * waiting for their mutexes then, which must live on until they have returned.
 *
 * @param me  holds the condition; null afterwards. Nobody may begin to wait or signal from now on.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONDWAIT_SIGNAL_FAILED; cu_ERROR_CONDWAIT_FREE_FAILED; after a
 *         failure the condition is kept
 *
 * Blocks until the waiters are awake, and does not need their mutexes for that.
 */
CU_EXPORT cu_ErrorCode cu_ConditionWait_delete(cu_ConditionWait** me);

/**
 * Wakes one waiter, if there is any.
 *
 * @param me  the condition
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONDWAIT_SIGNAL_FAILED with the system's error code and a text
 *
 * Any thread may call it, with or without the waiter's mutex.
 */
CU_EXPORT cu_ErrorCode cu_ConditionWait_signal(cu_ConditionWait* me);

/** cu_ConditionWait_signal() for all waiters. */
CU_EXPORT cu_ErrorCode cu_ConditionWait_broadcast(cu_ConditionWait* me);

/**
 * Gives a mutex back and sleeps until a signal, in one step; then takes the mutex again. Caught signals of the system
 * do not end the wait.
 *
 * @param me     the condition
 * @param mutex  locked by the caller, once; all who wait at the same time name the same one
 * @return 0, also when the wait ended by itself; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONDWAIT_WAIT_FAILED with the
 *         system's error code (EPERM when the caller does not hold the mutex) and a text
 */
CU_EXPORT cu_ErrorCode cu_ConditionWait_wait(cu_ConditionWait* me, cu_Mutex* mutex);

/**
 * cu_ConditionWait_wait() until a point in time.
 *
 * @param me         the condition
 * @param mutex      locked by the caller, once; held again afterwards in every case
 * @param deadline   absolute, on the monotonic clock (see cu_makeTimeoutMilliSecond())
 * @param signalled  receives whether the wait ended before the deadline; a deadline that passes is no error. It is true
 *                   after a failure.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONDWAIT_WAIT_FAILED with the system's error code
 */
CU_EXPORT cu_ErrorCode cu_ConditionWait_timedWait(cu_ConditionWait* me, cu_Mutex* mutex, const cu_TimeValue* deadline,
                                                  bool* signalled);

CU_END_DECLS

#endif
