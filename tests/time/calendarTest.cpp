#include "support/inject.h"
#include "support/record.h"
#include "support/refusal.h"

#include <cUtil/time/calendar.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/time/calendar";

/// Local time is that of a zone until the end of the scope.
class Zone
{
public:
    explicit Zone(const char* rule)
    {
        setenv("TZ", rule, 1);
        tzset();
    }
    Zone(const Zone&) = delete;
    Zone& operator=(const Zone&) = delete;
    ~Zone()
    {
        unsetenv("TZ");
        tzset();
    }
};

void expectFields(const cu_DateTime& is, const cu_DateTime& expected)
{
    const auto fields = [](const cu_DateTime& dateTime) {
        return std::vector<uint32_t>{dateTime.year,   dateTime.month,  dateTime.day,        dateTime.hour,
                                     dateTime.minute, dateTime.second, dateTime.microsecond};
    };
    EXPECT_EQ(fields(is), fields(expected));
}

TEST(Calendar, theBuiltInOneGivesLocalTime)
{
    const struct {
        timespec now;
        cu_DateTime utc;
        cu_DateTime local;
    } cases[] = {
        {{0, 0}, {1970, 1, 1, 0, 0, 0, 0}, {1970, 1, 1, 1, 0, 0, 0}},
        {{951825599, 999999999}, {2000, 2, 29, 11, 59, 59, 999999}, {2000, 2, 29, 12, 59, 59, 999999}},
        // The last second of winter time and the first of summer time, and back.
        {{1711846799, 1999}, {2024, 3, 31, 0, 59, 59, 1}, {2024, 3, 31, 1, 59, 59, 1}},
        {{1711846800, 999}, {2024, 3, 31, 1, 0, 0, 0}, {2024, 3, 31, 3, 0, 0, 0}},
        {{1729990799, 0}, {2024, 10, 27, 0, 59, 59, 0}, {2024, 10, 27, 2, 59, 59, 0}},
        {{1729990800, 0}, {2024, 10, 27, 1, 0, 0, 0}, {2024, 10, 27, 2, 0, 0, 0}},
        {{-1, 0}, {1969, 12, 31, 23, 59, 59, 0}, {1970, 1, 1, 0, 59, 59, 0}},
    };
    for (const auto& [now, utc, local] : cases) {
        const support::ClockReading reading(now);
        cu_DateTime dateTime = {};
        {
            const Zone zone("UTC0");
            EXPECT_EQ(cu_DateTime_current(&dateTime), 0U);
            expectFields(dateTime, utc);
        }
        const Zone zone("CET-1CEST,M3.5.0,M10.5.0/3");
        EXPECT_EQ(cu_DateTime_current(&dateTime), 0U);
        expectFields(dateTime, local);
        cu_Date date = {};
        cu_Time time = {};
        EXPECT_EQ(cu_Date_current(&date), 0U);
        EXPECT_EQ(cu_Time_current(&time), 0U);
        expectFields({date.year, date.month, date.day, time.hour, time.minute, time.second, time.microsecond}, local);
    }
}

TEST(Calendar, aFailingClockLeavesTheRecordAsItWas)
{
    cu_DateTime dateTime = {1, 2, 3, 4, 5, 6, 7};
    cu_Date date = {1, 2, 3};
    cu_Time time = {4, 5, 6, 7};
    const auto fails = [](auto call, const std::string& name) {
        const support::Injection broken("clock_gettime", EINVAL);
        EXPECT_SYSTEM_FAILURE(call(), cu_ERROR_TIME_GET_FAILED, EINVAL, "cu_getTime", "src/cUtil/time/time.linux",
                              "errno[22]='Invalid argument'");
        EXPECT_NE(support::trace().find("cu_Calendar_getCurrent  -  src/cUtil/time/calendar:"), std::string::npos);
        EXPECT_NE(support::trace().find(name + "  -  src/cUtil/time/dateTime:"), std::string::npos);
    };
    fails([&] { return cu_DateTime_current(&dateTime); }, "cu_DateTime_current");
    fails([&] { return cu_Date_current(&date); }, "cu_Date_current");
    fails([&] { return cu_Time_current(&time); }, "cu_Time_current");
    expectFields({date.year, date.month, date.day, time.hour, time.minute, time.second, time.microsecond}, dateTime);
    expectFields(dateTime, {1, 2, 3, 4, 5, 6, 7});

    if constexpr (sizeof(time_t) > 4) { // a year that no record can hold
        const support::ClockReading reading({std::numeric_limits<time_t>::max(), 0});
        const support::Failure failure = support::failureOf([&] { return cu_DateTime_current(&dateTime); });
        EXPECT_EQ(failure.code, cu_ERROR_TIME_GET_FAILED);
        EXPECT_EQ(failure.systemErrorCode, EOVERFLOW);
        EXPECT_EQ(failure.file, file);
        EXPECT_EQ(failure.description, "errno[75]='Value too large for defined data type'");
        expectFields(dateTime, {1, 2, 3, 4, 5, 6, 7});
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
    cu_ErrorCode result = 0;
    const void* seen = nullptr;

    static cu_ErrorCode answer(cu_Calendar* me, const void* argument)
    {
        auto* own = reinterpret_cast<OwnCalendar*>(me);
        own->seen = argument;
        return own->result;
    }
};

TEST(Calendar, oneOfTheApplicationAnswersForItself)
{
    OwnCalendar own;
    cu_DateTime dateTime = {};
    cu_Date date = {};
    cu_Time time = {};
    bool answer = false;
    for (const cu_ErrorCode result : {0U, CU_ERROR_CODE(7U, 9U)}) {
        own.result = result;
        const auto expectAnswer = [&](const std::string& name, const void* argument, auto call) {
            cu_Error_clear(cu_getErrorLocation());
            EXPECT_EQ(call(), result);
            EXPECT_EQ(own.seen, argument);
            EXPECT_EQ(support::trace().find(name + "  -  " + file + ":"), result != 0 ? 0 : std::string::npos);
        };
        expectAnswer("cu_Calendar_getCurrent", &own,
                     [&] { return cu_Calendar_getCurrent(&own.table, &dateTime, &own); });
        expectAnswer("cu_Calendar_isValidDate", &date,
                     [&] { return cu_Calendar_isValidDate(&own.table, &date, &answer); });
        expectAnswer("cu_Calendar_isValidTime", &time,
                     [&] { return cu_Calendar_isValidTime(&own.table, &time, &answer); });
        expectAnswer("cu_Calendar_isLeapYear", &answer, [&] { return cu_Calendar_isLeapYear(&own.table, 4, &answer); });
    }
}

TEST(Calendar, missingOperationsAndArgumentsAreRefused)
{
    OwnCalendar own;
    cu_Calendar empty = {};
    cu_DateTime dateTime = {};
    cu_Date date = {};
    cu_Time time = {};
    bool answer = false;
    EXPECT_REFUSED(cu_Calendar_getCurrent(&empty, &dateTime, nullptr), "cu_Calendar_getCurrent", file);
    EXPECT_REFUSED(cu_Calendar_isValidDate(&empty, &date, &answer), "cu_Calendar_isValidDate", file);
    EXPECT_REFUSED(cu_Calendar_isValidTime(&empty, &time, &answer), "cu_Calendar_isValidTime", file);
    EXPECT_REFUSED(cu_Calendar_isLeapYear(&empty, 1, &answer), "cu_Calendar_isLeapYear", file);
    EXPECT_NULLS_REFUSED(file, (std::tuple{&own.table, &date, &time, &answer}), cu_Calendar_isValidDate,
                         cu_Calendar_isValidTime, cu_Calendar_isLeapYear);
    EXPECT_REFUSED(cu_Calendar_getCurrent(nullptr, &dateTime, &date), "cu_Calendar_getCurrent", file);
    EXPECT_REFUSED(cu_Calendar_getCurrent(&own.table, nullptr, &date), "cu_Calendar_getCurrent", file);
    EXPECT_EQ(own.seen, nullptr);
    own.result = 1;
    EXPECT_EQ(cu_Calendar_getCurrent(&own.table, &dateTime, nullptr), 1U); // nothing to pass through is fine
}

} // namespace
