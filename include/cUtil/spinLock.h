/** @file
 *  Spin locks for the threads of one process: for a few instructions at a time, between threads that are never kept
 * from running while they hold one.
 *
 *  A waiter burns its processor until the lock is free, without limit: a real-time thread that waits for one of lower
 *  priority on its own processor waits for ever. Where that may happen, take a cu_Mutex, which also spins before it
 *  sleeps. A spin lock may not lie in shared memory.
 */
#ifndef CUTIL_SPIN_LOCK_H
#define CUTIL_SPIN_LOCK_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A spin lock. */
typedef struct cu_SpinLock cu_SpinLock;

/**
 * Makes a spin lock, unlocked.
 *
 * @param me         receives the lock; must hold null
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_SPINLOCK_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_SpinLock_new(cu_SpinLock** me, cu_allocator* allocator);

/**
 * Ends a spin lock that nobody holds or waits for; not every system checks that.
 *
 * @param me  holds the lock; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_CONDWAIT_FREE_FAILED (sic), and then the lock is kept
 */
CU_EXPORT cu_ErrorCode cu_SpinLock_delete(cu_SpinLock** me);

/**
 * Locks a spin lock, spinning without limit while it is held, also by the caller.
 *
 * @param me  the lock
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SPINLOCK_LOCK_FAILED with the system's error code
 */
CU_EXPORT cu_ErrorCode cu_SpinLock_lock(cu_SpinLock* me);

/**
 * Locks a spin lock if it is free; does not wait.
 *
 * @param me      the lock
 * @param locked  receives whether the caller got it; a busy lock is no error. It is true after a failure.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SPINLOCK_LOCK_FAILED with the system's error code
 */
CU_EXPORT cu_ErrorCode cu_SpinLock_tryLock(cu_SpinLock* me, bool* locked);

/**
 * Unlocks a spin lock.
 *
 * @param me  the lock, held by the caller; the system does not check that
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SPINLOCK_UNLOCK_FAILED with the system's error code
 */
CU_EXPORT cu_ErrorCode cu_SpinLock_unlock(cu_SpinLock* me);

CU_END_DECLS

#endif
