// What the commands of cutil share.
#pragma once

#include <cUtil/types.h>

#include <span>

namespace cutil
{

enum ExitStatus : int {
    done = 0,
    failed = 1,  // the work could not be done
    misused = 2, // the command line makes no sense
};

/// The words of the command line behind the command's name.
using Arguments = std::span<char* const>;

struct Command {
    const char* name;
    const char* summary; ///< A few words for the list of commands.
    const char* usage;   ///< The whole help text.
    int (*run)(Arguments arguments);
};

extern const Command errorCommand;
extern const Command hexdumpCommand;
extern const Command shmCommand;
extern const Command ringCommand;
extern const Command clockCommand;

/// Says on the standard error stream what failed. @return #failed
[[nodiscard]] int fail(const char* format, ...) CU_PRINTF(1, 2);

/// Says on the standard error stream which operation failed and why, by the code that the library gave and the
/// description in the calling thread's error record. @return #failed
[[nodiscard]] int failByRecord(cu_ErrorCode code, const char* operation);

/// Says on the standard error stream what is wrong with the command line and where help is. @return #misused
[[nodiscard]] int misuse(const Command& command, const char* format, ...) CU_PRINTF(2, 3);

} // namespace cutil
