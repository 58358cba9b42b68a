#include "support/refusal.h"

#include <cUtil/time/dateTime.h>

#include <cstring>
#include <string>

namespace
{

constexpr char file[] = "src/cUtil/time/dateTime";
constexpr cu_Date noDate = {2023, 2, 30};
constexpr cu_Time noTime = {25, 60, 60, 1000000};

template <typename Record>
bool same(const Record& a, const Record& b)
{
    return memcmp(&a, &b, sizeof(Record)) == 0; // words only, no padding
}

TEST(DateTime, fieldsAreStoredUnchecked)
{
    cu_Date date = {};
    cu_Time time = {};
    cu_DateTime dateTime = {};
    EXPECT_EQ(cu_Date_create(&date, 2023, 2, 30), 0U);
    EXPECT_EQ(cu_Time_create(&time, 25, 60, 60, 1000000), 0U);
    EXPECT_TRUE(same(date, noDate));
    EXPECT_TRUE(same(time, noTime));
    EXPECT_EQ(cu_DateTime_create(&dateTime, &date, &time), 0U);
    EXPECT_TRUE(same(dateTime, cu_DateTime{2023, 2, 30, 25, 60, 60, 1000000}));

    cu_Date dateCopy = {};
    cu_Time timeCopy = {};
    cu_DateTime copy = {};
    EXPECT_EQ(cu_Date_copy(&dateCopy, &date), 0U);
    EXPECT_EQ(cu_Time_copy(&timeCopy, &time), 0U);
    EXPECT_EQ(cu_DateTime_copy(&copy, &dateTime), 0U);
    EXPECT_TRUE(same(dateCopy, noDate) && same(timeCopy, noTime) && same(copy, dateTime));

    EXPECT_EQ(cu_Date_init(&date), 0U);
    EXPECT_EQ(cu_Time_init(&time), 0U);
    EXPECT_EQ(cu_DateTime_init(&dateTime), 0U);
    EXPECT_TRUE(same(date, {}) && same(time, {}) && same(dateTime, {}));
}

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
        {{2023, 2, 30, 25, 0, 0, 0}, false, false},
    };
    for (const auto& [given, dateIsValid, timeIsValid] : cases) {
        SCOPED_TRACE(std::to_string(given.year) + "-" + std::to_string(given.month) + "-" + std::to_string(given.day));
        const cu_Date date = {given.year, given.month, given.day};
        const cu_Time time = {given.hour, given.minute, given.second, given.microsecond};
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

} // namespace
