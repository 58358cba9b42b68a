// Who takes part in a run, in one word of shared memory.
#pragma once

#include <cstdint>

namespace telemetry
{

/// Names a process once and for all: its number in the low 22 bits, above them when it started, for numbers are used
/// again. One word, so that a process enters or leaves in one step.
using Party = uint64_t;
constexpr Party nobody = 0;        ///< Has not come yet.
constexpr Party gone = UINT64_MAX; ///< Has left in order.

/// What one side knows of the other.
enum class Presence { awaited, there, left, dead };

Party thisProcess();
int processNumber(Party party);
Presence presenceOf(Party party);

} // namespace telemetry
