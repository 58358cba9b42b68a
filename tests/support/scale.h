// How often a test repeats what takes long where every step is watched or emulated.
#pragma once

#include <algorithm>

namespace support
{

#if defined(KOCUTIL_EVERY_STEP_IS_SLOW)
constexpr bool stepsAreSlow = true;
#else
constexpr bool stepsAreSlow = false;
#endif

/// A number of rounds that takes about as long under a sanitizer or a 32-bit emulator as it does natively.
constexpr int scaled(int rounds)
{
    return stepsAreSlow ? std::max(rounds / 20, 1) : rounds;
}

} // namespace support
