#include "support/process.h"
#include "support/record.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/network/ipAddress.h>
#include <cUtil/network/ipNetworkInfo.h>

#include <cerrno>
#include <cstring>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <string>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/network/ipNetworkInfo.linux";

struct Item {
    std::string name;
    uint32_t address;
    uint32_t netmask;

    friend bool operator==(const Item&, const Item&) = default;
};

std::vector<Item> snapshot()
{
    support::WatchfulAllocator allocator;
    cu_IPNetworkInfo* info = nullptr;
    EXPECT_EQ(cu_IPNetworkInfo_new(&info, allocator.get()), 0U);
    uint32_t count = ~0U;
    EXPECT_EQ(cu_IPNetworkInfo_getNumItems(info, &count), 0U);
    std::vector<Item> items;
    const cu_IPNetworkInfoItem* item = nullptr;
    for (uint32_t i = 0; i < count; ++i) {
        const char* name = nullptr;
        uint32_t address = 0;
        uint32_t netmask = 0;
        EXPECT_EQ(cu_IPNetworkInfo_getItem(info, i, &item), 0U);
        EXPECT_EQ(cu_IPNetworkInfo_getAdapterName(item, &name), 0U);
        EXPECT_EQ(cu_IPNetworkInfo_getIPAddress(item, &address), 0U);
        EXPECT_EQ(cu_IPNetworkInfo_getNetmask(item, &netmask), 0U);
        items.push_back({name, address, netmask});
    }
    EXPECT_REFUSED(cu_IPNetworkInfo_getItem(info, count, &item), "cu_IPNetworkInfo_getItem", file);
    EXPECT_EQ(cu_IPNetworkInfo_delete(&info), 0U);
    EXPECT_EQ(info, nullptr);
    return items;
}

void bringLoopbackUp()
{
    const int descriptor = socket(AF_INET, SOCK_DGRAM, 0);
    ifreq request = {};
    strcpy(request.ifr_name, "lo");
    request.ifr_flags = IFF_UP;
    ASSERT_EQ(ioctl(descriptor, SIOCSIFFLAGS, &request), 0);
    close(descriptor);
}

void addToLoopback(uint32_t address, uint8_t prefix)
{
    struct {
        nlmsghdr header = {};
        ifaddrmsg message = {};
        rtattr attribute = {};
        uint32_t local = 0;
    } request;
    request.header.nlmsg_len = sizeof(request);
    request.header.nlmsg_type = RTM_NEWADDR;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_CREATE | NLM_F_ACK;
    request.message.ifa_family = AF_INET;
    request.message.ifa_prefixlen = prefix;
    request.message.ifa_index = if_nametoindex("lo");
    request.attribute.rta_type = IFA_LOCAL;
    request.attribute.rta_len = RTA_LENGTH(sizeof(request.local));
    request.local = htonl(address);
    struct {
        nlmsghdr header;
        nlmsgerr outcome;
        char rest[512];
    } answer = {};
    const int descriptor = socket(AF_NETLINK, SOCK_RAW, NETLINK_ROUTE);
    ASSERT_EQ(send(descriptor, &request, sizeof(request), 0), static_cast<ssize_t>(sizeof(request)));
    ASSERT_GT(recv(descriptor, &answer, sizeof(answer), 0), 0);
    ASSERT_EQ(answer.outcome.error, 0);
    close(descriptor);
}

TEST(IPNetworkInfo, theLoopbackInterfaceIsListed)
{
    EXPECT_THAT(snapshot(), testing::Contains(Item{"lo", CU_IP_ADDRESS_LOCAL, 0xFF000000}));
}

TEST(IPNetworkInfo, everyAddressIsAnItemAndAHostMayHaveNone)
{
    constexpr int refused = 77;
    const support::Outcome outcome = support::outcomeOf([] {
        if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
            _exit(refused);
        EXPECT_EQ(snapshot(), std::vector<Item>());
        bringLoopbackUp();
        addToLoopback(0x0A010203, 24);
        addToLoopback(0x0A090304, 15);
        EXPECT_EQ(snapshot(), (std::vector<Item>{{"lo", CU_IP_ADDRESS_LOCAL, 0xFF000000},
                                                 {"lo", 0x0A010203, 0xFFFFFF00},
                                                 {"lo", 0x0A090304, 0xFFFE0000}}));
    });
    if (outcome.status == refused)
        GTEST_SKIP() << "no network namespace of the test's own is allowed";
    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.error;
}

TEST(IPNetworkInfo, failuresLeaveNothingBehindAndBadArgumentsAreRefused)
{
    EXPECT_CLEAN_FAILURES(cu_IPNetworkInfo_new, cu_IPNetworkInfo_delete);
    cu_IPNetworkInfo* none = nullptr;
    {
        const support::Injection injection("getifaddrs", EMFILE);
        EXPECT_SYSTEM_FAILURE(cu_IPNetworkInfo_new(&none, nullptr), cu_ERROR_COM_INVARIANT, EMFILE,
                              "cu_IPNetworkInfo_new", file, "");
    }
    cu_IPNetworkInfo* info = nullptr;
    ASSERT_EQ(cu_IPNetworkInfo_new(&info, nullptr), 0U);
    const cu_IPNetworkInfoItem* item = nullptr;
    ASSERT_EQ(cu_IPNetworkInfo_getItem(info, 0, &item), 0U);
    uint32_t number = 0;
    const char* name = nullptr;
    const std::tuple good(info, &none, &item, &number, item, &name);
    EXPECT_NULLS_REFUSED(file, good, cu_IPNetworkInfo_new, cu_IPNetworkInfo_getNumItems, cu_IPNetworkInfo_getItem,
                         cu_IPNetworkInfo_getAdapterName, cu_IPNetworkInfo_getIPAddress, cu_IPNetworkInfo_getNetmask);
    EXPECT_NULLS_REFUSED(file, std::tuple(&info), cu_IPNetworkInfo_delete);
    EXPECT_EQ(cu_IPNetworkInfo_delete(&info), 0U);
}

} // namespace
