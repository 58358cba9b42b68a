#include "network/messages.h"
#include "support/record.h"
#include "support/sweep.h"

#include <cUtil/mallocAllocator.h>

#include <linux/sockios.h>
#include <sys/ioctl.h>

namespace
{

constexpr char file[] = "src/cUtil/network/msgClient";

/// A client, and its connection as the server sees it.
struct Connection {
    Connection()
    {
        EXPECT_EQ(cu_MSGClient_new(&client, CU_IP_ADDRESS_LOCAL, server.port, nullptr), 0U);
        EXPECT_EQ(cu_TCPServerSocket_accept(server.socket, &peer), 0U);
    }

    void sendAndLeave(std::string_view bytes)
    {
        EXPECT_EQ(cu_TCPSocket_send(peer, bytes.data(), static_cast<uint32_t>(bytes.size()), false), 0U);
        EXPECT_EQ(cu_TCPSocket_delete(&peer), 0U);
    }

    Server server;
    MSGClient client;
    TCPSocket peer;
};

TEST(MSGClient, anEmptyMessageDoesNotWaitForMore)
{
    const Connection connection;
    EXPECT_EQ(cu_MSGClient_send(connection.client, Message()), 0U);
    int unsent = 0;
    ioctl(cu_MSGClient_getSelectable(connection.client)->handle, SIOCOUTQNSD, &unsent);
    EXPECT_EQ(unsent, 0) << "a head that was announced as the beginning of more stays behind for 200 ms";
}

TEST(MSGClient, receivesIntoAMessageOfAnySize)
{
    Connection connection;
    const std::string large(100'000, 'y');
    connection.sendAndLeave(frameOf("first") + frameOf("") + frameOf(large) + frameOf("last"));
    const Message message("something longer than what comes first");
    for (const std::string& content : {std::string("first"), std::string(), large, std::string("last")}) {
        EXPECT_EQ(cu_MSGClient_receive(connection.client, message), 0U);
        EXPECT_TRUE(contentOf(message) == content);
        EXPECT_EQ(cursorOf(message), 0U);
    }
}

TEST(MSGClient, noticesWhatIsNoFrameAndAServerThatDies)
{
    for (const std::string& bytes : {headOf(0, 0x01000000), headOf(0, 1, 0x42D53370)}) {
        Connection connection;
        connection.sendAndLeave(bytes);
        EXPECT_FAILURE(cu_MSGClient_receive(connection.client, Message()), cu_ERROR_COM_INVARIANT,
                       "cu_MSGClient_receive", file, "");
    }
    Connection connection;
    connection.sendAndLeave(frameOf("0123456789").substr(0, 21));
    EXPECT_FAILURE(cu_MSGClient_receive(connection.client, Message()), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED,
                   "cu_TCPSocket_receive", "src/cUtil/network/tcpSocket.linux", "");
    EXPECT_NE(support::trace().find("cu_MSGClient_receive  -  "), std::string::npos) << support::trace();
    while (cu_MSGClient_send(connection.client, Message()) == 0) {
    }
    EXPECT_FAILURE(cu_MSGClient_send(connection.client, Message()), cu_ERROR_SOCKET_IO_TIMEOUT, "cu_TCPSocket_send",
                   "src/cUtil/network/tcpSocket.linux", "");
    EXPECT_NE(support::trace().find("cu_MSGClient_send  -  "), std::string::npos) << support::trace();
}

// The bytes need not be there: the size is looked at first.
TEST(MSGClient, refusesToSend4GiB)
{
    cu_allocator stingy = *cu_allocator_malloc_get();
    stingy.alloc = [](void* context, void** block, uint32_t) -> cu_ErrorCode {
        return cu_allocator_malloc_get()->alloc(context, block, 64);
    };
    Handle<cu_Message, cu_Message_delete> message;
    ASSERT_EQ(cu_Message_new(&message, UINT32_MAX, &stingy), 0U);
    ASSERT_EQ(cu_Message_resize(message, UINT32_MAX), 0U);
    const Connection connection;
    EXPECT_FAILURE(cu_MSGClient_send(connection.client, message), cu_ERROR_COM_INVARIANT, "cu_MSGClient_send", file,
                   "");
    MSGServer server;
    ASSERT_EQ(cu_MSGServer_new(&server, CU_IP_ADDRESS_LOCAL, 0, nullptr), 0U);
    EXPECT_FAILURE(cu_MSGServer_send(server, 1, message), cu_ERROR_COM_INVARIANT, "cu_MSGServer_send",
                   "src/cUtil/network/msgServer", "");
}

TEST(MSGClient, survivesEveryFailure)
{
    const Server server;
    const auto create = [&](cu_MSGClient** me, cu_allocator* allocator) {
        return cu_MSGClient_new(me, CU_IP_ADDRESS_LOCAL, server.port, allocator);
    };
    support::sweep<cu_MSGClient>("cu_MSGClient_new", create, cu_MSGClient_delete, {"clock_gettime"});
}

} // namespace
