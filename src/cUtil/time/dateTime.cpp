#include <cUtil/time/dateTime.h>

#include "internal/calendar.h"
#include "internal/report.h"

#include <cstddef>

static_assert(offsetof(cu_Date, year) == 0 && offsetof(cu_Date, month) == 4 && offsetof(cu_Date, day) == 8);
static_assert(offsetof(cu_Time, hour) == 0 && offsetof(cu_Time, minute) == 4 && offsetof(cu_Time, second) == 8);
static_assert(offsetof(cu_Time, microsecond) == 12 && sizeof(cu_Date) == 12 && sizeof(cu_Time) == 16);
static_assert(offsetof(cu_DateTime, year) == 0 && offsetof(cu_DateTime, month) == 4 && offsetof(cu_DateTime, day) == 8);
static_assert(offsetof(cu_DateTime, hour) == 12 && offsetof(cu_DateTime, minute) == 16);
static_assert(offsetof(cu_DateTime, second) == 20 && offsetof(cu_DateTime, microsecond) == 24);
static_assert(sizeof(cu_DateTime) == 28);

namespace
{

// The parts are copied out, since a pointer to one record must not be used to reach into another kind of record.

cu_Date dateOf(const cu_DateTime& dateTime)
{
    return {dateTime.year, dateTime.month, dateTime.day};
}

cu_Time timeOf(const cu_DateTime& dateTime)
{
    return {dateTime.hour, dateTime.minute, dateTime.second, dateTime.microsecond};
}

cu_DateTime combined(const cu_Date& date, const cu_Time& time)
{
    return {date.year, date.month, date.day, time.hour, time.minute, time.second, time.microsecond};
}

// Compatibility: an order is the plain difference of the fields, which wraps around for values out of range.
int32_t difference(uint32_t a, uint32_t b)
{
    return static_cast<int32_t>(a - b);
}

} // namespace

cu_ErrorCode cu_Date_init(cu_Date* date)
{
    CU_REQUIRE(date != nullptr);
    *date = {};
    return 0;
}

cu_ErrorCode cu_Date_create(cu_Date* date, uint32_t year, uint32_t month, uint32_t day)
{
    CU_REQUIRE(date != nullptr);
    *date = {year, month, day};
    return 0;
}

cu_ErrorCode cu_Date_copy(cu_Date* destination, const cu_Date* source)
{
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(source != nullptr);
    *destination = *source;
    return 0;
}

cu_ErrorCode cu_Date_current(cu_Date* date)
{
    CU_REQUIRE(date != nullptr);
    cu_DateTime now = {};
    CU_TRY(cu_Calendar_getCurrent(internal::builtInCalendar(), &now, nullptr));
    *date = dateOf(now);
    return 0;
}

cu_ErrorCode cu_Date_isValid(const cu_Date* date, bool* valid)
{
    CU_REQUIRE(date != nullptr);
    CU_REQUIRE(valid != nullptr);
    cu_Date copy = *date;
    CU_TRY(cu_Calendar_isValidDate(internal::builtInCalendar(), &copy, valid));
    return 0;
}

cu_ErrorCode cu_Date_equals(const cu_Date* a, const cu_Date* b, bool* equal)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    CU_REQUIRE(equal != nullptr);
    *equal = a->year == b->year && a->month == b->month && a->day == b->day;
    return 0;
}

cu_ErrorCode cu_Date_compare(const cu_Date* a, const cu_Date* b, int32_t* result)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    CU_REQUIRE(result != nullptr);
    if (a->year != b->year)
        *result = difference(a->year, b->year);
    else if (a->month != b->month)
        *result = difference(a->month, b->month);
    else
        *result = difference(a->day, b->day);
    return 0;
}

cu_ErrorCode cu_Time_init(cu_Time* time)
{
    CU_REQUIRE(time != nullptr);
    *time = {};
    return 0;
}

cu_ErrorCode cu_Time_create(cu_Time* time, uint32_t hour, uint32_t minute, uint32_t second, uint32_t microsecond)
{
    CU_REQUIRE(time != nullptr);
    *time = {hour, minute, second, microsecond};
    return 0;
}

cu_ErrorCode cu_Time_copy(cu_Time* destination, const cu_Time* source)
{
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(source != nullptr);
    *destination = *source;
    return 0;
}

cu_ErrorCode cu_Time_current(cu_Time* time)
{
    CU_REQUIRE(time != nullptr);
    cu_DateTime now = {};
    CU_TRY(cu_Calendar_getCurrent(internal::builtInCalendar(), &now, nullptr));
    *time = timeOf(now);
    return 0;
}

cu_ErrorCode cu_Time_isValid(const cu_Time* time, bool* valid)
{
    CU_REQUIRE(time != nullptr);
    CU_REQUIRE(valid != nullptr);
    cu_Time copy = *time;
    CU_TRY(cu_Calendar_isValidTime(internal::builtInCalendar(), &copy, valid));
    return 0;
}

cu_ErrorCode cu_Time_equals(const cu_Time* a, const cu_Time* b, bool* equal)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    CU_REQUIRE(equal != nullptr);
    *equal = a->hour == b->hour && a->minute == b->minute && a->second == b->second && a->microsecond == b->microsecond;
    return 0;
}

cu_ErrorCode cu_Time_compare(const cu_Time* a, const cu_Time* b, int32_t* result)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    CU_REQUIRE(result != nullptr);
    if (a->hour != b->hour)
        *result = difference(a->hour, b->hour);
    else if (a->minute != b->minute)
        *result = difference(a->minute, b->minute);
    else if (a->second != b->second)
        *result = difference(a->second, b->second);
    else
        *result = difference(a->microsecond, b->microsecond);
    return 0;
}

cu_ErrorCode cu_DateTime_init(cu_DateTime* dateTime)
{
    CU_REQUIRE(dateTime != nullptr);
    *dateTime = {};
    return 0;
}

cu_ErrorCode cu_DateTime_create(cu_DateTime* dateTime, const cu_Date* date, const cu_Time* time)
{
    CU_REQUIRE(dateTime != nullptr);
    CU_REQUIRE(date != nullptr);
    CU_REQUIRE(time != nullptr);
    *dateTime = combined(*date, *time);
    return 0;
}

cu_ErrorCode cu_DateTime_copy(cu_DateTime* destination, const cu_DateTime* source)
{
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(source != nullptr);
    *destination = *source;
    return 0;
}

cu_ErrorCode cu_DateTime_current(cu_DateTime* dateTime)
{
    CU_REQUIRE(dateTime != nullptr);
    CU_TRY(cu_Calendar_getCurrent(internal::builtInCalendar(), dateTime, nullptr));
    return 0;
}

cu_ErrorCode cu_DateTime_isValid(const cu_DateTime* dateTime, bool* valid)
{
    CU_REQUIRE(dateTime != nullptr);
    CU_REQUIRE(valid != nullptr);
    const cu_Date date = dateOf(*dateTime);
    const cu_Time time = timeOf(*dateTime);
    CU_TRY(cu_Date_isValid(&date, valid));
    if (*valid)
        CU_TRY(cu_Time_isValid(&time, valid));
    return 0;
}

cu_ErrorCode cu_DateTime_equals(const cu_DateTime* a, const cu_DateTime* b, bool* equal)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    CU_REQUIRE(equal != nullptr);
    const cu_Date dates[] = {dateOf(*a), dateOf(*b)};
    const cu_Time times[] = {timeOf(*a), timeOf(*b)};
    CU_TRY(cu_Date_equals(&dates[0], &dates[1], equal));
    if (*equal)
        CU_TRY(cu_Time_equals(&times[0], &times[1], equal));
    return 0;
}

cu_ErrorCode cu_DateTime_compare(const cu_DateTime* a, const cu_DateTime* b, int32_t* result)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    CU_REQUIRE(result != nullptr);
    const cu_Date dates[] = {dateOf(*a), dateOf(*b)};
    const cu_Time times[] = {timeOf(*a), timeOf(*b)};
    CU_TRY(cu_Date_compare(&dates[0], &dates[1], result));
    if (*result == 0)
        CU_TRY(cu_Time_compare(&times[0], &times[1], result));
    return 0;
}
