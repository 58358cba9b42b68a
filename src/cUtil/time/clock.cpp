#include <cUtil/time/clock.h>

#include "internal/report.h"
#include "internal/timeArithmetic.h"

#include <cstddef>

static_assert(offsetof(cu_Clock, elapsed) == 0 && offsetof(cu_Clock, start) == sizeof(cu_TimeValue));
static_assert(offsetof(cu_Clock, running) == 2 * sizeof(cu_TimeValue) && sizeof(bool) == 1);
static_assert(sizeof(void*) != 4 || (offsetof(cu_Clock, running) == 16 && sizeof(cu_Clock) == 20));

cu_ErrorCode cu_Clock_init(cu_Clock* clock)
{
    CU_REQUIRE(clock != nullptr);
    clock->elapsed = {};
    clock->start = {};
    clock->running = false;
    return 0;
}

cu_ErrorCode cu_Clock_start(cu_Clock* clock)
{
    CU_REQUIRE(clock != nullptr);
    if (clock->running)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
    CU_TRY(cu_getTime(&clock->start, CLOCK_MONOTONIC));
    clock->running = true;
    return 0;
}

cu_ErrorCode cu_Clock_stop(cu_Clock* clock)
{
    CU_REQUIRE(clock != nullptr);
    if (!clock->running)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
    cu_TimeValue now = {};
    CU_TRY(cu_getTime(&now, CLOCK_MONOTONIC));
    clock->running = false;
    clock->elapsed = internal::difference(now, clock->start);
    return 0;
}

cu_ErrorCode cu_Clock_getElapsed(const cu_Clock* clock, cu_TimeValue* elapsed)
{
    CU_REQUIRE(clock != nullptr);
    CU_REQUIRE(elapsed != nullptr);
    if (!clock->running) {
        *elapsed = clock->elapsed;
        return 0;
    }
    cu_TimeValue now = {};
    CU_TRY(cu_getTime(&now, CLOCK_MONOTONIC));
    // Compatibility: the last result counts as well while the next one is taken, although stopping replaces it.
    const cu_TimeValue current = internal::difference(now, clock->start);
    *elapsed = clock->elapsed;
    internal::add(*elapsed, current.tv_sec, current.tv_nsec);
    return 0;
}
