#include "sockets.h"

#include "support/record.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <string>

namespace
{

constexpr char file[] = "src/cUtil/network/tcpSocket.linux";
constexpr char serverFile[] = "src/cUtil/network/tcpServerSocket.linux";

TEST(TCPSocket, connectsAndMovesBytesBothWays)
{
    const Server server;
    TCPSocket client;
    TCPSocket accepted;
    ASSERT_EQ(cu_TCPSocket_new(&client, CU_IP_ADDRESS_LOCAL, server.port, 1000, nullptr), 0U);
    ASSERT_EQ(cu_TCPServerSocket_accept(server.socket, &accepted), 0U);
    char got[6] = {};
    EXPECT_EQ(cu_TCPSocket_send(client, "to the", 6, false), 0U);
    EXPECT_EQ(cu_TCPSocket_receive(accepted, got, 6), 0U);
    EXPECT_EQ(std::string(got, 6), "to the");
    EXPECT_EQ(cu_TCPSocket_send(accepted, "client", 6, false), 0U);
    EXPECT_EQ(cu_TCPSocket_receive(client, got, 6), 0U);
    EXPECT_EQ(std::string(got, 6), "client");

    Place peer;
    EXPECT_EQ(cu_TCPSocket_getAddress(accepted, &peer.address), 0U);
    EXPECT_EQ(cu_TCPSocket_getPort(accepted, &peer.port), 0U);
    EXPECT_EQ(peer, placeOf(cu_TCPSocket_getSelectable(client)));
    EXPECT_EQ(cu_TCPSocket_getAddress(client, &peer.address), 0U);
    EXPECT_EQ(cu_TCPSocket_getPort(client, &peer.port), 0U);
    EXPECT_EQ(peer, (Place{CU_IP_ADDRESS_LOCAL, server.port}));
}

TEST(TCPSocket, everyConstructorLeavesNothingBehindWhenItFails)
{
    const Server server;
    support::sweep<cu_TCPSocket>(
        "cu_TCPSocket_new",
        [&](cu_TCPSocket** socket, cu_allocator* allocator) {
            return cu_TCPSocket_new(socket, CU_IP_ADDRESS_LOCAL, server.port, 1000, allocator);
        },
        cu_TCPSocket_delete, {}, "clock_gettime");
    EXPECT_CLEAN_FAILURES(cu_TCPServerSocket_new, cu_TCPServerSocket_delete, uint16_t{0}, CU_IP_ADDRESS_LOCAL, 1U,
                          true);
    cu_TCPSocket* second = nullptr;
    support::sweep<cu_TCPSocket>(
        "cu_TCPSocket_createPipe",
        [&](cu_TCPSocket** first, cu_allocator* allocator) {
            const cu_ErrorCode code = cu_TCPSocket_createPipe(first, &second, allocator);
            EXPECT_EQ(second == nullptr, code != 0);
            return code;
        },
        [&](cu_TCPSocket** first) { return cu_TCPSocket_delete(&second) | cu_TCPSocket_delete(first); }, {}, "close");
}

TEST(TCPSocket, refusesNulls)
{
    const Pair pair;
    const Server server;
    cu_TCPSocket* socket = pair.first;
    cu_TCPServerSocket* listening = server.socket;
    cu_TCPSocket* noSocket = nullptr;
    cu_TCPServerSocket* noServer = nullptr;
    uint8_t byte = 0;
    uint16_t port = 0;
    uint32_t address = 0;
    int32_t value = 0;
    const std::tuple good(socket, &noSocket, static_cast<void*>(&byte), &port, &address, &value);
    EXPECT_NULLS_REFUSED(file, good, cu_TCPSocket_new, cu_TCPSocket_fromAccept, cu_TCPSocket_createPipe,
                         cu_TCPSocket_shutdown, cu_TCPSocket_getAddress, cu_TCPSocket_getPort, cu_TCPSocket_setOption,
                         cu_TCPSocket_getOption, cu_TCPSocket_receive, cu_TCPSocket_peek, cu_TCPSocket_send);
    EXPECT_NULLS_REFUSED(file, std::tuple(&socket), cu_TCPSocket_delete);
    EXPECT_NULLS_REFUSED(serverFile, std::tuple(&noServer), cu_TCPServerSocket_new);
    EXPECT_NULLS_REFUSED(serverFile, std::tuple(&listening), cu_TCPServerSocket_delete);
    EXPECT_NULLS_REFUSED(serverFile, std::tuple(listening, &noSocket), cu_TCPServerSocket_accept,
                         cu_TCPServerSocket_timedAccept);
    EXPECT_EQ(cu_TCPSocket_getSelectable(nullptr), nullptr);
    EXPECT_EQ(cu_TCPServerSocket_getSelectable(nullptr), nullptr);
    EXPECT_REFUSED(cu_TCPSocket_receive(socket, &byte, 0), "cu_TCPSocket_receive", file);
    EXPECT_REFUSED(cu_TCPSocket_peek(socket, &byte, 0), "cu_TCPSocket_peek", file);
    EXPECT_REFUSED(cu_TCPSocket_send(socket, &byte, 0, false), "cu_TCPSocket_send", file);
    EXPECT_REFUSED(cu_TCPSocket_shutdown(socket, 3), "cu_TCPSocket_shutdown", file);
}

} // namespace
