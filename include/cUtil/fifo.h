/** @file
 *  A bounded queue of fixed-size entries in one block of memory, for threads and processes.
 *
 *  Nothing is copied in or out: a get or put hands out the entry in place and keeps the queue locked until the caller
 *  ends the transaction by exactly one commit (the entry is consumed or published) or rollback (nothing changed) of the
 *  same kind. One transaction is open on a queue at a time, in whatever process, so keep it short; the others wait.
 *
 *  One party formats the block with cu_Fifo_init(), the others check it with cu_Fifo_attach(). The block holds no
 *  pointers and works at any address. It must have cu_Fifo_getBlockSize() bytes and be aligned for `sem_t`, better to
 *  #CU_FIFO_ALIGNMENT bytes (the base of a shared-memory region is).
 *
 *  What a process leaves behind that dies:
 *  - outside a transaction, or waiting for an entry or a free place: nothing; the entries that it published are kept;
 *  - waiting for the transaction of another to end, or late in its own commit or rollback: what it had taken or was to
 *    publish (an entry or a free place) is not counted any more. No entry is lost or corrupted, but the queue goes on
 *    with a place less, and if that is an entry, the last one stays unread until another one is published;
 *  - within a transaction: the queue stays locked. What it had taken (an entry or a free place) is not given back, and
 *    every later transaction waits without limit for the lock, the timed and the trying ones, too, once they have taken
 *    an entry or a free place. No entry is lost or corrupted, but the queue can only be formatted anew.
 *
 *  Deadlines are absolute, on the real-time clock. All functions may be called by any thread of any process that maps
 *  the block. After a fork the child may use the queue, but not end a transaction of its parent's.
 */
#ifndef CUTIL_FIFO_H
#define CUTIL_FIFO_H

#include <cUtil/time/time.h>
#include <cUtil/types.h>

#include <semaphore.h>

CU_BEGIN_DECLS

/** Sizes of a block, in bytes. */
enum cu_FifoSize {
    CU_FIFO_ALIGNMENT = 64, /**< Alignment of the first entry within the block. */
    /** What stands in front of the first entry: four counters and three semaphores, filled up to the alignment. 64 with
     *  the 16-byte `sem_t` of 32-bit ARM, 128 with the 32-byte one of 64-bit hosts. */
    CU_FIFO_HEADER_SIZE = (16 + 3 * sizeof(sem_t) + 63) / 64 * 64
};

/** Gives the bytes that a block needs.
 *  @return the size; 0 when an argument is 0 or the size exceeds 32 bits */
static inline uint32_t cu_Fifo_getBlockSize(uint32_t capacity, uint32_t entrySize)
{
    if (capacity == 0 || entrySize == 0 || entrySize > (UINT32_MAX - CU_FIFO_HEADER_SIZE) / capacity)
        return 0;
    return CU_FIFO_HEADER_SIZE + capacity * entrySize;
}

/**
 * Formats a block. Nobody else may use it meanwhile.
 *
 * @param block         the memory; it stays the caller's
 * @param capacity      entries, a power of two
 * @param entrySize     bytes of an entry, not 0
 * @param initialEntry  what every entry holds at first, @p entrySize bytes
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_INIT_FAILED, cu_ERROR_SEM_LOCK_FAILED,
 *         cu_ERROR_SEM_UNLOCK_FAILED or cu_ERROR_COM_INVARIANT, and then no semaphore is left
 */
CU_EXPORT cu_ErrorCode cu_Fifo_init(void* block, uint32_t capacity, uint32_t entrySize, const void* initialEntry);

/** Ends a queue that nobody uses any more; the last user calls it, once.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Fifo_cleanup(void* block);

/** Checks a block that another party formatted; changes nothing.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT when it cannot be a queue */
CU_EXPORT cu_ErrorCode cu_Fifo_attach(void* block);

/** The counterpart of cu_Fifo_attach(); changes nothing. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Fifo_detach(void* block);

/**
 * Tells how full a queue is, as a snapshot that may be outdated at once. Entries in an open transaction count neither
 * as free nor as used. Does not block.
 *
 * @param block     the queue
 * @param capacity  receives the number of entries
 * @param free      receives the number of free places
 * @param used      receives the number of published entries
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_GET_COUNT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Fifo_getLengthInfos(void* block, uint32_t* capacity, int32_t* free, int32_t* used);

/**
 * Begins to take the oldest entry; waits without limit for one and for other transactions to end.
 *
 * @param block  the queue
 * @param entry  receives the address of the entry, valid until the commit or rollback
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Fifo_get(void* block, void** entry);

/** cu_Fifo_get() that does not wait for an entry: null in @p entry says that there is none, which is no error. The end
 * of another transaction is waited for without limit. */
CU_EXPORT cu_ErrorCode cu_Fifo_tryGet(void* block, void** entry);

/** cu_Fifo_get() that waits for an entry until a deadline: null in @p entry says that it passed, which is no error. The
 *  end of another transaction is waited for without limit. */
CU_EXPORT cu_ErrorCode cu_Fifo_timedGet(void* block, void** entry, const cu_TimeValue* deadline);

/** Consumes the entry of the open get and ends it.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_UNLOCK_FAILED; cu_ERROR_COM_INVARIANT when there were more
 *          commits than gets (the lock is given back and the entry counted as read all the same) */
CU_EXPORT cu_ErrorCode cu_Fifo_getCommit(void* block);

/** Ends the open get and leaves the entry in the queue.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_UNLOCK_FAILED; cu_ERROR_COM_INVARIANT as for the commit */
CU_EXPORT cu_ErrorCode cu_Fifo_getRollback(void* block);

/**
 * Begins to fill the next free entry; waits without limit for one and for other transactions to end.
 *
 * @param block  the queue
 * @param entry  receives the address of the entry, valid until the commit or rollback; it holds what was in it before
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Fifo_put(void* block, void** entry);

/** cu_Fifo_put() that does not wait for a free entry: null in @p entry says that there is none, which is no error. The
 *  end of another transaction is waited for without limit. */
CU_EXPORT cu_ErrorCode cu_Fifo_tryPut(void* block, void** entry);

/** cu_Fifo_put() that waits for a free entry until a deadline: null in @p entry says that it passed, which is no error.
 *  The end of another transaction is waited for without limit. */
CU_EXPORT cu_ErrorCode cu_Fifo_timedPut(void* block, void** entry, const cu_TimeValue* deadline);

/** Publishes the entry of the open put and ends it.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_UNLOCK_FAILED; cu_ERROR_COM_INVARIANT when there were more
 *          commits than puts (the lock is given back and the entry counted as written all the same) */
CU_EXPORT cu_ErrorCode cu_Fifo_putCommit(void* block);

/** Ends the open put and leaves the entry free.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_UNLOCK_FAILED; cu_ERROR_COM_INVARIANT as for the commit */
CU_EXPORT cu_ErrorCode cu_Fifo_putRollback(void* block);

/**
 * Begins to move the oldest entry of one queue to another one; does not wait for an entry or a free place, but for the
 * end of other transactions. Two moves in opposite directions between the same queues can lock each other out for ever.
 *
 * @param src       the queue to take from
 * @param dst       the queue to put to; another one, with the same entry size
 * @param srcEntry  receives the entry to copy from; null when nothing can be moved
 * @param dstEntry  receives the entry to copy to; test @p srcEntry, for this one is left set when @p src is empty
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED
 *
 * With both entries at hand the caller copies and then calls cu_Fifo_tryMoveCommit() or cu_Fifo_tryMoveRollback().
 */
CU_EXPORT cu_ErrorCode cu_Fifo_tryMove(void* src, void* dst, void** srcEntry, void** dstEntry);

/** Publishes the moved entry in @p dst and consumes it in @p src. A failing step ends the process.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Fifo_tryMoveCommit(void* src, void* dst);

/** Ends a move and leaves both queues as they were. A failing step ends the process.
 *  @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Fifo_tryMoveRollback(void* src, void* dst);

CU_END_DECLS

#endif
