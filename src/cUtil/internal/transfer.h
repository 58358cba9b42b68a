// Transfers by pieces of memory.
#pragma once

#include <cUtil/network/tcpSocket.h>

#include <cstddef>
#include <cstdint>
#include <sys/types.h>
#include <sys/uio.h>

namespace cu::internal
{

/// Sends what the system takes at once, whether the socket blocks or not: the number of bytes, or -1 and errno.
ssize_t sendSome(int32_t descriptor, iovec* pieces, std::size_t count);

/// Receives what is there: the number of bytes, 0 at the end, or -1 and errno.
ssize_t receiveSome(int32_t descriptor, void* buffer, std::size_t size);

/// cu_TCPSocket_send() of a head and of what follows it, which may be nothing, by one system call.
cu_ErrorCode sendWithHead(cu_TCPSocket* socket, const void* head, uint32_t headSize, const void* bytes, uint32_t size);

} // namespace cu::internal
