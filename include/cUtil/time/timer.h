/** @file
 *  A count-down: a point on a clock, and how long it is until then.
 *
 *  A timer belongs to its caller and is not locked; different timers may be used in different threads. Nothing here
 *  blocks.
 */
#ifndef CUTIL_TIME_TIMER_H
#define CUTIL_TIME_TIMER_H

#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A timer. Caller-owned; it needs no clean-up. */
typedef struct cu_Timer {
    cu_TimeValue expiry; /**< The point at which it expires. */
    int32_t clockId;     /**< The clock that the point lies on, see time.h. */
} cu_Timer;

/**
 * Sets up a timer.
 *
 * @param timer    the timer
 * @param expiry   the point at which it expires, copied; null: point zero, so that it has expired already
 * @param clockId  the clock that the point lies on
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Timer_init(cu_Timer* timer, const cu_TimeValue* expiry, int32_t clockId);

/**
 * Gives a timer another expiry on the same clock.
 *
 * @param timer   the timer
 * @param expiry  the point at which it expires, copied
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Timer_set(cu_Timer* timer, const cu_TimeValue* expiry);

/**
 * Tells whether the expiry of a timer, which should be normalised, has come.
 *
 * @param timer    the timer
 * @param expired  receives the answer; unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TIME_GET_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Timer_isExpired(const cu_Timer* timer, bool* expired);

/**
 * Gives the time until the expiry of a timer.
 *
 * @param timer      the timer
 * @param remaining  receives the time, normalised, below zero once the timer has expired; unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TIME_GET_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Timer_getRemaining(const cu_Timer* timer, cu_TimeValue* remaining);

CU_END_DECLS

#endif
