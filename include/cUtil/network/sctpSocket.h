/** @file
 *  SCTP over IPv4, one socket for the associations with many others: whom it sends to it associates itself with.
 *  Addresses and ports are in host byte order. Needs a kernel that has SCTP.
 *
 *  Threads: a socket is used by one thread at a time, except that one may receive while another sends.
 */
#ifndef CUTIL_NETWORK_SCTPSOCKET_H
#define CUTIL_NETWORK_SCTPSOCKET_H

#include <cUtil/allocator.h>
#include <cUtil/network/selectable.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A bound socket. */
typedef struct cu_SCTPSocket cu_SCTPSocket;

/**
 * Makes a socket that is bound to an address and takes the associations that others begin.
 *
 * @param socket     receives the socket; must hold null
 * @param address    the interface's address; 0.0.0.0: every interface
 * @param port       where to receive; 0: the system chooses
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_INIT_FAILED; cu_ERROR_SOCKET_SOCKET_OPT_FAILED;
 *         cu_ERROR_SOCKET_PORT_ALREADY_BOUND; what the allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_SCTPSocket_new(cu_SCTPSocket** socket, uint32_t address, uint16_t port,
                                         cu_allocator* allocator);

/**
 * Closes a socket.
 *
 * @param socket  the socket; becomes null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_CLOSE_FAILED, and the socket stays; what the
 *         allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_SCTPSocket_delete(cu_SCTPSocket** socket);

/**
 * @param socket  a socket
 * @param type    any; there are no options
 * @param value   not used
 * @return cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_SOCKET_OPT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_SCTPSocket_setOption(cu_SCTPSocket* socket, uint32_t type, int32_t value);

/**
 * @param socket  a socket
 * @param type    any; there are no options
 * @param value   not used
 * @return cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_SOCKET_OPT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_SCTPSocket_getOption(const cu_SCTPSocket* socket, uint32_t type, int32_t* value);

/**
 * Receives one message. Blocks until there is one.
 *
 * @param socket       the socket
 * @param fromAddress  receives the sender's address
 * @param fromPort     receives the sender's port
 * @param buffer       receives the bytes
 * @param capacity     how many fit, not 0; the rest of a longer message comes with the next call
 * @param received     receives how many there are
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_RECEIVE_FAILED
 */
CU_EXPORT cu_ErrorCode cu_SCTPSocket_receive(cu_SCTPSocket* socket, uint32_t* fromAddress, uint16_t* fromPort,
                                             void* buffer, uint32_t capacity, uint32_t* received);

/**
 * Sends one message. Blocks while the system has no room for it.
 *
 * @param socket   the socket
 * @param address  whom to send to
 * @param port     and where
 * @param buffer   the bytes
 * @param length   how many; as many as the protocol moves at once
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_SEND_FAILED
 */
CU_EXPORT cu_ErrorCode cu_SCTPSocket_send(cu_SCTPSocket* socket, uint32_t address, uint16_t port, const void* buffer,
                                          uint32_t length);

/**
 * @param socket  a socket, or null
 * @return what can be waited for, the socket's own; null for null
 */
CU_EXPORT cu_Selectable* cu_SCTPSocket_getSelectable(cu_SCTPSocket* socket);

CU_END_DECLS

#endif
