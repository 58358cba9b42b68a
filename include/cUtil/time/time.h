/** @file
 *  Time values, time arithmetic, absolute time-outs, reading clocks and sleeping.
 *
 *  A clock is named by the operating system's number, of which 0 is the real time since the epoch (it jumps when it is
 *  set) and 1 the monotonic time since some point in the past (it never jumps). Other numbers are handed on as they
 *  are.
 *
 *  All functions may be called from any thread; only the two sleeps block.
 */
#ifndef CUTIL_TIME_TIME_H
#define CUTIL_TIME_TIME_H

#include <cUtil/types.h>

#include <time.h>

CU_BEGIN_DECLS

/** A point in time or an interval: `tv_sec` seconds and `tv_nsec` nanoseconds. Normalised, 0 <= `tv_nsec` < 1000000000
 *  holds also for values below zero: a nanosecond less than nothing is -1 s and 999999999 ns. Caller-owned. */
typedef struct timespec cu_TimeValue;

extern CU_EXPORT const uint32_t cu_NSEC_PER_SEC;  /**< Nanoseconds in a second, 1000000000. */
extern CU_EXPORT const uint32_t cu_USEC_PER_SEC;  /**< Microseconds in a second, 1000000. */
extern CU_EXPORT const uint32_t cu_MSEC_PER_SEC;  /**< Milliseconds in a second, 1000. */
extern CU_EXPORT const uint32_t cu_NSEC_PER_MSEC; /**< Nanoseconds in a millisecond, 1000000. */
extern CU_EXPORT const uint32_t cu_NSEC_PER_USEC; /**< Nanoseconds in a microsecond, 1000. */
extern CU_EXPORT const uint32_t cu_USEC_PER_MSEC; /**< Microseconds in a millisecond, 1000. */

/**
 * Brings the nanoseconds of a time value into range and moves whole seconds over to the seconds.
 *
 * @param time  the value; its nanoseconds may be any number, also below zero
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 *
 * Seconds that leave the range of `time_t`, here and in the additions below, wrap around.
 */
CU_EXPORT cu_ErrorCode cu_normalize(cu_TimeValue* time);

/**
 * Adds seconds. The nanoseconds stay as they are, even when they are out of range.
 *
 * @param time     the value
 * @param seconds  what to add
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_addSeconds(cu_TimeValue* time, uint32_t seconds);

/**
 * Adds milliseconds and normalises.
 *
 * @param time          the value
 * @param milliSeconds  what to add
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_addMilliSeconds(cu_TimeValue* time, uint32_t milliSeconds);

/**
 * Adds microseconds and normalises.
 *
 * @param time          the value
 * @param microSeconds  what to add
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_addMicroSeconds(cu_TimeValue* time, uint32_t microSeconds);

/**
 * Adds nanoseconds and normalises.
 *
 * @param time         the value
 * @param nanoSeconds  what to add
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_addNanoSeconds(cu_TimeValue* time, uint32_t nanoSeconds);

/**
 * Makes a time-out: the point on a clock that lies an interval after now. Operations that wait until a point take it;
 * each tells the clock that it waits on.
 *
 * @param time     receives the point; unchanged on failure
 * @param seconds  the interval
 * @param clockId  the clock
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TIME_GET_FAILED
 */
CU_EXPORT cu_ErrorCode cu_makeTimeoutSecond(cu_TimeValue* time, uint32_t seconds, int32_t clockId);

/** cu_makeTimeoutSecond() with an interval in milliseconds. */
CU_EXPORT cu_ErrorCode cu_makeTimeoutMilliSecond(cu_TimeValue* time, uint32_t milliSeconds, int32_t clockId);

/** cu_makeTimeoutSecond() with an interval in microseconds. */
CU_EXPORT cu_ErrorCode cu_makeTimeoutMicroSecond(cu_TimeValue* time, uint32_t microSeconds, int32_t clockId);

/** cu_makeTimeoutSecond() with an interval in nanoseconds. */
CU_EXPORT cu_ErrorCode cu_makeTimeoutNanoSecond(cu_TimeValue* time, uint32_t nanoSeconds, int32_t clockId);

/**
 * Reads a clock.
 *
 * @param time     receives the time; unchanged on failure
 * @param clockId  the clock
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TIME_GET_FAILED with the system's error code
 */
CU_EXPORT cu_ErrorCode cu_getTime(cu_TimeValue* time, int32_t clockId);

/**
 * Gives the resolution of a clock.
 *
 * @param time     receives the resolution; zero stands for a clock that is no finer than a second; unchanged on failure
 * @param clockId  the clock
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TIME_GET_FAILED with the system's error code
 */
CU_EXPORT cu_ErrorCode cu_getClockPrecision(cu_TimeValue* time, int32_t clockId);

/**
 * Sleeps for an interval. A caught signal starts the interval afresh, so signals lengthen the sleep, and one that
 * comes more often than the interval is long keeps it from ending: where that matters, use cu_sleepAbsolute().
 *
 * @param interval  how long; normalised and not below zero
 * @param clockId   the clock that measures the interval
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SLEEP_FAILED with `errno` as it stands, not always the cause
 *
 * Blocks.
 */
CU_EXPORT cu_ErrorCode cu_sleepRelative(const cu_TimeValue* interval, int32_t clockId);

/**
 * Sleeps until a point in time, through caught signals; not at all when the point has passed.
 *
 * @param time     the point; normalised and not below zero
 * @param clockId  the clock that the point lies on
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SLEEP_FAILED with `errno` as it stands, not always the cause
 *
 * Blocks.
 */
CU_EXPORT cu_ErrorCode cu_sleepAbsolute(const cu_TimeValue* time, int32_t clockId);

CU_END_DECLS

#endif
