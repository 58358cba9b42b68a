/** @file
 *  One direction of a request and response transport: a payload area and a counting semaphore in a region that two
 *  processes share. The library moves no data: one side fills the payload through its address and signals, the other
 *  one waits and reads. See rpcChannel.h for two of them, one per direction.
 *
 *  The region is laid out as follows, in the byte order of the machine:
 *
 *  | Offset | Size | Field |
 *  |---|---|---|
 *  | 0 | 4 | payload size in bytes = size of the region - 4096 |
 *  | 4 | 16 | the semaphore, a process-shared `sem_t`; on 64-bit hosts at 8, its alignment, and 32 bytes long |
 *  | up to 4096 | | reserved, 0 |
 *  | 4096 | payload size | payload |
 *
 *  Threads and processes: the semaphore orders what is written before a signal before what is read after the wait that
 *  it ends; it counts, so two signals let two waits pass. The payload is not locked: the two sides take turns by their
 *  signals, one writer and one reader. Any thread of any process that maps the region may signal and wait; a child of
 *  fork() may go on with the objects that it inherits.
 *
 *  What a process leaves behind that dies: nothing while it waits. The payload keeps what it had written of it, and
 *  signals that nobody took stay counted. Whoever waits for its answer waits on; use the timed wait where the other
 *  side may die. The two sides can only get into step again by formatting the region anew.
 *
 *  A region is trusted: it carries no mark that tells it from other memory, and the other side may change the payload,
 *  its size in the region and the semaphore at any time.
 */
#ifndef CUTIL_RPCQUEUE_H
#define CUTIL_RPCQUEUE_H

#include <cUtil/allocator.h>
#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** Sizes of a region, in bytes. */
enum cu_RPCQueueSize {
    CU_RPC_QUEUE_HEADER_SIZE = 4096, /**< What stands in front of the payload; the alignment of a region as well. */
    CU_RPC_QUEUE_MINIMUM_SIZE = 8192 /**< The smallest region. */
};

/** One direction as one process sees it. */
typedef struct cu_RPCQueue cu_RPCQueue;

/**
 * Formats a region: zeroes it and makes its semaphore, with no signal pending. Nobody else may use it meanwhile.
 *
 * @param queue      receives the queue; must hold null
 * @param region     the memory, aligned to 4096 bytes; it stays the caller's and must last
 * @param size       bytes of the region, at least 8192
 * @param allocator  gives the memory of the object; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_SEM_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RPCQueue_create(cu_RPCQueue** queue, void* region, uint32_t size, cu_allocator* allocator);

/**
 * Attaches to a region that another party formatted; neither checks nor changes anything in it.
 *
 * @param queue      receives the queue; must hold null
 * @param region     the region; it stays the caller's and must last
 * @param allocator  gives the memory of the object; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RPCQueue_open(cu_RPCQueue** queue, void* region, cu_allocator* allocator);

/**
 * Ends a queue in this process; nobody may be in a call on the object. The region stays as it is, except that the
 * object that formatted it ends its semaphore, so it goes last. A failing step ends the process.
 *
 * @param queue  holds the queue; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_RPCQueue_delete(cu_RPCQueue** queue);

/** Gives the bytes of the payload, as the region has them now.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_RPCQueue_getSize(cu_RPCQueue* queue, uint32_t* size);

/** Gives the address of the payload in this process.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_RPCQueue_get(cu_RPCQueue* queue, void** payload);

/** Signals the other side; does not block.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_UNLOCK_FAILED */
CU_EXPORT cu_ErrorCode cu_RPCQueue_signal(cu_RPCQueue* queue);

/** Takes a signal; waits for one without limit.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED */
CU_EXPORT cu_ErrorCode cu_RPCQueue_wait(cu_RPCQueue* queue);

/**
 * Takes a signal if there is one; does not block.
 *
 * @param queue  the queue
 * @param taken  receives whether there was one; if not, that is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RPCQueue_tryWait(cu_RPCQueue* queue, bool* taken);

/**
 * Takes a signal; waits for one until a point in time.
 *
 * @param queue     the queue
 * @param deadline  absolute, on the real-time clock (see cu_makeTimeoutMilliSecond())
 * @param taken     receives whether there was one; a deadline that passes is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RPCQueue_timedWait(cu_RPCQueue* queue, const cu_TimeValue* deadline, bool* taken);

CU_END_DECLS

#endif
