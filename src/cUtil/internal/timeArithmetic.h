// Arithmetic on time values. Seconds wrap around instead of overflowing, whatever the width of time_t.
#pragma once

#include <cUtil/time/time.h>

#include <cstdint>
#include <type_traits>

namespace cu::internal
{

using NanoSeconds = decltype(cu_TimeValue::tv_nsec);
constexpr NanoSeconds nanoSecondsPerSecond = 1'000'000'000;

inline time_t addWrapping(time_t left, time_t right)
{
    using Unsigned = std::make_unsigned_t<time_t>;
    return static_cast<time_t>(static_cast<Unsigned>(left) + static_cast<Unsigned>(right));
}

inline time_t subtractWrapping(time_t left, time_t right)
{
    using Unsigned = std::make_unsigned_t<time_t>;
    return static_cast<time_t>(static_cast<Unsigned>(left) - static_cast<Unsigned>(right));
}

/// The same result as one second at a time, without the steps: a 64-bit host can hold thousands of millions of them.
inline void normalize(cu_TimeValue& time)
{
    if (time.tv_nsec >= 0 && time.tv_nsec < nanoSecondsPerSecond) [[likely]]
        return;
    NanoSeconds seconds = time.tv_nsec / nanoSecondsPerSecond;
    NanoSeconds rest = time.tv_nsec % nanoSecondsPerSecond;
    if (rest < 0) {
        --seconds;
        rest += nanoSecondsPerSecond;
    }
    time.tv_sec = addWrapping(time.tv_sec, seconds);
    time.tv_nsec = rest;
}

/// Adds and normalises. The value is normalised beforehand, too, so that two nanosecond fields never exceed 32 bits.
/// @param nanoSeconds  below a second
inline void add(cu_TimeValue& time, time_t seconds, NanoSeconds nanoSeconds)
{
    normalize(time);
    time.tv_sec = addWrapping(time.tv_sec, seconds);
    time.tv_nsec += nanoSeconds;
    normalize(time);
}

/// Left minus right, normalised.
inline cu_TimeValue difference(cu_TimeValue left, cu_TimeValue right)
{
    normalize(left);
    normalize(right);
    cu_TimeValue result = {subtractWrapping(left.tv_sec, right.tv_sec), left.tv_nsec - right.tv_nsec};
    normalize(result);
    return result;
}

} // namespace cu::internal
