/** @file
 *  Counting semaphores, of one process or placed in shared memory.
 *
 *  A wait is never ended by a signal. Before a wait sleeps it looks for about a microsecond whether the semaphore comes
 *  free, or for some 50 after a wait that hardly slept, if more than one processor is online.
 */
#ifndef CUTIL_SEMAPHORE_H
#define CUTIL_SEMAPHORE_H

#include <cUtil/allocator.h>
#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A counting semaphore. */
typedef struct cu_Semaphore cu_Semaphore;

/**
 * Makes a semaphore for the threads of this process.
 *
 * @param me         receives the semaphore; must hold null
 * @param initial    first count, up to SEM_VALUE_MAX
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_SEM_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Semaphore_new(cu_Semaphore** me, uint32_t initial, cu_allocator* allocator);

/**
 * Makes a semaphore in memory of the caller's, which may be shared with other processes.
 *
 * @param me         receives the semaphore; must hold null
 * @param initial    first count, up to SEM_VALUE_MAX
 * @param storage    room for a `sem_t`, aligned for it; it stays the caller's and must last
 * @param allocator  gives the memory of the object around it; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_SEM_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Semaphore_create(cu_Semaphore** me, uint32_t initial, void* storage, cu_allocator* allocator);

/**
 * Wraps a semaphore that another party made in shared memory. Deleting it leaves the semaphore itself alone.
 *
 * @param me         receives the semaphore; must hold null
 * @param storage    the initialised `sem_t`; it must last
 * @param allocator  gives the memory of the object around it; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Semaphore_open(cu_Semaphore** me, void* storage, cu_allocator* allocator);

/**
 * Ends a semaphore; nobody may be waiting for it. Only the object that made the semaphore destroys it.
 *
 * @param me  holds the semaphore; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_FREE_FAILED, and then the object is kept
 */
CU_EXPORT cu_ErrorCode cu_Semaphore_delete(cu_Semaphore** me);

/**
 * Takes one from the count, waiting without limit while it is 0.
 *
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED. Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_Semaphore_p(cu_Semaphore* me);

/**
 * Takes one from the count if it is not 0; does not block.
 *
 * @param me     the semaphore
 * @param taken  receives whether one was taken; a count of 0 is no error. True after a failure.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED. Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_Semaphore_tryP(cu_Semaphore* me, bool* taken);

/**
 * Takes one from the count, waiting until a point in time while it is 0.
 *
 * @param me        the semaphore
 * @param deadline  absolute, on the real-time clock (see cu_makeTimeoutMilliSecond())
 * @param taken     receives whether one was taken; a deadline that passes is no error. True after a failure.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED. Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_Semaphore_timedP(cu_Semaphore* me, const cu_TimeValue* deadline, bool* taken);

/**
 * Adds one to the count and wakes a waiter; does not block.
 *
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_UNLOCK_FAILED. Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_Semaphore_v(cu_Semaphore* me);

/** Gives the id of this process. */
CU_EXPORT int32_t cu_getPID(void);

/** Gives the kernel's id of the calling thread. */
CU_EXPORT int32_t cu_getTID(void);

CU_END_DECLS

#endif
