#include <cUtil/network/tcpServerSocket.h>

#include "internal/owned.h"
#include "internal/socket.h"

#include <algorithm>
#include <cerrno>
#include <climits>

struct cu_TCPServerSocket {
    cu_allocator* allocator;
    cu_Selectable selectable;
};

namespace
{

cu_ErrorCode acceptOne(const cu_TCPServerSocket* me, cu_TCPSocket** socket, internal::Place here)
{
    sockaddr_in peer = {};
    int32_t accepted = internal::noDescriptor;
    do {
        socklen_t size = sizeof(peer);
        accepted = accept4(me->selectable.handle, internal::generic(&peer), &size, SOCK_CLOEXEC);
    } while (accepted == internal::noDescriptor && errno == EINTR);
    if (accepted == internal::noDescriptor)
        return internal::report(cu_ERROR_SOCKET_INIT_FAILED, errno, here, nullptr);
    internal::Descriptor descriptor(accepted);
    CU_TRY_AT(here, cu_TCPSocket_fromAccept(socket, descriptor.get(), ntohl(peer.sin_addr.s_addr), ntohs(peer.sin_port),
                                            me->allocator));
    descriptor.release();
    return 0;
}

} // namespace

cu_ErrorCode cu_TCPServerSocket_new(cu_TCPServerSocket** server, uint16_t port, uint32_t address, uint32_t backlog,
                                    bool reuseAddress, cu_allocator* allocator)
{
    CU_REQUIRE(server != nullptr);
    CU_REQUIRE(*server == nullptr);

    internal::Owned<cu_TCPServerSocket> object;
    CU_TRY(object.allocate(allocator));
    internal::Descriptor descriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!descriptor.isOpen())
        return CU_REPORT(cu_ERROR_SOCKET_INIT_FAILED, errno, nullptr);
    if (const cu_ErrorCode code = internal::bindTo(descriptor.get(), address, port, reuseAddress, CU_HERE); code != 0)
        return code;
    if (listen(descriptor.get(), static_cast<int>(std::min<uint32_t>(backlog, INT_MAX))) != 0)
        return CU_REPORT(cu_ERROR_SOCKET_INIT_FAILED, errno, nullptr);
    object->selectable.handle = descriptor.release();
    *server = object.release();
    return 0;
}

cu_ErrorCode cu_TCPServerSocket_delete(cu_TCPServerSocket** server)
{
    CU_REQUIRE(server != nullptr);
    CU_REQUIRE(*server != nullptr);
    if (const cu_ErrorCode code = internal::closeSocket(&(*server)->selectable, CU_HERE); code != 0)
        return code;
    CU_TRY(internal::freeObject(server));
    return 0;
}

cu_ErrorCode cu_TCPServerSocket_accept(cu_TCPServerSocket* server, cu_TCPSocket** socket)
{
    CU_REQUIRE(server != nullptr);
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(*socket == nullptr);
    return acceptOne(server, socket, CU_HERE);
}

cu_ErrorCode cu_TCPServerSocket_timedAccept(cu_TCPServerSocket* server, uint32_t timeoutUs, cu_TCPSocket** socket)
{
    CU_REQUIRE(server != nullptr);
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(*socket == nullptr);
    bool ready = false;
    CU_TRY(cu_Selectable_waitReadReady(&server->selectable, timeoutUs, &ready));
    return ready ? acceptOne(server, socket, CU_HERE) : 0;
}

cu_Selectable* cu_TCPServerSocket_getSelectable(cu_TCPServerSocket* server)
{
    return server != nullptr ? &server->selectable : nullptr;
}
