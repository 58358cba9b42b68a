#include "support/inject.h"
#include "support/refusal.h"

#include <cUtil/time/calendar.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
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
        bool dateAnswer = !dateIsValid;
        bool timeAnswer = !timeIsValid;
        bool answer = !(dateIsValid && timeIsValid);
        EXPECT_EQ(cu_Date_create(&date, given.year, given.month, given.day), 0U);
        EXPECT_EQ(cu_Time_create(&time, given.hour, given.minute, given.second, given.microsecond), 0U);
        EXPECT_EQ(cu_DateTime_copy(&copy, &given), 0U);
        EXPECT_EQ(joined(date, time), copy);
        EXPECT_EQ(cu_Date_isValid(&date, &dateAnswer) | cu_Time_isValid(&time, &timeAnswer), 0U);
        EXPECT_EQ(cu_DateTime_isValid(&given, &answer), 0U);
        EXPECT_EQ(dateAnswer, dateIsValid);
        EXPECT_EQ(timeAnswer, timeIsValid);
        EXPECT_EQ(answer, dateIsValid && timeIsValid);
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
        {{2024, 6, 15, 23, 0, 0, 0}, base, 11},
        {{2024, 6, 15, 12, 29, 59, 999}, base, -1},
        {{2024, 6, 15, 12, 30, 42, 499}, base, 2},
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
    const std::pair<const char*, std::function<cu_ErrorCode()>> calls[] = {
        {"cu_DateTime_current", [&] { return cu_DateTime_current(&dateTime); }},
        {"cu_Date_current", [&] { return cu_Date_current(&date); }},
        {"cu_Time_current", [&] { return cu_Time_current(&time); }}};
    for (const auto& [name, call] : calls) {
        const support::Injection broken("clock_gettime", EINVAL);
        EXPECT_EQ(call(), cu_ERROR_TIME_GET_FAILED);
        EXPECT_THAT(support::trace(), testing::HasSubstr("cu_Calendar_getCurrent  -  src/cUtil/time/calendar:"));
        EXPECT_THAT(support::trace(), testing::HasSubstr(std::string(name) + "  -  src/cUtil/time/dateTime:"));
        EXPECT_EQ(dateTime, marked);
        EXPECT_EQ(joined(date, time), marked);
        cu_Error_clear(cu_getErrorLocation());
    }
    if constexpr (sizeof(time_t) > 4) { // a year that no record can hold
        const support::ClockReading reading({std::numeric_limits<time_t>::max(), 0});
        EXPECT_SYSTEM_FAILURE(cu_DateTime_current(&dateTime), cu_ERROR_TIME_GET_FAILED, EOVERFLOW, "getCurrent",
                              calendarFile, "errno[75]='Value too large for defined data type'");
        EXPECT_EQ(dateTime, marked);
    }
}

TEST(Calendar, oneOfTheApplicationAnswersForItself)
{
    static constexpr cu_ErrorCode result = CU_ERROR_CODE(7U, 9U);
    static const void* seen;
    const auto answer = [](cu_Calendar*, auto, auto* argument) {
        seen = argument;
        return result;
    };
    cu_Calendar own = {answer, answer, answer, answer};
    cu_Calendar empty = {};
    cu_DateTime dateTime = {};
    cu_Date date = {};
    cu_Time time = {};
    bool valid = false;
    const auto expectAnswer = [&](const std::string& name, const void* argument, const auto& call) {
        cu_Error_clear(cu_getErrorLocation());
        EXPECT_EQ(call(&own), result);
        EXPECT_EQ(seen, argument);
        EXPECT_EQ(support::trace().find(name + "  -  " + calendarFile + ":"), 0U);
        EXPECT_REFUSED(call(&empty), name, calendarFile); // a table without the operation
    };
    for (void* argument : {static_cast<void*>(nullptr), static_cast<void*>(&own)})
        expectAnswer("cu_Calendar_getCurrent", argument,
                     [&](auto* me) { return cu_Calendar_getCurrent(me, &dateTime, argument); });
    expectAnswer("cu_Calendar_isValidDate", &valid,
                 [&](auto* me) { return cu_Calendar_isValidDate(me, &date, &valid); });
    expectAnswer("cu_Calendar_isValidTime", &valid,
                 [&](auto* me) { return cu_Calendar_isValidTime(me, &time, &valid); });
    expectAnswer("cu_Calendar_isLeapYear", &valid, [&](auto* me) { return cu_Calendar_isLeapYear(me, 4, &valid); });
    EXPECT_NULLS_REFUSED(calendarFile, (std::tuple{&own, &dateTime, &date, &time, &valid, static_cast<void*>(nullptr)}),
                         cu_Calendar_getCurrent, cu_Calendar_isValidDate, cu_Calendar_isValidTime,
                         cu_Calendar_isLeapYear);
}

} // namespace
