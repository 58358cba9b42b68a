/** @file
 *  The listening side of TCP over IPv4. Addresses and ports are in host byte order.
 *
 *  Threads: a server is used by one thread at a time. Several may accept at once, but a timed accept then takes longer
 *  when another one takes the connection that it saw.
 */
#ifndef CUTIL_NETWORK_TCPSERVERSOCKET_H
#define CUTIL_NETWORK_TCPSERVERSOCKET_H

#include <cUtil/allocator.h>
#include <cUtil/network/selectable.h>
#include <cUtil/network/tcpSocket.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A listening socket. */
typedef struct cu_TCPServerSocket cu_TCPServerSocket;

/**
 * Listens. The port stands before the address, other than in the other constructors.
 *
 * @param server        receives the server; must hold null
 * @param port          where to listen; 0: the system chooses
 * @param address       the interface's address; 0.0.0.0: every interface
 * @param backlog       how many connections may wait to be accepted
 * @param reuseAddress  whether a port may be taken on which connections of an earlier server linger
 * @param allocator     gives the memory, that of accepted sockets too; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_INIT_FAILED; cu_ERROR_SOCKET_SOCKET_OPT_FAILED;
 *         cu_ERROR_SOCKET_PORT_ALREADY_BOUND; what the allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_TCPServerSocket_new(cu_TCPServerSocket** server, uint16_t port, uint32_t address,
                                              uint32_t backlog, bool reuseAddress, cu_allocator* allocator);

/**
 * Stops listening.
 *
 * @param server  the server; becomes null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_CLOSE_FAILED, and the server stays; what the
 *         allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_TCPServerSocket_delete(cu_TCPServerSocket** server);

/**
 * Accepts a connection. Blocks until there is one.
 *
 * @param server  the server
 * @param socket  receives the connected socket; must hold null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_INIT_FAILED; what the allocator fails with, and the
 *         connection is closed
 */
CU_EXPORT cu_ErrorCode cu_TCPServerSocket_accept(cu_TCPServerSocket* server, cu_TCPSocket** socket);

/**
 * Accepts a connection, if one comes in time.
 *
 * @param server     the server
 * @param timeoutUs  how long to wait at most, in microseconds; 0: without limit
 * @param socket     receives the connected socket; must hold null, and does so when the time is up
 * @return 0, also when the time is up; otherwise as cu_TCPServerSocket_accept(), and cu_ERROR_SOCKET_SELECT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_TCPServerSocket_timedAccept(cu_TCPServerSocket* server, uint32_t timeoutUs,
                                                      cu_TCPSocket** socket);

/**
 * @param server  a server, or null
 * @return what can be waited for, the server's own: it is readable when a connection waits; null for null
 */
CU_EXPORT cu_Selectable* cu_TCPServerSocket_getSelectable(cu_TCPServerSocket* server);

CU_END_DECLS

#endif
