/** @file
 *  The error record of each thread, the reports made from it, and the error log.
 *
 *  A function that fails fills the record of the calling thread and returns the code; a function that passes a failure
 *  on adds a point to the record's stack trace. A success leaves the record as it is, so read it only after a non-zero
 *  result.
 *
 *  Unless said otherwise any thread may call a function here, at any time, on a record of its own, and none blocks but
 *  for the texts that go to the standard output.
 */
#ifndef CUTIL_ERROR_INFO_H
#define CUTIL_ERROR_INFO_H

#include <cUtil/errorCodes.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

#define CU_ERROR_DESCRIPTION_SIZE 1000    /**< Bytes of cu_Error::description, the terminating NUL included. */
#define CU_ERROR_STACK_TRACE_SIZE 1000    /**< Bytes of cu_Error::stackTrace, the terminating NUL included. */
#define CU_VERSION_INFO_CALLBACK_COUNT 10 /**< Slots for version-information callbacks. */

/** An error record. Callers copy it byte by byte; the two names are shared, never owned. */
typedef struct cu_Error {
    cu_ErrorCode errorID;                        /**< The code; 0 when nothing was reported. */
    int32_t systemErrorCode;                     /**< `errno` or the result of a thread call; 0 when none was given. */
    const char* fileName;                        /**< Source that detected the failure, without root and suffix. */
    const char* functionName;                    /**< Function that detected the failure. */
    uint32_t lineNumber;                         /**< Line that detected the failure. */
    char description[CU_ERROR_DESCRIPTION_SIZE]; /**< What happened; may be empty. */
    char stackTrace[CU_ERROR_STACK_TRACE_SIZE];  /**< One line per function that passed the failure on. */
} cu_Error;

/** Returns a component's name and version, for the error log. */
typedef const char* (*cu_VersionInfoCallback)(void);

/**
 * Gives the calling thread's error record.
 *
 * @return the record, never null. It is made by the thread's first call and belongs to the library, which frees it when
 *         the thread ends; keep a copy (cu_Error_copy()) where it must last. While memory is exhausted, every call
 *         gives one emptied record that all such threads share: use the code that a function returns, not what is read
 *         back.
 *
 * Works in exit handlers and in destructors of thread-specific data, too. Does not block.
 */
CU_EXPORT cu_Error* cu_getErrorLocation(void);

/**
 * Fills a record with a failure and empties its stack trace.
 *
 * @param me               the record, usually cu_getErrorLocation()
 * @param errorCode        the code, not 0
 * @param systemErrorCode  the operating system's code; 0 keeps the one of an earlier report
 * @param function         name of the detecting function, a text that lasts
 * @param line             line of the detecting source; 0 keeps the one of an earlier report
 * @param file             the detecting source, a text that lasts
 * @param format           printf format of the description, or null for an empty one; cut after 999 characters. Its
 *                         arguments may point into the record itself.
 *
 * A null @p me, @p function or @p file and a zero @p errorCode are told on the standard output; what is missing keeps
 * its old value. Does not allocate and does not block.
 */
CU_EXPORT void cu_Error_report(cu_Error* me, cu_ErrorCode errorCode, int32_t systemErrorCode, const char* function,
                               uint32_t line, const char* file, const char* format, ...) CU_PRINTF(7, 8);

/**
 * Appends "function  -  file:line" to the stack trace. A function calls it that got a non-zero code from another one
 * and returns that code unchanged.
 *
 * @param me        the record; null is told on the standard output
 * @param function  name of the function
 * @param line      line of the call that failed
 * @param file      source of that line
 *
 * A full trace cuts the line short and takes no more. Does not block.
 */
CU_EXPORT void cu_Error_setStackTracePoint(cu_Error* me, const char* function, uint32_t line, const char* file);

/** Gives the code of a record, 0 when nothing was reported; a null @p me is told on the standard output and gives 0. */
CU_EXPORT cu_ErrorCode cu_Error_getError(const cu_Error* me);

/** Gives the operating system's code of a record; a null @p me is told on the standard output and gives 0. */
CU_EXPORT int32_t cu_Error_getSystemErrorCode(const cu_Error* me);

/** Gives the function that detected the failure; a null @p me is told on the standard output and gives
 *  "N/A (Encountered internal error!)". */
CU_EXPORT const char* cu_Error_getFunctionName(const cu_Error* me);

/** Gives the line that detected the failure; a null @p me is told on the standard output and gives 0. */
CU_EXPORT uint32_t cu_Error_getLineNumber(const cu_Error* me);

/** Gives the source that detected the failure; a null @p me is told on the standard output and gives
 *  "N/A (Encountered internal error!)". */
CU_EXPORT const char* cu_Error_getFileName(const cu_Error* me);

/** Gives the description, which lies in the record; a null @p me is told on the standard output and gives
 *  "N/A (Encountered internal error!)". */
CU_EXPORT const char* cu_Error_getDescription(const cu_Error* me);

/** Copies a whole record. A null argument is fatal: the process ends with status 1. */
CU_EXPORT void cu_Error_copy(cu_Error* destination, const cu_Error* source);

/** Empties a record. A null argument is fatal: the process ends with status 1. */
CU_EXPORT void cu_Error_clear(cu_Error* me);

/**
 * Writes the report of a record as text: code, description, origin, context and stack trace.
 *
 * @param me           the record; its code must not be 0
 * @param destination  receives the text, NUL-terminated and cut at @p length
 * @param length       bytes of @p destination, not 0
 *
 * A bad argument is told on the standard output, and nothing is written. Does not block.
 */
CU_EXPORT void cu_Error_createReport(const cu_Error* me, char* destination, uint32_t length);

/** Composes the report of a record and discards it: nothing is written anywhere. Kept for compatibility;
 *  cu_writeIntoErrorLog() is the function that writes. */
CU_EXPORT void cu_Error_writeIntoErrorLog(const cu_Error* me);

/**
 * Writes one framed entry into the error log, which is the standard error stream: the version information of the
 * registered components, date and time, command line, process id and the message.
 *
 * @param message  the text of the entry; null counts as empty
 *
 * Any thread may call it; entries do not mix. Blocks while the stream does.
 */
CU_EXPORT void cu_logErrorMessage(const char* message);

/** Writes the report of the calling thread's record into the error log; see cu_logErrorMessage(). */
CU_EXPORT void cu_writeIntoErrorLog(void);

/** Gives the name under which applications keep the error log, "zevErrorLog.txt". The library opens no such file. */
CU_EXPORT const char* cu_getLogName(void);

/**
 * Registers a function whose text stands at the head of every error-log entry.
 *
 * @return 0, also when it is registered already; -1 for null or when all #CU_VERSION_INFO_CALLBACK_COUNT slots are
 *         taken. Reports nothing. Meant for start-up, before other threads run.
 */
CU_EXPORT int32_t cu_addVersionInfoCallback(cu_VersionInfoCallback callback);

/** Takes a function out of every slot that holds it. @return 0, also when it was in none; -1 for null.
 *  Reports nothing. Meant for times when no other thread logs. */
CU_EXPORT int32_t cu_delVersionInfoCallback(cu_VersionInfoCallback callback);

/**
 * Gives the table of version-information callbacks itself.
 *
 * @param slots  receives its address; empty slots are null
 * @param count  receives the number of slots, #CU_VERSION_INFO_CALLBACK_COUNT
 * @return 0; -1 when an argument is null. Reports nothing.
 */
CU_EXPORT int32_t cu_getVersionInfoCallbacks(cu_VersionInfoCallback** slots, uint32_t* count);

/** Tells whether a failed assertion of the application should abort. @return 1 when the environment variable
 *  ZEV_CUTIL_ASSERT_ABORT was present, with any value, at the first call; else 0. The answer does not change later. */
CU_EXPORT int32_t cu_DebugAssert(void);

/** cu_Error_createReport() of the calling thread's record. */
CU_EXPORT void ku_createReport(char* destination, uint32_t length);

/** cu_Error_getError() of the calling thread's record. */
CU_EXPORT cu_ErrorCode ku_getErrorCode(void);

/** cu_Error_getSystemErrorCode() of the calling thread's record. */
CU_EXPORT int32_t ku_getSystemErrorCode(void);

/** cu_Error_getFunctionName() of the calling thread's record. */
CU_EXPORT const char* ku_getFunctionName(void);

/** cu_Error_getFileName() of the calling thread's record. */
CU_EXPORT const char* ku_getFileName(void);

/** cu_Error_getLineNumber() of the calling thread's record. */
CU_EXPORT uint32_t ku_getLineNumber(void);

/** cu_Error_getDescription() of the calling thread's record. */
CU_EXPORT const char* ku_getErrorMessage(void);

/** cu_GetErrorCategory() of the calling thread's code. */
CU_EXPORT const char* ku_getErrorCategory(void);

/** cu_GetErrorName() of the calling thread's code. */
CU_EXPORT const char* ku_getErrorName(void);

/** cu_GetErrorDescription() of the calling thread's code. */
CU_EXPORT const char* ku_getErrorDescription(void);

CU_END_DECLS

#endif
