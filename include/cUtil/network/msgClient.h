/** @file
 *  A client of a cu_MSGServer.
 *
 *  Threads: one thread may receive while another one sends.
 */
#ifndef CUTIL_NETWORK_MSGCLIENT_H
#define CUTIL_NETWORK_MSGCLIENT_H

#include <cUtil/allocator.h>
#include <cUtil/network/message.h>
#include <cUtil/network/selectable.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A client. */
typedef struct cu_MSGClient cu_MSGClient;

/**
 * Connects to a server. Blocks until the connection stands, for a second at most.
 *
 * @param client     receives the client; must hold null
 * @param address    the server's address, in host byte order
 * @param port       the server's port
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; the codes of cu_TCPSocket_new() and cu_TCPSocket_setOption()
 */
CU_EXPORT cu_ErrorCode cu_MSGClient_new(cu_MSGClient** client, uint32_t address, uint16_t port,
                                        cu_allocator* allocator);

/**
 * Disconnects. If an inner step fails, the process ends with status 1.
 *
 * @param client  the client; becomes null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_MSGClient_delete(cu_MSGClient** client);

/**
 * Sends a message. Blocks until the system has taken it.
 *
 * @param client   the client
 * @param message  the message, from its first byte on; its cursor stays. It may be empty.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT for 2^32 - 1 bytes; cu_ERROR_SOCKET_IO_TIMEOUT,
 *         whatever kept it from being sent. Then it is unknown how much of it has been, and the client is of no more
 * use.
 */
CU_EXPORT cu_ErrorCode cu_MSGClient_send(cu_MSGClient* client, const cu_Message* message);

/**
 * Receives a message. Blocks until there is one.
 *
 * @param client   the client
 * @param message  receives the bytes instead of its own, its cursor at the start
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT for another magic or version;
 *         cu_ERROR_SOCKET_OTHER_SIDE_CLOSED; cu_ERROR_SOCKET_RECEIVE_FAILED; what the message's allocator fails with.
 *         After a failure the client is of no more use.
 */
CU_EXPORT cu_ErrorCode cu_MSGClient_receive(cu_MSGClient* client, cu_Message* message);

/**
 * @param client  a client, or null
 * @return what can be waited for, the client's own: it is readable when a message comes; null for null
 */
CU_EXPORT cu_Selectable* cu_MSGClient_getSelectable(cu_MSGClient* client);

CU_END_DECLS

#endif
