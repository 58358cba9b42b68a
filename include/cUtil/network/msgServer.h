/** @file
 *  A server for messages over TCP. Clients, such as cu_MSGClient, connect to it, and each of their messages comes to
 * the application with the number of the endpoint that it came from. By that number the application answers.
 *
 *  A message travels as a frame, whose words have their most significant byte first:
 *
 *  | Offset | Size | Field |
 *  |---|---|---|
 *  | 0 | 4 | magic: 0x42D53371 |
 *  | 4 | 4 | version: 1 |
 *  | 8 | 4 | length of the payload |
 *  | 12 | length | payload |
 *
 *  A thread of the server, named `cu-msg-server`, moves the frames. It never waits for a client, so no client keeps
 *  others waiting, whatever it does:
 *  - One that sends another magic or version is dropped, with a warning in the log.
 *  - Memory is only used for bytes that have come. Once all unfinished messages together have 16 MiB, those clients are
 *    dropped, the largest message first and with a warning, that have sent less than 64 KiB for 10 seconds.
 *  - 16 MiB may wait for a client that does not take them, and 64 MiB for all together. Beyond, cu_MSGServer_send()
 *    waits, and a client that has taken less than 64 KiB for a quarter of a second is dropped, with a warning: the one
 *    that more was sent to than may wait, or the one with most waiting.
 *  - When the allocator has no memory for a client's bytes, the client for which most is kept is dropped, with a
 *    warning. So the allocator is what bounds the memory of the server.
 *  - What is sent to a client before it ends its direction still goes to it.
 *  - While no descriptor is left, clients that connect wait for one.
 *
 *  The application is not told when a client has gone. What it sends to an endpoint that there is not is dropped, with
 * a warning in the log.
 *
 *  While the application does not receive, nothing is read from clients; what it sends goes on.
 *
 *  Threads: one thread may receive while another one sends. The server's thread uses the allocator, too, at any time.
 */
#ifndef CUTIL_NETWORK_MSGSERVER_H
#define CUTIL_NETWORK_MSGSERVER_H

#include <cUtil/allocator.h>
#include <cUtil/network/message.h>
#include <cUtil/network/selectable.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A server. */
typedef struct cu_MSGServer cu_MSGServer;

/**
 * Makes a server, which accepts clients from now on.
 *
 * @param server     receives the server; must hold null
 * @param address    the interface's address, in host byte order; 0.0.0.0: every interface
 * @param port       where to listen
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; the codes of cu_TCPServerSocket_new() and cu_TCPSocket_createPipe();
 *         cu_ERROR_SOCKET_SELECT_FAILED; cu_ERROR_THREAD_CREATE_FAILED; what the allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_MSGServer_new(cu_MSGServer** server, uint32_t address, uint16_t port,
                                        cu_allocator* allocator);

/**
 * Ends a server and closes all connections. What was sent before still goes to those clients that take it; a client
 * that takes less than 64 KiB for a quarter of a second is not waited for any longer. If an inner step fails, the
 * process ends with status 1.
 *
 * @param server  the server; becomes null. Nobody may be in a call on it.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_MSGServer_delete(cu_MSGServer** server);

/**
 * Receives a message. Blocks until there is one.
 *
 * @param server    the server
 * @param endpoint  receives the number of the endpoint that it came from
 * @param message   receives the bytes instead of its own, its cursor at the start
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_OTHER_SIDE_CLOSED when the server's thread has ended;
 *         cu_ERROR_SOCKET_RECEIVE_FAILED; what the message's allocator fails with, and then the message that came is
 * lost
 */
CU_EXPORT cu_ErrorCode cu_MSGServer_receive(cu_MSGServer* server, uint32_t* endpoint, cu_Message* message);

/**
 * Sends a message. Blocks while the server's thread has not taken it, which is not for long: see above.
 *
 * @param server    the server
 * @param endpoint  the number that a message came with. One that there is not, or not any more, is no error.
 * @param message   the message, from its first byte on; its cursor stays. It may be empty.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT for 2^32 - 1 bytes; cu_ERROR_SOCKET_IO_TIMEOUT when
 *         the server's thread has ended
 */
CU_EXPORT cu_ErrorCode cu_MSGServer_send(cu_MSGServer* server, uint32_t endpoint, const cu_Message* message);

/**
 * @param server  a server, or null
 * @return what can be waited for, the server's own: it is readable when a message waits; null for null
 */
CU_EXPORT cu_Selectable* cu_MSGServer_getSelectable(cu_MSGServer* server);

CU_END_DECLS

#endif
