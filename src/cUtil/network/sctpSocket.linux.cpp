#include <cUtil/network/sctpSocket.h>

#include "internal/datagramSocket.h"

struct cu_SCTPSocket : internal::DatagramSocket {
};

namespace
{

constexpr int backlog = 10;

} // namespace

cu_ErrorCode cu_SCTPSocket_new(cu_SCTPSocket** socket, uint32_t address, uint16_t port, cu_allocator* allocator)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(*socket == nullptr);
    return internal::newDatagramSocket(socket, SOCK_SEQPACKET, IPPROTO_SCTP, backlog, address, port, allocator,
                                       CU_HERE);
}

cu_ErrorCode cu_SCTPSocket_delete(cu_SCTPSocket** socket)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(*socket != nullptr);
    return internal::deleteDatagramSocket(socket, CU_HERE);
}

// There are none. What the arguments beyond the socket would be for is not looked at.
cu_ErrorCode cu_SCTPSocket_setOption(cu_SCTPSocket* socket, uint32_t type, int32_t)
{
    CU_REQUIRE(socket != nullptr);
    return internal::refuseOption(type, CU_HERE);
}

cu_ErrorCode cu_SCTPSocket_getOption(const cu_SCTPSocket* socket, uint32_t type, int32_t*)
{
    CU_REQUIRE(socket != nullptr);
    return internal::refuseOption(type, CU_HERE);
}

cu_ErrorCode cu_SCTPSocket_receive(cu_SCTPSocket* socket, uint32_t* fromAddress, uint16_t* fromPort, void* buffer,
                                   uint32_t capacity, uint32_t* received)
{
    return internal::receiveDatagram(socket, fromAddress, fromPort, buffer, capacity, received, CU_HERE);
}

cu_ErrorCode cu_SCTPSocket_send(cu_SCTPSocket* socket, uint32_t address, uint16_t port, const void* buffer,
                                uint32_t length)
{
    return internal::sendDatagram(socket, address, port, buffer, length, CU_HERE);
}

cu_Selectable* cu_SCTPSocket_getSelectable(cu_SCTPSocket* socket)
{
    return socket != nullptr ? &socket->selectable : nullptr;
}
