#include "network/ownNetwork.h"
#include "support/made.h"
#include "support/refusal.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/network/ipAddress.h>
#include <cUtil/network/ipNetworkInfo.h>

#include <gmock/gmock.h>

#include <linux/rtnetlink.h>
#include <netinet/in.h>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/network/ipNetworkInfo.linux";

using Item = std::tuple<std::string, uint32_t, uint32_t>; // name, address, netmask

std::vector<Item> snapshot()
{
    support::WatchfulAllocator allocator;
    cu_IPNetworkInfo* info = nullptr;
    EXPECT_EQ(cu_IPNetworkInfo_new(&info, allocator.get()), 0U);
    uint32_t count = ~0U;
    EXPECT_EQ(cu_IPNetworkInfo_getNumItems(info, &count), 0U);
    std::vector<Item> items(count);
    const cu_IPNetworkInfoItem* found = nullptr;
    for (uint32_t i = 0; i < count; ++i) {
        const char* name = nullptr;
        EXPECT_EQ(cu_IPNetworkInfo_getItem(info, i, &found), 0U);
        EXPECT_EQ(cu_IPNetworkInfo_getAdapterName(found, &name), 0U);
        EXPECT_EQ(cu_IPNetworkInfo_getIPAddress(found, &std::get<1>(items[i])), 0U);
        EXPECT_EQ(cu_IPNetworkInfo_getNetmask(found, &std::get<2>(items[i])), 0U);
        std::get<0>(items[i]) = name;
    }
    EXPECT_REFUSED(cu_IPNetworkInfo_getItem(info, count, &found), "cu_IPNetworkInfo_getItem", file);
    EXPECT_EQ(cu_IPNetworkInfo_delete(&info), 0U);
    return items;
}

// Gives the loopback interface one more address.
void addAddress(uint32_t address, uint8_t prefixLength)
{
    struct {
        nlmsghdr head = {sizeof(*this), RTM_NEWADDR, NLM_F_REQUEST | NLM_F_CREATE | NLM_F_ACK, 0, 0};
        ifaddrmsg body = {AF_INET, 0, 0, RT_SCOPE_HOST, 1};
        rtattr attribute = {sizeof(rtattr) + sizeof(local), IFA_LOCAL};
        uint32_t local = 0;
    } request;
    request.body.ifa_prefixlen = prefixLength;
    request.local = htonl(address);
    struct {
        nlmsghdr head;
        nlmsgerr body;
    } answer = {};
    const int descriptor = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE);
    EXPECT_EQ(send(descriptor, &request, sizeof(request), 0), static_cast<ssize_t>(sizeof(request)));
    EXPECT_GT(recv(descriptor, &answer, sizeof(answer), 0), 0);
    EXPECT_EQ(answer.body.error, 0);
    close(descriptor);
}

TEST(IPNetworkInfo, everyAddressIsAnItemAndAHostMayHaveNone)
{
    const std::vector<Item> one = {{"lo", CU_IP_ADDRESS_LOCAL, 0xFF000000}};
    EXPECT_THAT(snapshot(), testing::Contains(one[0]));
    if (!inOwnNetwork([&] {
            EXPECT_EQ(snapshot(), std::vector<Item>());
            bringLoopbackUp();
            EXPECT_EQ(snapshot(), one);
            addAddress(0x0A010203, 24);
            addAddress(0x0A090304, 15);
            EXPECT_EQ(snapshot(),
                      (std::vector<Item>{one[0], {"lo", 0x0A010203, 0xFFFFFF00}, {"lo", 0x0A090304, 0xFFFE0000}}));
        }))
        GTEST_SKIP() << "no network of the test's own is allowed";
}

TEST(IPNetworkInfo, failuresLeaveNothingBehindAndBadArgumentsAreRefused)
{
    EXPECT_CLEAN_FAILURES(cu_IPNetworkInfo_new, cu_IPNetworkInfo_delete);
    cu_IPNetworkInfo* none = nullptr;
    support::expectSystemFailures(file, {{"getifaddrs", EMFILE, cu_ERROR_COM_INVARIANT, "cu_IPNetworkInfo_new", "",
                                          [&] { return cu_IPNetworkInfo_new(&none, nullptr); }}});
    support::Made<cu_IPNetworkInfo_new, cu_IPNetworkInfo_delete> info;
    const cu_IPNetworkInfoItem* item = nullptr;
    ASSERT_EQ(cu_IPNetworkInfo_getItem(info, 0, &item), 0U);
    uint32_t number = 0;
    const char* name = nullptr;
    const std::tuple good(info.get(), &none, &item, &number, item, &name);
    EXPECT_NULLS_REFUSED(file, good, cu_IPNetworkInfo_new, cu_IPNetworkInfo_getNumItems, cu_IPNetworkInfo_getItem,
                         cu_IPNetworkInfo_getAdapterName, cu_IPNetworkInfo_getIPAddress, cu_IPNetworkInfo_getNetmask);
    EXPECT_NULLS_REFUSED(file, std::tuple(info.handle()), cu_IPNetworkInfo_delete);
}

} // namespace
