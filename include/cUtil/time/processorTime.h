/** @file
 *  How much processor time a stretch of code takes: that of all threads of the process.
 *
 *  The underlying count wraps around after 36 minutes of processor time where `clock_t` has 32 bits; a measurement
 * across that point fails. Any thread may measure. Nothing here blocks.
 */
#ifndef CUTIL_TIME_PROCESSOR_TIME_H
#define CUTIL_TIME_PROCESSOR_TIME_H

#include <cUtil/types.h>

#include <time.h>

CU_BEGIN_DECLS

/**
 * Begins a measurement.
 *
 * @param start  receives the processor time so far, in microseconds
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TIME_GET_FAILED, about which the error record says nothing
 */
CU_EXPORT cu_ErrorCode cu_ProcessorTime_startMeasurement(clock_t* start);

/**
 * Takes the processor time since a measurement began; this may be done any number of times.
 *
 * @param start    the processor time at which it began
 * @param seconds  receives the seconds of processor time since then; unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TIME_GET_FAILED, also when not a microsecond has been used since,
 *         about which the error record says nothing
 */
CU_EXPORT cu_ErrorCode cu_ProcessorTime_stopMeasurement(const clock_t* start, double* seconds);

CU_END_DECLS

#endif
