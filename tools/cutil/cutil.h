// What the commands of cutil share.
#pragma once

#include <cUtil/commandLine.h>
#include <cUtil/types.h>

#include <memory>
#include <span>

namespace cutil
{

enum ExitStatus : int {
    done = 0,
    failed = 1,  // the work could not be done
    misused = 2, // the command line makes no sense
};

struct Command;

struct DeleteCommandLine {
    void operator()(cu_CommandLine* commandLine) const;
};

/// What stands behind a command's name: options, by their first letters, and other words, by their numbers.
class Arguments
{
public:
    /// Reads words of which the first one is a name. @return #done, or another status and the reason is told
    [[nodiscard]] int read(const Command& command, std::span<char* const> words);

    bool has(char option) const;
    const char* valueOf(char option) const; ///< null when it was not given

    bool empty() const { return size() == 0; }
    uint32_t size() const;
    const char* operator[](uint32_t index) const;

private:
    std::unique_ptr<cu_CommandLine, DeleteCommandLine> line_;
};

/// "--name", or "-n".
struct Option {
    const char* name;
    bool takesValue = false; ///< The value is the next word.
};

struct Command {
    const char* name;
    const char* summary; ///< A few words for the list of commands.
    const char* usage;   ///< The whole help text.
    int (*run)(const Arguments& arguments);
    std::span<const Option> options = {}; ///< Besides "--help".
    bool optionsFirst = false;            ///< A word that is no option ends the options.
};

extern const Command errorCommand;
extern const Command hexdumpCommand;
extern const Command shmCommand;
extern const Command ringCommand;
extern const Command clockCommand;
extern const Command convertCommand;
extern const Command md5Command;
extern const Command uuidCommand;
extern const Command netCommand;
extern const Command msgCommand;
extern const Command logCommand;

/// Says on the standard error stream what failed. @return #failed
[[nodiscard]] int fail(const char* format, ...) CU_PRINTF(1, 2);

/// Says on the standard error stream which operation failed and why, by the code that the library gave and the
/// description in the calling thread's error record. @return #failed
[[nodiscard]] int failByRecord(cu_ErrorCode code, const char* operation);

/// Says on the standard error stream what is wrong with the command line and where help is. @return #misused
[[nodiscard]] int misuse(const Command& command, const char* format, ...) CU_PRINTF(2, 3);

} // namespace cutil
