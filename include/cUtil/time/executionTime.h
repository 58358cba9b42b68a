/** @file
 *  How long a stretch of code takes, measured on the monotonic clock.
 *
 *  Measurements in different threads do not disturb each other. Nothing here blocks.
 */
#ifndef CUTIL_TIME_EXECUTION_TIME_H
#define CUTIL_TIME_EXECUTION_TIME_H

#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Begins a measurement.
 *
 * @param start  receives the point at which it begins; unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TIME_GET_FAILED
 */
CU_EXPORT cu_ErrorCode cu_ExecutionTime_startMeasurement(cu_TimeValue* start);

/**
 * Takes the time since a measurement began; this may be done any number of times.
 *
 * @param start    the point at which it began
 * @param seconds  receives the seconds since then; unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TIME_GET_FAILED
 */
CU_EXPORT cu_ErrorCode cu_ExecutionTime_stopMeasurement(const cu_TimeValue* start, double* seconds);

CU_END_DECLS

#endif
