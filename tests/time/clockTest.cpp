#include "support/inject.h"
#include "support/record.h"
#include "support/refusal.h"

#include <cUtil/time/clock.h>

#include <cerrno>
#include <cstring>

namespace
{

constexpr char file[] = "src/cUtil/time/clock";

void expectElapsed(const cu_Clock& clock, time_t seconds, long nanoSeconds)
{
    cu_TimeValue elapsed = {-1, -1};
    EXPECT_EQ(cu_Clock_getElapsed(&clock, &elapsed), 0U);
    EXPECT_EQ(elapsed.tv_sec, seconds);
    EXPECT_EQ(elapsed.tv_nsec, nanoSeconds);
}

TEST(Clock, measuresAfreshEachTime)
{
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

TEST(Clock, aFailingReadChangesNothing)
{
    cu_Clock clock = {{1, 2}, {3, 4}, false};
    cu_TimeValue elapsed = {5, 6};
    const auto fails = [&](auto call, const char* name) {
        const support::Injection broken("clock_gettime", EINVAL);
        EXPECT_SYSTEM_FAILURE(call(), cu_ERROR_TIME_GET_FAILED, EINVAL, "cu_getTime", "src/cUtil/time/time.linux",
                              "errno[22]='Invalid argument'");
        EXPECT_EQ(support::trace().find(std::string(name) + "  -  " + file + ":"), 0U);
        EXPECT_EQ(clock.elapsed.tv_sec, 1);
        EXPECT_EQ(clock.start.tv_sec, 3);
        EXPECT_EQ(elapsed.tv_sec, 5);
    };
    fails([&] { return cu_Clock_start(&clock); }, "cu_Clock_start");
    EXPECT_FALSE(clock.running);
    clock.running = true;
    fails([&] { return cu_Clock_getElapsed(&clock, &elapsed); }, "cu_Clock_getElapsed");
    fails([&] { return cu_Clock_stop(&clock); }, "cu_Clock_stop");
    EXPECT_TRUE(clock.running);
}

TEST(Clock, missingArgumentsAreRefused)
{
    cu_Clock clock = {};
    cu_TimeValue elapsed = {};
    EXPECT_NULLS_REFUSED(file, (std::tuple{&clock, &elapsed}), cu_Clock_init, cu_Clock_start, cu_Clock_stop,
                         cu_Clock_getElapsed);
}

} // namespace
