#include "support/refusal.h"

#include <cUtil/network/ipAddress.h>

#include <cerrno>
#include <dlfcn.h>
#include <functional>
#include <netdb.h>
#include <netinet/in.h>

namespace
{

using LookUp = int(const char* name, hostent* entry, char* texts, size_t size, hostent** found, int* hostError);

std::function<LookUp> standIn; // for the system's while it is set

} // namespace

extern "C" __attribute__((visibility("default"))) int gethostbyname_r(const char* name, hostent* entry, char* texts,
                                                                      size_t size, hostent** found, int* hostError)
{
    static const auto real = reinterpret_cast<LookUp*>(dlsym(RTLD_NEXT, "gethostbyname_r"));
    return (standIn ? standIn : real)(name, entry, texts, size, found, hostError);
}

namespace
{

constexpr char file[] = "src/cUtil/network/ipAddress";
constexpr cu_ErrorCode noAddress = cu_ERROR_IP_ADDRESS_TRANSLATION;

TEST(IPAddress, dottedQuadsAreReadAndWhatIsNoneIsRefused)
{
    uint32_t address = 1;
    const std::pair<const char*, uint32_t> good[] = {
        {"0.0.0.0", CU_IP_ADDRESS_ANY}, {"127.0.0.1", CU_IP_ADDRESS_LOCAL}, {"255.255.255.254", 0xFFFFFFFE}};
    for (const auto& [text, expected] : good) {
        EXPECT_EQ(cu_IPAddress_translate(text, &address), 0U) << text;
        EXPECT_EQ(address, expected) << text;
    }
    for (const char* text : {"255.255.255.255", "1.2.3.256", "host", " "}) {
        address = 1;
        EXPECT_FAILURE(cu_IPAddress_translate(text, &address), noAddress, "cu_IPAddress_translate", file, "");
        EXPECT_EQ(address, 0U) << text;
    }
    EXPECT_NULLS_REFUSED(file, std::tuple("1.2.3.4", &address), cu_IPAddress_translate, cu_IPAddress_lookup);
    EXPECT_REFUSED(cu_IPAddress_translate("", &address), "cu_IPAddress_translate", file);
    EXPECT_REFUSED(cu_IPAddress_lookup("", &address), "cu_IPAddress_lookup", file);
}

TEST(IPAddress, aNameGivesTheFirstAddressOfItsHostAndAHostWithoutOneIsReported)
{
    const char* const none[] = {nullptr};
    const char* const two[] = {"\x0A\x01\x02\x03", "\x0A\x01\x02\x04", nullptr};
    const struct {
        int family; // 0: there is no such host
        const char* const* addresses;
        size_t room; // which the answer needs
        int error;
        const char* description;
    } table[] = {{0, none, 0, ECONNREFUSED, ""},
                 {AF_INET, two, SIZE_MAX, ERANGE, ""},
                 {AF_INET6, two, 0, 0, "h->h_addrtype is not AF_INET!"},
                 {AF_INET, none, 0, 0, ""},
                 {AF_INET, two, 20000, 0, nullptr}};
    uint32_t address = 0;
    EXPECT_EQ(cu_IPAddress_lookup("localhost", &address), 0U);
    EXPECT_EQ(address, CU_IP_ADDRESS_LOCAL);
    for (const auto& row : table) {
        standIn = [&row](const char*, hostent* entry, char*, size_t size, hostent** found, int*) {
            *entry = {nullptr, nullptr, row.family, 4, const_cast<char**>(row.addresses)};
            *found = size >= row.room && row.family != 0 ? entry : nullptr;
            errno = row.error;
            return size < row.room ? ERANGE : 0;
        };
        if (row.description != nullptr)
            EXPECT_SYSTEM_FAILURE(cu_IPAddress_lookup("host", &address), noAddress, row.error, "cu_IPAddress_lookup",
                                  file, row.description);
        else
            EXPECT_EQ(cu_IPAddress_lookup("host", &address), 0U);
    }
    EXPECT_EQ(address, 0x0A010203U);
    EXPECT_EQ(cu_IPAddress_lookup("10.9.8.7", &address), 0U);
    EXPECT_EQ(address, 0x0A090807U) << "asks nobody";
    standIn = nullptr;
}

} // namespace
