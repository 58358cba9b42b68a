// cutil net: the IPv4 interfaces of this host.
#include "address.h"

#include <cUtil/network/ipNetworkInfo.h>

#include <bit>
#include <cstdio>
#include <memory>

namespace cutil
{

namespace
{

constexpr char usage[] = "usage: cutil net\n"
                         "\n"
                         "Lists the IPv4 interfaces of the system: name, address, bits of the network's part and\n"
                         "netmask. An interface with several addresses has a line for each.\n";

struct DeleteInfo {
    void operator()(cu_IPNetworkInfo* info) const
    {
        if (const cu_ErrorCode code = cu_IPNetworkInfo_delete(&info); code != 0)
            static_cast<void>(failByRecord(code, "interfaces"));
    }
};

cu_ErrorCode print(const cu_IPNetworkInfo* info, uint32_t index)
{
    const cu_IPNetworkInfoItem* item = nullptr;
    const char* name = nullptr;
    uint32_t address = 0;
    uint32_t mask = 0;
    cu_ErrorCode code = cu_IPNetworkInfo_getItem(info, index, &item);
    if (code == 0)
        code = cu_IPNetworkInfo_getAdapterName(item, &name);
    if (code == 0)
        code = cu_IPNetworkInfo_getIPAddress(item, &address);
    if (code == 0)
        code = cu_IPNetworkInfo_getNetmask(item, &mask);
    if (code == 0)
        printf("%-15s  %15s /%-2d  %s\n", name, dotted(address).c_str(), std::popcount(mask), dotted(mask).c_str());
    return code;
}

int run(const Arguments& arguments)
{
    if (!arguments.empty())
        return misuse(netCommand, "no arguments are taken");
    cu_IPNetworkInfo* taken = nullptr;
    uint32_t count = 0;
    cu_ErrorCode code = cu_IPNetworkInfo_new(&taken, nullptr);
    const std::unique_ptr<cu_IPNetworkInfo, DeleteInfo> info(taken);
    if (code == 0)
        code = cu_IPNetworkInfo_getNumItems(info.get(), &count);
    for (uint32_t i = 0; i < count && code == 0; ++i)
        code = print(info.get(), i);
    return code == 0 ? done : failByRecord(code, "interfaces");
}

} // namespace

constinit const Command netCommand = {"net", "lists the IPv4 interfaces", usage, run};

} // namespace cutil
