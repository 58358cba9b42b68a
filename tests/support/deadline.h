// Deadlines for timed calls.
#pragma once

#include <cUtil/time/time.h>

#include <gtest/gtest.h>

#include <cstdint>

namespace support
{

inline cu_TimeValue fromNow(uint32_t milliSeconds, int32_t clock = CLOCK_REALTIME)
{
    cu_TimeValue deadline = {};
    EXPECT_EQ(cu_makeTimeoutMilliSecond(&deadline, milliSeconds, clock), 0U);
    return deadline;
}

inline bool hasPassed(const cu_TimeValue& deadline, int32_t clock = CLOCK_REALTIME)
{
    cu_TimeValue now = {};
    EXPECT_EQ(cu_getTime(&now, clock), 0U);
    return now.tv_sec > deadline.tv_sec || (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

} // namespace support
