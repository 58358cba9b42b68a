/** @file
 *  Conditions that bring their mutex along: threads of one process sleep until another one signals, and nothing is
 *  remembered. A signal that comes while nobody waits is lost, and a wait may also end without one, so this is for
 *  wake-ups that may be missed; for anything else take a cu_ConditionWait or a cu_Semaphore.
 *
 *  The mutex belongs to the object and is held only on the way into and out of a wait, with one exception: after
 *  cu_ConditionVariable_timedWait() has timed out it stays held. From then on
 *    - every other wait on the object, also one by the same thread, waits for that mutex: for ever, or until the object
 *      is deleted; waiters that were asleep before wake up only at that time;
 *    - signals and broadcasts return 0 as ever, and nobody notices them;
 *    - cu_ConditionVariable_delete() works as ever and lets everybody go.
 *  So a timed wait that has timed out is the last wait on its object.
 */
#ifndef CUTIL_CONDITION_VARIABLE_H
#define CUTIL_CONDITION_VARIABLE_H

#include <cUtil/allocator.h>
#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A condition with a mutex of its own. */
typedef struct cu_ConditionVariable cu_ConditionVariable;

/**
 * Makes a condition variable. Its deadlines lie on the monotonic clock.
 *
 * @param me         receives the condition variable; must hold null
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_CONDWAIT_INIT_FAILED with the system's
 *         error code and a text
 */
CU_EXPORT cu_ErrorCode cu_ConditionVariable_new(cu_ConditionVariable** me, cu_allocator* allocator);

/**
 * Wakes all waiters, lets them leave and ends the condition variable. A mutex that a timed-out wait left held is given
 * back, whoever calls this, so that the others can leave, too.
 *
 * @param me  holds the condition variable; null afterwards. Nobody may begin to wait or signal from now on.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONDWAIT_SIGNAL_FAILED, and then the condition variable is kept
 *
 * Blocks until the last waiter has left, which takes as long as the system needs to run each of them for a moment.
 */
CU_EXPORT cu_ErrorCode cu_ConditionVariable_delete(cu_ConditionVariable** me);

/**
 * Wakes one waiter, if there is any.
 *
 * @param me  the condition variable
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONDWAIT_SIGNAL_FAILED with the system's error code
 *
 * Any thread may call it; does not block.
 */
CU_EXPORT cu_ErrorCode cu_ConditionVariable_signal(cu_ConditionVariable* me);

/** cu_ConditionVariable_signal() for all waiters. */
CU_EXPORT cu_ErrorCode cu_ConditionVariable_broadcast(cu_ConditionVariable* me);

/**
 * Sleeps until a signal. Caught signals of the system do not end the wait.
 *
 * @param me  the condition variable
 * @return 0, also when the wait ended by itself or because the object is deleted; cu_ERROR_COM_INVALID_ARGUMENT;
 *         cu_ERROR_CONDWAIT_WAIT_FAILED with the system's error code
 *
 * Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_ConditionVariable_wait(cu_ConditionVariable* me);

/**
 * Sleeps until a signal or a point in time. After the deadline the calling thread holds the object's mutex, see above.
 *
 * @param me         the condition variable
 * @param deadline   absolute, on the monotonic clock (see cu_makeTimeoutMilliSecond()); the wait for the object's mutex
 *                   is not limited by it
 * @param signalled  receives whether the wait ended before the deadline; a deadline that passes is no error. It is true
 *                   after a failure.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONDWAIT_WAIT_FAILED with the system's error code
 *
 * Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_ConditionVariable_timedWait(cu_ConditionVariable* me, const cu_TimeValue* deadline,
                                                      bool* signalled);

CU_END_DECLS

#endif
