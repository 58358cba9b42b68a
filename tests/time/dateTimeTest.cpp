#include "support/inject.h"
#include "support/refusal.h"

#include <cUtil/time/calendar.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

bool operator==(const cu_DateTime& a, const cu_DateTime& b)
{
    return memcmp(&a, &b, sizeof(cu_DateTime)) == 0; // words only, no padding
}

namespace
{

constexpr char file[] = "src/cUtil/time/dateTime";
constexpr char calendarFile[] = "src/cUtil/time/calendar";

/// Made of copies of the parts.
cu_DateTime joined(const cu_Date& date, const cu_Time& time)
{
    cu_Date dateCopy;
    cu_Time timeCopy;
    cu_DateTime both;
    EXPECT_EQ(cu_Date_init(&dateCopy) | cu_Time_init(&timeCopy) | cu_DateTime_init(&both), 0U);
    EXPECT_EQ(dateCopy.day | timeCopy.hour | both.microsecond, 0U);
    EXPECT_EQ(cu_Date_copy(&dateCopy, &date) | cu_Time_copy(&timeCopy, &time), 0U);
    EXPECT_EQ(cu_DateTime_create(&both, &dateCopy, &timeCopy), 0U);
    return both;
}

// Fields are stored unchecked.
TEST(DateTime, onlyExistingDatesAndTimesAreValid)
{
    const struct {
        cu_DateTime dateTime;
        bool dateIsValid;
        bool timeIsValid;
    } cases[] = {
        {{2000, 2, 29, 23, 59, 59, 999999}, true, true}, {{2024, 2, 29, 0, 0, 0, 0}, true, true},
        {{1900, 2, 29, 0, 0, 0, 0}, false, true},        {{2023, 2, 29, 24, 0, 0, 0}, false, false},
        {{2023, 2, 28, 24, 0, 0, 0}, true, false},       {{2024, 2, 30, 0, 60, 0, 0}, false, false},
        {{2024, 2, 0, 0, 0, 60, 0}, false, false},       {{2024, 1, 31, 0, 60, 0, 0}, true, false},
        {{2024, 3, 31, 0, 0, 60, 0}, true, false},       {{2024, 4, 30, 0, 0, 0, 1000000}, true, false},
        {{2024, 4, 31, 0, 0, 0, 0}, false, true},        {{2024, 7, 31, 0, 0, 0, 0}, true, true},
        {{2024, 8, 31, 0, 0, 0, 0}, true, true},         {{2024, 9, 31, 0, 0, 0, 0}, false, true},
        {{2024, 11, 31, 0, 0, 0, 0}, false, true},       {{0, 12, 31, 0, 0, 0, 0}, true, true},
        {{4294967295, 12, 32, 0, 0, 0, 0}, false, true}, {{2024, 0, 1, 0, 0, 0, 0}, false, true},
        {{2024, 13, 1, 0, 0, 0, 0}, false, true},        {{2024, 1, 0, 0, 0, 0, 4294967295}, false, false},
        {{2023, 2, 30, 25, 60, 61, 0}, false, false},
    };
    for (const auto& [given, dateIsValid, timeIsValid] : cases) {
        SCOPED_TRACE(std::to_string(given.year) + "-" + std::to_string(given.month) + "-" + std::to_string(given.day));
        cu_Date date = {};
        cu_Time time = {};
        cu_DateTime copy = {};
        EXPECT_EQ(cu_Date_create(&date, given.year, given.month, given.day), 0U);
        EXPECT_EQ(cu_Time_create(&time, given.hour, given.minute, given.second, given.microsecond), 0U);
        EXPECT_EQ(cu_DateTime_copy(&copy, &given), 0U);
        EXPECT_EQ(joined(date, time), copy);
        bool valid = !dateIsValid;
        EXPECT_EQ(cu_Date_isValid(&date, &valid), 0U);
        EXPECT_EQ(valid, dateIsValid);
        valid = !timeIsValid;
        EXPECT_EQ(cu_Time_isValid(&time, &valid), 0U);
        EXPECT_EQ(valid, timeIsValid);
        valid = !(dateIsValid && timeIsValid);
        EXPECT_EQ(cu_DateTime_isValid(&given, &valid), 0U);
        EXPECT_EQ(valid, dateIsValid && timeIsValid);
    }
}

TEST(DateTime, theFirstDifferingFieldOrdersTwoRecords)
{
    constexpr cu_DateTime base = {2024, 6, 15, 12, 30, 40, 500};
    const struct {
        cu_DateTime a;
        cu_DateTime b;
        int32_t result;
    } cases[] = {
        {base, base, 0},
        {{2025, 1, 1, 0, 0, 0, 0}, base, 1},
        {{2020, 12, 31, 23, 59, 59, 999999}, base, -4},
        {{2024, 3, 1, 0, 0, 0, 0}, {2024, 1, 31, 23, 0, 0, 0}, 2},
        {{2024, 6, 1, 23, 59, 59, 0}, base, -14},
        {{2024, 6, 15, 23, 0, 0, 0}, base, 11},
        {{2024, 6, 15, 12, 29, 59, 999}, base, -1},
        {{2024, 6, 15, 12, 30, 50, 0}, base, 10},
        {{2024, 6, 15, 12, 30, 40, 0}, base, -500},
        {{0, 0, 0, 0, 0, 0, 0}, {4294967295, 0, 0, 0, 0, 0, 0}, 1}, // out of range, the difference wraps around
        {{2024, 6, 15, 12, 30, 40, 0x80000000}, {2024, 6, 15, 12, 30, 40, 0}, INT32_MIN},
    };
    for (const auto& [a, b, expected] : cases) {
        int32_t result = 77;
        bool equal = expected != 0;
        EXPECT_EQ(cu_DateTime_compare(&a, &b, &result), 0U);
        EXPECT_EQ(cu_DateTime_equals(&a, &b, &equal), 0U);
        EXPECT_EQ(result, expected);
        EXPECT_EQ(equal, expected == 0);
        if (expected != INT32_MIN) {
            EXPECT_EQ(cu_DateTime_compare(&b, &a, &result), 0U);
            EXPECT_EQ(result, -expected);
        }
    }
}

TEST(DateTime, missingArgumentsAreRefused)
{
    cu_Date date = {};
    cu_Time time = {};
    cu_DateTime dateTime = {};
    bool answer = false;
    int32_t result = 0;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&date, &time, &dateTime, &answer, &result}), cu_Date_init, cu_Time_init,
                         cu_DateTime_init, cu_Date_create, cu_Time_create, cu_DateTime_create, cu_Date_copy,
                         cu_Time_copy, cu_DateTime_copy, cu_Date_current, cu_Time_current, cu_DateTime_current,
                         cu_Date_isValid, cu_Time_isValid, cu_DateTime_isValid, cu_Date_equals, cu_Time_equals,
                         cu_DateTime_equals, cu_Date_compare, cu_Time_compare, cu_DateTime_compare);
}

TEST(Calendar, theBuiltInOneGivesLocalTime)
{
    const struct {
        timespec now;
        cu_DateTime utc;
        cu_DateTime local;
    } cases[] = {
        {{951825599, 999999999}, {2000, 2, 29, 11, 59, 59, 999999}, {2000, 2, 29, 12, 59, 59, 999999}},
        // The last second of winter time and the first of summer time, and back.
        {{1711846799, 1999}, {2024, 3, 31, 0, 59, 59, 1}, {2024, 3, 31, 1, 59, 59, 1}},
        {{1711846800, 999}, {2024, 3, 31, 1, 0, 0, 0}, {2024, 3, 31, 3, 0, 0, 0}},
        {{1729990799, 0}, {2024, 10, 27, 0, 59, 59, 0}, {2024, 10, 27, 2, 59, 59, 0}},
        {{1729990800, 0}, {2024, 10, 27, 1, 0, 0, 0}, {2024, 10, 27, 2, 0, 0, 0}},
        {{-1, 0}, {1969, 12, 31, 23, 59, 59, 0}, {1970, 1, 1, 0, 59, 59, 0}},
    };
    const auto enter = [](const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    };
    for (const auto& [now, utc, local] : cases) {
        const support::ClockReading reading(now);
        cu_DateTime dateTime = {};
        cu_Date date = {};
        cu_Time time = {};
        enter("CET-1CEST,M3.5.0,M10.5.0/3");
        EXPECT_EQ(cu_DateTime_current(&dateTime), 0U);
        EXPECT_EQ(cu_Date_current(&date), 0U);
        EXPECT_EQ(cu_Time_current(&time), 0U);
        EXPECT_EQ(dateTime, local);
        EXPECT_EQ(joined(date, time), local);
        enter("UTC0");
        EXPECT_EQ(cu_DateTime_current(&dateTime), 0U);
        EXPECT_EQ(dateTime, utc);
    }
}

TEST(Calendar, aFailingClockLeavesTheRecordAsItWas)
{
    cu_Date date = {1, 2, 3};
    cu_Time time = {4, 5, 6, 7};
    cu_DateTime dateTime = joined(date, time);
    const cu_DateTime marked = dateTime;
    const auto fails = [&](const std::string& name, auto call) {
        const support::Injection broken("clock_gettime", EINVAL);
        EXPECT_SYSTEM_FAILURE(call(), cu_ERROR_TIME_GET_FAILED, EINVAL, "cu_getTime", "src/cUtil/time/time.linux",
                              "errno[22]='Invalid argument'");
        EXPECT_NE(support::trace().find("cu_Calendar_getCurrent  -  src/cUtil/time/calendar:"), std::string::npos);
        EXPECT_NE(support::trace().find(name + "  -  src/cUtil/time/dateTime:"), std::string::npos);
        EXPECT_EQ(dateTime, marked);
        EXPECT_EQ(joined(date, time), marked);
    };
    fails("cu_DateTime_current", [&] { return cu_DateTime_current(&dateTime); });
    fails("cu_Date_current", [&] { return cu_Date_current(&date); });
    fails("cu_Time_current", [&] { return cu_Time_current(&time); });

    if constexpr (sizeof(time_t) > 4) { // a year that no record can hold
        const support::ClockReading reading({std::numeric_limits<time_t>::max(), 0});
        EXPECT_SYSTEM_FAILURE(cu_DateTime_current(&dateTime), cu_ERROR_TIME_GET_FAILED, EOVERFLOW, "getCurrent",
                              calendarFile, "errno[75]='Value too large for defined data type'");
        EXPECT_EQ(dateTime, marked);
    }
}

/// A calendar of an application, with a state behind the table.
struct OwnCalendar {
    cu_Calendar table = {
        [](cu_Calendar* me, cu_DateTime*, void* argument) { return answer(me, argument); },
        [](cu_Calendar* me, cu_Date* date, bool*) { return answer(me, date); },
        [](cu_Calendar* me, cu_Time* time, bool*) { return answer(me, time); },
        [](cu_Calendar* me, uint32_t, bool* leapYear) { return answer(me, leapYear); },
    };
    const void* seen = nullptr;

    static constexpr cu_ErrorCode result = CU_ERROR_CODE(7U, 9U);
    static cu_ErrorCode answer(cu_Calendar* me, const void* argument)
    {
        reinterpret_cast<OwnCalendar*>(me)->seen = argument;
        return result;
    }
};

TEST(Calendar, oneOfTheApplicationAnswersForItself)
{
    OwnCalendar own;
    cu_Calendar empty = {};
    cu_DateTime dateTime = {};
    cu_Date date = {};
    cu_Time time = {};
    bool answer = false;
    const auto expectAnswer = [&](const std::string& name, const void* argument, const auto& call) {
        cu_Error_clear(cu_getErrorLocation());
        EXPECT_EQ(call(&own.table), OwnCalendar::result);
        EXPECT_EQ(own.seen, argument);
        EXPECT_EQ(support::trace().find(name + "  -  " + calendarFile + ":"), 0U);
        EXPECT_REFUSED(call(&empty), name, calendarFile); // a table without the operation
    };
    expectAnswer("cu_Calendar_getCurrent", nullptr,
                 [&](auto* me) { return cu_Calendar_getCurrent(me, &dateTime, nullptr); });
    expectAnswer("cu_Calendar_getCurrent", &own, [&](auto* me) { return cu_Calendar_getCurrent(me, &dateTime, &own); });
    expectAnswer("cu_Calendar_isValidDate", &date,
                 [&](auto* me) { return cu_Calendar_isValidDate(me, &date, &answer); });
    expectAnswer("cu_Calendar_isValidTime", &time,
                 [&](auto* me) { return cu_Calendar_isValidTime(me, &time, &answer); });
    expectAnswer("cu_Calendar_isLeapYear", &answer, [&](auto* me) { return cu_Calendar_isLeapYear(me, 4, &answer); });

    own.seen = nullptr;
    EXPECT_NULLS_REFUSED(
        calendarFile, (std::tuple{&own.table, &dateTime, &date, &time, &answer, static_cast<void*>(nullptr)}),
        cu_Calendar_getCurrent, cu_Calendar_isValidDate, cu_Calendar_isValidTime, cu_Calendar_isLeapYear);
    EXPECT_EQ(own.seen, nullptr);
}

} // namespace
