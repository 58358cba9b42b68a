#include "support/deadline.h"
#include "support/inject.h"
#include "support/refusal.h"
#include "support/signalStorm.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>

// For a 32-bit time_t on the one hand, a 64-bit one on the other.
#define BY_WORD_SIZE(narrow, wide) (sizeof(time_t) == 4 ? (narrow) : static_cast<time_t>(wide))

bool operator==(const timespec& a, const timespec& b)
{
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

namespace
{

using NanoSeconds = decltype(timespec::tv_nsec);
constexpr time_t lastSecond = std::numeric_limits<time_t>::max();
constexpr time_t firstSecond = std::numeric_limits<time_t>::min();
constexpr NanoSeconds most = std::numeric_limits<NanoSeconds>::max();
constexpr NanoSeconds least = std::numeric_limits<NanoSeconds>::min();
constexpr char file[] = "src/cUtil/time/time";
constexpr char systemFile[] = "src/cUtil/time/time.linux";
constexpr int32_t noClock = 12345;
constexpr cu_TimeValue marked = {-7, 77};

TEST(TimeValue, theUnitsAreExportedObjects)
{
    EXPECT_EQ((std::array{cu_NSEC_PER_SEC, cu_USEC_PER_SEC, cu_MSEC_PER_SEC, cu_NSEC_PER_MSEC, cu_NSEC_PER_USEC,
                          cu_USEC_PER_MSEC}),
              (std::array{1000000000U, 1000000U, 1000U, 1000000U, 1000U, 1000U}));
}

TEST(TimeValue, anyCountOfNanosecondsIsNormalised)
{
    const struct {
        cu_TimeValue given;
        cu_TimeValue expected;
    } cases[] = {
        {{5, -1}, {4, 999999999}},
        {{-1, -1000000001}, {-3, 999999999}},
        {{0, most}, {BY_WORD_SIZE(2, 9223372036), BY_WORD_SIZE(147483647, 854775807)}},
        {{0, least}, {BY_WORD_SIZE(-3, -9223372037), BY_WORD_SIZE(852516352, 145224192)}},
        {{lastSecond, 1000000000}, {firstSecond, 0}},
        {{firstSecond, -1}, {lastSecond, 999999999}},
    };
    for (const auto& [given, expected] : cases) {
        cu_TimeValue time = given;
        EXPECT_EQ(cu_normalize(&time), 0U);
        EXPECT_EQ(time, expected) << time.tv_sec << " s " << time.tv_nsec << " ns";
    }
}

TEST(TimeValue, amountsOfEveryUnitAreAdded)
{
    constexpr uint32_t all = 0xFFFFFFFF;
    const struct {
        cu_ErrorCode (*add)(cu_TimeValue*, uint32_t);
        cu_TimeValue given;
        uint32_t amount;
        cu_TimeValue expected;
    } cases[] = {
        {cu_addSeconds, {1, -1}, 2, {3, -1}},
        {cu_addSeconds, {1, 5}, all, {BY_WORD_SIZE(0, 4294967296), 5}},
        {cu_addSeconds, {lastSecond, 5}, 1, {firstSecond, 5}},
        {cu_addMilliSeconds, {0, 600000000}, 1500, {2, 100000000}},
        {cu_addMilliSeconds, {0, 0}, all, {4294967, 295000000}},
        {cu_addMicroSeconds, {0, 999}, all, {4294, 967295999}},
        {cu_addNanoSeconds, {0, most}, all, {BY_WORD_SIZE(6, 9223372041), BY_WORD_SIZE(442450942, 149743102)}},
        {cu_addNanoSeconds, {0, least}, 1, {BY_WORD_SIZE(-3, -9223372037), BY_WORD_SIZE(852516353, 145224193)}},
    };
    for (const auto& [add, given, amount, expected] : cases) {
        cu_TimeValue time = given;
        EXPECT_EQ(add(&time, amount), 0U);
        EXPECT_EQ(time, expected) << time.tv_sec << " s " << time.tv_nsec << " ns and " << amount;
    }
}

TEST(TimeValue, timeOutsStartFromTheClockAndKeepTheirValueWhenItFails)
{
    const struct {
        cu_ErrorCode (*make)(cu_TimeValue*, uint32_t, int32_t);
        const char* name;
        cu_TimeValue expected;
    } cases[] = {
        {cu_makeTimeoutSecond, "cu_makeTimeoutSecond", {2599, 999999999}},
        {cu_makeTimeoutMilliSecond, "cu_makeTimeoutMilliSecond", {103, 498999999}},
        {cu_makeTimeoutMicroSecond, "cu_makeTimeoutMicroSecond", {101, 2498999}},
        {cu_makeTimeoutNanoSecond, "cu_makeTimeoutNanoSecond", {101, 2498}},
    };
    for (const auto& each : cases) {
        cu_TimeValue time = marked;
        EXPECT_REFUSED(each.make(nullptr, 1, CLOCK_MONOTONIC), each.name, file);
        EXPECT_SYSTEM_FAILURE(each.make(&time, 1, noClock), cu_ERROR_TIME_GET_FAILED, EINVAL, "cu_getTime", systemFile,
                              "errno[22]='Invalid argument'");
        EXPECT_EQ(support::trace().find(std::string(each.name) + "  -  " + file + ":"), 0U);
        EXPECT_EQ(time, marked);
        const support::ClockReading now({100, 999999999});
        EXPECT_EQ(each.make(&time, 2499, CLOCK_MONOTONIC), 0U);
        EXPECT_EQ(time, each.expected) << each.name;
    }
}

TEST(TimeValue, missingOnesAreRefused)
{
    cu_TimeValue time = {};
    EXPECT_NULLS_REFUSED(file, std::tuple{&time}, cu_normalize, cu_addSeconds, cu_addMilliSeconds, cu_addMicroSeconds,
                         cu_addNanoSeconds);
    EXPECT_NULLS_REFUSED(systemFile, std::tuple{&time}, cu_getTime, cu_getClockPrecision, cu_sleepRelative,
                         cu_sleepAbsolute);
}

TEST(SystemClock, aResolutionOfASecondOrMoreIsGivenAsZero)
{
    cu_TimeValue time = marked;
    EXPECT_SYSTEM_FAILURE(cu_getClockPrecision(&time, noClock), cu_ERROR_TIME_GET_FAILED, EINVAL,
                          "cu_getClockPrecision", systemFile, "errno[22]='Invalid argument'");
    EXPECT_EQ(time, marked);
    support::ClockReading resolution({0, 4000000});
    EXPECT_EQ(cu_getClockPrecision(&time, 0), 0U);
    EXPECT_EQ(time, (cu_TimeValue{0, 4000000}));
    resolution.set({1, 5});
    EXPECT_EQ(cu_getClockPrecision(&time, 0), 0U);
    EXPECT_EQ(time, (cu_TimeValue{0, 0}));
}

TEST(Sleep, aFailureReportsErrnoAsItStandsAndNotItsCause)
{
    constexpr cu_TimeValue improper = {0, 1000000000};
    for (const int left : {0, EIO})
        for (const auto& each :
             {std::pair(&cu_sleepRelative, "cu_sleepRelative"), {&cu_sleepAbsolute, "cu_sleepAbsolute"}})
            EXPECT_SYSTEM_FAILURE((errno = left, each.first(&improper, CLOCK_MONOTONIC)), cu_ERROR_SLEEP_FAILED, left,
                                  each.second, systemFile,
                                  "errno[" + std::to_string(left) + "]='" + strerror(left) + "'");
}

TEST(Sleep, anInterruptedIntervalStartsAfresh)
{
    using namespace std::chrono_literals;
    constexpr cu_TimeValue interval = {0, 60000000};
    const support::SignalStorm storm(300ms);
    ASSERT_EQ(cu_sleepRelative(&interval, CLOCK_MONOTONIC), 0U);
    const auto end = std::chrono::steady_clock::now();
    EXPECT_GT(storm.delivered(), 0U);
    EXPECT_GE(end - storm.lastSent(), 60ms);
}

TEST(Sleep, aPointInTimeIsReachedThroughAnEndlessStorm)
{
    const support::SignalStorm storm;
    const cu_TimeValue point = support::fromNow(40, CLOCK_MONOTONIC);
    ASSERT_EQ(cu_sleepAbsolute(&point, CLOCK_MONOTONIC), 0U);
    EXPECT_GT(storm.delivered(), 0U);
    EXPECT_TRUE(support::hasPassed(point, CLOCK_MONOTONIC));
}

} // namespace
