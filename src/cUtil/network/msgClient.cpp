#include <cUtil/network/msgClient.h>

#include "internal/frame.h"
#include "internal/owned.h"
#include "internal/readAhead.h"
#include "internal/rollback.h"
#include "internal/transfer.h"

#include <cUtil/network/tcpSocket.h>

struct cu_MSGClient {
    cu_allocator* allocator;
    cu_TCPSocket* socket;
    internal::ReadAhead ahead;
};

namespace
{

constexpr uint32_t connectTimeoutMs = 1000;

} // namespace

cu_ErrorCode cu_MSGClient_new(cu_MSGClient** client, uint32_t address, uint16_t port, cu_allocator* allocator)
{
    CU_REQUIRE(client != nullptr);
    CU_REQUIRE(*client == nullptr);

    internal::Owned<cu_MSGClient> object;
    CU_TRY(object.allocate(allocator));
    CU_TRY(cu_TCPSocket_new(&object->socket, address, port, connectTimeoutMs, object->allocator));
    CU_ROLLBACK(disconnect, cu_TCPSocket_delete(&object->socket));
    // Messages that follow each other do not wait for acknowledgements.
    CU_TRY(cu_TCPSocket_setOption(object->socket, cu_SOCKET_OPT_NO_DELAY, 1));
    disconnect.dismiss();
    *client = object.release();
    return 0;
}

cu_ErrorCode cu_MSGClient_delete(cu_MSGClient** client)
{
    CU_REQUIRE(client != nullptr);
    CU_REQUIRE(*client != nullptr);
    CU_MUST(cu_TCPSocket_delete(&(*client)->socket));
    CU_MUST(internal::freeObject(client));
    return 0;
}

cu_ErrorCode cu_MSGClient_send(cu_MSGClient* client, const cu_Message* message)
{
    CU_REQUIRE(client != nullptr);
    CU_REQUIRE(message != nullptr);

    internal::FrameHead head;
    return internal::sendMessage(client->socket, &head, sizeof(head), message, CU_HERE);
}

cu_ErrorCode cu_MSGClient_receive(cu_MSGClient* client, cu_Message* message)
{
    CU_REQUIRE(client != nullptr);
    CU_REQUIRE(message != nullptr);

    internal::FrameHead head;
    const uint8_t* whole = client->ahead.next(client->socket, sizeof(head));
    if (whole != nullptr)
        memcpy(&head, whole, sizeof(head));
    else
        CU_TRY(cu_TCPSocket_receive(client->socket, &head, sizeof(head)));
    if (!head.hasRightMagic() || !head.hasRightVersion())
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
    const uint32_t length = ntohl(head.length);
    uint8_t* bytes = nullptr;
    CU_TRY(cu_Message_reserve(message, length));
    CU_TRY(cu_Message_resize(message, length));
    CU_TRY(cu_Message_seek(message, 0));
    CU_TRY(cu_Message_get(message, &bytes));
    if (whole != nullptr) {
        memcpy(bytes, whole + sizeof(head), length);
        client->ahead.advance(client->socket, sizeof(head));
    } else if (length != 0) {
        CU_TRY(cu_TCPSocket_receive(client->socket, bytes, length));
    }
    return 0;
}

cu_Selectable* cu_MSGClient_getSelectable(cu_MSGClient* client)
{
    return client != nullptr ? cu_TCPSocket_getSelectable(client->socket) : nullptr;
}
