// What the build is instrumented with.
#pragma once

#include <string_view>

namespace support
{

inline constexpr std::string_view sanitizer = KOCUTIL_SANITIZER;

/// ThreadSanitizer ends the program when a mutex is misused, also where the misuse is what a test is about.
inline constexpr bool mutexesAreWatched = sanitizer == "tsan";

/// ThreadSanitizer writes what is buffered when a process ends by _exit(), too.
inline constexpr bool endsAreOrderly = sanitizer == "tsan";

/// AddressSanitizer ends the program when the same globals are loaded a second time.
inline constexpr bool globalsAreWatched = sanitizer == "asan";

} // namespace support
