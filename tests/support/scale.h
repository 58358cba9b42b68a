// How often a test repeats what takes long where every step is watched or emulated.
#pragma once

#include <algorithm>

namespace support
{

/// A number of rounds that takes about as long under a sanitizer or a 32-bit emulator as it does natively.
constexpr int scaled(int rounds)
{
#if defined(KOCUTIL_EVERY_STEP_IS_SLOW)
    return std::max(rounds / 20, 1);
#else
    return rounds;
#endif
}

} // namespace support
