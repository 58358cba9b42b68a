// The log of a process: in a file, and on the network.
#pragma once

#include <cstdint>
#include <string>

namespace telemetry
{

/// While it lasts, what is logged goes to a file, which a thread of the library writes, and to the viewer that is
/// connected to a port. What is logged beyond its life is lost.
class Log
{
public:
    Log() = default;
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    ~Log();

    /// @return whether it is there; if not, the reason is told
    [[nodiscard]] bool start(const std::string& path, uint32_t address, uint16_t port);
};

} // namespace telemetry
