/** @file
 *  Reader-writer locks for the threads of one process: any number of readers, or one writer.
 *
 *  Readers may go before a waiting writer. No priority is inherited. A lock may not lie in shared memory, and signals
 * do not end a wait.
 */
#ifndef CUTIL_RW_MUTEX_H
#define CUTIL_RW_MUTEX_H

#include <cUtil/allocator.h>
#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A reader-writer lock. */
typedef struct cu_RWMutex cu_RWMutex;

/**
 * Makes a lock, free.
 *
 * @param me         receives the lock; must hold null
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_MUTEX_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RWMutex_new(cu_RWMutex** me, cu_allocator* allocator);

/**
 * Ends a lock that nobody holds or waits for; the system does not check that.
 *
 * @param me  holds the lock; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_MUTEX_FREE_FAILED, and then the lock is kept
 */
CU_EXPORT cu_ErrorCode cu_RWMutex_delete(cu_RWMutex** me);

/**
 * Takes a lock for reading, waiting without limit while a writer holds it.
 *
 * A caller that holds it for writing is told that it got it, although nothing was added: it still unlocks once.
 *
 * @param me  the lock
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_MUTEX_LOCK_FAILED with the system's error code
 */
CU_EXPORT cu_ErrorCode cu_RWMutex_readLock(cu_RWMutex* me);

/**
 * Takes a lock for writing, waiting without limit while anybody else holds it.
 *
 * A caller that holds it for writing is told that it got it, although nothing was added: it still unlocks once. One
 * that holds it for reading waits for itself.
 *
 * @param me  the lock
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_MUTEX_LOCK_FAILED with the system's error code
 */
CU_EXPORT cu_ErrorCode cu_RWMutex_writeLock(cu_RWMutex* me);

/**
 * Takes a lock for reading if no writer holds it; does not block.
 *
 * @param me      the lock
 * @param locked  receives whether the caller got it; a busy lock is no error. It is true after a failure.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_MUTEX_LOCK_FAILED with the system's error code
 */
CU_EXPORT cu_ErrorCode cu_RWMutex_tryReadLock(cu_RWMutex* me, bool* locked);

/** cu_RWMutex_tryReadLock() for writing: nobody may hold the lock. */
CU_EXPORT cu_ErrorCode cu_RWMutex_tryWriteLock(cu_RWMutex* me, bool* locked);

/**
 * Takes a lock for reading, waiting until a point in time while a writer holds it.
 *
 * @param me        the lock
 * @param deadline  absolute, on the real-time clock (see cu_makeTimeoutMilliSecond())
 * @param locked    receives whether the caller got it; a deadline that passes is no error. It is true after a failure.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_MUTEX_LOCK_FAILED with the system's error code, EDEADLK when the
 *         caller holds the lock for writing
 */
CU_EXPORT cu_ErrorCode cu_RWMutex_timedReadLock(cu_RWMutex* me, const cu_TimeValue* deadline, bool* locked);

/** cu_RWMutex_timedReadLock() for writing: nobody may hold the lock. */
CU_EXPORT cu_ErrorCode cu_RWMutex_timedWriteLock(cu_RWMutex* me, const cu_TimeValue* deadline, bool* locked);

/**
 * Gives a lock back, whichever way the caller took it.
 *
 * @param me  the lock
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_MUTEX_UNLOCK_FAILED with the system's error code
 */
CU_EXPORT cu_ErrorCode cu_RWMutex_unlock(cu_RWMutex* me);

CU_END_DECLS

#endif
