#include "network/messages.h"
#include "support/record.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/mallocAllocator.h>

#include <sys/mman.h>
#include <thread>

namespace
{

using namespace std::string_literals;

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

TEST(MSGClient, sendsFrames)
{
    Connection connection;
    const std::string large(3'000'000, 'x');
    std::string received;
    std::thread reader([&] {
        received.resize(12 + 3 + 12 + 12 + large.size());
        EXPECT_EQ(cu_TCPSocket_receive(connection.peer, received.data(), static_cast<uint32_t>(received.size())), 0U);
    });
    for (const std::string& content : {"abc"s, ""s, large})
        EXPECT_EQ(cu_MSGClient_send(connection.client, Message(content)), 0U);
    reader.join();
    EXPECT_EQ(received.substr(0, 12), "\x42\xD5\x33\x71\0\0\0\1\0\0\0\3"s);
    EXPECT_TRUE(received == frameOf("abc") + frameOf("") + frameOf(large));
}

TEST(MSGClient, anEmptyMessageDoesNotWaitForMore)
{
    Connection connection;
    EXPECT_EQ(cu_MSGClient_send(connection.client, Message()), 0U);
    pollfd wait = {cu_TCPSocket_getSelectable(connection.peer)->handle, POLLIN, 0};
    ASSERT_EQ(poll(&wait, 1, 20'000), 1);
    char bytes[12] = {};
    // A head that was announced as the beginning of more would stay behind for 200 ms.
    EXPECT_EQ(recv(wait.fd, bytes, sizeof(bytes), MSG_DONTWAIT), 12);
}

TEST(MSGClient, receivesIntoAMessageOfAnySize)
{
    Connection connection;
    const std::string large(100'000, 'y');
    connection.sendAndLeave(frameOf("first") + frameOf("") + frameOf(large) + frameOf("last"));
    Message message("something longer than what comes first");
    for (const std::string& content : {"first"s, ""s, large, "last"s}) {
        EXPECT_EQ(cu_MSGClient_receive(connection.client, message), 0U);
        EXPECT_TRUE(message.content() == content);
        uint32_t cursor = ~0U;
        EXPECT_EQ(cu_Message_tell(message, &cursor), 0U);
        EXPECT_EQ(cursor, 0U);
    }
    EXPECT_EQ(cu_MSGClient_receive(connection.client, message), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED);
}

TEST(MSGClient, noticesWhatIsNoFrame)
{
    for (const std::string& bytes :
         {headOf(0, 2), headOf(0, 0x01000000), headOf(0, 1, 0x42D53370), headOf(0, 1, 0x7133D542)}) {
        Connection connection;
        connection.sendAndLeave(bytes);
        EXPECT_FAILURE(cu_MSGClient_receive(connection.client, Message()), cu_ERROR_COM_INVARIANT,
                       "cu_MSGClient_receive", file, "");
    }
}

TEST(MSGClient, noticesAServerThatDiesAmidAFrame)
{
    const std::string frame = frameOf("0123456789");
    for (const std::size_t size : {1U, 8U, 11U, 12U, 21U}) {
        Connection connection;
        connection.sendAndLeave(frame.substr(0, size));
        EXPECT_FAILURE(cu_MSGClient_receive(connection.client, Message()), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED,
                       "cu_TCPSocket_receive", "src/cUtil/network/tcpSocket.linux", "");
        EXPECT_NE(support::trace().find("cu_MSGClient_receive  -  "), std::string::npos) << support::trace();
    }
}

TEST(MSGClient, aServerThatIsGoneShowsAsATimeOutOfSending)
{
    Connection connection;
    EXPECT_EQ(cu_TCPSocket_delete(&connection.peer), 0U);
    Message message("abc");
    while (cu_MSGClient_send(connection.client, message) == 0) {
    }
    EXPECT_FAILURE(cu_MSGClient_send(connection.client, message), cu_ERROR_SOCKET_IO_TIMEOUT, "cu_TCPSocket_send",
                   "src/cUtil/network/tcpSocket.linux", "");
    EXPECT_NE(support::trace().find("cu_MSGClient_send  -  "), std::string::npos) << support::trace();
}

// The bytes need not be there: the size is looked at first.
TEST(MSGClient, refusesToSend4GiB)
{
#if UINTPTR_MAX > UINT32_MAX
    cu_allocator mapping = *cu_allocator_malloc_get();
    mapping.alloc = [](void*, void** block, uint32_t size) -> cu_ErrorCode {
        *block = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        return *block != MAP_FAILED ? 0 : cu_ERROR_COM_MALLOC_FAILED;
    };
    mapping.free = [](void*, void** block) -> cu_ErrorCode {
        *block = nullptr; // the process ends soon
        return 0;
    };
    Handle<cu_Message, cu_Message_delete> message;
    ASSERT_EQ(cu_Message_new(&message, UINT32_MAX, &mapping), 0U);
    ASSERT_EQ(cu_Message_resize(message, UINT32_MAX), 0U);
    Connection connection;
    EXPECT_FAILURE(cu_MSGClient_send(connection.client, message), cu_ERROR_COM_INVARIANT, "cu_MSGClient_send", file,
                   "");
    MSGServer server;
    ASSERT_EQ(cu_MSGServer_new(&server, CU_IP_ADDRESS_LOCAL, 0, nullptr), 0U);
    EXPECT_FAILURE(cu_MSGServer_send(server, 1, message), cu_ERROR_COM_INVARIANT, "cu_MSGServer_send",
                   "src/cUtil/network/msgServer", "");
#else
    GTEST_SKIP() << "such a message has no room";
#endif
}

TEST(MSGClient, survivesEveryFailure)
{
    Server server;
    const auto create = [&](cu_MSGClient** me, cu_allocator* allocator) {
        return cu_MSGClient_new(me, CU_IP_ADDRESS_LOCAL, server.port, allocator);
    };
    support::sweep<cu_MSGClient>("cu_MSGClient_new", create, cu_MSGClient_delete, {"clock_gettime"});
}

TEST(MSGClient, refusesNulls)
{
    const Connection connection;
    const Message message;
    cu_MSGClient* client = connection.client;
    cu_MSGClient* none = nullptr;
    EXPECT_NULLS_REFUSED(file, (std::tuple(client, &none, static_cast<cu_Message*>(message))), cu_MSGClient_new,
                         cu_MSGClient_send, cu_MSGClient_receive);
    EXPECT_NULLS_REFUSED(file, std::tuple(&client), cu_MSGClient_delete);
    EXPECT_EQ(cu_MSGClient_getSelectable(nullptr), nullptr);
}

} // namespace
