// cu_CommandLine_newFromString beside a getopt() of our own. The first line of the input is the option string, the rest
// the text.
#include "holds.h"

#include <cUtil/argumentArray.h>
#include <cUtil/commandLine.h>
#include <cUtil/errorCodes.h>

#include <cstddef>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace
{

using Words = std::vector<std::string>;

struct Parsed {
    cu_ErrorCode code = 0;
    std::vector<std::pair<unsigned char, std::optional<std::string>>> options;
    Words additional;
};

// What follows a character in the option string; nothing when it is no option.
std::optional<std::string> kindOf(const std::string& optionString, char option)
{
    const std::size_t at = optionString.find(option);
    if (at == std::string::npos || option == ':' || option == ';')
        return std::nullopt;
    return optionString.substr(at + 1, 2);
}

Parsed read(std::string optionString, const Words& words)
{
    char order = '\0'; // '+': options end at the first other word, '-': other words are options
    if (!optionString.empty() && (optionString[0] == '+' || optionString[0] == '-')) {
        order = optionString[0];
        optionString.erase(0, 1);
    }
    const cu_ErrorCode incomplete =
        optionString.starts_with(':') ? cu_ERROR_MISSING_CMDLINE_OPTION : cu_ERROR_UNKNOWN_CMDLINE_OPTION;

    Parsed result;
    bool optionsMayFollow = true;
    for (std::size_t i = 1; i < words.size(); ++i) {
        const std::string& word = words[i];
        if (optionsMayFollow && word == "--") {
            optionsMayFollow = false;
        } else if (!optionsMayFollow || word[0] != '-' || word == "-") {
            if (order == '-' && optionsMayFollow) {
                result.options.emplace_back(1, word);
                continue;
            }
            result.additional.push_back(word);
            optionsMayFollow = optionsMayFollow && order != '+';
        } else {
            for (std::size_t at = 1; at < word.size(); ++at) {
                const std::optional<std::string> kind = kindOf(optionString, word[at]);
                if (!kind || word[at] == '?') {
                    result.code = cu_ERROR_UNKNOWN_CMDLINE_OPTION;
                    return result;
                }
                auto& option = result.options.emplace_back(static_cast<unsigned char>(word[at]), std::nullopt);
                if (!kind->starts_with(':'))
                    continue;
                if (at + 1 < word.size()) {
                    option.second = word.substr(at + 1);
                } else if (*kind != "::") {
                    if (++i == words.size()) {
                        result.code = incomplete;
                        return result;
                    }
                    option.second = words[i];
                }
                break;
            }
        }
    }
    return result;
}

Words split(const std::string& text)
{
    cu_ArgumentArray* array = nullptr;
    char** argv = nullptr;
    uint32_t count = 0;
    HOLDS(cu_ArgumentArray_new(&array, nullptr) == 0);
    Words words;
    if (cu_ArgumentArray_parse(array, text.c_str()) == 0) {
        HOLDS(cu_ArgumentArray_get(array, &argv, &count) == 0);
        words.assign(argv, argv + count);
    }
    HOLDS(cu_ArgumentArray_delete(&array) == 0);
    return words;
}

void compare(const cu_CommandLine* commandLine, const Parsed& expected)
{
    std::optional<std::string> arguments[256];
    bool given[256] = {};
    for (const auto& [option, argument] : expected.options) {
        if (!given[option])
            arguments[option] = argument;
        given[option] = true;
    }
    const char* text = nullptr;
    for (uint32_t option = 1; option < 256; ++option) {
        bool present = false;
        HOLDS(cu_CommandLine_hasOption(commandLine, option, &present) == 0 && present == given[option]);
        HOLDS(cu_CommandLine_getOptarg(commandLine, option, &text) == 0);
        HOLDS((text != nullptr) == arguments[option].has_value() && (text == nullptr || text == arguments[option]));
    }
    uint32_t count = 0;
    HOLDS(cu_CommandLine_getNumAdditionalOptions(commandLine, &count) == 0 && count == expected.additional.size());
    for (uint32_t i = 0; i < count; ++i)
        HOLDS(cu_CommandLine_getAdditionalOption(commandLine, i, &text) == 0 && text == expected.additional[i]);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    unsetenv("POSIXLY_CORRECT");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    const std::string input = std::string(data, data + size).c_str();
    const std::size_t end = input.find('\n');
    // As an option 0xFF is the end of the options where char is signed.
    if (end == std::string::npos || input.find('\xFF') < end)
        return 0;
    const std::string optionString = input.substr(0, end);
    const std::string text = input.substr(end + 1);

    const Words words = split(text);
    Parsed expected;
    if (words.empty())
        expected.code = cu_ERROR_COM_INVALID_ARGUMENT;
    else
        expected = read(optionString, words);
    cu_CommandLine* commandLine = nullptr;
    HOLDS(cu_CommandLine_newFromString(&commandLine, text.c_str(), optionString.c_str(), nullptr) == expected.code);
    HOLDS((commandLine == nullptr) == (expected.code != 0));
    if (commandLine != nullptr) {
        compare(commandLine, expected);
        HOLDS(cu_CommandLine_delete(&commandLine) == 0 && commandLine == nullptr);
    }
    return 0;
}
