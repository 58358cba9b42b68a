/** @file
 *  Calendars: a small table of operations on dates that an application may fill with its own.
 *
 *  The functions of dateTime.h use the calendar of the library, Gregorian and in the local time zone, which has no
 * table for others to see; cu_DateTime_current() and its kin give its answers.
 */
#ifndef CUTIL_TIME_CALENDAR_H
#define CUTIL_TIME_CALENDAR_H

#include <cUtil/time/dateTime.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A calendar. Each operation returns 0 or an error code; an operation that is null is refused when it is called. */
typedef struct cu_Calendar cu_Calendar;

/** A calendar's table; caller-owned, and it needs no clean-up. */
struct cu_Calendar {
    /** Stores the current date and time of day; @p argument is passed through from cu_Calendar_getCurrent(). */
    cu_ErrorCode (*getCurrent)(cu_Calendar* calendar, cu_DateTime* dateTime, void* argument);
    /** Tells whether a date exists. */
    cu_ErrorCode (*isValidDate)(cu_Calendar* calendar, cu_Date* date, bool* valid);
    /** Tells whether a time of day exists. */
    cu_ErrorCode (*isValidTime)(cu_Calendar* calendar, cu_Time* time, bool* valid);
    /** Tells whether a year is a leap year. */
    cu_ErrorCode (*isLeapYear)(cu_Calendar* calendar, uint32_t year, bool* leapYear);
};

/**
 * Gives the current date and time of day of a calendar.
 *
 * @param calendar  the calendar; it must have the operation
 * @param dateTime  receives them
 * @param argument  handed to the calendar as it is; may be null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the calendar says
 *
 * As thread-safe and as blocking as the calendar; so are the functions below.
 */
CU_EXPORT cu_ErrorCode cu_Calendar_getCurrent(cu_Calendar* calendar, cu_DateTime* dateTime, void* argument);

/**
 * Tells whether a date exists in a calendar.
 *
 * @param calendar  the calendar; it must have the operation
 * @param date      the date
 * @param valid     receives the answer
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the calendar says
 */
CU_EXPORT cu_ErrorCode cu_Calendar_isValidDate(cu_Calendar* calendar, cu_Date* date, bool* valid);

/**
 * Tells whether a time of day exists in a calendar.
 *
 * @param calendar  the calendar; it must have the operation
 * @param time      the time of day
 * @param valid     receives the answer
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the calendar says
 */
CU_EXPORT cu_ErrorCode cu_Calendar_isValidTime(cu_Calendar* calendar, cu_Time* time, bool* valid);

/**
 * Tells whether a year is a leap year in a calendar.
 *
 * @param calendar  the calendar; it must have the operation
 * @param year      any year
 * @param leapYear  receives the answer
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the calendar says
 */
CU_EXPORT cu_ErrorCode cu_Calendar_isLeapYear(cu_Calendar* calendar, uint32_t year, bool* leapYear);

CU_END_DECLS

#endif
