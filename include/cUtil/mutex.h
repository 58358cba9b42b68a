/** @file
 *  Mutual exclusion between the threads of one process, always with priority inheritance.
 *
 *  While a thread waits for a mutex, its owner runs at the waiter's priority if that is higher. A mutex knows its
 * owner: a thread that locks its own one again either holds it twice (recursive) or is told so (not recursive), and
 * only the owner unlocks.
 *
 *  Before a thread sleeps because a mutex is held, it looks for a short, bounded time whether the mutex comes free:
 *  about a microsecond, up to 50 µs after a sleep that was not longer itself, not at all if only one processor is
 *  online. The priority is inherited from the moment at which it sleeps. A thread that comes by in between may get the
 *  mutex before one that has only looked so far.
 *
 *  A mutex serves one process: it may not lie in shared memory. After a `fork` the child may use only those that the
 *  forking thread left free, and none that another thread held.
 */
#ifndef CUTIL_MUTEX_H
#define CUTIL_MUTEX_H

#include <cUtil/allocator.h>
#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A mutex. */
typedef struct cu_Mutex cu_Mutex;

/**
 * Makes a mutex, unlocked.
 *
 * @param me         receives the mutex; must hold null
 * @param recursive  whether its owner may lock it several times; it then unlocks it as often
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_MUTEX_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Mutex_new(cu_Mutex** me, bool recursive, cu_allocator* allocator);

/**
 * Ends a mutex that nobody holds or waits for.
 *
 * @param me  holds the mutex; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_MUTEX_FREE_FAILED when it is locked, and then it is kept
 */
CU_EXPORT cu_ErrorCode cu_Mutex_delete(cu_Mutex** me);

/**
 * Locks a mutex, waiting without limit while another thread holds it. Signals do not end the wait.
 *
 * @param me  the mutex
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_MUTEX_LOCK_FAILED with the system's error code, EDEADLK when the
 *         mutex is not recursive and the caller holds it already
 */
CU_EXPORT cu_ErrorCode cu_Mutex_lock(cu_Mutex* me);

/**
 * Locks a mutex if it is free; does not block.
 *
 * @param me      the mutex
 * @param locked  receives whether the caller got it. It is false, and that is no error, when a thread holds it: also
 *                when it is not recursive and the caller itself does. It is true after a failure.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_MUTEX_LOCK_FAILED with the system's error code
 */
CU_EXPORT cu_ErrorCode cu_Mutex_tryLock(cu_Mutex* me, bool* locked);

/**
 * Locks a mutex, waiting until a point in time while another thread holds it.
 *
 * @param me        the mutex
 * @param deadline  absolute, on the real-time clock (see cu_makeTimeoutMilliSecond()); not looked at when the mutex is
 *                  free
 * @param locked    receives whether the caller got it; a deadline that passes is no error. It is true after a failure.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_MUTEX_LOCK_FAILED with the system's error code, EDEADLK when the
 *         mutex is not recursive and the caller holds it already
 */
CU_EXPORT cu_ErrorCode cu_Mutex_timedLock(cu_Mutex* me, const cu_TimeValue* deadline, bool* locked);

/**
 * Unlocks a mutex, once if it is recursive.
 *
 * @param me  the mutex
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_MUTEX_UNLOCK_FAILED with the system's error code, EPERM when the
 *         caller does not hold it
 */
CU_EXPORT cu_ErrorCode cu_Mutex_unlock(cu_Mutex* me);

/**
 * Gives the one mutex of the process under which short compound updates are made atomic.
 *
 * It is there before any constructor of the program runs and is never deleted. It is a plain mutex: it inherits no
 * priority, does not know its owner, and a thread that locks it twice waits for ever.
 */
CU_EXPORT cu_Mutex* cu_atomicLock(void);

CU_END_DECLS

#endif
