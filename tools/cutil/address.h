// Addresses and ports as words of a command line, and back.
#pragma once

#include "cutil.h"

#include <string>

namespace cutil
{

/// Where to connect to, or to listen.
struct Endpoint {
    uint32_t address = 0; ///< In host byte order.
    uint16_t port = 0;    ///< Not 0.
};

/// Reads a host's name or address and a port. @return #done, or another status and the reason is told
[[nodiscard]] int toEndpoint(const Command& command, const char* host, const char* port, Endpoint& endpoint);

/// An address as four numbers with dots.
std::string dotted(uint32_t address);

} // namespace cutil
