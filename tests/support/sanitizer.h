// What the build is instrumented with.
#pragma once

namespace support
{

/// ThreadSanitizer ends the program when a mutex is misused, also where the misuse is what a test is about.
#if defined(__SANITIZE_THREAD__)
inline constexpr bool mutexesAreWatched = true;
#else
inline constexpr bool mutexesAreWatched = false;
#endif

} // namespace support
