// cutil, the command-line tool of the library: finds the command and runs it.
#include "cutil.h"

#include <cUtil/version.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

namespace
{

using cutil::Arguments;
using cutil::Command;

constexpr const Command* commands[] = {
    &cutil::errorCommand, &cutil::hexdumpCommand, &cutil::shmCommand, &cutil::ringCommand,
    &cutil::clockCommand, &cutil::convertCommand, &cutil::md5Command, &cutil::uuidCommand,
    &cutil::netCommand,   &cutil::msgCommand,     &cutil::logCommand,
};

void printUsage(FILE* stream)
{
    fputs("usage: cutil COMMAND [ARGUMENT...]\n"
          "       cutil --help | --version\n\n"
          "commands:\n",
          stream);
    for (const Command* command : commands)
        fprintf(stream, "  %-8s  %s\n", command->name, command->summary);
    fputs("\n'cutil COMMAND --help' tells more about a command.\n"
          "An option may be shortened to one dash and its first letter.\n"
          "Exit status: 0 done, 1 failed, 2 wrong usage.\n",
          stream);
}

constexpr cutil::Option options[] = {{"version"}};
constexpr Command tool = {"", nullptr, nullptr, nullptr, options, true};

int dispatch(std::span<char* const> words)
{
    Arguments arguments;
    if (const int status = arguments.read(tool, words); status != cutil::done)
        return status;
    if (arguments.has('h')) {
        printUsage(stdout);
        return cutil::done;
    }
    if (arguments.has('v')) {
        puts("cutil " CU_VERSION_STRING);
        return cutil::done;
    }
    if (arguments.empty()) {
        printUsage(stderr);
        return cutil::misused;
    }
    words = words.last(arguments.size()); // the command's name first
    const auto found = std::find_if(std::begin(commands), std::end(commands),
                                    [&](auto* c) { return c->name == std::string_view(words[0]); });
    if (found == std::end(commands))
        return cutil::misuse(tool, "there is no command '%s'", words[0]);
    const Command& command = **found;
    if (const int status = arguments.read(command, words); status != cutil::done)
        return status;
    if (arguments.has('h')) {
        fputs(command.usage, stdout);
        return cutil::done;
    }
    return command.run(arguments);
}

} // namespace

int main(int count, char** words)
{
    if (count == 0)
        return cutil::misused;
    const int status = dispatch({words, static_cast<std::size_t>(count)});
    // A result that did not arrive (a full disk) is none.
    if (fflush(stdout) != 0 || ferror(stdout) != 0)
        return cutil::fail("standard output: %s", strerror(errno));
    return status;
}
