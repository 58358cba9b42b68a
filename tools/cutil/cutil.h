// What the commands of cutil share.
#pragma once

#include <cUtil/commandLine.h>
#include <cUtil/types.h>

#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace cutil
{

enum ExitStatus : int {
    done = 0,
    failed = 1,  // the work could not be done
    misused = 2, // the command line makes no sense
};

class Arguments;

/// "--name", or "-letter".
struct Option {
    char letter;
    const char* name;
    const char* value; ///< What its value is called; null when it takes none.
    const char* text;
};

/// One way to use a command. What follows the command's name is made of
/// "literal", "--option", "ONE", "ONE|OTHER", "[PERHAPS]", "SOME..." and "[ANY...]".
struct Form {
    const char* words;
    const char* options; ///< Letters of those that may be given.
    int (*run)(const Arguments& arguments);
};

/// Its help, its manual page, its completion and the check of its command line follow from this.
struct Command {
    const char* name;
    const char* summary; ///< A few words that make a sentence.
    const char* text;    ///< What else there is to know; as it is shown, with a line feed at its end.
    std::span<const Form> forms;
    std::span<const Option> options = {}; ///< Besides "--help".
    bool optionsFirst = false;            ///< A word that is no option ends the options.
};

struct DeleteCommandLine {
    void operator()(cu_CommandLine* commandLine) const;
};

/// What stands behind a command's name: options, by their letters, and other words, by their numbers.
class Arguments
{
public:
    /// Reads words of which the first one is a name. They fit form(), unless there is the option 'h'.
    /// @return #done, or another status and the reason is told
    [[nodiscard]] int read(const Command& command, std::span<char* const> words);

    const Form& form() const { return *form_; }
    bool has(char option) const;
    const char* valueOf(char option) const; ///< null when it was not given

    // Without the literals of the form.
    bool empty() const { return size() == 0; }
    uint32_t size() const;
    const char* operator[](uint32_t index) const;

private:
    int parse(const Command& command, std::span<char* const> words);
    int choose(const Command& command);
    const char* word(uint32_t index) const;
    uint32_t count() const;

    std::unique_ptr<cu_CommandLine, DeleteCommandLine> line_;
    const Form* form_ = nullptr;
    uint32_t literals_ = 0;
};

/// An option of most commands that print data.
inline constexpr Option jsonOption = {'j', "json", nullptr, "prints JSON, one object to a line"};

std::span<const Command* const> commands();
const Command* findCommand(std::string_view name); ///< null when there is none
std::vector<Option> optionsOf(const Command& command);
std::vector<std::string_view> wordsOf(const Form& form);

/// Whether a word of a form stands for itself.
inline bool isLiteral(std::string_view word)
{
    return word[0] >= 'a' && word[0] <= 'z';
}

/// What is to be typed.
std::string usageOf(const Command& command, const Form& form);

/// Prints the page of a command.
void printHelp(const Command& command);

/// Prints what may stand in the place of the last word of a command line, and begins like it. A slash stands for the
/// names of files.
[[nodiscard]] int complete(const Arguments& arguments);

// What the words of forms stand for, where that is known.
std::vector<std::string> errorNames();
std::vector<std::string> regionNames();
std::vector<std::string> typeNames();
std::vector<std::string> levelNames();

extern const Command tool; // cutil itself
extern const Command helpCommand;
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
