/** @file
 *  The viewer of another process's log: connects to a tcpLoggingAdapter.h and hands every line to an adapter here, for
 *  instance to that of consoleLoggingAdapter.h.
 *
 *  A client reads in whichever thread runs it: the caller's by cu_logger_TCPLoggingClient_run(), or a cu_Thread that
 *  is started with cu_logger_TCPLoggingClient_getRunnable(). Have one of them at a time.
 *
 *  The reading ends at the first failure, without connecting again: cu_ERROR_SOCKET_OTHER_SIDE_CLOSED when the
 *  connection is closed; what the adapter fails with; cu_ERROR_COM_INVARIANT for a record whose text does not end with
 *  a NUL. Records are not trusted: no more memory is taken than twice of what has really come.
 */
#ifndef CUTIL_LOGGER_TCP_LOGGING_CLIENT_H
#define CUTIL_LOGGER_TCP_LOGGING_CLIENT_H

#include <cUtil/allocator.h>
#include <cUtil/logger/adapter.h>
#include <cUtil/runnable.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A viewer. */
typedef struct cu_logger_TCPLoggingClient cu_logger_TCPLoggingClient;

/**
 * Connects to a logging adapter, trying for 100 ms.
 *
 * @param client     receives the client; must hold null
 * @param adapter    gets every line, whatever its level. It is the client's from here on; after a failure it is still
 *                   the caller's.
 * @param address    whom to connect to, in host byte order
 * @param port       and where
 * @param allocator  gives the memory, also in the thread that reads; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; the codes of cu_TCPSocket_new() and
 *         cu_Runnable_new()
 */
CU_EXPORT cu_ErrorCode cu_logger_TCPLoggingClient_new(cu_logger_TCPLoggingClient** client, cu_logger_Adapter* adapter,
                                                      uint32_t address, uint16_t port, cu_allocator* allocator);

/**
 * Disconnects, waits until nobody reads any more, and ends the adapter. The process ends with status 1 if something
 * fails in that.
 *
 * @param client  the client; becomes null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_logger_TCPLoggingClient_delete(cu_logger_TCPLoggingClient** client);

/**
 * Reads in the calling thread until something fails or the flag is cleared, which is looked at every 100 ms.
 *
 * @param client   the client
 * @param running  a flag that others may clear; see cu_Thread_isRunning()
 * @return 0 when the flag was cleared; cu_ERROR_COM_INVALID_ARGUMENT; what ended the reading
 */
CU_EXPORT cu_ErrorCode cu_logger_TCPLoggingClient_run(cu_logger_TCPLoggingClient* client, bool* running);

/**
 * @param client  a client, or null
 * @return what reads when it is run in a thread, the client's own, with the code of cu_logger_TCPLoggingClient_run() as
 *         its result; null for null
 */
CU_EXPORT cu_Runnable* cu_logger_TCPLoggingClient_getRunnable(cu_logger_TCPLoggingClient* client);

CU_END_DECLS

#endif
