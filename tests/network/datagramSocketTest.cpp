#include "sockets.h"

#include <cUtil/network/sctpSocket.h>
#include <cUtil/network/udpSocket.h>

#include <cstring>

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

    cu_ErrorCode send(int sender, int receiver, const std::string& text)
    {
        return Protocol::send(ends[sender].socket, CU_IP_ADDRESS_LOCAL, ends[receiver].port, text.data(),
                              static_cast<uint32_t>(text.size()));
    }
    cu_ErrorCode receive(int at)
    {
        return Protocol::receive(ends[at].socket, &from.address, &from.port, got, sizeof(got), &size);
    }

    struct {
        Handle<typename Protocol::Type, Protocol::destroy> socket;
        uint16_t port = 0;
    } ends[2];
    char got[4000];
    uint32_t size = 0;
    Place from;
};

using Protocols = testing::Types<UDP, SCTP>;
TYPED_TEST_SUITE(DatagramSocket, Protocols);

TYPED_TEST(DatagramSocket, movesWholeMessagesBothWaysThroughSignalsAndTellsTheSender)
{
    for (const int sender : {0, 1}) {
        for (const std::string& text : {std::string("first"), std::string(2000, 'x')}) {
            {
                const support::Injection injection("sendto", EINTR);
                EXPECT_EQ(this->send(sender, 1 - sender, text), 0U);
            }
            const support::Injection injection("recvfrom", EINTR);
            EXPECT_EQ(this->receive(1 - sender), 0U);
            EXPECT_EQ(std::string(this->got, this->size), text);
            EXPECT_EQ(this->from, (Place{CU_IP_ADDRESS_LOCAL, this->ends[sender].port}));
        }
    }
}

TYPED_TEST(DatagramSocket, failuresAreReportedAndLeaveNothingBehind)
{
    const auto function = [](const char* operation) { return std::string(TypeParam::name) + operation; };
    const auto create = [](auto** socket, cu_allocator* allocator) {
        return TypeParam::make(socket, CU_IP_ADDRESS_LOCAL, 0, allocator);
    };
    const std::string make = function("new");
    support::sweep<typename TypeParam::Type>(make.c_str(), create, TypeParam::destroy);
    typename TypeParam::Type* none = nullptr;
    const auto makeOne = [&] { return create(&none, nullptr); };
    support::expectSystemFailures(TypeParam::file,
                                  {{"socket", EMFILE, cu_ERROR_SOCKET_INIT_FAILED, make.c_str(), "", makeOne},
                                   {"setsockopt", EDOM, cu_ERROR_SOCKET_SOCKET_OPT_FAILED, make.c_str(), "", makeOne},
                                   {"bind", EACCES, cu_ERROR_SOCKET_INIT_FAILED, make.c_str(), "", makeOne},
                                   {"recvfrom", ENOMEM, cu_ERROR_SOCKET_RECEIVE_FAILED, function("receive").c_str(), "",
                                    [&] { return this->receive(0); }},
                                   {"sendto", ENOBUFS, cu_ERROR_SOCKET_SEND_FAILED, function("send").c_str(), "",
                                    [&] { return this->send(0, 0, "x"); }}});
}

TEST(UDPSocket, aLongDatagramIsCutAnEmptyOneArrivesAndOnlyBroadcastIsAnOption)
{
    Handle<cu_UDPSocket, cu_UDPSocket_delete> socket;
    ASSERT_EQ(cu_UDPSocket_new(&socket, CU_IP_ADDRESS_ANY, 0, nullptr), 0U);
    const cu_Selectable* selectable = cu_UDPSocket_getSelectable(socket);
    Place place = placeOf(selectable);
    EXPECT_EQ(place.address, CU_IP_ADDRESS_ANY);
    for (const uint32_t sent : {4U, 0U}) {
        char got[2] = {};
        uint32_t size = 7;
        ASSERT_EQ(cu_UDPSocket_send(socket, CU_IP_ADDRESS_LOCAL, place.port, "four", sent), 0U);
        EXPECT_EQ(cu_UDPSocket_receive(socket, &place.address, &place.port, got, 2, &size), 0U);
        EXPECT_EQ(std::string(got, size), sent != 0 ? "fo" : "");
    }

    int32_t value = -1;
    for (const int32_t wanted : {0, 1, 0, 4}) {
        EXPECT_EQ(cu_UDPSocket_setOption(socket, cu_UDP_SOCKET_OPT_BROADCAST, wanted), 0U);
        EXPECT_EQ(cu_UDPSocket_getOption(socket, cu_UDP_SOCKET_OPT_BROADCAST, &value), 0U);
        EXPECT_EQ(value, wanted != 0 ? 1 : 0);
        EXPECT_EQ(kernelOption(selectable, SOL_SOCKET, SO_BROADCAST), value);
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
    Place place;
    int32_t value = 0;
    const std::tuple good(udp, &noUDP, &place.address, &place.port, static_cast<void*>(anything), &value);
    EXPECT_NULLS_REFUSED(UDP::file, good, cu_UDPSocket_new, cu_UDPSocket_setOption, cu_UDPSocket_getOption,
                         cu_UDPSocket_receive, cu_UDPSocket_send);
    EXPECT_NULLS_REFUSED(UDP::file, std::tuple(&udp), cu_UDPSocket_delete);
    const std::tuple goodToo(sctp, &noSCTP, &place.address, &place.port, static_cast<void*>(anything));
    EXPECT_NULLS_REFUSED(SCTP::file, goodToo, cu_SCTPSocket_new, cu_SCTPSocket_setOption, cu_SCTPSocket_getOption,
                         cu_SCTPSocket_receive, cu_SCTPSocket_send);
    EXPECT_NULLS_REFUSED(SCTP::file, std::tuple(&sctp), cu_SCTPSocket_delete);
    EXPECT_REFUSED(cu_UDPSocket_receive(udp, &place.address, &place.port, anything, 0, &place.address),
                   "cu_UDPSocket_receive", UDP::file);
    EXPECT_EQ(cu_UDPSocket_getSelectable(nullptr), nullptr);
    EXPECT_EQ(cu_SCTPSocket_getSelectable(nullptr), nullptr);

    constexpr cu_ErrorCode code = cu_ERROR_SOCKET_SOCKET_OPT_FAILED;
    const std::string text = "Invalid option type '1'.";
    EXPECT_FAILURE(cu_UDPSocket_setOption(udp, 1, 1), code, "cu_UDPSocket_setOption", UDP::file, text);
    EXPECT_FAILURE(cu_UDPSocket_getOption(udp, 1, &value), code, "cu_UDPSocket_getOption", UDP::file, text);
    EXPECT_FAILURE(cu_SCTPSocket_setOption(sctp, 1, 1), code, "cu_SCTPSocket_setOption", SCTP::file, text);
    EXPECT_FAILURE(cu_SCTPSocket_getOption(sctp, 1, nullptr), code, "cu_SCTPSocket_getOption", SCTP::file, text);
}

} // namespace
