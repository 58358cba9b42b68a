/** @file
 *  A stop-watch on the monotonic clock.
 *
 *  A stop-watch belongs to its caller and is not locked; different ones may be used in different threads. Nothing here
 *  blocks.
 */
#ifndef CUTIL_TIME_CLOCK_H
#define CUTIL_TIME_CLOCK_H

#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A stop-watch. Caller-owned; it needs no clean-up. */
typedef struct cu_Clock {
    cu_TimeValue elapsed; /**< What the last start and stop measured. */
    cu_TimeValue start;   /**< When it was last started. */
    bool running;         /**< Whether it is started and not yet stopped. */
} cu_Clock;

/**
 * Sets up a stop-watch: stopped, nothing measured.
 *
 * @param clock  the stop-watch
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Clock_init(cu_Clock* clock);

/**
 * Starts a measurement.
 *
 * @param clock  the stop-watch; unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT when it is running; cu_ERROR_TIME_GET_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Clock_start(cu_Clock* clock);

/**
 * Ends a measurement. Its result takes the place of the one before; measurements do not add up.
 *
 * @param clock  the stop-watch; unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT when it is not running; cu_ERROR_TIME_GET_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Clock_stop(cu_Clock* clock);

/**
 * Gives the result of the last measurement; while the stop-watch runs, that result plus the time since the start.
 *
 * @param clock    the stop-watch
 * @param elapsed  receives the time; normalised while the stop-watch runs; unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TIME_GET_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Clock_getElapsed(const cu_Clock* clock, cu_TimeValue* elapsed);

CU_END_DECLS

#endif
