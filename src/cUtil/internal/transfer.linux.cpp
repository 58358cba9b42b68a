#include "internal/transfer.h"

#include <algorithm>
#include <cerrno>
#include <sys/socket.h>

namespace cu::internal
{

namespace
{

ssize_t sendPieces(int32_t descriptor, iovec* pieces, std::size_t count, int flags)
{
    msghdr message = {};
    message.msg_iov = pieces;
    message.msg_iovlen = count;
    return sendmsg(descriptor, &message, flags | MSG_NOSIGNAL);
}

} // namespace

ssize_t sendSome(int32_t descriptor, iovec* pieces, std::size_t count)
{
    ssize_t sent = 0;
    do {
        sent = sendPieces(descriptor, pieces, count, MSG_DONTWAIT);
    } while (sent == -1 && errno == EINTR);
    return sent;
}

ssize_t receiveSome(int32_t descriptor, void* buffer, std::size_t size)
{
    ssize_t received = 0;
    do {
        received = recv(descriptor, buffer, size, MSG_DONTWAIT);
    } while (received == -1 && errno == EINTR);
    return received;
}

cu_ErrorCode sendWithHead(cu_TCPSocket* socket, const void* head, uint32_t headSize, const void* bytes, uint32_t size)
{
    iovec pieces[] = {{const_cast<void*>(head), headSize}, {const_cast<void*>(bytes), size}};
    const ssize_t result = sendPieces(cu_TCPSocket_getSelectable(socket)->handle, pieces, 2, 0);
    const uint64_t sent = result > 0 ? static_cast<uint64_t>(result) : 0;
    // Whatever came in between: the call that sends a single piece resumes, or tells what it was.
    if (sent < headSize) {
        const cu_ErrorCode code = cu_TCPSocket_send(socket, static_cast<const uint8_t*>(head) + sent,
                                                    headSize - static_cast<uint32_t>(sent), size != 0);
        if (code != 0)
            return code;
    }
    const uint64_t sentBytes = std::max<uint64_t>(sent, headSize) - headSize;
    if (sentBytes == size)
        return 0;
    return cu_TCPSocket_send(socket, static_cast<const uint8_t*>(bytes) + sentBytes,
                             static_cast<uint32_t>(size - sentBytes), false);
}

} // namespace cu::internal
