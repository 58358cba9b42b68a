// Transfers by pieces of memory.
#pragma once

#include "internal/report.h"

#include <cUtil/network/message.h>
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

/// Sends a message behind its head, whose last word becomes the message's size, by one system call. For the exported
/// function whose place it is given.
cu_ErrorCode sendMessage(cu_TCPSocket* socket, void* head, uint32_t headSize, const cu_Message* message, Place here);

} // namespace cu::internal
