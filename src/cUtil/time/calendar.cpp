#include <cUtil/time/calendar.h>

#include "internal/calendar.h"
#include "internal/report.h"

#include <cUtil/time/time.h>

#include <cerrno>
#include <cstddef>

static_assert(offsetof(cu_Calendar, getCurrent) == 0 && offsetof(cu_Calendar, isValidDate) == sizeof(void*));
static_assert(offsetof(cu_Calendar, isValidTime) == 2 * sizeof(void*));
static_assert(offsetof(cu_Calendar, isLeapYear) == 3 * sizeof(void*) && sizeof(cu_Calendar) == 4 * sizeof(void*));

namespace
{

// The dispatch has checked the arguments of these four.

cu_ErrorCode getCurrent(cu_Calendar*, cu_DateTime* dateTime, void*)
{
    cu_TimeValue now = {};
    CU_TRY(cu_getTime(&now, CLOCK_REALTIME));
    tm local = {};
    if (localtime_r(&now.tv_sec, &local) == nullptr)
        return CU_REPORT_ERRNO(cu_ERROR_TIME_GET_FAILED, errno);
    // In unsigned arithmetic: tm_year may be as large as an int can be.
    dateTime->year = static_cast<uint32_t>(local.tm_year) + 1900;
    dateTime->month = static_cast<uint32_t>(local.tm_mon) + 1;
    dateTime->day = static_cast<uint32_t>(local.tm_mday);
    dateTime->hour = static_cast<uint32_t>(local.tm_hour);
    dateTime->minute = static_cast<uint32_t>(local.tm_min);
    dateTime->second = static_cast<uint32_t>(local.tm_sec);
    dateTime->microsecond = static_cast<uint32_t>(now.tv_nsec) / cu_NSEC_PER_USEC;
    return 0;
}

cu_ErrorCode isLeapYear(cu_Calendar*, uint32_t year, bool* leapYear)
{
    *leapYear = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return 0;
}

cu_ErrorCode isValidDate(cu_Calendar* calendar, cu_Date* date, bool* valid)
{
    constexpr uint32_t february = 2;
    constexpr uint8_t lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    *valid = false;
    if (date->month < 1 || date->month > 12)
        return 0;
    bool leapYear = false;
    CU_TRY(cu_Calendar_isLeapYear(calendar, date->year, &leapYear));
    const uint32_t leapDay = leapYear && date->month == february ? 1 : 0;
    *valid = date->day >= 1 && date->day <= lengths[date->month - 1] + leapDay;
    return 0;
}

cu_ErrorCode isValidTime(cu_Calendar*, cu_Time* time, bool* valid)
{
    *valid = time->hour < 24 && time->minute < 60 && time->second < 60 && time->microsecond <= 999'999;
    return 0;
}

constinit cu_Calendar builtIn = {getCurrent, isValidDate, isValidTime, isLeapYear};

} // namespace

cu_Calendar* internal::builtInCalendar()
{
    return &builtIn;
}

cu_ErrorCode cu_Calendar_getCurrent(cu_Calendar* calendar, cu_DateTime* dateTime, void* argument)
{
    CU_REQUIRE(calendar != nullptr && calendar->getCurrent != nullptr);
    CU_REQUIRE(dateTime != nullptr);
    CU_TRY(calendar->getCurrent(calendar, dateTime, argument));
    return 0;
}

cu_ErrorCode cu_Calendar_isValidDate(cu_Calendar* calendar, cu_Date* date, bool* valid)
{
    CU_REQUIRE(calendar != nullptr && calendar->isValidDate != nullptr);
    CU_REQUIRE(date != nullptr);
    CU_REQUIRE(valid != nullptr);
    CU_TRY(calendar->isValidDate(calendar, date, valid));
    return 0;
}

cu_ErrorCode cu_Calendar_isValidTime(cu_Calendar* calendar, cu_Time* time, bool* valid)
{
    CU_REQUIRE(calendar != nullptr && calendar->isValidTime != nullptr);
    CU_REQUIRE(time != nullptr);
    CU_REQUIRE(valid != nullptr);
    CU_TRY(calendar->isValidTime(calendar, time, valid));
    return 0;
}

cu_ErrorCode cu_Calendar_isLeapYear(cu_Calendar* calendar, uint32_t year, bool* leapYear)
{
    CU_REQUIRE(calendar != nullptr && calendar->isLeapYear != nullptr);
    CU_REQUIRE(leapYear != nullptr);
    CU_TRY(calendar->isLeapYear(calendar, year, leapYear));
    return 0;
}
