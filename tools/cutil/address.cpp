#include "address.h"

#include <cUtil/convert.h>
#include <cUtil/network/ipAddress.h>

#include <cstdio>

namespace cutil
{

int toEndpoint(const Command& command, const char* host, const char* port, Endpoint& endpoint)
{
    if (cu_Convert_uint16(&endpoint.port, 10, port) != 0 || endpoint.port == 0)
        return misuse(command, "'%s' is no port", port);
    if (host[0] == '\0')
        return misuse(command, "a host's name or address is needed");
    const cu_ErrorCode code = cu_IPAddress_lookup(host, &endpoint.address);
    return code == 0 ? done : failByRecord(code, host);
}

std::string dotted(uint32_t address)
{
    char text[16];
    snprintf(text, sizeof(text), "%u.%u.%u.%u", address >> 24, address >> 16 & 255, address >> 8 & 255, address & 255);
    return text;
}

} // namespace cutil
