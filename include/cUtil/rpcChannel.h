/** @file
 *  A request and response transport between two processes: two queues (see rpcQueue.h) in one region that they share.
 *
 *  The region's first half is the queue on which the side that created the channel receives and the other one
 *  transmits; the second half is the other direction. One exchange: a side writes its request to the address that
 *  cu_RPCChannel_getTxBuffer() gives and calls cu_RPCChannel_signalTx(); the other side, in cu_RPCChannel_waitRx(),
 *  wakes, reads the request at cu_RPCChannel_getRxBuffer(), writes its answer to its own transmit buffer and signals.
 * Lengths, framing and turns are agreed between the callers.
 *
 *  What rpcQueue.h says of threads, of fork() and of a process that dies holds for each direction.
 */
#ifndef CUTIL_RPCCHANNEL_H
#define CUTIL_RPCCHANNEL_H

#include <cUtil/allocator.h>
#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** Both directions as one process sees them. */
typedef struct cu_RPCChannel cu_RPCChannel;

/**
 * Formats a region: zeroes it and makes the semaphores of both halves. Nobody else may use it meanwhile.
 *
 * @param channel    receives the channel; must hold null
 * @param region     the memory, aligned to 4096 bytes; it stays the caller's and must last
 * @param size       bytes of the region: a multiple of 8192, at least 16384
 * @param allocator  gives the memory of the objects; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when a half is too small or not aligned; cu_ERROR_COM_MALLOC_FAILED;
 *         cu_ERROR_SEM_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RPCChannel_create(cu_RPCChannel** channel, void* region, uint32_t size,
                                            cu_allocator* allocator);

/**
 * Attaches to a region that the other side formatted; changes nothing in it. Where the second half begins stands in the
 * region, which is trusted as far as it can be true.
 *
 * @param channel    receives the channel; must hold null
 * @param region     the region; it stays the caller's and must last
 * @param allocator  gives the memory of the objects; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_COM_INVARIANT when the payload size in
 *         the region is not one that cu_RPCChannel_create() leaves there: a multiple of 4096, not 0, with which the
 *         second half begins within the address space
 */
CU_EXPORT cu_ErrorCode cu_RPCChannel_open(cu_RPCChannel** channel, void* region, cu_allocator* allocator);

/**
 * Ends a channel in this process; nobody may be in a call on the object. The region stays as it is, except that the
 * object that formatted it ends its semaphores, so it goes last. A failing step ends the process.
 *
 * @param channel  holds the channel; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_RPCChannel_delete(cu_RPCChannel** channel);

/** Gives the bytes of each direction's payload, as the receiving half has them now.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_RPCChannel_getSize(cu_RPCChannel* channel, uint32_t* size);

/** Gives the address where the other side's payload is read.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_RPCChannel_getRxBuffer(cu_RPCChannel* channel, void** payload);

/** Gives the address where the payload for the other side is written.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_RPCChannel_getTxBuffer(cu_RPCChannel* channel, void** payload);

/** Signals the other side; does not block.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_UNLOCK_FAILED */
CU_EXPORT cu_ErrorCode cu_RPCChannel_signalTx(cu_RPCChannel* channel);

/** Takes a signal of the other side; waits for one without limit.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED */
CU_EXPORT cu_ErrorCode cu_RPCChannel_waitRx(cu_RPCChannel* channel);

/**
 * Takes a signal of the other side if there is one; does not block.
 *
 * @param channel  the channel
 * @param taken    receives whether there was one; if not, that is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RPCChannel_tryWaitRx(cu_RPCChannel* channel, bool* taken);

/**
 * Takes a signal of the other side; waits for one until a point in time.
 *
 * @param channel   the channel
 * @param deadline  absolute, on the real-time clock (see cu_makeTimeoutMilliSecond())
 * @param taken     receives whether there was one; a deadline that passes is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RPCChannel_timedWaitRx(cu_RPCChannel* channel, const cu_TimeValue* deadline, bool* taken);

CU_END_DECLS

#endif
