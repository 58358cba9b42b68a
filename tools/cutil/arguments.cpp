// How cutil reads a command line: the library does it, once long options have become short ones.
#include "cutil.h"

#include <cUtil/commandLine.h>
#include <cUtil/errorCodes.h>

#include <algorithm>
#include <cstring>
#include <unistd.h>

namespace cutil
{

std::vector<Option> optionsOf(const Command& command)
{
    std::vector<Option> options(command.options.begin(), command.options.end());
    options.push_back({'h', "help", nullptr, "prints this text"});
    return options;
}

std::vector<std::string_view> wordsOf(const Form& form)
{
    std::vector<std::string_view> words;
    for (std::string_view rest = form.words; !rest.empty();) {
        words.push_back(rest.substr(0, rest.find(' ')));
        rest.remove_prefix(std::min(words.back().size() + 1, rest.size()));
    }
    return words;
}

void DeleteCommandLine::operator()(cu_CommandLine* commandLine) const
{
    if (const cu_ErrorCode code = cu_CommandLine_delete(&commandLine); code != 0)
        static_cast<void>(failByRecord(code, "command line"));
}

int Arguments::read(const Command& command, std::span<char* const> words)
{
    const int status = parse(command, words);
    return status != done || has('h') ? status : choose(command);
}

int Arguments::parse(const Command& command, std::span<char* const> words)
{
    const std::vector<Option> options = optionsOf(command);
    std::string optionString = command.optionsFirst ? "+:" : ":";
    for (const Option& option : options) {
        optionString += option.letter;
        optionString += option.value != nullptr ? ":" : "";
    }

    std::vector<std::string> shortened{words[0]};
    words = words.subspan(1);
    for (bool isValue = false; !words.empty(); words = words.subspan(1)) {
        const std::string word = words[0];
        const bool isLong = !isValue && word.starts_with("--");
        if (!isValue && (word == "--" || (command.optionsFirst && !word.starts_with('-'))))
            break;
        const std::string name = isLong ? word.substr(2, word.find('=') - 2) : "";
        const auto option = std::find_if(options.begin(), options.end(), [&](const Option& known) {
            return !isValue && (isLong ? name == known.name : word == std::string{'-', known.letter});
        });
        const bool known = option != options.end();
        const bool hasValue = isLong && word.size() > name.size() + 2;
        if (isLong && !known)
            return misuse(command, "unknown option '%s'", word.c_str());
        if (hasValue && option->value == nullptr)
            return misuse(command, "option '--%s' takes no value", option->name);
        shortened.push_back(known ? std::string{'-', option->letter} : word);
        if (hasValue)
            shortened.push_back(word.substr(name.size() + 3));
        isValue = known && option->value != nullptr && !hasValue;
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

/// The last form whose literals and options are there: those with an option come behind. The rest has to fit it.
int Arguments::choose(const Command& command)
{
    const auto fits = [&](const Form& form) {
        uint32_t at = 0;
        for (const std::string_view expected : wordsOf(form)) {
            if (expected.starts_with("--") ? !has(expected[2])
                                           : isLiteral(expected) && (at == count() || word(at++) != expected))
                return false;
        }
        literals_ = at;
        return true;
    };
    const auto form = std::find_if(command.forms.rbegin(), command.forms.rend(), fits);
    if (form == command.forms.rend()) {
        std::string literals;
        for (const Form& known : command.forms)
            literals += (literals.empty() ? "" : " or ") + std::string(wordsOf(known)[0]);
        return count() == 0 ? misuse(command, "%s?", literals.c_str())
                            : misuse(command, "there is no '%s': %s?", word(0), literals.c_str());
    }
    form_ = &*form;

    uint32_t least = 0;
    uint32_t most = 0;
    std::string allowed = form->options;
    for (const std::string_view expected : wordsOf(*form)) {
        if (expected.starts_with("--"))
            allowed += expected[2];
        if (expected.starts_with("--") || isLiteral(expected))
            continue;
        least += expected[0] == '[' ? 0U : 1U;
        most = expected.find("...") == std::string_view::npos && most != UINT32_MAX ? most + 1 : UINT32_MAX;
    }
    for (const Option& option : command.options) {
        if (has(option.letter) && allowed.find(option.letter) == std::string::npos)
            return misuse(command, "'--%s' is not for '%s'", option.name, form->words);
    }
    if (size() < least || size() > most)
        return misuse(command, "what is to be typed is: %s", usageOf(command, *form).c_str());
    return done;
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

uint32_t Arguments::count() const
{
    uint32_t count = 0;
    cu_CommandLine_getNumAdditionalOptions(line_.get(), &count);
    return count;
}

const char* Arguments::word(uint32_t index) const
{
    const char* word = nullptr;
    cu_CommandLine_getAdditionalOption(line_.get(), index, &word);
    return word;
}

uint32_t Arguments::size() const
{
    return count() - literals_;
}

const char* Arguments::operator[](uint32_t index) const
{
    return word(literals_ + index);
}

} // namespace cutil
