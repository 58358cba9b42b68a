// cutil, the command-line tool of the library: finds the command and runs it.
#include "cutil.h"

#include <cUtil/version.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace cutil
{

namespace
{

constexpr const Command* all[] = {
    &errorCommand, &hexdumpCommand, &shmCommand, &ringCommand, &clockCommand, &convertCommand,
    &md5Command,   &uuidCommand,    &netCommand, &msgCommand,  &logCommand,   &helpCommand,
};

/// For the shell's completion, not for people.
constexpr Form completeForms[] = {{"WORD...", "", complete}};
constexpr Command completeCommand = {"complete", "", "", completeForms, {}, true};

constexpr Form forms[] = {{"COMMAND [WORD...]", "", nullptr}, {"--version", "", nullptr}};
constexpr Option options[] = {{'v', "version", nullptr, "prints the version"}};
constexpr char help[] = "'cutil help COMMAND' or 'cutil COMMAND --help' tells more about a command.\n"
                        "\n"
                        "Options and other words may stand in any order behind the COMMAND; what follows '--' is no\n"
                        "option.\n"
                        "\n"
                        "With --json each line is an object. In its texts a byte 0x80 to 0xff that belongs to no\n"
                        "character in UTF-8 comes as \\udc80 to \\udcff, as Python's 'surrogateescape' writes it.\n"
                        "\n"
                        "Exit status:\n"
                        "  0  done\n"
                        "  1  failed; the reason is on the standard error stream\n"
                        "  2  wrong usage\n";

int dispatch(std::span<char* const> words)
{
    Arguments arguments;
    if (words.size() > 1 && words[1] == std::string_view(completeCommand.name)) {
        const int status = arguments.read(completeCommand, words.subspan(1));
        return status == done ? complete(arguments) : status;
    }
    if (const int status = arguments.read(tool, words); status != done)
        return status;
    if (arguments.has('h')) {
        printHelp(tool);
        return done;
    }
    if (arguments.has('v')) {
        puts("cutil " CU_VERSION_STRING);
        return done;
    }
    words = words.last(arguments.size()); // the command's name first
    const Command* command = findCommand(words[0]);
    if (command == nullptr)
        return misuse(tool, "there is no command '%s'", words[0]);
    if (const int status = arguments.read(*command, words); status != done)
        return status;
    if (arguments.has('h')) {
        printHelp(*command);
        return done;
    }
    return arguments.form().run(arguments);
}

} // namespace

std::span<const Command* const> commands()
{
    return all;
}

const Command* findCommand(std::string_view name)
{
    const auto found =
        std::find_if(std::begin(all), std::end(all), [&](auto* command) { return command->name == name; });
    return found != std::end(all) ? *found : nullptr;
}

constinit const Command tool = {
    "", "looks into what programs of the koCUtil library leave and say", help, forms, options, true};

} // namespace cutil

int main(int count, char** words)
{
    if (count == 0)
        return cutil::misused;
    const int status = cutil::dispatch({words, static_cast<std::size_t>(count)});
    // A result that did not arrive (a full disk) is none.
    if (fflush(stdout) != 0 || ferror(stdout) != 0)
        return cutil::fail("standard output: %s", strerror(errno));
    return status;
}
