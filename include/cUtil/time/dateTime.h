/** @file
 *  Records of a date, of a time of day, and of both. The local time zone and the Gregorian calendar apply.
 *
 *  All records are plain values of their callers. Every function may be called from any thread; none blocks.
 */
#ifndef CUTIL_TIME_DATE_TIME_H
#define CUTIL_TIME_DATE_TIME_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A date. */
typedef struct cu_Date {
    uint32_t year;  /**< Full year, for instance 2024. */
    uint32_t month; /**< 1 to 12. */
    uint32_t day;   /**< 1 to 31. */
} cu_Date;

/** A time of day. */
typedef struct cu_Time {
    uint32_t hour;        /**< 0 to 23. */
    uint32_t minute;      /**< 0 to 59. */
    uint32_t second;      /**< 0 to 59; there are no leap seconds. */
    uint32_t microsecond; /**< 0 to 999999. */
} cu_Time;

/** A date with a time of day: the fields of a cu_Date and then those of a cu_Time. */
typedef struct cu_DateTime {
    uint32_t year;        /**< Full year, for instance 2024. */
    uint32_t month;       /**< 1 to 12. */
    uint32_t day;         /**< 1 to 31. */
    uint32_t hour;        /**< 0 to 23. */
    uint32_t minute;      /**< 0 to 59. */
    uint32_t second;      /**< 0 to 59; there are no leap seconds. */
    uint32_t microsecond; /**< 0 to 999999. */
} cu_DateTime;

/** Sets every field to 0, which is no valid date. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Date_init(cu_Date* date);

/** Sets every field to 0, which is midnight. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Time_init(cu_Time* time);

/** Sets every field to 0, which is no valid date. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_DateTime_init(cu_DateTime* dateTime);

/** Stores a date without a check of its validity. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Date_create(cu_Date* date, uint32_t year, uint32_t month, uint32_t day);

/** Stores a time of day without a check of its validity. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Time_create(cu_Time* time, uint32_t hour, uint32_t minute, uint32_t second,
                                      uint32_t microsecond);

/** Stores a date and a time of day without a check of their validity. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_DateTime_create(cu_DateTime* dateTime, const cu_Date* date, const cu_Time* time);

/** Copies a date. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Date_copy(cu_Date* destination, const cu_Date* source);

/** Copies a time of day. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Time_copy(cu_Time* destination, const cu_Time* source);

/** Copies a date with its time of day. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_DateTime_copy(cu_DateTime* destination, const cu_DateTime* source);

/**
 * Gives the local date.
 *
 * @param date  receives it; unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TIME_GET_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Date_current(cu_Date* date);

/** Gives the local time of day; see cu_Date_current(). */
CU_EXPORT cu_ErrorCode cu_Time_current(cu_Time* time);

/** Gives the local date and time of day, both of the same instant; see cu_Date_current(). */
CU_EXPORT cu_ErrorCode cu_DateTime_current(cu_DateTime* dateTime);

/**
 * Tells whether a date exists. Any year does, also 0.
 *
 * @param date   the date
 * @param valid  receives the answer; an invalid date is no failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Date_isValid(const cu_Date* date, bool* valid);

/** Tells whether every field of a time of day is in its range; see cu_Date_isValid(). */
CU_EXPORT cu_ErrorCode cu_Time_isValid(const cu_Time* time, bool* valid);

/** Tells whether both the date exists and the time of day is in range; see cu_Date_isValid(). */
CU_EXPORT cu_ErrorCode cu_DateTime_isValid(const cu_DateTime* dateTime, bool* valid);

/** Tells whether all fields of two dates are equal. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Date_equals(const cu_Date* a, const cu_Date* b, bool* equal);

/** Tells whether all fields of two times of day are equal. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_Time_equals(const cu_Time* a, const cu_Time* b, bool* equal);

/** Tells whether all fields of two dates with times are equal. @return 0; cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_DateTime_equals(const cu_DateTime* a, const cu_DateTime* b, bool* equal);

/**
 * Orders two dates.
 *
 * @param a       the one
 * @param b       the other
 * @param result  receives a minus b of the first field in which they differ, 0 when there is none. Its sign gives the
 *                order, so long as the fields are in their ranges; its amount depends on the field.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Date_compare(const cu_Date* a, const cu_Date* b, int32_t* result);

/** Orders two times of day; see cu_Date_compare(). */
CU_EXPORT cu_ErrorCode cu_Time_compare(const cu_Time* a, const cu_Time* b, int32_t* result);

/** Orders two dates with times; see cu_Date_compare(). */
CU_EXPORT cu_ErrorCode cu_DateTime_compare(const cu_DateTime* a, const cu_DateTime* b, int32_t* result);

CU_END_DECLS

#endif
