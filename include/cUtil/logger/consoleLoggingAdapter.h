/** @file
 *  The logging adapter of the standard output.
 *
 *  A line is printed as "[day.month.year hour:minute:second] Level: text" in local time, for instance
 *  "[03.04.2026 5:07:09] Info: ready"; the hour is not padded. Lines do not mix, neither with each other nor with what
 *  the application prints. What becomes of a line that the stream refuses is not told.
 */
#ifndef CUTIL_LOGGER_CONSOLE_LOGGING_ADAPTER_H
#define CUTIL_LOGGER_CONSOLE_LOGGING_ADAPTER_H

#include <cUtil/allocator.h>
#include <cUtil/logger/adapter.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Makes an adapter that prints each line to the standard output and flushes it. It refuses levels above 3. The time
 * zone is looked at once a second.
 *
 * @param adapter    receives the adapter; must hold null
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_MUTEX_INIT_FAILED
 *
 * Logging blocks while the stream does.
 */
CU_EXPORT cu_ErrorCode cu_logger_ConsoleLoggingAdapter_new(cu_logger_Adapter** adapter, cu_allocator* allocator);

CU_END_DECLS

#endif
