/** @file
 *  Logging adapters: where the lines of the logger go.
 *
 *  An adapter is a record of two functions and their context. Applications fill records of their own or take those of
 *  the library: consoleLoggingAdapter.h, fileLoggingAdapter.h, syslogLoggingAdapter.h, asyncLoggingAdapter.h and
 *  tcpLoggingAdapter.h. Its creator owns an adapter until cu_Logger_addAdapter() hands it to the logger.
 */
#ifndef CUTIL_LOGGER_ADAPTER_H
#define CUTIL_LOGGER_ADAPTER_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** The levels of a line; the lower, the more severe. */
enum cu_logger_Level {
    cu_logger_LEVEL_ERROR = 0,   /**< Printed as "Error". */
    cu_logger_LEVEL_WARNING = 1, /**< Printed as "Warning". */
    cu_logger_LEVEL_INFO = 2,    /**< Printed as "Info". */
    cu_logger_LEVEL_DEBUG = 3    /**< Printed as "Debug". */
};

/** A place to log to. */
typedef struct cu_logger_Adapter {
    /** Link in the logger's list; the logger's while the adapter is added. */
    struct cu_logger_Adapter* next;
    /** First argument of both functions. */
    void* context;
    /** The most verbose level that it is given; the logger's while the adapter is added. */
    uint32_t level;
    /** Its name; the logger's copy while the adapter is added, null while it is not. */
    char* name;
    /** Logs a line. Any number of threads may be in it. */
    cu_ErrorCode (*logMessage)(void* context, uint32_t level, const char* text);
    /** Frees the private state and this record. When it fails both are kept. */
    cu_ErrorCode (*destruct)(void* context);
} cu_logger_Adapter;

/**
 * Logs a line to one adapter, whatever the adapter's level.
 *
 * @param adapter  the adapter; it must have the function
 * @param level    the line's level
 * @param text     the line, without a line break at its end
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the adapter says
 *
 * As thread-safe and as blocking as the adapter; those of the library may be called by any thread.
 */
CU_EXPORT cu_ErrorCode cu_logger_Adapter_logMessage(cu_logger_Adapter* adapter, uint32_t level, const char* text);

/**
 * Ends an adapter that has not been added to the logger.
 *
 * @param adapter  holds the adapter, which must have the function; null afterwards, unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the adapter says
 *
 * No other thread may use it any more. As blocking as the adapter.
 */
CU_EXPORT cu_ErrorCode cu_logger_Adapter_destruct(cu_logger_Adapter** adapter);

CU_END_DECLS

#endif
