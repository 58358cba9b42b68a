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
    &cutil::errorCommand, &cutil::hexdumpCommand, &cutil::shmCommand, &cutil::ringCommand, &cutil::clockCommand,
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
          "Exit status: 0 done, 1 failed, 2 wrong usage.\n",
          stream);
}

bool asksForHelp(Arguments arguments)
{
    return !arguments.empty() && (arguments[0] == std::string_view("--help") || arguments[0] == std::string_view("-h"));
}

int dispatch(Arguments arguments)
{
    if (arguments.empty()) {
        printUsage(stderr);
        return cutil::misused;
    }
    if (asksForHelp(arguments)) {
        printUsage(stdout);
        return cutil::done;
    }
    const std::string_view name = arguments[0];
    if (name == "--version") {
        puts("cutil " CU_VERSION_STRING);
        return cutil::done;
    }
    const auto found = std::find_if(std::begin(commands), std::end(commands), [&](auto* c) { return name == c->name; });
    if (found == std::end(commands)) {
        fprintf(stderr, "cutil: there is no command '%s'\nTry 'cutil --help'.\n", arguments[0]);
        return cutil::misused;
    }
    const Command& command = **found;
    arguments = arguments.subspan(1);
    if (asksForHelp(arguments)) {
        fputs(command.usage, stdout);
        return cutil::done;
    }
    return command.run(arguments);
}

} // namespace

int main(int count, char** words)
{
    const int status = dispatch(Arguments(words, static_cast<std::size_t>(count)).subspan(count > 0 ? 1 : 0));
    // A result that did not arrive (a full disk) is none.
    if (fflush(stdout) != 0 || ferror(stdout) != 0)
        return cutil::fail("standard output: %s", strerror(errno));
    return status;
}
