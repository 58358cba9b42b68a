/** @file
 *  A source of periodic ticks.
 *
 *  A clock counts ticks of a fixed length on the monotonic clock, and threads wait for a tick number rather than for a
 *  time, so that several of them stay in step with one schedule that does not drift: the end of each tick is reckoned
 *  from the end of the one before, however late the count is. Ticks that fall behind are made up at once.
 *
 *  A clock has no thread of its own: it ticks while a thread runs its runnable.
 */
#ifndef CUTIL_TIME_ASYNCCLOCK_H
#define CUTIL_TIME_ASYNCCLOCK_H

#include <cUtil/allocator.h>
#include <cUtil/runnable.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A tick count and those who wait for it. */
typedef struct cu_AsyncClock cu_AsyncClock;

/**
 * Makes a clock at tick 0, which does not tick yet.
 *
 * @param clock       receives the clock; must hold null
 * @param resolution  microseconds per tick, not 0 and no finer than the monotonic clock's resolution
 * @param allocator   gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, with a description if the resolution is too fine; cu_ERROR_TIME_GET_FAILED;
 *         cu_ERROR_COM_MALLOC_FAILED; the codes of cu_Runnable_new(), cu_Mutex_new() and cu_ConditionWait_new()
 */
CU_EXPORT cu_ErrorCode cu_AsyncClock_new(cu_AsyncClock** clock, uint32_t resolution, cu_allocator* allocator);

/**
 * Gives what makes the clock tick, to be started in one thread (see cu_Thread_start()). It ends when the thread's
 * running flag is cleared, at the end of the tick, and returns 0 or the code of the failure that ended it.
 *
 * @return the clock's own runnable; null for null. Any thread may call it.
 */
CU_EXPORT cu_Runnable* cu_AsyncClock_getRunnable(cu_AsyncClock* clock);

/**
 * Waits until a tick has come; returns at once when it has come already. The wait is exact to within one tick: it may
 * end with the tick after the one waited for.
 *
 * @param clock  the clock; while nothing makes it tick, the wait does not end
 * @param tick   the tick number
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; the codes of cu_Mutex_lock(), cu_Mutex_unlock() and
 *         cu_ConditionWait_wait(). Any number of threads may call it; blocks without limit.
 */
CU_EXPORT cu_ErrorCode cu_AsyncClock_wait(cu_AsyncClock* clock, uint64_t tick);

/**
 * Gives the tick count.
 *
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT. Any thread may call it; does not block.
 */
CU_EXPORT cu_ErrorCode cu_AsyncClock_getCurrentTick(const cu_AsyncClock* clock, uint64_t* tick);

/**
 * Gives the length of a tick in microseconds.
 *
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT. Any thread may call it; does not block.
 */
CU_EXPORT cu_ErrorCode cu_AsyncClock_getResolution(const cu_AsyncClock* clock, uint32_t* resolution);

/**
 * Frees a clock that no longer ticks: the thread that ran its runnable is stopped and joined before. Nobody may wait.
 *
 * @param clock  holds the clock; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; the codes of cu_ConditionWait_delete(), cu_Mutex_delete() and
 *         cu_Runnable_delete(), and then the object is kept
 */
CU_EXPORT cu_ErrorCode cu_AsyncClock_delete(cu_AsyncClock** clock);

CU_END_DECLS

#endif
