/** @file
 *  A stream over a connected TCP socket. Writes and reads are those of cu_TCPSocket_send() and cu_TCPSocket_receive().
 * It always has space, and a question for data waits: without limit when the time-out is 0.
 *
 *  Threads: as the socket's, one writes and one reads.
 */
#ifndef CUTIL_NETWORK_TCPSOCKETSTREAM_H
#define CUTIL_NETWORK_TCPSOCKETSTREAM_H

#include <cUtil/iStream.h>
#include <cUtil/network/tcpSocket.h>

CU_BEGIN_DECLS

/**
 * Fills a table with the operations of a socket.
 *
 * @param stream  receives the table
 * @param socket  the socket; it is the stream's from here on
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_TCPSocketStream_new(cu_IStream* stream, cu_TCPSocket* socket);

CU_END_DECLS

#endif
