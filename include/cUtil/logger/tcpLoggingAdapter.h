/** @file
 *  A logging adapter that shows its lines to a viewer over TCP; tcpLoggingClient.h is the viewer's side.
 *
 *  The newest connection is the viewer, and an older one is cut off. It gets records one behind the other, integers
 *  most significant byte first; nothing goes the other way.
 *
 *  | Offset | Size | Field |
 *  |---|---|---|
 *  | 0 | 4 | level |
 *  | 4 | 4 | length: bytes of the text with its NUL |
 *  | 8 | length | the text, ending with one NUL |
 */
#ifndef CUTIL_LOGGER_TCP_LOGGING_ADAPTER_H
#define CUTIL_LOGGER_TCP_LOGGING_ADAPTER_H

#include <cUtil/allocator.h>
#include <cUtil/logger/adapter.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Makes an adapter that listens on a port and sends each line to the viewer, if there is one. A lost viewer never
 * fails a log call: beside bad arguments logging always returns 0. Levels are not checked.
 *
 * Logging blocks while the viewer's side takes no more. A viewer that has not taken a line after 400 ms is cut off.
 *
 * When it is ended, the adapter stops listening, within about 200 ms, and cuts its viewer off; if something fails in
 * that, the process ends with status 1.
 *
 * @param adapter    receives the adapter; must hold null
 * @param address    of the interface to listen on, in host byte order; 0.0.0.0: every interface
 * @param port       where to listen
 * @param allocator  gives the memory, also in the adapter's thread; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; the codes of cu_TCPServerSocket_new(),
 *         cu_Thread_new() and cu_Runnable_new()
 */
CU_EXPORT cu_ErrorCode cu_logger_TCPLoggingAdapter_new(cu_logger_Adapter** adapter, uint32_t address, uint16_t port,
                                                       cu_allocator* allocator);

CU_END_DECLS

#endif
