// cutil net: the IPv4 interfaces of this host.
#include "address.h"
#include "json.h"

#include <cUtil/network/ipNetworkInfo.h>

#include <bit>
#include <cstdio>
#include <memory>

namespace cutil
{

namespace
{

constexpr char help[] =
    "A line holds name, address, bits of the network's part and netmask. An interface with several addresses\n"
    "has a line for each, one without an address has none.\n";

struct DeleteInfo {
    void operator()(cu_IPNetworkInfo* info) const
    {
        if (const cu_ErrorCode code = cu_IPNetworkInfo_delete(&info); code != 0)
            static_cast<void>(failByRecord(code, "interfaces"));
    }
};

cu_ErrorCode print(const cu_IPNetworkInfo* info, uint32_t index, bool asJson)
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
    if (code != 0)
        return code;
    const int bits = std::popcount(mask);
    if (asJson) {
        Json json;
        json.add("interface", name).add("address", dotted(address)).add("prefix", bits);
        json.add("netmask", dotted(mask)).print();
    } else {
        printf("%-15s  %15s /%-2d  %s\n", name, dotted(address).c_str(), bits, dotted(mask).c_str());
    }
    return 0;
}

int run(const Arguments& arguments)
{
    cu_IPNetworkInfo* taken = nullptr;
    uint32_t count = 0;
    cu_ErrorCode code = cu_IPNetworkInfo_new(&taken, nullptr);
    const std::unique_ptr<cu_IPNetworkInfo, DeleteInfo> info(taken);
    if (code == 0)
        code = cu_IPNetworkInfo_getNumItems(info.get(), &count);
    for (uint32_t i = 0; i < count && code == 0; ++i)
        code = print(info.get(), i, arguments.has('j'));
    return code == 0 ? done : failByRecord(code, "interfaces");
}

constexpr Option options[] = {jsonOption};
constexpr Form forms[] = {{"", "j", run}};

} // namespace

constinit const Command netCommand = {"net", "lists the IPv4 interfaces of the system", help, forms, options};

} // namespace cutil
