#include <cUtil/network/udpSocket.h>

#include "internal/datagramSocket.h"

struct cu_UDPSocket : internal::DatagramSocket {
};

cu_ErrorCode cu_UDPSocket_new(cu_UDPSocket** socket, uint32_t address, uint16_t port, cu_allocator* allocator)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(*socket == nullptr);
    return internal::newDatagramSocket(socket, SOCK_DGRAM, IPPROTO_UDP, 0, address, port, allocator, CU_HERE);
}

cu_ErrorCode cu_UDPSocket_delete(cu_UDPSocket** socket)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(*socket != nullptr);
    return internal::deleteDatagramSocket(socket, CU_HERE);
}

cu_ErrorCode cu_UDPSocket_setOption(cu_UDPSocket* socket, uint32_t type, int32_t value)
{
    CU_REQUIRE(socket != nullptr);
    if (type != cu_UDP_SOCKET_OPT_BROADCAST)
        return internal::refuseOption(type, CU_HERE);
    const int broadcast = value != 0 ? 1 : 0;
    if (setsockopt(socket->selectable.handle, SOL_SOCKET, SO_BROADCAST, &broadcast, sizeof(broadcast)) != 0)
        return CU_REPORT(cu_ERROR_SOCKET_SOCKET_OPT_FAILED, errno, nullptr);
    return 0;
}

cu_ErrorCode cu_UDPSocket_getOption(const cu_UDPSocket* socket, uint32_t type, int32_t* value)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(value != nullptr);
    if (type != cu_UDP_SOCKET_OPT_BROADCAST)
        return internal::refuseOption(type, CU_HERE);
    int broadcast = 0;
    socklen_t size = sizeof(broadcast);
    if (getsockopt(socket->selectable.handle, SOL_SOCKET, SO_BROADCAST, &broadcast, &size) != 0)
        return CU_REPORT(cu_ERROR_SOCKET_SOCKET_OPT_FAILED, errno, nullptr);
    *value = broadcast != 0 ? 1 : 0;
    return 0;
}

cu_ErrorCode cu_UDPSocket_receive(cu_UDPSocket* socket, uint32_t* fromAddress, uint16_t* fromPort, void* buffer,
                                  uint32_t capacity, uint32_t* received)
{
    return internal::receiveDatagram(socket, fromAddress, fromPort, buffer, capacity, received, CU_HERE);
}

cu_ErrorCode cu_UDPSocket_send(cu_UDPSocket* socket, uint32_t address, uint16_t port, const void* buffer,
                               uint32_t length)
{
    return internal::sendDatagram(socket, address, port, buffer, length, CU_HERE);
}

cu_Selectable* cu_UDPSocket_getSelectable(cu_UDPSocket* socket)
{
    return socket != nullptr ? &socket->selectable : nullptr;
}
