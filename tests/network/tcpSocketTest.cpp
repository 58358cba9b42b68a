#include "sockets.h"

#include "support/allocator.h"
#include "support/inject.h"
#include "support/process.h"
#include "support/record.h"
#include "support/refusal.h"
#include "support/signalStorm.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cerrno>
#include <cstring>
#include <functional>
#include <netinet/tcp.h>
#include <numeric>
#include <sstream>
#include <string>
#include <sys/time.h>
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

// What the system says of an option, times in milliseconds.
int32_t kernelOption(int descriptor, int level, int name)
{
    union {
        int32_t number;
        timeval time;
    } value = {};
    socklen_t size = sizeof(value);
    EXPECT_EQ(getsockopt(descriptor, level, name, &value, &size), 0);
    return size != sizeof(value.time) ? value.number
                                      : static_cast<int32_t>(value.time.tv_sec * 1000 + value.time.tv_usec / 1000);
}

// They name each other, move bytes both ways, wait without limit, and are closed by exec().
void expectConnected(cu_TCPSocket* first, cu_TCPSocket* second)
{
    for (const auto& [here, there] : {std::pair(first, second), std::pair(second, first)}) {
        Place peer;
        EXPECT_EQ(cu_TCPSocket_getAddress(here, &peer.address), 0U);
        EXPECT_EQ(cu_TCPSocket_getPort(here, &peer.port), 0U);
        EXPECT_EQ(peer, placeOf(cu_TCPSocket_getSelectable(there)));
        for (const std::string part : {"cli", "", "ent"})
            EXPECT_EQ(cu_TCPSocket_send(here, part.data(), static_cast<uint32_t>(part.size()), part != "ent"), 0U);
        char got[6] = {};
        EXPECT_EQ(cu_TCPSocket_receive(there, got, 6), 0U);
        EXPECT_EQ(std::string(got, 6), "client");
        EXPECT_TRUE(isClosedOnExec(descriptorOf(here)));
        EXPECT_EQ(fcntl(descriptorOf(here), F_GETFL) & O_NONBLOCK, 0);
        for (const int option : {SO_SNDTIMEO, SO_RCVTIMEO})
            EXPECT_EQ(kernelOption(descriptorOf(here), SOL_SOCKET, option), 0) << "of connecting, still set";
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
    EXPECT_TRUE(isClosedOnExec(cu_TCPServerSocket_getSelectable(server.socket)->handle));
    const Pair pair;
    expectConnected(pair.first, pair.second);
    EXPECT_EQ(kernelOption(descriptorOf(pair.first), IPPROTO_TCP, TCP_NODELAY), 1);
    EXPECT_EQ(kernelOption(descriptorOf(pair.second), IPPROTO_TCP, TCP_NODELAY), 1);
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

TEST(TCPSocket, aConnectionThatCannotBeMadeIsReported)
{
    uint16_t port = 0;
    {
        const Server gone;
        port = gone.port;
    }
    cu_TCPSocket* socket = nullptr;
    const auto error = [](int number) { return std::string("error: ") + strerror(number); };
    for (const uint32_t timeoutMs : {0U, 5000U})
        EXPECT_SYSTEM_FAILURE(cu_TCPSocket_new(&socket, CU_IP_ADDRESS_LOCAL, port, timeoutMs, nullptr),
                              cu_ERROR_SOCKET_CONNECT_FAILED, ECONNREFUSED, "cu_TCPSocket_new", file,
                              error(ECONNREFUSED));
    const auto connect = [&] { return cu_TCPSocket_new(&socket, CU_IP_ADDRESS_LOCAL, port, 100, nullptr); };
    constexpr char function[] = "cu_TCPSocket_new";
    support::expectSystemFailures(
        file, {{"socket", EMFILE, cu_ERROR_SOCKET_INIT_FAILED, function, error(EMFILE), connect},
               {"setsockopt", EDOM, cu_ERROR_SOCKET_CONNECT_FAILED, function, error(EDOM), connect}});
}

TEST(TCPSocket, everythingEndsWhenItsTimeIsUpWhateverSignalsCome)
{
    const FullServer server;
    std::vector<uint8_t> bytes(16U << 20);
    cu_TCPSocket* socket = nullptr;
    for (const auto hail : {0s, 20s}) {
        const Pair pair;
        ASSERT_EQ(cu_TCPSocket_setOption(pair.first, cu_SOCKET_OPT_SEND_TIMEOUT, 100), 0U);
        ASSERT_EQ(cu_TCPSocket_setOption(pair.first, cu_SOCKET_OPT_RECEIVE_TIMEOUT, 100), 0U);
        const std::pair<cu_ErrorCode, std::function<cu_ErrorCode()>> table[] = {
            {cu_ERROR_SOCKET_IO_TIMEOUT, [&] { return cu_TCPSocket_receive(pair.first, bytes.data(), 8); }},
            {cu_ERROR_SOCKET_WOULD_BLOCK, [&] { return cu_TCPSocket_peek(pair.first, bytes.data(), 8); }},
            {cu_ERROR_SOCKET_IO_TIMEOUT, [&] { return cu_TCPSocket_send(pair.first, bytes.data(), 16U << 20, false); }},
            {cu_ERROR_SOCKET_CONNECT_FAILED,
             [&] { return cu_TCPSocket_new(&socket, CU_IP_ADDRESS_LOCAL, server.port, 100, nullptr); }}};
        const support::SignalStorm storm(hail);
        const auto began = std::chrono::steady_clock::now();
        for (const auto& [code, call] : table)
            EXPECT_GE(timeOf([code = code, &call = call] { EXPECT_EQ(call(), code); }), atLeast(100ms));
        EXPECT_EQ(cu_getErrorLocation()->systemErrorCode, EINPROGRESS);
        EXPECT_LT(storm.lastSent() - began, 19s) << "signals prolong it";
    }
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
    for (const int32_t timeoutMs : {0, 60'000}) {
        const Pair pair;
        ASSERT_EQ(cu_TCPSocket_setOption(pair.first, cu_SOCKET_OPT_SEND_TIMEOUT, timeoutMs), 0U);
        ASSERT_EQ(cu_TCPSocket_setOption(pair.first, cu_SOCKET_OPT_RECEIVE_TIMEOUT, timeoutMs), 0U);
        std::vector<uint8_t> bytes(8U << 20);
        std::iota(bytes.begin(), bytes.end(), uint8_t{1});
        std::vector<uint8_t> got(bytes.size());
        std::vector<uint8_t> trickled(200);
        const support::SignalStorm storm;
        std::thread peer([&] {
            support::comesTrue([] { return support::SignalStorm::delivered() > 20; });
            for (std::size_t at = 0; at < got.size(); at += got.size() / 64)
                EXPECT_EQ(cu_TCPSocket_receive(pair.second, &got[at], static_cast<uint32_t>(got.size() / 64)), 0U);
            for (std::size_t at = 0; at < trickled.size(); ++at) {
                EXPECT_EQ(cu_TCPSocket_send(pair.second, &bytes[at], 1, false), 0U);
                std::this_thread::sleep_for(200us);
            }
        });
        EXPECT_EQ(cu_TCPSocket_send(pair.first, bytes.data(), static_cast<uint32_t>(bytes.size()), false), 0U);
        EXPECT_EQ(cu_TCPSocket_shutdown(pair.first, CU_SHUTDOWN_WRITE), 0U); // ends the peer, whatever was sent
        EXPECT_EQ(cu_TCPSocket_receive(pair.first, trickled.data(), static_cast<uint32_t>(trickled.size())), 0U);
        peer.join();
        EXPECT_TRUE(got == bytes);
        EXPECT_TRUE(std::equal(trickled.begin(), trickled.end(), bytes.begin()));
    }
}

TEST(TCPSocket, aSocketThatDoesNotBlockSaysSoAtOnce)
{
    const Pair pair;
    ASSERT_EQ(cu_TCPSocket_setOption(pair.first, cu_SOCKET_OPT_NON_BLOCKING, 1), 0U);
    std::vector<uint8_t> bytes(16U << 20);
    const auto send = [&](uint32_t size) { return cu_TCPSocket_send(pair.first, bytes.data(), size, false); };
    // A part of it goes, and that has no cause.
    EXPECT_FAILURE(send(16U << 20), cu_ERROR_SOCKET_IO_TIMEOUT, "cu_TCPSocket_send", file, "");
    support::expectSystemFailures(
        file, {{"send", EAGAIN, cu_ERROR_SOCKET_IO_TIMEOUT, "cu_TCPSocket_send", "", [&] { return send(1); }}});
    EXPECT_SYSTEM_FAILURE(cu_TCPSocket_receive(pair.first, bytes.data(), 1), cu_ERROR_SOCKET_IO_TIMEOUT, EAGAIN,
                          "cu_TCPSocket_receive", file, "");
    EXPECT_SYSTEM_FAILURE(cu_TCPSocket_peek(pair.first, bytes.data(), 1), cu_ERROR_SOCKET_WOULD_BLOCK, EAGAIN,
                          "cu_TCPSocket_peek", file, "");
}

TEST(TCPSocket, aPeekTakesNothingAndOneThatIsTooLongBeginsAnew)
{
    const Pair pair;
    char got[6] = {};
    ASSERT_EQ(cu_TCPSocket_send(pair.first, "abc", 3, false), 0U);
    EXPECT_EQ(cu_TCPSocket_peek(pair.second, got, 5), 0U);
    EXPECT_STREQ(got, "abcab");
    EXPECT_EQ(cu_TCPSocket_receive(pair.second, got, 3), 0U);
    EXPECT_STREQ(got, "abcab");
}

TEST(TCPSocket, aPeerThatIsGoneIsToldByEachTransferInItsOwnWay)
{
    Pair pair;
    Pair reset;
    char byte = 'x';
    EXPECT_EQ(cu_TCPSocket_shutdown(pair.first, CU_SHUTDOWN_WRITE), 0U);
    EXPECT_FAILURE(cu_TCPSocket_receive(pair.second, &byte, 1), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED,
                   "cu_TCPSocket_receive", file, "");
    EXPECT_FAILURE(cu_TCPSocket_peek(pair.second, &byte, 1), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED, "cu_TCPSocket_peek",
                   file, "");
    EXPECT_EQ(cu_TCPSocket_send(pair.second, &byte, 1, false), 0U) << "the other direction stands";
    EXPECT_EQ(cu_TCPSocket_receive(pair.first, &byte, 1), 0U);

    // A reset raises no signal.
    const linger atOnce = {1, 0};
    setsockopt(descriptorOf(reset.first), SOL_SOCKET, SO_LINGER, &atOnce, sizeof(atOnce));
    ASSERT_EQ(cu_TCPSocket_delete(&reset.first), 0U);
    EXPECT_SYSTEM_FAILURE(cu_TCPSocket_receive(reset.second, &byte, 1), cu_ERROR_SOCKET_RECEIVE_FAILED, ECONNRESET,
                          "cu_TCPSocket_receive", file,
                          "errno[" + std::to_string(ECONNRESET) + "]='" + strerror(ECONNRESET) + "'");
    for (int time = 0; time < 2; ++time)
        EXPECT_FAILURE(cu_TCPSocket_send(reset.second, &byte, 1, false), cu_ERROR_SOCKET_IO_TIMEOUT,
                       "cu_TCPSocket_send", file, "");
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

TEST(TCPSocket, anOptionReachesTheSystemAndIsReadFromThere)
{
    const Pair pair;
    const int descriptor = descriptorOf(pair.first);
    int32_t value = -1;
    const auto set = [&](uint32_t type, int32_t wanted) {
        EXPECT_EQ(cu_TCPSocket_setOption(pair.first, type, wanted), 0U) << type;
        EXPECT_EQ(cu_TCPSocket_getOption(pair.first, type, &value), 0U) << type;
    };
    const std::vector<int32_t> values[] = {{0, 1, 0, -7}, {16384, 32768}, {1500, 40, 0, 2'000'000'000}};
    for (const Option& option : options) {
        for (const int32_t wanted : values[static_cast<int>(option.kind)]) {
            set(option.type, wanted);
            EXPECT_EQ(value, kernelOption(descriptor, option.level, option.name));
            if (option.kind == Kind::size) {
                EXPECT_THAT(value, testing::AllOf(testing::Ge(wanted), testing::Le(2 * wanted)));
            } else {
                EXPECT_EQ(value, wanted < 0 ? 1 : wanted);
            }
        }
    }
    for (const int32_t wanted : {3, 0}) {
        set(cu_SOCKET_OPT_NON_BLOCKING, wanted);
        EXPECT_EQ(value, wanted != 0 ? 1 : 0);
        EXPECT_EQ((fcntl(descriptor, F_GETFL) & O_NONBLOCK) != 0, wanted != 0);
    }
}

TEST(TCPSocket, anOptionThatFailsIsDescribed)
{
    const Pair pair;
    const auto expectFailure = [&](bool set, uint32_t type, const char* call, int error, const std::string& text,
                                   unsigned nth = 1) {
        const support::Injection injection(call, error, nth);
        int32_t value = 1500;
        EXPECT_SYSTEM_FAILURE(set ? cu_TCPSocket_setOption(pair.first, type, value)
                                  : cu_TCPSocket_getOption(pair.first, type, &value),
                              cu_ERROR_SOCKET_SOCKET_OPT_FAILED, error,
                              set ? "cu_TCPSocket_setOption" : "cu_TCPSocket_getOption", file, text);
    };
    for (const Option& option : options) {
        const char* value = option.kind == Kind::flag ? "'1'" : "'1500'";
        const char* parts = option.kind == Kind::time ? " ms (s=1, us=500000)." : ".";
        expectFailure(true, option.type, "setsockopt", EDOM,
                      "Failed to set " + option.set + " to " + value + parts + cause(EDOM));
        expectFailure(false, option.type, "getsockopt", EDOM, "Failed to read " + option.get + "!" + cause(EDOM));
        if (option.kind != Kind::flag) {
            EXPECT_REFUSED(cu_TCPSocket_setOption(pair.first, option.type, -1), "cu_TCPSocket_setOption", file);
        }
    }
    for (const bool set : {false, true}) {
        expectFailure(set, cu_SOCKET_OPT_NON_BLOCKING, "fcntl64", EDOM,
                      "Failed to get file descriptor flags." + cause(EDOM));
        expectFailure(set, 8, "none", 0, "Invalid option type '8'.");
    }
    std::ostringstream flags;
    flags << "Failed to set file descriptor flags to 0x" << std::hex << std::uppercase
          << (fcntl(descriptorOf(pair.first), F_GETFL) | O_NONBLOCK) << '.';
    expectFailure(true, cu_SOCKET_OPT_NON_BLOCKING, "fcntl64", EDOM, flags.str() + cause(EDOM), 2);
}

TEST(TCPSocket, closingAndShuttingDownFailInTheirOwnWays)
{
    const Pair pair;
    cu_TCPSocket* socket = nullptr;
    const int unconnected = ::socket(AF_INET, SOCK_STREAM, 0);
    ASSERT_EQ(cu_TCPSocket_fromAccept(&socket, unconnected, 1, 2, nullptr), 0U);
    for (const int how : {CU_SHUTDOWN_READ, CU_SHUTDOWN_WRITE, CU_SHUTDOWN_BOTH})
        EXPECT_SYSTEM_FAILURE(cu_TCPSocket_shutdown(socket, static_cast<uint32_t>(how)),
                              cu_ERROR_SOCKET_SHUTDOWN_FAILED, ENOTCONN, "cu_TCPSocket_shutdown", file,
                              "Failed to shutdown the socket how=" + std::to_string(how) + "." + cause(ENOTCONN));
    {
        const support::Injection injection("close", EIO);
        EXPECT_SYSTEM_FAILURE(cu_TCPSocket_delete(&socket), cu_ERROR_SOCKET_CLOSE_FAILED, EIO, "cu_TCPSocket_delete",
                              file, "");
    }
    ASSERT_NE(socket, nullptr);
    EXPECT_EQ(cu_TCPSocket_delete(&socket), 0U) << "what may be another's descriptor by now is not closed again";
    EXPECT_EQ(socket, nullptr);
    EXPECT_EQ(close(unconnected), 0);
}

TEST(TCPSocket, aStrangerDoesNotBecomeAnEndOfThePair)
{
    const int stranger = socket(AF_INET, SOCK_STREAM, 0);
    bool connected = false;
    const auto comeFirst = [&] {
        for (int other = stranger + 1; !connected && other < stranger + 8; ++other) {
            sockaddr_in address = {};
            auto* generic = reinterpret_cast<sockaddr*>(&address);
            socklen_t size = sizeof(address);
            connected = getsockname(other, generic, &size) == 0 && address.sin_port != 0 &&
                        connect(stranger, generic, size) == 0;
        }
    };
    TCPSocket first;
    TCPSocket second;
    {
        const support::Interlude interlude(comeFirst);
        ASSERT_EQ(cu_TCPSocket_createPipe(&first, &second, nullptr), 0U);
    }
    ASSERT_TRUE(connected);
    char byte = 'x';
    EXPECT_LE(recv(stranger, &byte, 1, 0), 0) << "it is sent away";
    expectConnected(first, second);
    close(stranger);
}

TEST(TCPServerSocket, whatKeepsItFromListeningIsReported)
{
    const Server server;
    cu_TCPServerSocket* other = nullptr;
    EXPECT_SYSTEM_FAILURE(cu_TCPServerSocket_new(&other, server.port, CU_IP_ADDRESS_LOCAL, 1, true, nullptr),
                          cu_ERROR_SOCKET_PORT_ALREADY_BOUND, EADDRINUSE, "cu_TCPServerSocket_new", serverFile,
                          "when binding port " + std::to_string(server.port) + " to address 0x7f000001");
    const auto listen = [&] { return cu_TCPServerSocket_new(&other, 0, CU_IP_ADDRESS_LOCAL, 1, true, nullptr); };
    constexpr char function[] = "cu_TCPServerSocket_new";
    support::expectSystemFailures(serverFile,
                                  {{"socket", EMFILE, cu_ERROR_SOCKET_INIT_FAILED, function, "", listen},
                                   {"setsockopt", EDOM, cu_ERROR_SOCKET_SOCKET_OPT_FAILED, function, "", listen},
                                   {"bind", EADDRNOTAVAIL, cu_ERROR_SOCKET_INIT_FAILED, function, "", listen},
                                   {"listen", EOPNOTSUPP, cu_ERROR_SOCKET_INIT_FAILED, function, "", listen}});
    for (const bool reuse : {false, true}) {
        TCPServerSocket set;
        ASSERT_EQ(cu_TCPServerSocket_new(&set, 0, CU_IP_ADDRESS_ANY, UINT32_MAX, reuse, nullptr), 0U);
        EXPECT_EQ(kernelOption(cu_TCPServerSocket_getSelectable(set)->handle, SOL_SOCKET, SO_REUSEADDR), reuse ? 1 : 0);
    }
}

TEST(TCPServerSocket, aTimedAcceptWithoutAClientGivesNone)
{
    const Server server;
    TCPSocket accepted;
    TCPSocket client;
    EXPECT_GE(timeOf([&] { EXPECT_EQ(cu_TCPServerSocket_timedAccept(server.socket, 50'000, &accepted), 0U); }), 50ms);
    EXPECT_EQ(accepted, nullptr);
    ASSERT_EQ(cu_TCPSocket_new(&client, CU_IP_ADDRESS_LOCAL, server.port, 0, nullptr), 0U);
    EXPECT_EQ(cu_TCPServerSocket_timedAccept(server.socket, 0, &accepted), 0U);
    EXPECT_NE(accepted, nullptr);
}

TEST(TCPServerSocket, anAcceptSurvivesSignalsAndLeavesNothingBehindWhenItFails)
{
    support::WatchfulAllocator allocator;
    const Server server(16, allocator.get());
    TCPSocket client;
    TCPSocket accepted;
    const auto accept = [&] { return cu_TCPServerSocket_accept(server.socket, &accepted); };
    ASSERT_EQ(cu_TCPSocket_new(&client, CU_IP_ADDRESS_LOCAL, server.port, 0, nullptr), 0U);
    const unsigned descriptors = support::openDescriptors();
    support::expectSystemFailures(
        serverFile, {{"accept4", EMFILE, cu_ERROR_SOCKET_INIT_FAILED, "cu_TCPServerSocket_accept", "", accept}});
    allocator.refuse(1);
    EXPECT_EQ(accept(), cu_ERROR_COM_MALLOC_FAILED);
    EXPECT_NE(support::trace().find("cu_TCPSocket_fromAccept"), std::string::npos);
    EXPECT_NE(support::trace().find("cu_TCPServerSocket_accept"), std::string::npos);
    EXPECT_EQ(support::openDescriptors(), descriptors);
    char byte = 0;
    EXPECT_EQ(cu_TCPSocket_receive(client, &byte, 1), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED);

    TCPSocket another;
    const support::SignalStorm storm;
    std::thread later([&] {
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(cu_TCPSocket_new(&another, CU_IP_ADDRESS_LOCAL, server.port, 0, nullptr), 0U);
    });
    EXPECT_EQ(accept(), 0U);
    later.join();
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
    EXPECT_REFUSED(cu_TCPServerSocket_accept(listening, &socket), "cu_TCPServerSocket_accept", serverFile);
    EXPECT_REFUSED(cu_TCPSocket_receive(socket, &byte, 0), "cu_TCPSocket_receive", file);
    EXPECT_REFUSED(cu_TCPSocket_peek(socket, &byte, 0), "cu_TCPSocket_peek", file);
    EXPECT_REFUSED(cu_TCPSocket_shutdown(socket, 3), "cu_TCPSocket_shutdown", file);
}

} // namespace
