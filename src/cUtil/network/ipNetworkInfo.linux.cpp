#include <cUtil/network/ipNetworkInfo.h>

#include "internal/owned.h"
#include "internal/rollback.h"

#include <cUtil/network/ipAddress.h>

#include <cerrno>
#include <ifaddrs.h>
#include <netinet/in.h>

struct cu_IPNetworkInfoItem {
    char name[256];
    uint32_t address;
    uint32_t netmask;
};

struct cu_IPNetworkInfo {
    cu_allocator* allocator;
    uint32_t count;
    cu_IPNetworkInfoItem* items; // null when there are none
};

namespace
{

// The IPv4 address in host byte order; that of none is 0.0.0.0.
uint32_t addressOf(const sockaddr* address)
{
    if (address == nullptr || address->sa_family != AF_INET)
        return CU_IP_ADDRESS_ANY;
    sockaddr_in inet;
    memcpy(&inet, address, sizeof(inet));
    return ntohl(inet.sin_addr.s_addr);
}

// Calls `take` for each entry that has an address.
template <typename Take>
void forEach(const ifaddrs* list, Take take)
{
    for (const ifaddrs* entry = list; entry != nullptr; entry = entry->ifa_next)
        if (addressOf(entry->ifa_addr) != CU_IP_ADDRESS_ANY)
            take(*entry);
}

} // namespace

cu_ErrorCode cu_IPNetworkInfo_new(cu_IPNetworkInfo** info, cu_allocator* allocator)
{
    CU_REQUIRE(info != nullptr);
    CU_REQUIRE(*info == nullptr);

    internal::Owned<cu_IPNetworkInfo> snapshot;
    CU_TRY(snapshot.allocate(allocator));
    ifaddrs* list = nullptr;
    if (getifaddrs(&list) != 0)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, errno, nullptr);
    CU_ROLLBACK(release, (freeifaddrs(list), cu_ErrorCode{0}));

    forEach(list, [&](const ifaddrs&) { ++snapshot->count; });
    if (snapshot->count != 0) {
        void* items = nullptr;
        CU_TRY(cu_allocator_alloc(snapshot->allocator, &items,
                                  static_cast<uint32_t>(snapshot->count * sizeof(cu_IPNetworkInfoItem))));
        snapshot->items = static_cast<cu_IPNetworkInfoItem*>(items);
    }
    cu_IPNetworkInfoItem* item = snapshot->items;
    forEach(list, [&](const ifaddrs& entry) {
        new (item) cu_IPNetworkInfoItem{{}, addressOf(entry.ifa_addr), addressOf(entry.ifa_netmask)};
        memcpy(item->name, entry.ifa_name, strnlen(entry.ifa_name, sizeof(item->name) - 1));
        ++item;
    });
    *info = snapshot.release();
    return 0;
}

cu_ErrorCode cu_IPNetworkInfo_delete(cu_IPNetworkInfo** info)
{
    CU_REQUIRE(info != nullptr);
    CU_REQUIRE(*info != nullptr);
    CU_TRY(internal::freeArray((*info)->allocator, &(*info)->items));
    (*info)->count = 0;
    CU_TRY(internal::freeObject(info));
    return 0;
}

cu_ErrorCode cu_IPNetworkInfo_getNumItems(const cu_IPNetworkInfo* info, uint32_t* count)
{
    CU_REQUIRE(info != nullptr);
    CU_REQUIRE(count != nullptr);
    *count = info->count;
    return 0;
}

cu_ErrorCode cu_IPNetworkInfo_getItem(const cu_IPNetworkInfo* info, uint32_t index, const cu_IPNetworkInfoItem** item)
{
    CU_REQUIRE(info != nullptr);
    CU_REQUIRE(index < info->count);
    CU_REQUIRE(item != nullptr);
    *item = &info->items[index];
    return 0;
}

cu_ErrorCode cu_IPNetworkInfo_getAdapterName(const cu_IPNetworkInfoItem* item, const char** name)
{
    CU_REQUIRE(item != nullptr);
    CU_REQUIRE(name != nullptr);
    *name = item->name;
    return 0;
}

cu_ErrorCode cu_IPNetworkInfo_getIPAddress(const cu_IPNetworkInfoItem* item, uint32_t* address)
{
    CU_REQUIRE(item != nullptr);
    CU_REQUIRE(address != nullptr);
    *address = item->address;
    return 0;
}

cu_ErrorCode cu_IPNetworkInfo_getNetmask(const cu_IPNetworkInfoItem* item, uint32_t* netmask)
{
    CU_REQUIRE(item != nullptr);
    CU_REQUIRE(netmask != nullptr);
    *netmask = item->netmask;
    return 0;
}
