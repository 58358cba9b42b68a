// cutil help: the page of each command, put together from its forms, its text and its options.
#include "cutil.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <utility>

namespace cutil
{

namespace
{

std::string withValue(const Option& option)
{
    return std::string("--") + option.name + (option.value != nullptr ? std::string(" ") + option.value : "");
}

void printOptions(const Command& command)
{
    const std::vector<Option> options = optionsOf(command);
    std::size_t width = 0;
    for (const Option& option : options)
        width = std::max(width, withValue(option).size());
    fputs("\noptions:\n", stdout);
    for (const Option& option : options) {
        printf("  -%c, %-*s  ", option.letter, static_cast<int>(width), withValue(option).c_str());
        for (const char* at = option.text; *at != '\0'; ++at) {
            putchar(*at);
            if (*at == '\n')
                printf("%*s", static_cast<int>(width) + 8, "");
        }
        putchar('\n');
    }
}

int run(const Arguments& arguments)
{
    const Command* command = arguments.empty() ? &tool : findCommand(arguments[0]);
    if (command == nullptr)
        return misuse(helpCommand, "there is no command '%s'", arguments[0]);
    printHelp(*command);
    return done;
}

constexpr Form forms[] = {{"[COMMAND]", "", run}};

} // namespace

std::string usageOf(const Command& command, const Form& form)
{
    std::string options;
    for (const Option& option : optionsOf(command)) {
        if (std::string_view(form.options).find(option.letter) != std::string_view::npos)
            options += " [" + withValue(option) + ']';
    }
    std::string line = std::string("cutil") + (command.name[0] != '\0' ? " " : "") + command.name;
    for (const std::string_view word : wordsOf(form)) {
        if (!isLiteral(word) && !word.starts_with("--"))
            line += std::exchange(options, "");
        line += ' ';
        line += word;
    }
    return line + options;
}

void printHelp(const Command& command)
{
    const char* label = "usage:";
    for (const Form& form : command.forms) {
        printf("%-6s %s\n", label, usageOf(command, form).c_str());
        label = "";
    }
    printf("\n%c%s.\n", toupper(command.summary[0]), command.summary + 1);
    if (&command == &tool) {
        puts("\ncommands:");
        for (const Command* each : commands())
            printf("  %-8s  %s\n", each->name, each->summary);
    }
    if (command.text[0] != '\0')
        printf("\n%s", command.text);
    printOptions(command);
}

constinit const Command helpCommand = {"help", "tells about a command, or which there are", "", forms};

} // namespace cutil
