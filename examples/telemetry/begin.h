// What every part does first.
#pragma once

#include "commands.h"

namespace telemetry
{

/// Lets stop signals end the process in order (see stopRequested()) and lines of output arrive as they are made. A part
/// that has a supervisor ends with it, however that ends. @return whether to go on
[[nodiscard]] bool begin(const Options& options);

/// The same for a part of the network. @param address  receives that of the options' host
[[nodiscard]] bool begin(const Options& options, uint32_t& address);

} // namespace telemetry
