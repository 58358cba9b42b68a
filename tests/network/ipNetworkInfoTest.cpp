#include "support/made.h"
#include "support/process.h"
#include "support/refusal.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/network/ipAddress.h>
#include <cUtil/network/ipNetworkInfo.h>

#include <gmock/gmock.h>

#include <cstring>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/ioctl.h>
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

// The loopback interface, or under another name one more address of it.
void setUp(const Item& item)
{
    ifreq request = {};
    auto* place = static_cast<sockaddr_in*>(static_cast<void*>(&request.ifr_addr));
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    strcpy(request.ifr_name, std::get<0>(item).c_str());
    place->sin_family = AF_INET;
    place->sin_addr.s_addr = htonl(std::get<1>(item));
    EXPECT_EQ(ioctl(descriptor, SIOCSIFADDR, &request), 0);
    place->sin_addr.s_addr = htonl(std::get<2>(item));
    EXPECT_EQ(ioctl(descriptor, SIOCSIFNETMASK, &request), 0);
    request.ifr_flags = IFF_UP;
    EXPECT_EQ(ioctl(descriptor, SIOCSIFFLAGS, &request), 0);
}

TEST(IPNetworkInfo, everyAddressIsAnItemAndAHostMayHaveNone)
{
    EXPECT_THAT(snapshot(), testing::Contains(Item{"lo", CU_IP_ADDRESS_LOCAL, 0xFF000000}));
    constexpr int refused = 77;
    const support::Outcome outcome = support::outcomeOf([] {
        if (unshare(CLONE_NEWNET) != 0 && unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0)
            _exit(refused);
        EXPECT_EQ(snapshot(), std::vector<Item>());
        const std::vector<Item> expected = {{"lo", CU_IP_ADDRESS_LOCAL, 0xFF000000},
                                            {"lo:1", 0x0A010203, 0xFFFFFF00},
                                            {"lo:2", 0x0A090304, 0xFFFE0000}};
        for (const Item& item : expected)
            setUp(item);
        EXPECT_EQ(snapshot(), expected);
    });
    if (outcome.status == refused)
        GTEST_SKIP() << "no network namespace of the test's own is allowed";
    EXPECT_EQ(outcome.status, 0) << outcome.out << outcome.error;
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
