#include "internal/transfer.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
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

cu_ErrorCode sendMessage(cu_TCPSocket* socket, void* head, uint32_t headSize, const cu_Message* message, Place here)
{
    uint8_t* bytes = nullptr;
    uint32_t size = 0;
    CU_TRY_AT(here, cu_Message_get(message, &bytes));
    CU_TRY_AT(here, cu_Message_getSize(message, &size));
    if (size == UINT32_MAX)
        return report(cu_ERROR_COM_INVARIANT, 0, here, nullptr);
    const uint32_t length = htonl(size);
    memcpy(static_cast<uint8_t*>(head) + headSize - sizeof(length), &length, sizeof(length));
    iovec pieces[] = {{head, headSize}, {bytes, size}};
    const ssize_t result = sendPieces(cu_TCPSocket_getSelectable(socket)->handle, pieces, 2, 0);
    const uint64_t sent = result > 0 ? static_cast<uint64_t>(result) : 0;
    // Whatever came in between: the call that sends a single piece resumes, or tells what it was.
    if (sent < headSize)
        CU_TRY_AT(here, cu_TCPSocket_send(socket, static_cast<uint8_t*>(head) + sent,
                                          headSize - static_cast<uint32_t>(sent), size != 0));
    const uint64_t sentBytes = std::max<uint64_t>(sent, headSize) - headSize;
    if (sentBytes != size)
        CU_TRY_AT(here, cu_TCPSocket_send(socket, bytes + sentBytes, static_cast<uint32_t>(size - sentBytes), false));
    return 0;
}

} // namespace cu::internal
