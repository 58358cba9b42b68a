#include <cUtil/time/time.h>

#include "internal/report.h"

#include <cerrno>

namespace
{

// Compatibility: a relative sleep that a signal cuts short begins anew with the whole interval.
bool sleep(const cu_TimeValue* time, int32_t clockId, int flags)
{
    int result = 0;
    do
        result = clock_nanosleep(clockId, flags, time, nullptr);
    while (result == EINTR);
    return result == 0;
}

} // namespace

cu_ErrorCode cu_getTime(cu_TimeValue* time, int32_t clockId)
{
    CU_REQUIRE(time != nullptr);
    if (clock_gettime(clockId, time) != 0) [[unlikely]]
        return CU_REPORT_ERRNO(cu_ERROR_TIME_GET_FAILED, errno);
    return 0;
}

cu_ErrorCode cu_getClockPrecision(cu_TimeValue* time, int32_t clockId)
{
    CU_REQUIRE(time != nullptr);
    if (clock_getres(clockId, time) != 0)
        return CU_REPORT_ERRNO(cu_ERROR_TIME_GET_FAILED, errno);
    // Compatibility: callers take zero for coarser than a second.
    if (time->tv_sec != 0)
        *time = {};
    return 0;
}

// Compatibility: a failed sleep reports errno, which clock_nanosleep leaves alone, and not the cause that it returns.

cu_ErrorCode cu_sleepRelative(const cu_TimeValue* interval, int32_t clockId)
{
    CU_REQUIRE(interval != nullptr);
    if (!sleep(interval, clockId, 0))
        return CU_REPORT_ERRNO(cu_ERROR_SLEEP_FAILED, errno);
    return 0;
}

cu_ErrorCode cu_sleepAbsolute(const cu_TimeValue* time, int32_t clockId)
{
    CU_REQUIRE(time != nullptr);
    if (!sleep(time, clockId, TIMER_ABSTIME))
        return CU_REPORT_ERRNO(cu_ERROR_SLEEP_FAILED, errno);
    return 0;
}
