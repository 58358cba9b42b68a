#include "network/ownNetwork.h"
#include "network/sockets.h"
#include "support/signalStorm.h"

#include <cstring>
#include <net/route.h>
#include <netinet/tcp.h>
#include <numeric>
#include <sstream>
#include <thread>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/network/tcpSocket.linux";
constexpr char serverFile[] = "src/cUtil/network/tcpServerSocket.linux";

std::string cause(int error)
{
    return "Errno[" + std::to_string(error) + "]='" + strerror(error) + "'";
}

// They name each other, move bytes both ways, and wait without limit.
void expectConnected(cu_TCPSocket* first, cu_TCPSocket* second)
{
    for (const auto& [here, there] : {std::pair(first, second), std::pair(second, first)}) {
        Place peer;
        EXPECT_EQ(cu_TCPSocket_getAddress(here, &peer.address), 0U);
        EXPECT_EQ(cu_TCPSocket_getPort(here, &peer.port), 0U);
        EXPECT_EQ(peer, placeOf(cu_TCPSocket_getSelectable(there)));
        for (const std::string part : {"cli", "", "ent"})
            EXPECT_EQ(cu_TCPSocket_send(here, part.data(), static_cast<uint32_t>(part.size()), part != "ent"), 0U);
        char got[7] = {};
        EXPECT_EQ(cu_TCPSocket_receive(there, got, 6), 0U);
        EXPECT_STREQ(got, "client");
        for (const int option : {SO_SNDTIMEO, SO_RCVTIMEO})
            EXPECT_EQ(kernelOption(cu_TCPSocket_getSelectable(here), SOL_SOCKET, option), 0) << "of connecting";
    }
}

// A server whose queue is full, so that the system drops what else asks to be connected.
struct FullServer : Server {
    FullServer() : Server(0)
    {
        cu_ErrorCode code = 0;
        for (TCPSocket& client : waiting)
            code = code != 0 ? code : cu_TCPSocket_new(&client, CU_IP_ADDRESS_LOCAL, port, 100, nullptr);
        EXPECT_EQ(code, cu_ERROR_SOCKET_CONNECT_FAILED);
    }

    TCPSocket waiting[8];
};

TEST(TCPSocket, bothEndsOfAConnectionServe)
{
    const Server server;
    TCPSocket client;
    TCPSocket accepted;
    ASSERT_EQ(cu_TCPSocket_new(&client, CU_IP_ADDRESS_LOCAL, server.port, 1000, nullptr), 0U);
    ASSERT_EQ(cu_TCPServerSocket_accept(server.socket, &accepted), 0U);
    expectConnected(client, accepted);
    const Pair pair;
    expectConnected(pair.first, pair.second);
    EXPECT_EQ(kernelOption(cu_TCPSocket_getSelectable(pair.first), IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(kernelOption(cu_TCPSocket_getSelectable(pair.second), IPPROTO_TCP, TCP_NODELAY), 1);
}

TEST(TCPSocket, everyConstructorLeavesNothingBehindWhenItFails)
{
    const Server server;
    const auto connect = [&](cu_TCPSocket** socket, cu_allocator* allocator) {
        return cu_TCPSocket_new(socket, CU_IP_ADDRESS_LOCAL, server.port, 1000, allocator);
    };
    support::sweep<cu_TCPSocket>("cu_TCPSocket_new", connect, cu_TCPSocket_delete, {}, "clock_gettime");
    EXPECT_CLEAN_FAILURES(cu_TCPServerSocket_new, cu_TCPServerSocket_delete, uint16_t{0}, CU_IP_ADDRESS_LOCAL, 1U,
                          true);
    cu_TCPSocket* second = nullptr;
    const auto connectBoth = [&](cu_TCPSocket** first, cu_allocator* allocator) {
        const cu_ErrorCode code = cu_TCPSocket_createPipe(first, &second, allocator);
        EXPECT_EQ(second == nullptr, code != 0);
        return code;
    };
    const auto end = [&](auto** first) { return cu_TCPSocket_delete(&second) | cu_TCPSocket_delete(first); };
    support::sweep<cu_TCPSocket>("cu_TCPSocket_createPipe", connectBoth, end, {}, "close");
}

TEST(TCPSocket, whatCannotBeMadeIsReported)
{
    const uint16_t port = Server().port; // of nobody any more
    cu_TCPSocket* socket = nullptr;
    const std::string refused = std::string("error: ") + strerror(ECONNREFUSED);
    for (const uint32_t timeoutMs : {0U, 5000U})
        EXPECT_SYSTEM_FAILURE(cu_TCPSocket_new(&socket, CU_IP_ADDRESS_LOCAL, port, timeoutMs, nullptr),
                              cu_ERROR_SOCKET_CONNECT_FAILED, ECONNREFUSED, "cu_TCPSocket_new", file, refused);
    support::expectSystemFailures(file, {{"socket", EMFILE, cu_ERROR_SOCKET_INIT_FAILED, "cu_TCPSocket_new",
                                          std::string("error: ") + strerror(EMFILE), [&] {
                                              return cu_TCPSocket_new(&socket, CU_IP_ADDRESS_LOCAL, port, 100, nullptr);
                                          }}});

    const Server server;
    cu_TCPServerSocket* other = nullptr;
    const auto listen = [&] { return cu_TCPServerSocket_new(&other, server.port, 0x7F000001, 1, true, nullptr); };
    EXPECT_SYSTEM_FAILURE(listen(), cu_ERROR_SOCKET_PORT_ALREADY_BOUND, EADDRINUSE, "cu_TCPServerSocket_new",
                          serverFile, "when binding port " + std::to_string(server.port) + " to address 0x7f000001");
    support::expectSystemFailures(
        serverFile, {{"socket", EMFILE, cu_ERROR_SOCKET_INIT_FAILED, "cu_TCPServerSocket_new", "", listen}});
}

TEST(TCPSocket, everythingEndsWhenItsTimeIsUpWhateverSignalsCome)
{
    const FullServer server;
    std::vector<uint8_t> bytes(16U << 20);
    cu_TCPSocket* socket = nullptr;
    const auto expectLate = [](cu_ErrorCode code, const auto& call) {
        EXPECT_GE(timeOf([&] { EXPECT_EQ(call(), code); }), atLeast(100ms));
    };
    for (const auto hail : {0s, 20s}) {
        const Pair pair;
        for (const uint32_t option : {cu_SOCKET_OPT_SEND_TIMEOUT, cu_SOCKET_OPT_RECEIVE_TIMEOUT})
            ASSERT_EQ(cu_TCPSocket_setOption(pair.first, option, 100), 0U);
        const support::SignalStorm storm(hail);
        const auto began = std::chrono::steady_clock::now();
        expectLate(cu_ERROR_SOCKET_IO_TIMEOUT, [&] { return cu_TCPSocket_receive(pair.first, bytes.data(), 8); });
        expectLate(cu_ERROR_SOCKET_WOULD_BLOCK, [&] { return cu_TCPSocket_peek(pair.first, bytes.data(), 8); });
        expectLate(cu_ERROR_SOCKET_IO_TIMEOUT,
                   [&] { return cu_TCPSocket_send(pair.first, bytes.data(), 16U << 20, false); });
        expectLate(cu_ERROR_SOCKET_CONNECT_FAILED,
                   [&] { return cu_TCPSocket_new(&socket, CU_IP_ADDRESS_LOCAL, server.port, 100, nullptr); });
        EXPECT_EQ(cu_getErrorLocation()->systemErrorCode, EINPROGRESS);
        EXPECT_LT(storm.lastSent() - began, 19s) << "signals prolong it";
    }
}

TEST(TCPSocket, connectingEndsInTimeWhereAllPacketsAreLost)
{
    if (!inOwnNetwork([] {
            bringLoopbackUp();
            rtentry route = {};
            for (sockaddr* part : {&route.rt_dst, &route.rt_genmask, &route.rt_gateway})
                part->sa_family = AF_INET;
            static_cast<sockaddr_in*>(static_cast<void*>(&route.rt_dst))->sin_addr.s_addr = htonl(0x0A000000);
            static_cast<sockaddr_in*>(static_cast<void*>(&route.rt_genmask))->sin_addr.s_addr = htonl(0xFF000000);
            route.rt_flags = RTF_UP;
            char name[] = "lo"; // where nobody has these addresses
            route.rt_dev = name;
            ask(SIOCADDRT, &route);
            cu_TCPSocket* socket = nullptr;
            EXPECT_GE(timeOf([&] {
                          EXPECT_EQ(cu_TCPSocket_new(&socket, 0x0A010203, 80, 100, nullptr),
                                    cu_ERROR_SOCKET_CONNECT_FAILED);
                      }),
                      atLeast(100ms));
            EXPECT_EQ(cu_getErrorLocation()->systemErrorCode, EINPROGRESS);
        }))
        GTEST_SKIP() << "no network of the test's own is allowed";
}

TEST(TCPSocket, connectingGoesOnAfterSignals)
{
    const FullServer server;
    for (const uint32_t timeoutMs : {0U, 60'000U}) {
        // The queue has room when the system asks again, after a second.
        std::thread later([&] {
            std::this_thread::sleep_for(50ms);
            for (TCPSocket accepted; cu_TCPSocket_getSelectable(accepted) == nullptr;)
                EXPECT_EQ(cu_TCPServerSocket_timedAccept(server.socket, 100'000, &accepted), 0U);
        });
        const support::SignalStorm storm;
        TCPSocket socket;
        EXPECT_EQ(cu_TCPSocket_new(&socket, CU_IP_ADDRESS_LOCAL, server.port, timeoutMs, nullptr), 0U);
        EXPECT_GT(support::SignalStorm::delivered(), 0U);
        later.join();
    }
}

TEST(TCPSocket, transfersGoOnAfterSignalsThatCutThemShort)
{
    constexpr uint32_t size = 8U << 20;
    std::vector<uint8_t> bytes(size);
    std::iota(bytes.begin(), bytes.end(), uint8_t{1});
    for (const int32_t timeoutMs : {0, 60'000}) {
        const Pair pair;
        for (const uint32_t option : {cu_SOCKET_OPT_SEND_TIMEOUT, cu_SOCKET_OPT_RECEIVE_TIMEOUT})
            ASSERT_EQ(cu_TCPSocket_setOption(pair.first, option, timeoutMs), 0U);
        std::vector<uint8_t> there(size);
        std::vector<uint8_t> back(size);
        const support::SignalStorm storm;
        std::thread peer([&] {
            support::comesTrue([] { return support::SignalStorm::delivered() > 20; });
            EXPECT_EQ(cu_TCPSocket_receive(pair.second, there.data(), size), 0U);
            support::comesTrue([before = support::SignalStorm::delivered()] {
                return support::SignalStorm::delivered() > before + 20;
            });
            EXPECT_EQ(cu_TCPSocket_send(pair.second, there.data(), size, false), 0U);
        });
        EXPECT_EQ(cu_TCPSocket_send(pair.first, bytes.data(), size, false), 0U);
        EXPECT_EQ(cu_TCPSocket_shutdown(pair.first, CU_SHUTDOWN_WRITE), 0U); // ends the peer, whatever was sent
        EXPECT_EQ(cu_TCPSocket_receive(pair.first, back.data(), size), 0U);
        peer.join();
        EXPECT_TRUE(back == bytes);
    }
}

TEST(TCPSocket, aSocketThatDoesNotBlockSaysSoAtOnceAndAPeekTakesNothing)
{
    const Pair pair;
    ASSERT_EQ(cu_TCPSocket_setOption(pair.first, cu_SOCKET_OPT_NON_BLOCKING, 1), 0U);
    std::vector<uint8_t> bytes(16U << 20);
    char got[6] = {};
    const auto send = [&](uint32_t size) { return cu_TCPSocket_send(pair.first, bytes.data(), size, false); };
    // A part of it goes, and that has no cause.
    EXPECT_FAILURE(send(16U << 20), cu_ERROR_SOCKET_IO_TIMEOUT, "cu_TCPSocket_send", file, "");
    support::expectSystemFailures(
        file, {{"send", EAGAIN, cu_ERROR_SOCKET_IO_TIMEOUT, "cu_TCPSocket_send", "", [&] { return send(1); }}});
    EXPECT_SYSTEM_FAILURE(cu_TCPSocket_receive(pair.first, got, 1), cu_ERROR_SOCKET_IO_TIMEOUT, EAGAIN,
                          "cu_TCPSocket_receive", file, "");
    EXPECT_SYSTEM_FAILURE(cu_TCPSocket_peek(pair.first, got, 1), cu_ERROR_SOCKET_WOULD_BLOCK, EAGAIN,
                          "cu_TCPSocket_peek", file, "");
    ASSERT_EQ(cu_TCPSocket_send(pair.second, "abc", 3, false), 0U);
    EXPECT_EQ(cu_TCPSocket_peek(pair.first, got, 5), 0U);
    EXPECT_STREQ(got, "abcab") << "what is too long begins anew";
    EXPECT_EQ(cu_TCPSocket_receive(pair.first, got, 3), 0U);
}

TEST(TCPSocket, aResetIsToldByEachTransferInItsOwnWayAndRaisesNoSignal)
{
    Pair pair;
    char byte = 'x';
    const linger atOnce = {1, 0};
    setsockopt(cu_TCPSocket_getSelectable(pair.first)->handle, SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    ASSERT_EQ(cu_TCPSocket_delete(&pair.first), 0U);
    EXPECT_SYSTEM_FAILURE(cu_TCPSocket_receive(pair.second, &byte, 1), cu_ERROR_SOCKET_RECEIVE_FAILED, ECONNRESET,
                          "cu_TCPSocket_receive", file, "e" + cause(ECONNRESET).substr(1));
    for (int time = 0; time < 2; ++time)
        EXPECT_FAILURE(cu_TCPSocket_send(pair.second, &byte, 1, false), cu_ERROR_SOCKET_IO_TIMEOUT, "cu_TCPSocket_send",
                       file, "");
}

enum class Kind { flag, size, time };

const struct Option {
    uint32_t type;
    Kind kind;
    int level;
    int name;
    std::string set;
    std::string get;
} options[] = {
    {cu_SOCKET_OPT_NO_DELAY, Kind::flag, IPPROTO_TCP, TCP_NODELAY, "the send no delay", "socket option"},
    {cu_SOCKET_OPT_SEND_BUFFER, Kind::size, SOL_SOCKET, SO_SNDBUF, "the send buffer size", "send buffer size"},
    {cu_SOCKET_OPT_RECEIVE_BUFFER, Kind::size, SOL_SOCKET, SO_RCVBUF, "the receive buffer size", "receive buffer size"},
    {cu_SOCKET_OPT_SEND_TIMEOUT, Kind::time, SOL_SOCKET, SO_SNDTIMEO, "the send timeout", "send timeout"},
    {cu_SOCKET_OPT_RECEIVE_TIMEOUT, Kind::time, SOL_SOCKET, SO_RCVTIMEO, "the receive timeout", "receive timeout"},
    {cu_SOCKET_OPT_KEEP_ALIVE, Kind::flag, SOL_SOCKET, SO_KEEPALIVE, "keep alive", "keep alive"},
    {cu_SOCKET_OPT_QUICK_ACK, Kind::flag, IPPROTO_TCP, TCP_QUICKACK, "quick ack", "quick ack"}};

TEST(TCPSocket, anOptionReachesTheSystemAndIsDescribedWhenItFails)
{
    const Pair pair;
    const cu_Selectable* selectable = cu_TCPSocket_getSelectable(pair.first);
    int32_t value = -1;
    const auto set = [&](uint32_t type, int32_t wanted) { return cu_TCPSocket_setOption(pair.first, type, wanted); };
    const auto get = [&](uint32_t type) { return cu_TCPSocket_getOption(pair.first, type, &value); };
    constexpr cu_ErrorCode code = cu_ERROR_SOCKET_SOCKET_OPT_FAILED;
    const auto expectFailure = [&](bool ofSet, uint32_t type, const char* call, const std::string& text,
                                   unsigned nth = 1) {
        const support::Injection injection(call, EDOM, nth);
        EXPECT_SYSTEM_FAILURE(ofSet ? set(type, 1500) : get(type), code, EDOM,
                              ofSet ? "cu_TCPSocket_setOption" : "cu_TCPSocket_getOption", file, text + cause(EDOM));
    };
    const std::vector<int32_t> values[] = {{0, 1, 0, -7}, {16384, 32768}, {1500, 40, 0, 2'000'000'000}};
    for (const Option& option : options) {
        SCOPED_TRACE(option.get);
        for (const int32_t wanted : values[static_cast<int>(option.kind)]) {
            EXPECT_EQ(set(option.type, wanted), 0U);
            EXPECT_EQ(get(option.type), 0U);
            EXPECT_EQ(option.kind == Kind::time ? value / 1000 : value,
                      kernelOption(selectable, option.level, option.name));
            EXPECT_THAT(value, option.kind == Kind::size ? testing::AllOf(testing::Ge(wanted), testing::Le(2 * wanted))
                                                         : testing::Matcher<int32_t>(wanted < 0 ? 1 : wanted));
        }
        const char* parts = option.kind == Kind::time ? " ms (s=1, us=500000)." : ".";
        expectFailure(true, option.type, "setsockopt",
                      "Failed to set " + option.set + (option.kind == Kind::flag ? " to '1'" : " to '1500'") + parts);
        expectFailure(false, option.type, "getsockopt", "Failed to read " + option.get + "!");
        if (option.kind != Kind::flag) {
            EXPECT_REFUSED(set(option.type, -1), "cu_TCPSocket_setOption", file);
        }
    }
    EXPECT_FAILURE(set(8, 1), code, "cu_TCPSocket_setOption", file, "Invalid option type '8'.");
    EXPECT_FAILURE(get(8), code, "cu_TCPSocket_getOption", file, "Invalid option type '8'.");

    for (const int32_t wanted : {3, 0}) {
        EXPECT_EQ(set(cu_SOCKET_OPT_NON_BLOCKING, wanted), 0U);
        EXPECT_EQ(get(cu_SOCKET_OPT_NON_BLOCKING), 0U);
        EXPECT_EQ(value, wanted != 0 ? 1 : 0);
        EXPECT_EQ((fcntl(selectable->handle, F_GETFL) & O_NONBLOCK) != 0, wanted != 0);
        expectFailure(wanted != 0, cu_SOCKET_OPT_NON_BLOCKING, "fcntl64", "Failed to get file descriptor flags.");
    }
    std::ostringstream flags;
    flags << std::hex << std::uppercase << (fcntl(selectable->handle, F_GETFL) | O_NONBLOCK) << '.';
    expectFailure(true, cu_SOCKET_OPT_NON_BLOCKING, "fcntl64",
                  "Failed to set file descriptor flags to 0x" + flags.str(), 2);
}

TEST(TCPSocket, closingAndShuttingDownFailInTheirOwnWays)
{
    const int unconnected = ::socket(AF_INET, SOCK_STREAM, 0);
    cu_TCPSocket* socket = nullptr;
    ASSERT_EQ(cu_TCPSocket_fromAccept(&socket, unconnected, 1, 2, nullptr), 0U);
    EXPECT_SYSTEM_FAILURE(cu_TCPSocket_shutdown(socket, 2), cu_ERROR_SOCKET_SHUTDOWN_FAILED, ENOTCONN,
                          "cu_TCPSocket_shutdown", file, "Failed to shutdown the socket how=2." + cause(ENOTCONN));
    support::expectSystemFailures(file, {{"close", EIO, cu_ERROR_SOCKET_CLOSE_FAILED, "cu_TCPSocket_delete", "",
                                          [&] { return cu_TCPSocket_delete(&socket); }}});
    ASSERT_NE(socket, nullptr);
    EXPECT_EQ(cu_TCPSocket_delete(&socket), 0U) << "what may be another's descriptor by now is not closed again";
    EXPECT_EQ(close(unconnected), 0);
}

TEST(TCPSocket, aStrangerDoesNotBecomeAnEndOfThePair)
{
    const int stranger = socket(AF_INET, SOCK_STREAM, 0);
    bool connected = false;
    TCPSocket first;
    TCPSocket second;
    {
        const support::Interlude interlude([&] {
            for (int other = stranger + 1; !connected && other < stranger + 8; ++other) {
                sockaddr_in address = {};
                auto* generic = reinterpret_cast<sockaddr*>(&address);
                socklen_t size = sizeof(address);
                connected = getsockname(other, generic, &size) == 0 && address.sin_port != 0 &&
                            connect(stranger, generic, size) == 0;
            }
        });
        ASSERT_EQ(cu_TCPSocket_createPipe(&first, &second, nullptr), 0U);
    }
    ASSERT_TRUE(connected);
    char byte = 'x';
    EXPECT_LE(recv(stranger, &byte, 1, 0), 0) << "it is sent away";
    expectConnected(first, second);
    close(stranger);
}

TEST(TCPServerSocket, reusesItsPortWhenItIsToldAndATimedAcceptWithoutAClientGivesNone)
{
    for (const bool reuse : {false, true}) {
        TCPServerSocket server;
        TCPSocket accepted;
        ASSERT_EQ(cu_TCPServerSocket_new(&server, 0, CU_IP_ADDRESS_ANY, UINT32_MAX, reuse, nullptr), 0U);
        EXPECT_EQ(kernelOption(cu_TCPServerSocket_getSelectable(server), SOL_SOCKET, SO_REUSEADDR), reuse ? 1 : 0);
        EXPECT_GE(timeOf([&] { EXPECT_EQ(cu_TCPServerSocket_timedAccept(server, 50'000, &accepted), 0U); }), 50ms);
        EXPECT_EQ(accepted, nullptr);
    }
}

TEST(TCPServerSocket, anAcceptSurvivesSignalsAndLeavesNothingBehindWhenItFails)
{
    support::WatchfulAllocator allocator;
    const Server server(16, allocator.get());
    TCPSocket clients[2];
    TCPSocket accepted;
    const auto accept = [&] { return cu_TCPServerSocket_accept(server.socket, &accepted); };
    for (TCPSocket& client : clients)
        ASSERT_EQ(cu_TCPSocket_new(&client, CU_IP_ADDRESS_LOCAL, server.port, 0, nullptr), 0U);
    support::expectSystemFailures(
        serverFile, {{"accept4", EMFILE, cu_ERROR_SOCKET_INIT_FAILED, "cu_TCPServerSocket_accept", "", accept}});
    allocator.refuse(1);
    EXPECT_EQ(accept(), cu_ERROR_COM_MALLOC_FAILED);
    EXPECT_NE(support::trace().find("cu_TCPServerSocket_accept"), std::string::npos);
    char byte = 0;
    EXPECT_FAILURE(cu_TCPSocket_receive(clients[0], &byte, 1), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED,
                   "cu_TCPSocket_receive", file, "");

    const support::Injection injection("accept4", EINTR);
    EXPECT_EQ(accept(), 0U);
    EXPECT_EQ(allocator.live(), 2U) << "an accepted socket's memory is not from the server's allocator";
}

TEST(TCPSocket, refusesNulls)
{
    const Pair pair;
    const Server server;
    cu_TCPSocket* socket = pair.first;
    cu_TCPServerSocket* listening = server.socket;
    cu_TCPSocket* noSocket = nullptr;
    cu_TCPServerSocket* noServer = nullptr;
    Place place;
    int32_t byte = 0;
    const std::tuple good(socket, &noSocket, static_cast<void*>(&byte), &place.port, &place.address, &byte);
    EXPECT_NULLS_REFUSED(file, good, cu_TCPSocket_new, cu_TCPSocket_fromAccept, cu_TCPSocket_createPipe,
                         cu_TCPSocket_shutdown, cu_TCPSocket_getAddress, cu_TCPSocket_getPort, cu_TCPSocket_setOption,
                         cu_TCPSocket_getOption, cu_TCPSocket_receive, cu_TCPSocket_peek, cu_TCPSocket_send);
    EXPECT_NULLS_REFUSED(file, std::tuple(&socket), cu_TCPSocket_delete);
    EXPECT_NULLS_REFUSED(serverFile, std::tuple(listening, &noSocket, &noServer), cu_TCPServerSocket_new,
                         cu_TCPServerSocket_accept, cu_TCPServerSocket_timedAccept);
    EXPECT_NULLS_REFUSED(serverFile, std::tuple(&listening), cu_TCPServerSocket_delete);
    EXPECT_EQ(cu_TCPSocket_getSelectable(nullptr), nullptr);
    EXPECT_EQ(cu_TCPServerSocket_getSelectable(nullptr), nullptr);
    EXPECT_REFUSED(cu_TCPSocket_receive(socket, &byte, 0), "cu_TCPSocket_receive", file);
    EXPECT_REFUSED(cu_TCPSocket_peek(socket, &byte, 0), "cu_TCPSocket_peek", file);
    EXPECT_REFUSED(cu_TCPSocket_shutdown(socket, 3), "cu_TCPSocket_shutdown", file);
}

} // namespace
