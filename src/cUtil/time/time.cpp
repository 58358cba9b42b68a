#include <cUtil/time/time.h>

#include "internal/report.h"
#include "internal/timeArithmetic.h"

#include <cstddef>

static_assert(offsetof(cu_TimeValue, tv_sec) == 0 && offsetof(cu_TimeValue, tv_nsec) == sizeof(time_t));
static_assert(sizeof(void*) != 4 || sizeof(cu_TimeValue) == 8, "old binaries have a 32-bit time_t");

const uint32_t cu_NSEC_PER_SEC = internal::nanoSecondsPerSecond;
const uint32_t cu_USEC_PER_SEC = 1'000'000;
const uint32_t cu_MSEC_PER_SEC = 1000;
const uint32_t cu_NSEC_PER_MSEC = 1'000'000;
const uint32_t cu_NSEC_PER_USEC = 1000;
const uint32_t cu_USEC_PER_MSEC = 1000;

namespace
{

// An unsigned amount of any unit, 32 bits wide, as seconds and nanoseconds. Where time_t is 32 bits wide, seconds above
// its range count as negative and wrap around to the right sum.
void add(cu_TimeValue& time, uint32_t amount, uint32_t unitsPerSecond, uint32_t nanoSecondsPerUnit)
{
    const uint32_t nanoSeconds = amount % unitsPerSecond * nanoSecondsPerUnit;
    internal::add(time, static_cast<time_t>(amount / unitsPerSecond), static_cast<internal::NanoSeconds>(nanoSeconds));
}

} // namespace

cu_ErrorCode cu_normalize(cu_TimeValue* time)
{
    CU_REQUIRE(time != nullptr);
    internal::normalize(*time);
    return 0;
}

cu_ErrorCode cu_addSeconds(cu_TimeValue* time, uint32_t seconds)
{
    CU_REQUIRE(time != nullptr);
    // Compatibility: unlike the other additions, this one does not normalise.
    time->tv_sec = internal::addWrapping(time->tv_sec, static_cast<time_t>(seconds));
    return 0;
}

cu_ErrorCode cu_addMilliSeconds(cu_TimeValue* time, uint32_t milliSeconds)
{
    CU_REQUIRE(time != nullptr);
    add(*time, milliSeconds, cu_MSEC_PER_SEC, cu_NSEC_PER_MSEC);
    return 0;
}

cu_ErrorCode cu_addMicroSeconds(cu_TimeValue* time, uint32_t microSeconds)
{
    CU_REQUIRE(time != nullptr);
    add(*time, microSeconds, cu_USEC_PER_SEC, cu_NSEC_PER_USEC);
    return 0;
}

cu_ErrorCode cu_addNanoSeconds(cu_TimeValue* time, uint32_t nanoSeconds)
{
    CU_REQUIRE(time != nullptr);
    add(*time, nanoSeconds, cu_NSEC_PER_SEC, 1);
    return 0;
}

cu_ErrorCode cu_makeTimeoutSecond(cu_TimeValue* time, uint32_t seconds, int32_t clockId)
{
    CU_REQUIRE(time != nullptr);
    CU_TRY(cu_getTime(time, clockId));
    return cu_addSeconds(time, seconds);
}

cu_ErrorCode cu_makeTimeoutMilliSecond(cu_TimeValue* time, uint32_t milliSeconds, int32_t clockId)
{
    CU_REQUIRE(time != nullptr);
    CU_TRY(cu_getTime(time, clockId));
    return cu_addMilliSeconds(time, milliSeconds);
}

cu_ErrorCode cu_makeTimeoutMicroSecond(cu_TimeValue* time, uint32_t microSeconds, int32_t clockId)
{
    CU_REQUIRE(time != nullptr);
    CU_TRY(cu_getTime(time, clockId));
    return cu_addMicroSeconds(time, microSeconds);
}

cu_ErrorCode cu_makeTimeoutNanoSecond(cu_TimeValue* time, uint32_t nanoSeconds, int32_t clockId)
{
    CU_REQUIRE(time != nullptr);
    CU_TRY(cu_getTime(time, clockId));
    return cu_addNanoSeconds(time, nanoSeconds);
}
