/** @file
 *  A byte ring for one producer and one consumer, in the memory of this process or in a region that processes share.
 *
 *  Records go in and come out whole: a put writes all of its bytes or none, a get reads all that it asks for or none.
 *  The ring keeps no record boundaries; what a get asks for need not be what a put wrote. One byte of the data area
 *  always stays free, so a ring of `size` bytes holds `size` - 1, and a longer record is always refused.
 *
 *  Threads and processes: one thread may put while another one gets, without a lock; neither ever waits for the other.
 *  With the writer lock any number of threads may put, with the reader lock any number may get. A ring from
 *  cu_RingBuffer_new() serves the threads of its process; the region of cu_RingBuffer_create() serves every process
 *  that maps it, at any address, each with an object of its own from cu_RingBuffer_open(). A child of fork() may go on
 *  with the object that it inherits from a region; one from cu_RingBuffer_new() becomes a copy of its own.
 *
 *  The region is laid out as follows, in the byte order of the machine. It must be aligned for its words and, when
 *  there are locks, for `sem_t`: 8 bytes are enough, and a multiple of 64 keeps the two sides' words apart as far as
 *  the layout allows. The base of a shared-memory region is a multiple of the page size.
 *
 *  | Offset | Size | Field |
 *  |---|---|---|
 *  | 0 | 8 | magic: the bytes 0x40 0x40 0x30 0x30 0x20 0x20 0x10 0x10 |
 *  | 8 | 4 | size of the data area, a power of two |
 *  | 12 | 4 | read position, an offset into the data area |
 *  | 16 | 4 | write position, an offset into the data area |
 *  | 20 | 1 | reader lock present (0 or 1) |
 *  | 21 | 1 | writer lock present (0 or 1) |
 *  | 24 | 4 | the consumer's copy of the write position |
 *  | 32 | 56 | the reader lock, a process-shared `sem_t` |
 *  | 88 | 4 | the producer's copy of the read position |
 *  | 96 | | the writer lock, a process-shared `sem_t` |
 *  | 4096 | size | data area |
 *
 *  What a process leaves behind that dies:
 *  - outside a put or get: nothing; the records that it put are there to be read;
 *  - within a put: the record that it was writing was never put, for the position moves after the last byte. Without
 *    the writer lock another process may open the region and go on putting. With it the lock may stay held, and then
 *    every later put waits without limit, while gets go on until the ring is empty;
 *  - within a get: the record that it was reading is still there, for the position moves after the last byte; the next
 *    get reads it again. With the reader lock the lock may stay held, and then every later get waits without limit;
 *  - while it waits for a lock: nothing.
 *  A ring with a lock that stays held can only be formatted anew, once nobody uses it any more.
 *
 *  Memory outside the region is safe from what stands in it: each object keeps the size that it found when it was made,
 *  and a position that another process spoils leads to wrong bytes, never beyond the data area.
 */
#ifndef CUTIL_RINGBUFFER_H
#define CUTIL_RINGBUFFER_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** Sizes of a region, in bytes. */
enum cu_RingBufferSize {
    CU_RING_BUFFER_HEADER_SIZE = 4096 /**< What stands in front of the data area. */
};

/** Gives the bytes that a region needs.
 *  @param size  bytes of the data area
 *  @return the size; 0 when @p size is no power of two */
static inline uint32_t cu_RingBuffer_getRegionSize(uint32_t size)
{
    return size != 0 && (size & (size - 1)) == 0 ? size + CU_RING_BUFFER_HEADER_SIZE : 0;
}

/** A byte ring as one process sees it. */
typedef struct cu_RingBuffer cu_RingBuffer;

/**
 * Makes a ring for the threads of this process, in memory of its own.
 *
 * @param me          receives the ring; must hold null
 * @param size        bytes of the data area, a power of two; the ring holds one less
 * @param readerLock  whether several threads are to get
 * @param writerLock  whether several threads are to put
 * @param allocator   gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_SEM_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RingBuffer_new(cu_RingBuffer** me, uint32_t size, bool readerLock, bool writerLock,
                                         cu_allocator* allocator);

/**
 * Formats a region as an empty ring. Nobody else may use it meanwhile.
 *
 * @param me          receives the ring; must hold null
 * @param region      cu_RingBuffer_getRegionSize() bytes; they stay the caller's and must last
 * @param size        bytes of the data area, a power of two; the ring holds one less
 * @param readerLock  whether several threads or processes are to get
 * @param writerLock  whether several threads or processes are to put
 * @param allocator   gives the memory of the object; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_SEM_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RingBuffer_create(cu_RingBuffer** me, void* region, uint32_t size, bool readerLock,
                                            bool writerLock, cu_allocator* allocator);

/**
 * Attaches to a region that another party formatted; changes nothing in it. That the region is as long as its header
 * says is for the caller to check.
 *
 * @param me         receives the ring; must hold null
 * @param region     the region; it stays the caller's and must last
 * @param allocator  gives the memory of the object; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_INVALID_MAGIC when it is no ring; cu_ERROR_COM_INVARIANT when its
 *         size is no power of two or a position lies outside the data area; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RingBuffer_open(cu_RingBuffer** me, void* region, cu_allocator* allocator);

/**
 * Ends a ring in this process; nobody may be in a call on the object. The object that formatted a region ends its locks
 * as well, so it goes last.
 *
 * @param me  holds the ring; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_FREE_FAILED, and then the object is kept and the call may be
 *         repeated
 */
CU_EXPORT cu_ErrorCode cu_RingBuffer_delete(cu_RingBuffer** me);

/**
 * Puts a record if there is room for all of it. Waits for the writer lock if there is one, else does not block.
 *
 * @param me       the ring
 * @param data     the record; it is copied
 * @param length   bytes of the record, not 0
 * @param written  receives whether it was put; a lack of room is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED, and then nothing was put;
 *         cu_ERROR_SEM_UNLOCK_FAILED, and then @p written holds
 *
 * One thread at a time may call it, any number with the writer lock.
 */
CU_EXPORT cu_ErrorCode cu_RingBuffer_put(cu_RingBuffer* me, const void* data, uint32_t length, bool* written);

/**
 * Gets a number of bytes if there are as many. Waits for the reader lock if there is one, else does not block.
 *
 * @param me      the ring
 * @param buffer  receives the bytes; left alone when there are too few
 * @param length  bytes to get, not 0
 * @param read    receives whether they were got; a lack of bytes is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED, and then nothing was got;
 *         cu_ERROR_SEM_UNLOCK_FAILED, and then @p read holds
 *
 * One thread at a time may call it, any number with the reader lock.
 */
CU_EXPORT cu_ErrorCode cu_RingBuffer_get(cu_RingBuffer* me, void* buffer, uint32_t length, bool* read);

/**
 * Tells how many bytes can be got. For the only consumer they stay at least as many; for everybody else the figure may
 * be outdated at once. Does not block; any thread may call it.
 *
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_RingBuffer_getAvailable(cu_RingBuffer* me, uint32_t* used);

/**
 * Tells how many bytes can be put. For the only producer they stay at least as many; for everybody else the figure may
 * be outdated at once. Does not block; any thread may call it.
 *
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_RingBuffer_putAvailable(cu_RingBuffer* me, uint32_t* free);

CU_END_DECLS

#endif
