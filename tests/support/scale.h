// How often a test repeats what takes long where every step is watched or emulated.
#pragma once

#include <algorithm>

namespace support
{

/// A number of rounds that takes about as long under a sanitizer or a 32-bit emulator as it does natively.
constexpr int scaled(int rounds)
{
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(__arm__)
    return std::max(rounds / 20, 1);
#else
    return rounds;
#endif
}

} // namespace support
