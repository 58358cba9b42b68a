/** @file
 *  The logging adapter of the system's log.
 */
#ifndef CUTIL_LOGGER_SYSLOG_LOGGING_ADAPTER_H
#define CUTIL_LOGGER_SYSLOG_LOGGING_ADAPTER_H

#include <cUtil/allocator.h>
#include <cUtil/logger/adapter.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Makes an adapter that sends each line as "Level: text" to the system's log, facility LOG_DAEMON, with the priorities
 * LOG_ERR, LOG_WARNING, LOG_INFO and LOG_DEBUG. It refuses levels above 3. The log of a process is opened once: have
 * one such adapter at a time.
 *
 * @param adapter    receives the adapter; must hold null
 * @param ident      what stands in front of each line; not empty. It is not copied and must outlive the adapter.
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_MUTEX_INIT_FAILED
 *
 * Logging blocks while the log does. A line that the log does not take goes to the console.
 */
CU_EXPORT cu_ErrorCode cu_logger_SyslogLoggingAdapter_new(cu_logger_Adapter** adapter, const char* ident,
                                                          cu_allocator* allocator);

CU_END_DECLS

#endif
