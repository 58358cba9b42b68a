#include "sockets.h"

#include "support/inject.h"
#include "support/record.h"
#include "support/refusal.h"
#include "support/signalStorm.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/network/sctpSocket.h>
#include <cUtil/network/udpSocket.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace
{

#define PROTOCOL(Name, socketType, number, source)                                                                     \
    struct Name {                                                                                                      \
        using Type = cu_##Name##Socket;                                                                                \
        static constexpr int type = socketType;                                                                        \
        static constexpr int protocol = number;                                                                        \
        static constexpr char name[] = "cu_" #Name "Socket_";                                                          \
        static constexpr char file[] = "src/cUtil/network/" source;                                                    \
        static constexpr auto make = cu_##Name##Socket_new;                                                            \
        static constexpr auto destroy = cu_##Name##Socket_delete;                                                      \
        static constexpr auto receive = cu_##Name##Socket_receive;                                                     \
        static constexpr auto send = cu_##Name##Socket_send;                                                           \
        static constexpr auto getSelectable = cu_##Name##Socket_getSelectable;                                         \
    };
PROTOCOL(UDP, SOCK_DGRAM, IPPROTO_UDP, "udpSocket.linux")
PROTOCOL(SCTP, SOCK_SEQPACKET, IPPROTO_SCTP, "sctpSocket.linux")

template <typename Protocol>
class DatagramSocket : public testing::Test
{
protected:
    using Socket = Handle<typename Protocol::Type, Protocol::destroy>;

    void SetUp() override
    {
        const int descriptor = socket(AF_INET, Protocol::type, Protocol::protocol);
        if (descriptor == -1)
            GTEST_SKIP() << "the kernel has no such protocol: " << strerror(errno);
        close(descriptor);
        for (auto& [socket, port] : ends) {
            ASSERT_EQ(Protocol::make(&socket, CU_IP_ADDRESS_LOCAL, 0, nullptr), 0U);
            port = placeOf(Protocol::getSelectable(socket)).port;
        }
    }

    static std::string function(const char* operation) { return std::string(Protocol::name) + operation; }

    struct {
        Socket socket;
        uint16_t port = 0;
    } ends[2];
    Place from;
    uint32_t size = 0;
};

using Protocols = testing::Types<UDP, SCTP>;
TYPED_TEST_SUITE(DatagramSocket, Protocols);

TYPED_TEST(DatagramSocket, movesWholeMessagesBothWaysThroughSignalsAndTellsTheSender)
{
    const std::string texts[] = {"first", "the second, of another length", std::string(2000, 'x')};
    for (int sender = 0; sender < 2; ++sender) {
        auto& here = this->ends[sender];
        auto& there = this->ends[1 - sender];
        const support::SignalStorm storm;
        std::thread later([&] {
            std::this_thread::sleep_for(50ms);
            for (const std::string& text : texts)
                EXPECT_EQ(TypeParam::send(here.socket, CU_IP_ADDRESS_LOCAL, there.port, text.data(),
                                          static_cast<uint32_t>(text.size())),
                          0U);
        });
        for (const std::string& text : texts) {
            char got[4000];
            EXPECT_EQ(
                TypeParam::receive(there.socket, &this->from.address, &this->from.port, got, sizeof(got), &this->size),
                0U);
            EXPECT_EQ(std::string(got, this->size), text);
            EXPECT_EQ(this->from, (Place{CU_IP_ADDRESS_LOCAL, here.port}));
        }
        later.join();
        EXPECT_TRUE(isClosedOnExec(TypeParam::getSelectable(here.socket)->handle));
    }
}

TYPED_TEST(DatagramSocket, failuresAreReportedAndLeaveNothingBehind)
{
    support::sweep<typename TypeParam::Type>(
        this->function("new").c_str(),
        [](auto** socket, cu_allocator* allocator) {
            return TypeParam::make(socket, CU_IP_ADDRESS_LOCAL, 0, allocator);
        },
        TypeParam::destroy);

    typename TypeParam::Type* none = nullptr;
    const std::string make = this->function("new");
    const std::string send = this->function("send");
    const std::string receive = this->function("receive");
    auto& end = this->ends[0];
    char byte = 0;
    const auto makeOne = [&] { return TypeParam::make(&none, CU_IP_ADDRESS_LOCAL, 0, nullptr); };
    support::expectSystemFailures(
        TypeParam::file,
        {{"socket", EMFILE, cu_ERROR_SOCKET_INIT_FAILED, make.c_str(), "", makeOne},
         {"setsockopt", EDOM, cu_ERROR_SOCKET_SOCKET_OPT_FAILED, make.c_str(), "", makeOne},
         {"bind", EADDRINUSE, cu_ERROR_SOCKET_PORT_ALREADY_BOUND, make.c_str(),
          "when binding port 0 to address 0x7f000001", makeOne},
         {"bind", EACCES, cu_ERROR_SOCKET_INIT_FAILED, make.c_str(), "", makeOne},
         {"recvfrom", ENOMEM, cu_ERROR_SOCKET_RECEIVE_FAILED, receive.c_str(), "",
          [&] { return TypeParam::receive(end.socket, &this->from.address, &this->from.port, &byte, 1, &this->size); }},
         {"sendto", ENOBUFS, cu_ERROR_SOCKET_SEND_FAILED, send.c_str(), "",
          [&] { return TypeParam::send(end.socket, CU_IP_ADDRESS_LOCAL, end.port, &byte, 1); }}});
}

TEST(UDPSocket, aLongDatagramIsCutAnEmptyOneArrivesAndOnlyBroadcastIsAnOption)
{
    Handle<cu_UDPSocket, cu_UDPSocket_delete> socket;
    ASSERT_EQ(cu_UDPSocket_new(&socket, CU_IP_ADDRESS_ANY, 0, nullptr), 0U);
    Place place = placeOf(cu_UDPSocket_getSelectable(socket));
    EXPECT_EQ(place.address, CU_IP_ADDRESS_ANY);
    const uint16_t port = place.port;
    const std::string big(70'000, 'x');
    const auto send = [&](uint32_t size) {
        return cu_UDPSocket_send(socket, CU_IP_ADDRESS_LOCAL, port, big.data(), size);
    };
    for (const uint32_t sent : {4U, 0U}) {
        char got[2] = {};
        uint32_t size = 7;
        ASSERT_EQ(send(sent), 0U);
        EXPECT_EQ(cu_UDPSocket_receive(socket, &place.address, &place.port, got, 2, &size), 0U);
        EXPECT_EQ(std::string(got, size), big.substr(0, sent / 2));
    }
    EXPECT_SYSTEM_FAILURE(send(70'000), cu_ERROR_SOCKET_SEND_FAILED, EMSGSIZE, "cu_UDPSocket_send", UDP::file, "");

    int32_t value = -1;
    for (const int32_t wanted : {0, 1, 0, 4}) {
        EXPECT_EQ(cu_UDPSocket_setOption(socket, cu_UDP_SOCKET_OPT_BROADCAST, wanted), 0U);
        EXPECT_EQ(cu_UDPSocket_getOption(socket, cu_UDP_SOCKET_OPT_BROADCAST, &value), 0U);
        EXPECT_EQ(value, wanted != 0 ? 1 : 0);
        int set = -1;
        socklen_t size = sizeof(set);
        getsockopt(cu_UDPSocket_getSelectable(socket)->handle, SOL_SOCKET, SO_BROADCAST, &set, &size);
        EXPECT_EQ(set, value);
    }
    support::expectSystemFailures(UDP::file,
                                  {{"setsockopt", EDOM, cu_ERROR_SOCKET_SOCKET_OPT_FAILED, "cu_UDPSocket_setOption", "",
                                    [&] { return cu_UDPSocket_setOption(socket, 0, 1); }},
                                   {"getsockopt", EDOM, cu_ERROR_SOCKET_SOCKET_OPT_FAILED, "cu_UDPSocket_getOption", "",
                                    [&] { return cu_UDPSocket_getOption(socket, 0, &value); }}});
}

// Only what is refused before the socket is looked at: most kernels have no SCTP.
TEST(DatagramSockets, refuseNullsAndOptionsThatThereAreNot)
{
    static char anything[64];
    auto* udp = reinterpret_cast<cu_UDPSocket*>(anything);
    auto* sctp = reinterpret_cast<cu_SCTPSocket*>(anything);
    cu_UDPSocket* noUDP = nullptr;
    cu_SCTPSocket* noSCTP = nullptr;
    uint32_t address = 0;
    uint16_t port = 0;
    int32_t value = 0;
    const std::tuple good(udp, &noUDP, &address, &port, static_cast<void*>(anything), &value);
    EXPECT_NULLS_REFUSED(UDP::file, good, cu_UDPSocket_new, cu_UDPSocket_setOption, cu_UDPSocket_getOption,
                         cu_UDPSocket_receive, cu_UDPSocket_send);
    EXPECT_NULLS_REFUSED(UDP::file, std::tuple(&udp), cu_UDPSocket_delete);
    const std::tuple goodToo(sctp, &noSCTP, &address, &port, static_cast<void*>(anything));
    EXPECT_NULLS_REFUSED(SCTP::file, goodToo, cu_SCTPSocket_new, cu_SCTPSocket_setOption, cu_SCTPSocket_getOption,
                         cu_SCTPSocket_receive, cu_SCTPSocket_send);
    EXPECT_NULLS_REFUSED(SCTP::file, std::tuple(&sctp), cu_SCTPSocket_delete);
    EXPECT_REFUSED(cu_UDPSocket_receive(udp, &address, &port, anything, 0, &address), "cu_UDPSocket_receive",
                   UDP::file);
    EXPECT_EQ(cu_UDPSocket_getSelectable(nullptr), nullptr);
    EXPECT_EQ(cu_SCTPSocket_getSelectable(nullptr), nullptr);

    EXPECT_FAILURE(cu_UDPSocket_setOption(udp, 1, 1), cu_ERROR_SOCKET_SOCKET_OPT_FAILED, "cu_UDPSocket_setOption",
                   UDP::file, "Invalid option type '1'.");
    EXPECT_FAILURE(cu_UDPSocket_getOption(udp, 1, &value), cu_ERROR_SOCKET_SOCKET_OPT_FAILED, "cu_UDPSocket_getOption",
                   UDP::file, "Invalid option type '1'.");
    EXPECT_FAILURE(cu_SCTPSocket_setOption(sctp, 0, 1), cu_ERROR_SOCKET_SOCKET_OPT_FAILED, "cu_SCTPSocket_setOption",
                   SCTP::file, "Invalid option type '0'.");
    EXPECT_FAILURE(cu_SCTPSocket_getOption(sctp, 7, nullptr), cu_ERROR_SOCKET_SOCKET_OPT_FAILED,
                   "cu_SCTPSocket_getOption", SCTP::file, "Invalid option type '7'.");
}

} // namespace
