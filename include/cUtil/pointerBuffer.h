/** @file
 *  A bounded, blocking queue of pointers for any number of producers and consumers within one process.
 *
 *  Values come out in the order in which the producers drew their places. A try may be refused, too, while another
 *  thread is about to fill or empty the very place that is next. The values themselves are not looked at; they may be
 *  null. Before a wait sleeps it looks for about a microsecond, if more than one processor is online; nobody who does
 *  not wait costs a system call.
 */
#ifndef CUTIL_POINTER_BUFFER_H
#define CUTIL_POINTER_BUFFER_H

#include <cUtil/allocator.h>
#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A bounded queue of pointers. */
typedef struct cu_PointerBuffer cu_PointerBuffer;

/**
 * Makes a queue.
 *
 * @param me         receives the queue; must hold null
 * @param capacity   places, a power of two
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_SEM_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_PointerBuffer_new(cu_PointerBuffer** me, uint32_t capacity, cu_allocator* allocator);

/**
 * Ends a queue that nobody uses any more. Values still in it are the caller's affair.
 *
 * @param me  holds the queue; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_FREE_FAILED, and then the call may be repeated
 */
CU_EXPORT cu_ErrorCode cu_PointerBuffer_delete(cu_PointerBuffer** me);

/** Puts a value in, waiting without limit while the queue is full.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED; cu_ERROR_SEM_UNLOCK_FAILED. Any thread may call
 *          it. */
CU_EXPORT cu_ErrorCode cu_PointerBuffer_put(cu_PointerBuffer* me, void* value);

/**
 * Puts a value in unless the queue is full; does not block.
 *
 * @param me     the queue
 * @param value  the value
 * @param put    receives whether it was put in; a full queue is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_UNLOCK_FAILED. Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_PointerBuffer_tryPut(cu_PointerBuffer* me, void* value, bool* put);

/**
 * Puts a value in, waiting until a point in time while the queue is full.
 *
 * @param me        the queue
 * @param value     the value
 * @param deadline  absolute, on the real-time clock (see cu_makeTimeoutMilliSecond())
 * @param put       receives whether it was put in; a deadline that passes is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED; cu_ERROR_SEM_UNLOCK_FAILED. Any thread may
 *         call it.
 */
CU_EXPORT cu_ErrorCode cu_PointerBuffer_timedPut(cu_PointerBuffer* me, void* value, const cu_TimeValue* deadline,
                                                 bool* put);

/**
 * Takes the oldest value out, waiting without limit while the queue is empty.
 *
 * @param me     the queue
 * @param value  receives the value
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED; cu_ERROR_SEM_UNLOCK_FAILED. Any thread may
 *         call it.
 */
CU_EXPORT cu_ErrorCode cu_PointerBuffer_get(cu_PointerBuffer* me, void** value);

/**
 * Takes the oldest value out unless the queue is empty; does not block.
 *
 * @param me     the queue
 * @param value  receives the value, if there was one
 * @param got    receives whether there was one; an empty queue is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_UNLOCK_FAILED. Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_PointerBuffer_tryGet(cu_PointerBuffer* me, void** value, bool* got);

/**
 * Takes the oldest value out, waiting until a point in time while the queue is empty.
 *
 * @param me        the queue
 * @param value     receives the value, if there was one
 * @param deadline  absolute, on the real-time clock (see cu_makeTimeoutMilliSecond())
 * @param got       receives whether there was one; a deadline that passes is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED; cu_ERROR_SEM_UNLOCK_FAILED. Any thread may
 *         call it.
 */
CU_EXPORT cu_ErrorCode cu_PointerBuffer_timedGet(cu_PointerBuffer* me, void** value, const cu_TimeValue* deadline,
                                                 bool* got);

CU_END_DECLS

#endif
