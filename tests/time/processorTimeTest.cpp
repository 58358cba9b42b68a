#include "support/inject.h"
#include "support/record.h"
#include "support/refusal.h"

#include <cUtil/time/processorTime.h>

#include <cerrno>
#include <ctime>
#include <limits>

namespace
{

constexpr char file[] = "src/cUtil/time/processorTime";

TEST(ProcessorTime, countsWhatTheProcessUses)
{
    clock_t start = 0;
    ASSERT_EQ(cu_ProcessorTime_startMeasurement(&start), 0U);
    while (clock() < start + 2000) {
    }
    const clock_t before = clock();
    double seconds = 0;
    ASSERT_EQ(cu_ProcessorTime_stopMeasurement(&start, &seconds), 0U);
    const clock_t after = clock();
    EXPECT_GE(seconds, static_cast<double>(before - start) / 1e6);
    EXPECT_LE(seconds, static_cast<double>(after - start) / 1e6);

    const clock_t first = std::numeric_limits<clock_t>::min(); // the difference exceeds a clock_t
    EXPECT_EQ(cu_ProcessorTime_stopMeasurement(&first, &seconds), 0U);
    EXPECT_GT(seconds, -static_cast<double>(first) / 1e6 - 1);
}

TEST(ProcessorTime, itsFailuresAreNotReported)
{
    cu_Error_report(cu_getErrorLocation(), cu_ERROR_COM_FATAL, 0, "before", 1, "test", nullptr);
    const cu_Error* record = cu_getErrorLocation();
    double seconds = 7;
    const clock_t future = std::numeric_limits<clock_t>::max();
    EXPECT_EQ(cu_ProcessorTime_stopMeasurement(&future, &seconds), cu_ERROR_TIME_GET_FAILED);
    EXPECT_EQ(record->errorID, cu_ERROR_COM_FATAL);
    EXPECT_EQ(support::trace(), "");

    clock_t start = 0;
    {
        const support::Injection broken("clock", EIO);
        EXPECT_EQ(cu_ProcessorTime_startMeasurement(&start), cu_ERROR_TIME_GET_FAILED);
        EXPECT_EQ(support::trace(), "");
    }
    start = 0;
    {
        const support::Injection broken("clock", EIO);
        EXPECT_EQ(cu_ProcessorTime_stopMeasurement(&start, &seconds), cu_ERROR_TIME_GET_FAILED);
        EXPECT_EQ(support::trace().find("cu_ProcessorTime_stopMeasurement  -  src/cUtil/time/processorTime:"), 0U);
    }
    EXPECT_EQ(record->errorID, cu_ERROR_COM_FATAL);
    EXPECT_STREQ(record->functionName, "before");
    EXPECT_EQ(seconds, 7);
}

TEST(ProcessorTime, missingArgumentsAreRefused)
{
    clock_t start = 0;
    double seconds = 0;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&start, &seconds}), cu_ProcessorTime_startMeasurement,
                         cu_ProcessorTime_stopMeasurement);
}

} // namespace
