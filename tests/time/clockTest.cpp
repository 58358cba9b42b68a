// What reads a clock: the stopwatch, the timer and the two measurements.
#include "support/inject.h"
#include "support/refusal.h"

#include <cUtil/time/clock.h>
#include <cUtil/time/executionTime.h>
#include <cUtil/time/processorTime.h>
#include <cUtil/time/timer.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <limits>

namespace
{

void expectElapsed(const cu_Clock& clock, time_t seconds, long nanoSeconds)
{
    cu_TimeValue elapsed = {-1, -1};
    EXPECT_EQ(cu_Clock_getElapsed(&clock, &elapsed), 0U);
    EXPECT_EQ(elapsed.tv_sec, seconds);
    EXPECT_EQ(elapsed.tv_nsec, nanoSeconds);
}

TEST(Clock, measuresAfreshEachTime)
{
    constexpr char file[] = "src/cUtil/time/clock";
    cu_Clock clock;
    memset(&clock, 0xFF, sizeof(clock));
    ASSERT_EQ(cu_Clock_init(&clock), 0U);
    support::ClockReading now({10, 999999999});
    expectElapsed(clock, 0, 0);

    ASSERT_EQ(cu_Clock_start(&clock), 0U);
    now.set({12, 1});
    expectElapsed(clock, 1, 2);
    EXPECT_FAILURE(cu_Clock_start(&clock), cu_ERROR_COM_INVARIANT, "cu_Clock_start", file, "");
    now.set({13, 0});
    EXPECT_EQ(cu_Clock_stop(&clock), 0U);
    now.set({20, 0});
    EXPECT_FAILURE(cu_Clock_stop(&clock), cu_ERROR_COM_INVARIANT, "cu_Clock_stop", file, "");
    expectElapsed(clock, 2, 1); // from the first start to the first stop

    ASSERT_EQ(cu_Clock_start(&clock), 0U);
    now.set({20, 999999999});
    expectElapsed(clock, 3, 0); // on top of the last result while it runs
    EXPECT_EQ(cu_Clock_stop(&clock), 0U);
    expectElapsed(clock, 0, 999999999); // but not once it has stopped
}

TEST(Timer, expiresAtItsPoint)
{
    const struct {
        cu_TimeValue expiry;
        cu_TimeValue now;
        bool expired;
        cu_TimeValue remaining;
    } cases[] = {
        {{10, 500}, {10, 499}, false, {0, 1}},
        {{10, 500}, {10, 500}, true, {0, 0}},
        {{10, 500}, {9, 999999999}, false, {0, 501}},
        {{10, 500}, {11, 0}, true, {-1, 500}},
        {{10, -2000000000}, {9, 999999999}, false, {-2, 1}}, // the point is taken as it is, the interval is normalised
    };
    for (const auto& [expiry, now, expired, remaining] : cases) {
        SCOPED_TRACE(testing::Message() << now.tv_sec << ", " << now.tv_nsec);
        const support::ClockReading reading(now);
        cu_Timer timer = {{99, 99}, 99};
        bool answer = false;
        cu_TimeValue rest = {};
        EXPECT_EQ(cu_Timer_init(&timer, nullptr, CLOCK_MONOTONIC) | cu_Timer_isExpired(&timer, &answer), 0U);
        EXPECT_TRUE(answer);
        EXPECT_EQ(cu_Timer_set(&timer, &expiry) | cu_Timer_isExpired(&timer, &answer), 0U);
        EXPECT_EQ(answer, expired);
        EXPECT_EQ(cu_Timer_init(&timer, &expiry, CLOCK_REALTIME) | cu_Timer_getRemaining(&timer, &rest), 0U);
        EXPECT_EQ(timer.clockId, CLOCK_REALTIME);
        EXPECT_EQ(rest.tv_sec, remaining.tv_sec);
        EXPECT_EQ(rest.tv_nsec, remaining.tv_nsec);
    }
}

TEST(ExecutionTime, isGivenInSeconds)
{
    support::ClockReading now({7, 750000000});
    cu_TimeValue start = {};
    ASSERT_EQ(cu_ExecutionTime_startMeasurement(&start), 0U);
    double seconds = -1;
    now.set({9, 500000000});
    EXPECT_EQ(cu_ExecutionTime_stopMeasurement(&start, &seconds), 0U);
    EXPECT_DOUBLE_EQ(seconds, 1.75);
}

TEST(SystemClock, thatFailsLeavesTheAnswersAsTheyWere)
{
    static struct { // so that what lies between the members has a value, too
        cu_Clock idle = {{1, 2}, {3, 4}, false};
        cu_Clock running = {{1, 2}, {3, 4}, true};
        cu_Timer timer = {{5, 6}, 12345}; // no such clock
        cu_TimeValue time = {7, 8};
        double seconds = 9;
        bool expired = false;
    } answers;
    unsigned char before[sizeof(answers)];
    memcpy(before, &answers, sizeof(answers));
    const auto fails = [&](const std::string& name, cu_ErrorCode code) {
        EXPECT_EQ(code, cu_ERROR_TIME_GET_FAILED);
        EXPECT_THAT(support::trace(), testing::StartsWith(name + "  -  src/cUtil/time/"));
        EXPECT_EQ(memcmp(&answers, before, sizeof(answers)), 0) << name;
        cu_Error_clear(cu_getErrorLocation());
    };
    cu_Error_clear(cu_getErrorLocation());
    fails("cu_Timer_isExpired", cu_Timer_isExpired(&answers.timer, &answers.expired));
    fails("cu_Timer_getRemaining", cu_Timer_getRemaining(&answers.timer, &answers.time));
    const auto broken = support::Injection::ofEvery("clock_gettime", EINVAL);
    fails("cu_Clock_start", cu_Clock_start(&answers.idle));
    fails("cu_Clock_stop", cu_Clock_stop(&answers.running));
    fails("cu_Clock_getElapsed", cu_Clock_getElapsed(&answers.running, &answers.time));
    fails("cu_ExecutionTime_startMeasurement", cu_ExecutionTime_startMeasurement(&answers.time));
    fails("cu_ExecutionTime_stopMeasurement", cu_ExecutionTime_stopMeasurement(&answers.time, &answers.seconds));
}

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
    double seconds = 7;
    clock_t start = 0;
    const clock_t future = std::numeric_limits<clock_t>::max();
    EXPECT_EQ(cu_ProcessorTime_stopMeasurement(&future, &seconds), cu_ERROR_TIME_GET_FAILED);
    const auto broken = support::Injection::ofEvery("clock", EIO);
    EXPECT_EQ(cu_ProcessorTime_startMeasurement(&start), cu_ERROR_TIME_GET_FAILED);
    EXPECT_EQ(support::trace(), "");
    EXPECT_EQ(cu_ProcessorTime_stopMeasurement(&start, &seconds), cu_ERROR_TIME_GET_FAILED);
    EXPECT_EQ(support::trace().find("cu_ProcessorTime_stopMeasurement  -  src/cUtil/time/processorTime:"), 0U);
    EXPECT_EQ(cu_getErrorLocation()->errorID, cu_ERROR_COM_FATAL);
    EXPECT_STREQ(cu_getErrorLocation()->functionName, "before");
    EXPECT_EQ(seconds, 7);
}

TEST(Clock, andTheOthersRefuseMissingArguments)
{
    const std::string folder = "src/cUtil/time/";
    cu_Clock clock = {};
    cu_Timer timer = {};
    cu_TimeValue time = {};
    clock_t start = 0;
    double seconds = 0;
    bool expired = false;
    const std::tuple good{&clock, &timer, &time, &start, &seconds, &expired};
    EXPECT_NULLS_REFUSED((folder + "clock").c_str(), good, cu_Clock_init, cu_Clock_start, cu_Clock_stop,
                         cu_Clock_getElapsed);
    EXPECT_NULLS_REFUSED((folder + "timer").c_str(), std::tuple{&timer}, cu_Timer_init);
    EXPECT_NULLS_REFUSED((folder + "timer").c_str(), good, cu_Timer_set, cu_Timer_isExpired, cu_Timer_getRemaining);
    EXPECT_NULLS_REFUSED((folder + "executionTime").c_str(), good, cu_ExecutionTime_startMeasurement,
                         cu_ExecutionTime_stopMeasurement);
    EXPECT_NULLS_REFUSED((folder + "processorTime").c_str(), good, cu_ProcessorTime_startMeasurement,
                         cu_ProcessorTime_stopMeasurement);
}

} // namespace
