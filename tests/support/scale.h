// How often a test repeats what takes long where every step is watched or emulated.
#pragma once

#include <algorithm>
#include <cstdlib>

namespace support
{

/// Known when it is compiled (sanitizers, 32-bit emulators), or only when it is run (Valgrind).
inline const bool stepsAreSlow =
#if defined(KOCUTIL_EVERY_STEP_IS_SLOW)
    true;
#else
    getenv("KOCUTIL_EVERY_STEP_IS_SLOW") != nullptr;
#endif

/// A number of rounds that takes about as long where every step is slow as it does natively.
inline int scaled(int rounds)
{
    return stepsAreSlow ? std::max(rounds / 20, 1) : rounds;
}

} // namespace support
