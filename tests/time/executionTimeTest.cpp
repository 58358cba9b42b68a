#include "support/inject.h"
#include "support/record.h"
#include "support/refusal.h"

#include <cUtil/time/executionTime.h>

#include <cerrno>

namespace
{

constexpr char file[] = "src/cUtil/time/executionTime";

TEST(ExecutionTime, isGivenInSeconds)
{
    support::ClockReading now({7, 750000000});
    cu_TimeValue start = {};
    ASSERT_EQ(cu_ExecutionTime_startMeasurement(&start), 0U);
    double seconds = -1;
    now.set({9, 500000000});
    EXPECT_EQ(cu_ExecutionTime_stopMeasurement(&start, &seconds), 0U);
    EXPECT_DOUBLE_EQ(seconds, 1.75);
    now.set({7, 500000000});
    EXPECT_EQ(cu_ExecutionTime_stopMeasurement(&start, &seconds), 0U);
    EXPECT_DOUBLE_EQ(seconds, -0.25);
}

TEST(ExecutionTime, failuresLeaveTheResultsAsTheyWere)
{
    cu_TimeValue start = {5, 6};
    double seconds = 7;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&start, &seconds}), cu_ExecutionTime_startMeasurement,
                         cu_ExecutionTime_stopMeasurement);
    {
        const support::Injection broken("clock_gettime", EPERM);
        EXPECT_EQ(cu_ExecutionTime_startMeasurement(&start), cu_ERROR_TIME_GET_FAILED);
        EXPECT_EQ(support::trace().find("cu_ExecutionTime_startMeasurement  -  "), 0U);
    }
    {
        const support::Injection broken("clock_gettime", EPERM);
        EXPECT_EQ(cu_ExecutionTime_stopMeasurement(&start, &seconds), cu_ERROR_TIME_GET_FAILED);
        EXPECT_EQ(support::trace().find("cu_ExecutionTime_stopMeasurement  -  "), 0U);
    }
    EXPECT_EQ(start.tv_sec, 5);
    EXPECT_EQ(seconds, 7);
}

} // namespace
