/** @file
 *  Queues of elements of any type with two ends, at each of which elements go in and come out.
 *
 *  Every function returns 0 or an error code, and cu_ERROR_COM_INVALID_ARGUMENT for a null argument, a null element
 *  included. Every operation takes constant time; now and then one gets memory from the process heap or gives it back.
 *  The allocator gives the queue's own record alone.
 *
 *  Queues are not locked: one thread at a time per queue. Nothing blocks, unless a given function or the allocator
 *  does. Threads hand pointers to each other through a cu_PointerBuffer.
 */
#ifndef CUTIL_ALGORITHM_QUEUE_H
#define CUTIL_ALGORITHM_QUEUE_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A queue with two ends. */
typedef struct cu_Queue cu_Queue;

/**
 * Makes an empty queue.
 *
 * @param queue      receives the queue; must hold null
 * @param destroy    releases an element of the queue
 * @param clone      gives a copy of an element that @p destroy can release, or null
 * @param allocator  for the queue's record; null: the shared one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_Queue_new(cu_Queue** queue, void (*destroy)(void* element),
                                    void* (*clone)(const void* element), cu_allocator* allocator);

/**
 * Ends a queue and destroys its elements, from head to tail.
 *
 * @param queue  holds the queue; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says, and then the queue may only be deleted again
 */
CU_EXPORT cu_ErrorCode cu_Queue_delete(cu_Queue** queue);

/**
 * Puts an element, which becomes the queue's, before the first one.
 *
 * @param queue    the queue
 * @param element  holds the element; null once the queue owns it, otherwise unchanged
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED, and then the queue is as it was
 */
CU_EXPORT cu_ErrorCode cu_Queue_pushHead(cu_Queue* queue, void** element);

/** As cu_Queue_pushHead(), behind the last one. */
CU_EXPORT cu_ErrorCode cu_Queue_pushTail(cu_Queue* queue, void** element);

/**
 * Puts a copy of an element before the first one. The element stays the caller's in any case.
 *
 * @param queue    the queue
 * @param element  the element
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED, also when the clone function gives null, and
 *         then the queue is as it was
 */
CU_EXPORT cu_ErrorCode cu_Queue_constPushHead(cu_Queue* queue, const void* element);

/** As cu_Queue_constPushHead(), behind the last one. */
CU_EXPORT cu_ErrorCode cu_Queue_constPushTail(cu_Queue* queue, const void* element);

/**
 * Takes the first element out; it becomes the caller's.
 *
 * @param queue    the queue
 * @param element  receives the element; null when the queue is empty
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Queue_popHead(cu_Queue* queue, void** element);

/** As cu_Queue_popHead(), with the last element. */
CU_EXPORT cu_ErrorCode cu_Queue_popTail(cu_Queue* queue, void** element);

/**
 * Gives the first element, which remains the queue's.
 *
 * @param queue    the queue
 * @param element  receives the element; null when the queue is empty
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Queue_peekHead(const cu_Queue* queue, void** element);

/** As cu_Queue_peekHead(), with the last element. */
CU_EXPORT cu_ErrorCode cu_Queue_peekTail(const cu_Queue* queue, void** element);

/** Tells whether there is no element. */
CU_EXPORT cu_ErrorCode cu_Queue_isEmpty(const cu_Queue* queue, bool* empty);

CU_END_DECLS

#endif
