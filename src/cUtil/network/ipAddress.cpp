#include <cUtil/network/ipAddress.h>

#include "internal/rollback.h"

#include <cUtil/tools/safeMalloc.h>

#include <arpa/inet.h>
#include <cerrno>
#include <netdb.h>

constexpr uint32_t CU_IP_ADDRESS_ANY = 0x00000000;
constexpr uint32_t CU_IP_ADDRESS_BROADCAST = 0xFFFFFFFF;
constexpr uint32_t CU_IP_ADDRESS_LOCAL = 0x7F000001;

namespace
{

// Gives the failure's code without having reported it.
cu_ErrorCode translate(const char* text, uint32_t* address)
{
    *address = ntohl(inet_addr(text));
    if (*address != INADDR_NONE)
        return 0;
    *address = 0; // Compatibility: "255.255.255.255", too
    return cu_ERROR_IP_ADDRESS_TRANSLATION;
}

} // namespace

cu_ErrorCode cu_IPAddress_translate(const char* text, uint32_t* address)
{
    CU_REQUIRE(text != nullptr && *text != '\0');
    CU_REQUIRE(address != nullptr);
    if (translate(text, address) != 0)
        return CU_REPORT(cu_ERROR_IP_ADDRESS_TRANSLATION, 0, nullptr);
    return 0;
}

cu_ErrorCode cu_IPAddress_lookup(const char* name, uint32_t* address)
{
    CU_REQUIRE(name != nullptr && *name != '\0');
    CU_REQUIRE(address != nullptr);
    if (translate(name, address) == 0)
        return 0;

    constexpr uint32_t mostBytes = 1U << 20;
    char small[1024];
    char* texts = small;
    uint32_t size = sizeof(small);
    void* block = nullptr;
    CU_ROLLBACK(release, cu_safeFreeImpl(block));
    hostent entry = {};
    hostent* found = nullptr;
    int hostError = 0;
    int error = 0;
    while ((error = gethostbyname_r(name, &entry, texts, size, &found, &hostError)) == ERANGE && size < mostBytes) {
        size *= 2;
        CU_TRY(cu_safeRealloc(&block, size));
        texts = static_cast<char*>(block);
    }
    if (found == nullptr)
        return CU_REPORT(cu_ERROR_IP_ADDRESS_TRANSLATION, error != 0 ? error : errno, nullptr);
    if (found->h_addrtype != AF_INET)
        return CU_REPORT(cu_ERROR_IP_ADDRESS_TRANSLATION, 0, "h->h_addrtype is not AF_INET!");
    if (found->h_addr_list[0] == nullptr)
        return CU_REPORT(cu_ERROR_IP_ADDRESS_TRANSLATION, 0, nullptr);
    uint32_t first = 0;
    memcpy(&first, found->h_addr_list[0], sizeof(first));
    *address = ntohl(first);
    return 0;
}
