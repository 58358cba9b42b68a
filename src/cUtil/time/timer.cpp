#include <cUtil/time/timer.h>

#include "internal/report.h"
#include "internal/timeArithmetic.h"

#include <cstddef>

static_assert(offsetof(cu_Timer, expiry) == 0 && offsetof(cu_Timer, clockId) == sizeof(cu_TimeValue));
static_assert(sizeof(void*) != 4 || (offsetof(cu_Timer, clockId) == 8 && sizeof(cu_Timer) == 12));

cu_ErrorCode cu_Timer_init(cu_Timer* timer, const cu_TimeValue* expiry, int32_t clockId)
{
    CU_REQUIRE(timer != nullptr);
    timer->expiry = expiry != nullptr ? *expiry : cu_TimeValue{};
    timer->clockId = clockId;
    return 0;
}

cu_ErrorCode cu_Timer_set(cu_Timer* timer, const cu_TimeValue* expiry)
{
    CU_REQUIRE(timer != nullptr);
    CU_REQUIRE(expiry != nullptr);
    timer->expiry = *expiry;
    return 0;
}

cu_ErrorCode cu_Timer_isExpired(const cu_Timer* timer, bool* expired)
{
    CU_REQUIRE(timer != nullptr);
    CU_REQUIRE(expired != nullptr);
    cu_TimeValue now = {};
    CU_TRY(cu_getTime(&now, timer->clockId));
    const cu_TimeValue& expiry = timer->expiry;
    *expired = now.tv_sec > expiry.tv_sec || (now.tv_sec == expiry.tv_sec && now.tv_nsec >= expiry.tv_nsec);
    return 0;
}

cu_ErrorCode cu_Timer_getRemaining(const cu_Timer* timer, cu_TimeValue* remaining)
{
    CU_REQUIRE(timer != nullptr);
    CU_REQUIRE(remaining != nullptr);
    cu_TimeValue now = {};
    CU_TRY(cu_getTime(&now, timer->clockId));
    *remaining = internal::difference(timer->expiry, now);
    return 0;
}
