/** @file
 *  Bare semaphores between processes, for layouts in shared memory: the caller's `sem_t` is the semaphore.
 *
 *  They start with a count of 1, so that each is a lock at first. A wait is never ended by a signal; before it sleeps
 *  it looks for about a microsecond whether the semaphore comes free, or for some 50 after a wait that hardly slept, if
 *  more than one processor is online. Any thread of any process that maps the memory may call them. A process that ends
 *  while it holds one does not give it back.
 */
#ifndef CUTIL_IPC_SEMAPHORE_H
#define CUTIL_IPC_SEMAPHORE_H

#include <cUtil/time/time.h>
#include <cUtil/types.h>

#include <semaphore.h>

CU_BEGIN_DECLS

/** Makes a semaphore with count 1 of memory that is aligned for it.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_INIT_FAILED */
CU_EXPORT cu_ErrorCode cu_ipcSem_init(sem_t* sem);

/** Ends a semaphore that nobody waits for. @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_FREE_FAILED */
CU_EXPORT cu_ErrorCode cu_ipcSem_free(sem_t* sem);

/**
 * Reads the count, which may have changed before the caller looks at it.
 *
 * @param sem    the semaphore
 * @param count  receives it; on systems that count waiters as negative numbers it may be below 0
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_GET_COUNT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_ipcSem_getCount(sem_t* sem, int32_t* count);

/** Takes one from the count, waiting without limit while it is 0.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED */
CU_EXPORT cu_ErrorCode cu_ipcSem_lock(sem_t* sem);

/**
 * Takes one from the count if it is not 0; does not block.
 *
 * @param sem    the semaphore
 * @param taken  receives whether one was taken; a count of 0 is no error. True after a failure.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_ipcSem_tryLock(sem_t* sem, bool* taken);

/**
 * Takes one from the count, waiting until a point in time while it is 0.
 *
 * @param sem       the semaphore
 * @param deadline  absolute, on the real-time clock (see cu_makeTimeoutMilliSecond())
 * @param taken     receives whether one was taken; a deadline that passes is no error. True after a failure.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_ipcSem_timedLock(sem_t* sem, const cu_TimeValue* deadline, bool* taken);

/** Adds one to the count and wakes a waiter; does not block.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_UNLOCK_FAILED */
CU_EXPORT cu_ErrorCode cu_ipcSem_unlock(sem_t* sem);

/**
 * Logs the first 16 bytes of a semaphore at level 2, for diagnosis.
 *
 * @param sem  the semaphore, which is not changed
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; the codes of cu_Logger_formattedLog(). As blocking as the log.
 */
CU_EXPORT cu_ErrorCode cu_ipcSem_print(const sem_t* sem);

CU_END_DECLS

#endif
