#include <cUtil/time/processorTime.h>

#include "internal/report.h"

namespace
{

constexpr clock_t unavailable = -1;
constexpr double ticksPerSecond = 1'000'000;
static_assert(CLOCKS_PER_SEC == 1'000'000);

} // namespace

// Compatibility: the failures of both functions but for bad arguments are not reported; the record keeps what it held.

cu_ErrorCode cu_ProcessorTime_startMeasurement(clock_t* start)
{
    CU_REQUIRE(start != nullptr);
    *start = clock();
    return *start == unavailable ? cu_ErrorCode{cu_ERROR_TIME_GET_FAILED} : 0;
}

cu_ErrorCode cu_ProcessorTime_stopMeasurement(const clock_t* start, double* seconds)
{
    CU_REQUIRE(start != nullptr);
    CU_REQUIRE(seconds != nullptr);
    const clock_t now = clock();
    if (now == unavailable) // Compatibility: a stack-trace point without a report.
        return internal::passOn(cu_ERROR_TIME_GET_FAILED, CU_HERE);
    if (*start >= now) // Compatibility: so a measurement shorter than a tick fails.
        return cu_ERROR_TIME_GET_FAILED;
    // Both are exact as doubles, whose difference does not overflow.
    *seconds = (static_cast<double>(now) - static_cast<double>(*start)) / ticksPerSecond;
    return 0;
}
