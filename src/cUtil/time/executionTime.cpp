#include <cUtil/time/executionTime.h>

#include "internal/report.h"
#include "internal/timeArithmetic.h"

cu_ErrorCode cu_ExecutionTime_startMeasurement(cu_TimeValue* start)
{
    CU_REQUIRE(start != nullptr);
    CU_TRY(cu_getTime(start, CLOCK_MONOTONIC));
    return 0;
}

cu_ErrorCode cu_ExecutionTime_stopMeasurement(const cu_TimeValue* start, double* seconds)
{
    CU_REQUIRE(start != nullptr);
    CU_REQUIRE(seconds != nullptr);
    cu_TimeValue now = {};
    CU_TRY(cu_getTime(&now, CLOCK_MONOTONIC));
    const cu_TimeValue taken = internal::difference(now, *start);
    *seconds = static_cast<double>(taken.tv_sec) +
               static_cast<double>(taken.tv_nsec) / static_cast<double>(internal::nanoSecondsPerSecond);
    return 0;
}
