/** @file
 *  TCP over IPv4: the connecting side, and connected sockets of any origin. Addresses and ports are in host byte order.
 *
 *  A transfer moves all its bytes or fails. Signals neither end nor prolong one, and a peer that is gone raises none.
 *
 *  Threads: a socket is used by one thread at a time, except that one may receive while another sends.
 */
#ifndef CUTIL_NETWORK_TCPSOCKET_H
#define CUTIL_NETWORK_TCPSOCKET_H

#include <cUtil/allocator.h>
#include <cUtil/network/selectable.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A connected socket. */
typedef struct cu_TCPSocket cu_TCPSocket;

/** What can be set; booleans are read as 0 or 1. */
enum cu_SocketOption {
    cu_SOCKET_OPT_NO_DELAY = 0,        /**< boolean: small pieces are sent at once */
    cu_SOCKET_OPT_NON_BLOCKING = 1,    /**< boolean */
    cu_SOCKET_OPT_SEND_BUFFER = 2,     /**< bytes; the system may take another number */
    cu_SOCKET_OPT_RECEIVE_BUFFER = 3,  /**< bytes; the system may take another number */
    cu_SOCKET_OPT_SEND_TIMEOUT = 4,    /**< milliseconds; 0: without limit */
    cu_SOCKET_OPT_RECEIVE_TIMEOUT = 5, /**< milliseconds; 0: without limit */
    cu_SOCKET_OPT_KEEP_ALIVE = 6,      /**< boolean: the system finds out whether the other side is still there */
    cu_SOCKET_OPT_QUICK_ACK = 7        /**< boolean: what comes is acknowledged at once; the system may end this */
};

/** Which side of a connection to end. */
enum cu_ShutdownSide { CU_SHUTDOWN_READ = 0, CU_SHUTDOWN_WRITE = 1, CU_SHUTDOWN_BOTH = 2 };

/**
 * Connects. Blocks until the connection stands or fails.
 *
 * @param socket            receives the socket; must hold null
 * @param address           whom to connect to
 * @param port              and where
 * @param connectTimeoutMs  how long to try, in milliseconds; 0: as long as the system does
 * @param allocator         gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_INIT_FAILED; cu_ERROR_SOCKET_CONNECT_FAILED; what the
 *         allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_new(cu_TCPSocket** socket, uint32_t address, uint16_t port,
                                        uint32_t connectTimeoutMs, cu_allocator* allocator);

/**
 * Wraps a connected descriptor, which becomes the socket's; after a failure it is still the caller's.
 *
 * @param socket      receives the socket; must hold null
 * @param descriptor  the descriptor
 * @param address     of the other side
 * @param port        of the other side
 * @param allocator   gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; what the allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_fromAccept(cu_TCPSocket** socket, int32_t descriptor, uint32_t address,
                                               uint16_t port, cu_allocator* allocator);

/**
 * Makes two sockets that are connected with each other over the loopback interface, both without send delay.
 *
 * @param first      receives one end; must hold null
 * @param second     receives the other end; must hold null
 * @param allocator  gives the memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_INIT_FAILED; what cu_TCPSocket_setOption() or the allocator
 *         fails with
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_createPipe(cu_TCPSocket** first, cu_TCPSocket** second, cu_allocator* allocator);

/**
 * Closes a socket.
 *
 * @param socket  the socket; becomes null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_CLOSE_FAILED, and the socket stays; what the
 *         allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_delete(cu_TCPSocket** socket);

/**
 * Ends one side of the connection, or both.
 *
 * @param socket  the socket
 * @param how     a cu_ShutdownSide
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_SHUTDOWN_FAILED
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_shutdown(cu_TCPSocket* socket, uint32_t how);

/**
 * @param socket   a socket
 * @param address  receives the address of the other side
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_getAddress(const cu_TCPSocket* socket, uint32_t* address);

/**
 * @param socket  a socket
 * @param port    receives the port of the other side
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_getPort(const cu_TCPSocket* socket, uint16_t* port);

/**
 * @param socket  a socket
 * @param type    a cu_SocketOption
 * @param value   its new value; bytes and milliseconds not negative
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_SOCKET_OPT_FAILED, also for another type
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_setOption(cu_TCPSocket* socket, uint32_t type, int32_t value);

/**
 * @param socket  a socket
 * @param type    a cu_SocketOption
 * @param value   receives its value
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_SOCKET_OPT_FAILED, also for another type;
 *         cu_ERROR_COM_INVARIANT
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_getOption(const cu_TCPSocket* socket, uint32_t type, int32_t* value);

/**
 * Receives. Blocks until all bytes are there, unless a receive time-out is set or the socket is non-blocking.
 *
 * @param socket  the socket
 * @param buffer  receives the bytes
 * @param length  how many, not 0
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_OTHER_SIDE_CLOSED; cu_ERROR_SOCKET_IO_TIMEOUT;
 *         cu_ERROR_SOCKET_RECEIVE_FAILED. After a failure it is unknown how many have been taken.
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_receive(cu_TCPSocket* socket, void* buffer, uint32_t length);

/**
 * Looks at what comes next without taking it. Only for a few bytes that arrive at once: while not all of them are
 * there, a further look begins anew, behind those that it has seen.
 *
 * @param socket  the socket
 * @param buffer  receives the bytes
 * @param length  how many, not 0
 * @return as cu_TCPSocket_receive(), except that cu_ERROR_SOCKET_WOULD_BLOCK stands for cu_ERROR_SOCKET_IO_TIMEOUT
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_peek(cu_TCPSocket* socket, void* buffer, uint32_t length);

/**
 * Sends. Blocks until the system has taken all bytes, unless a send time-out is set or the socket is non-blocking.
 *
 * @param socket  the socket
 * @param buffer  the bytes
 * @param length  how many; 0 is as good as sent
 * @param more    whether further bytes follow at once, so that these may wait for them
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_IO_TIMEOUT, whatever kept bytes from being sent. It is
 *         unknown how many have been, so the connection is of no more use.
 */
CU_EXPORT cu_ErrorCode cu_TCPSocket_send(cu_TCPSocket* socket, const void* buffer, uint32_t length, bool more);

/**
 * @param socket  a socket, or null
 * @return what can be waited for, the socket's own; null for null
 */
CU_EXPORT cu_Selectable* cu_TCPSocket_getSelectable(cu_TCPSocket* socket);

CU_END_DECLS

#endif
