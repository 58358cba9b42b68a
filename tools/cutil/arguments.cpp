// How cutil reads a command line: the library does it, once long options have become short ones.
#include "cutil.h"

#include <cUtil/commandLine.h>
#include <cUtil/errorCodes.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace cutil
{

namespace
{

/// Those of the command, and the one that every command has.
std::vector<Option> optionsOf(const Command& command)
{
    std::vector<Option> options(command.options.begin(), command.options.end());
    options.push_back({"help"});
    return options;
}

std::string shortForm(const Option& option)
{
    return {'-', option.name[0]};
}

} // namespace

void DeleteCommandLine::operator()(cu_CommandLine* commandLine) const
{
    if (const cu_ErrorCode code = cu_CommandLine_delete(&commandLine); code != 0)
        static_cast<void>(failByRecord(code, "command line"));
}

int Arguments::read(const Command& command, std::span<char* const> words)
{
    const std::vector<Option> options = optionsOf(command);
    std::string optionString = command.optionsFirst ? "+:" : ":";
    for (const Option& option : options) {
        optionString += option.name[0];
        optionString += option.takesValue ? ":" : "";
    }

    std::vector<std::string> shortened{words[0]};
    words = words.subspan(1);
    for (bool isValue = false; !words.empty(); words = words.subspan(1)) {
        const std::string word = words[0];
        if (!isValue && (word == "--" || (command.optionsFirst && !word.starts_with('-'))))
            break;
        const auto option = std::find_if(options.begin(), options.end(), [&](const Option& known) {
            return !isValue && (word == shortForm(known) || word == std::string("--") + known.name);
        });
        const bool known = option != options.end();
        if (!isValue && !known && word.starts_with("--"))
            return misuse(command, "unknown option '%s'", word.c_str());
        shortened.push_back(known ? shortForm(*option) : word);
        isValue = known && option->takesValue;
    }
    shortened.insert(shortened.end(), words.begin(), words.end());

    std::vector<char*> argv;
    for (std::string& word : shortened)
        argv.push_back(word.data());
    cu_CommandLine* line = nullptr;
    const cu_ErrorCode code = cu_CommandLine_newFromArgs(&line, static_cast<int32_t>(argv.size()), argv.data(),
                                                         optionString.c_str(), nullptr);
    line_.reset(line);
    if (code == cu_ERROR_UNKNOWN_CMDLINE_OPTION)
        return misuse(command, "unknown option '-%c'", optopt);
    if (code == cu_ERROR_MISSING_CMDLINE_OPTION)
        return misuse(command, "option '-%c' needs a value", optopt);
    return code == 0 ? done : failByRecord(code, "command line");
}

bool Arguments::has(char option) const
{
    bool present = false;
    cu_CommandLine_hasOption(line_.get(), static_cast<unsigned char>(option), &present);
    return present;
}

const char* Arguments::valueOf(char option) const
{
    const char* value = nullptr;
    cu_CommandLine_getOptarg(line_.get(), static_cast<unsigned char>(option), &value);
    return value;
}

uint32_t Arguments::size() const
{
    uint32_t count = 0;
    cu_CommandLine_getNumAdditionalOptions(line_.get(), &count);
    return count;
}

const char* Arguments::operator[](uint32_t index) const
{
    const char* word = nullptr;
    cu_CommandLine_getAdditionalOption(line_.get(), index, &word);
    return word;
}

} // namespace cutil
