// What UDP and SCTP sockets have in common: a bound descriptor that moves whole messages.
#pragma once

#include "internal/owned.h"
#include "internal/socket.h"

#include <cerrno>

namespace cu::internal
{

struct DatagramSocket {
    cu_allocator* allocator;
    cu_Selectable selectable;
};

/// Makes a bound socket, and a listening one with a backlog.
template <typename T>
cu_ErrorCode newDatagramSocket(T** handle, int type, int protocol, int backlog, uint32_t address, uint16_t port,
                               cu_allocator* allocator, Place here)
{
    Owned<T> object;
    CU_TRY_AT(here, object.allocate(allocator));
    Descriptor descriptor(socket(AF_INET, type | SOCK_CLOEXEC, protocol));
    if (!descriptor.isOpen())
        return report(cu_ERROR_SOCKET_INIT_FAILED, errno, here, nullptr);
    if (const cu_ErrorCode code = bindTo(descriptor.get(), address, port, true, here); code != 0)
        return code;
    if (backlog != 0 && listen(descriptor.get(), backlog) != 0)
        return report(cu_ERROR_SOCKET_INIT_FAILED, errno, here, nullptr);
    object->selectable.handle = descriptor.release();
    *handle = object.release();
    return 0;
}

template <typename T>
cu_ErrorCode deleteDatagramSocket(T** handle, Place here)
{
    if (const cu_ErrorCode code = closeSocket(&(*handle)->selectable, here); code != 0)
        return code;
    CU_TRY_AT(here, freeObject(handle));
    return 0;
}

/// The whole of the exported function whose place it is given.
inline cu_ErrorCode receiveDatagram(const DatagramSocket* me, uint32_t* fromAddress, uint16_t* fromPort, void* buffer,
                                    uint32_t capacity, uint32_t* received, Place here)
{
    if (me == nullptr || fromAddress == nullptr || fromPort == nullptr || buffer == nullptr || capacity == 0 ||
        received == nullptr)
        return reportInvalidArgument(here);
    sockaddr_in from = {};
    ssize_t got = -1;
    do {
        socklen_t size = sizeof(from);
        got = recvfrom(me->selectable.handle, buffer, capacity, 0, generic(&from), &size);
    } while (got == -1 && errno == EINTR);
    if (got == -1)
        return report(cu_ERROR_SOCKET_RECEIVE_FAILED, errno, here, nullptr);
    *fromAddress = ntohl(from.sin_addr.s_addr);
    *fromPort = ntohs(from.sin_port);
    *received = static_cast<uint32_t>(got);
    return 0;
}

/// The whole of the exported function whose place it is given.
inline cu_ErrorCode sendDatagram(const DatagramSocket* me, uint32_t address, uint16_t port, const void* buffer,
                                 uint32_t length, Place here)
{
    if (me == nullptr || buffer == nullptr)
        return reportInvalidArgument(here);
    sockaddr_in to = socketAddress(address, port);
    ssize_t sent = -1;
    do
        sent = sendto(me->selectable.handle, buffer, length, MSG_NOSIGNAL, generic(&to), sizeof(to));
    while (sent == -1 && errno == EINTR);
    return sent != -1 ? 0 : report(cu_ERROR_SOCKET_SEND_FAILED, errno, here, nullptr);
}

/// The failure of an option that there is not.
inline cu_ErrorCode refuseOption(uint32_t type, Place here)
{
    return report(cu_ERROR_SOCKET_SOCKET_OPT_FAILED, 0, here, "Invalid option type '%d'.", static_cast<int>(type));
}

} // namespace cu::internal
