#include "support/inject.h"
#include "support/record.h"
#include "support/refusal.h"

#include <cUtil/time/timer.h>

#include <cerrno>

namespace
{

constexpr char file[] = "src/cUtil/time/timer";

TEST(Timer, expiresAtItsPointOnItsClock)
{
    const struct {
        cu_TimeValue expiry;
        cu_TimeValue now;
        bool expired;
        cu_TimeValue remaining;
    } cases[] = {
        {{10, 500}, {10, 499}, false, {0, 1}},
        {{10, 500}, {10, 500}, true, {0, 0}},
        {{10, 500}, {10, 501}, true, {-1, 999999999}},
        {{10, 500}, {9, 999999999}, false, {0, 501}},
        {{10, 500}, {11, 0}, true, {-1, 500}},
        {{10, 500}, {13, 700}, true, {-4, 999999800}},
        {{-1, 0}, {0, 0}, true, {-1, 0}},
        {{10, -2000000000}, {9, 999999999}, false, {-2, 1}}, // the point is taken as it is, the interval is normalised
    };
    cu_Timer timer = {};
    ASSERT_EQ(cu_Timer_init(&timer, nullptr, CLOCK_MONOTONIC), 0U);
    for (const auto& [expiry, now, expired, remaining] : cases) {
        const support::ClockReading reading(now);
        EXPECT_EQ(cu_Timer_set(&timer, &expiry), 0U);
        EXPECT_EQ(timer.clockId, CLOCK_MONOTONIC);
        bool answer = !expired;
        cu_TimeValue rest = {};
        EXPECT_EQ(cu_Timer_isExpired(&timer, &answer), 0U);
        EXPECT_EQ(cu_Timer_getRemaining(&timer, &rest), 0U);
        EXPECT_EQ(answer, expired) << expiry.tv_sec << ", " << expiry.tv_nsec;
        EXPECT_EQ(rest.tv_sec, remaining.tv_sec) << expiry.tv_sec << ", " << expiry.tv_nsec;
        EXPECT_EQ(rest.tv_nsec, remaining.tv_nsec) << expiry.tv_sec << ", " << expiry.tv_nsec;
    }
}

TEST(Timer, withoutAnExpiryHasExpired)
{
    cu_Timer timer = {{99, 99}, 99};
    ASSERT_EQ(cu_Timer_init(&timer, nullptr, CLOCK_REALTIME), 0U);
    bool expired = false;
    EXPECT_EQ(cu_Timer_isExpired(&timer, &expired), 0U);
    EXPECT_TRUE(expired);
    const cu_TimeValue expiry = {3, 4};
    ASSERT_EQ(cu_Timer_init(&timer, &expiry, 5), 0U);
    EXPECT_EQ(timer.expiry.tv_sec, 3);
    EXPECT_EQ(timer.expiry.tv_nsec, 4);
    EXPECT_EQ(timer.clockId, 5);
}

TEST(Timer, aFailingClockLeavesTheAnswersAsTheyWere)
{
    cu_Timer timer = {};
    ASSERT_EQ(cu_Timer_init(&timer, nullptr, 12345), 0U); // no such clock
    bool expired = false;
    cu_TimeValue remaining = {6, 7};
    EXPECT_SYSTEM_FAILURE(cu_Timer_isExpired(&timer, &expired), cu_ERROR_TIME_GET_FAILED, EINVAL, "cu_getTime",
                          "src/cUtil/time/time.linux", "errno[22]='Invalid argument'");
    EXPECT_EQ(support::trace().find("cu_Timer_isExpired  -  src/cUtil/time/timer:"), 0U);
    EXPECT_EQ(cu_Timer_getRemaining(&timer, &remaining), cu_ERROR_TIME_GET_FAILED);
    EXPECT_EQ(support::trace().find("cu_Timer_getRemaining  -  src/cUtil/time/timer:"), 0U);
    EXPECT_FALSE(expired);
    EXPECT_EQ(remaining.tv_sec, 6);
    EXPECT_EQ(remaining.tv_nsec, 7);
}

TEST(Timer, missingArgumentsAreRefused)
{
    cu_Timer timer = {};
    cu_TimeValue time = {};
    bool expired = false;
    EXPECT_NULLS_REFUSED(file, std::tuple{&timer}, cu_Timer_init);
    EXPECT_NULLS_REFUSED(file, (std::tuple{&timer, &time, &expired}), cu_Timer_set, cu_Timer_isExpired,
                         cu_Timer_getRemaining);
}

} // namespace
