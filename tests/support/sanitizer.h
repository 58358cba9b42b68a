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

/// ThreadSanitizer writes what is buffered when a process ends by _exit(), too.
inline constexpr bool endsAreOrderly = mutexesAreWatched;

/// AddressSanitizer ends the program when the same globals are loaded a second time.
#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool globalsAreWatched = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool globalsAreWatched = true;
#else
inline constexpr bool globalsAreWatched = false;
#endif
#else
inline constexpr bool globalsAreWatched = false;
#endif

} // namespace support
