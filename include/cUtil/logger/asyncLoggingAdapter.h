/** @file
 *  A logging adapter that spares its callers a slow one: they leave their lines in a buffer, and a thread passes them
 *  on.
 */
#ifndef CUTIL_LOGGER_ASYNC_LOGGING_ADAPTER_H
#define CUTIL_LOGGER_ASYNC_LOGGING_ADAPTER_H

#include <cUtil/allocator.h>
#include <cUtil/logger/adapter.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Makes an adapter that passes lines on to another one in a thread of its own. The lines of a thread keep their order.
 *
 * A line takes 9 bytes of the buffer beside its text, and one byte always stays free. A line that finds no room is
 * dropped, whole and without an error; so an empty buffer of 4096 bytes takes a text of 4086 characters and none that
 * is longer. Logging neither allocates nor waits for the other adapter.
 *
 * When it is ended, the adapter passes on what it has and then ends the other adapter; if something fails in that, the
 * process ends with status 1. After the first line that the other adapter fails to log, nothing is passed on any more,
 * and what is left in the buffer at the end is lost. A process that dies takes what is in the buffer with it.
 *
 * @param adapter         receives the adapter; must hold null
 * @param wrappedAdapter  where the lines go, whatever its level. It is the new adapter's from here on; after a failure
 *                        it is still the caller's.
 * @param bufferSize      bytes of the buffer: 4096 or a larger power of two
 * @param allocator       gives the memory, also in the adapter's thread; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; the codes of cu_Thread_new() and
 *         cu_Runnable_new()
 */
CU_EXPORT cu_ErrorCode cu_logger_AsyncLoggingAdapter_new(cu_logger_Adapter** adapter, cu_logger_Adapter* wrappedAdapter,
                                                         uint32_t bufferSize, cu_allocator* allocator);

CU_END_DECLS

#endif
