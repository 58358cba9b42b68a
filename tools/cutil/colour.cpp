#include "colour.h"

#include <cstdlib>
#include <unistd.h>

namespace cutil
{

int readColour(const Command& command, const Arguments& arguments, bool& wanted)
{
    const char* word = arguments.valueOf('C');
    const std::string_view when = word != nullptr ? word : "auto";
    if (when != "auto" && when != "always" && when != "never")
        return misuse(command, "'--color' takes auto, always or never");
    const auto isSet = [](const char* name) {
        const char* value = getenv(name);
        return value != nullptr && value[0] != '\0';
    };
    const bool isAble = isSet("TERM") && getenv("TERM") != std::string_view("dumb") && !isSet("NO_COLOR");
    wanted = when == "always" || (when == "auto" && isAble && isatty(STDOUT_FILENO) != 0);
    return done;
}

} // namespace cutil
