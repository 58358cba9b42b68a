/** @file
 *  The logging adapter of a file, with the lines of consoleLoggingAdapter.h.
 */
#ifndef CUTIL_LOGGER_FILE_LOGGING_ADAPTER_H
#define CUTIL_LOGGER_FILE_LOGGING_ADAPTER_H

#include <cUtil/allocator.h>
#include <cUtil/logger/adapter.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Makes an adapter that appends each line to a file. The stream's own buffer decides when lines reach the file; all
 * have when the adapter is ended. It refuses levels above 3.
 *
 * Lines reach the file whole, several at a time, so several processes may append to one file. A line that is longer
 * than the buffer (4096 bytes on most file systems) is written in pieces, between which those of others may come. A
 * process that dies takes the lines with it that are still in the buffer, and tears at most the one that is just being
 * written.
 *
 * @param adapter    receives the adapter; must hold null
 * @param path       the file, which is made if there is none; not empty
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_MUTEX_INIT_FAILED;
 *         cu_ERROR_FILEOPEN_FAILED with the system's error code
 *
 * Logging blocks while the file does.
 */
CU_EXPORT cu_ErrorCode cu_logger_FileLoggingAdapter_new(cu_logger_Adapter** adapter, const char* path,
                                                        cu_allocator* allocator);

CU_END_DECLS

#endif
