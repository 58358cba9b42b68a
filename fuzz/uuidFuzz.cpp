// cu_UUID_fromString beside a reading by hand: texts of 32 digits are taken and told again, all others refused, and
// what stands before a bad character is kept.
#include "holds.h"

#include <cUtil/errorCodes.h>
#include <cUtil/errorInfo.h>
#include <cUtil/uuid.h>

#include <cstddef>
#include <cstring>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    constexpr std::size_t digits = CU_UUID_TEXT_SIZE - 1;
    const std::string text(std::string(data, data + size).c_str());
    const std::size_t bad = text.find_first_not_of("0123456789ABCDEFabcdef");

    constexpr uint8_t untouched = 0x5A;
    cu_UUID uuid;
    memset(&uuid, untouched, sizeof(uuid));
    const cu_ErrorCode code = cu_UUID_fromString(&uuid, text.c_str());
    const bool valid = text.size() == digits && bad == std::string::npos;
    HOLDS(code == (valid ? 0 : cu_ERROR_COM_INVALID_ARGUMENT));

    std::size_t read = 0; // bytes
    if (text.size() == digits)
        read = valid ? CU_UUID_SIZE : bad / 2;
    for (std::size_t i = 0; i < CU_UUID_SIZE; ++i)
        HOLDS(uuid.data[i] == (i < read ? std::stoul(text.substr(2 * i, 2), nullptr, 16) : untouched));

    if (valid) {
        char told[CU_UUID_TEXT_SIZE];
        HOLDS(cu_UUID_toString(&uuid, told) == 0);
        HOLDS(strcasecmp(told, text.c_str()) == 0 && strpbrk(told, "abcdef") == nullptr);
        return 0;
    }
    const char* description = cu_Error_getDescription(cu_getErrorLocation());
    const std::string expected =
        "The ASCII character '" + text.substr(bad == std::string::npos ? 0 : bad, 1) + "' can't be converted to hex!";
    HOLDS(text.size() == digits ? description == expected : description[0] == '\0');
    return 0;
}
