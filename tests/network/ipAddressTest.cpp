#include "support/record.h"
#include "support/refusal.h"

#include <cUtil/network/ipAddress.h>

#include <cerrno>
#include <dlfcn.h>
#include <functional>
#include <netdb.h>
#include <netinet/in.h>
#include <string>

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

// An answer of a family and with the addresses of a list, once there is so much room for it.
std::function<LookUp> answerOf(int family, const char* const* addresses, size_t room = 0)
{
    return [=](const char*, hostent* entry, char*, size_t size, hostent** found, int*) {
        *found = nullptr;
        if (size < room)
            return ERANGE;
        entry->h_addrtype = family;
        entry->h_length = 4;
        entry->h_addr_list = const_cast<char**>(addresses);
        *found = entry;
        return 0;
    };
}

TEST(IPAddress, dottedQuadsAreReadAndWhatIsNoneIsRefused)
{
    const std::pair<const char*, uint32_t> good[] = {{"0.0.0.0", CU_IP_ADDRESS_ANY},
                                                     {"127.0.0.1", CU_IP_ADDRESS_LOCAL},
                                                     {"10.1.2.3", 0x0A010203},
                                                     {"255.255.255.254", 0xFFFFFFFE}};
    for (const auto& [text, expected] : good) {
        uint32_t address = ~expected;
        EXPECT_EQ(cu_IPAddress_translate(text, &address), 0U) << text;
        EXPECT_EQ(address, expected) << text;
    }
    for (const char* text : {"255.255.255.255", "1.2.3.4.5", "1.2.3.256", "host", " "}) {
        uint32_t address = 1;
        EXPECT_FAILURE(cu_IPAddress_translate(text, &address), cu_ERROR_IP_ADDRESS_TRANSLATION,
                       "cu_IPAddress_translate", file, "");
        EXPECT_EQ(address, 0U) << text;
    }
}

TEST(IPAddress, aNameGivesTheFirstAddressOfItsHost)
{
    uint32_t address = 0;
    EXPECT_EQ(cu_IPAddress_lookup("localhost", &address), 0U);
    EXPECT_EQ(address, CU_IP_ADDRESS_LOCAL);

    const char* const two[] = {"\x0A\x01\x02\x03", "\x0A\x01\x02\x04", nullptr};
    standIn = answerOf(AF_INET, two, 20000);
    EXPECT_EQ(cu_IPAddress_lookup("10.9.8.7", &address), 0U);
    EXPECT_EQ(address, 0x0A090807U);
    EXPECT_EQ(cu_IPAddress_lookup("host", &address), 0U);
    EXPECT_EQ(address, 0x0A010203U);
    standIn = nullptr;
}

TEST(IPAddress, aHostWithoutAnAddressIsReported)
{
    const char* const none[] = {nullptr};
    const char* const one[] = {"\x0A\x01\x02\x03", nullptr};
    const auto unknown = [](const char*, hostent*, char*, size_t, hostent** found, int*) {
        *found = nullptr;
        errno = ECONNREFUSED;
        return 0;
    };
    const struct {
        std::function<LookUp> answer;
        int error;
        const char* description;
    } table[] = {{unknown, ECONNREFUSED, ""},
                 {answerOf(AF_INET, one, SIZE_MAX), ERANGE, ""},
                 {answerOf(AF_INET6, one), 0, "h->h_addrtype is not AF_INET!"},
                 {answerOf(AF_INET, none), 0, ""}};
    for (const auto& row : table) {
        standIn = row.answer;
        uint32_t address = 1;
        EXPECT_SYSTEM_FAILURE(cu_IPAddress_lookup("host", &address), cu_ERROR_IP_ADDRESS_TRANSLATION, row.error,
                              "cu_IPAddress_lookup", file, row.description);
    }
    standIn = nullptr;
}

TEST(IPAddress, refusesNullsAndEmptyTexts)
{
    uint32_t address = 0;
    EXPECT_NULLS_REFUSED(file, std::tuple("1.2.3.4", &address), cu_IPAddress_translate, cu_IPAddress_lookup);
    EXPECT_REFUSED(cu_IPAddress_translate("", &address), "cu_IPAddress_translate", file);
    EXPECT_REFUSED(cu_IPAddress_lookup("", &address), "cu_IPAddress_lookup", file);
}

} // namespace
