// cutil uuid: new identifiers.
#include "cutil.h"

#include <cUtil/uuid.h>

#include <charconv>
#include <cstdio>
#include <string_view>

namespace cutil
{

namespace
{

constexpr char usage[] = "usage: cutil uuid [N]\n"
                         "\n"
                         "Prints N new random identifiers, or one, each on a line of its own: 32 hexadecimal digits.\n";

bool toCount(std::string_view text, uint32_t& count)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    return error == std::errc{} && end == text.data() + text.size() && count != 0;
}

int run(const Arguments& arguments)
{
    uint32_t count = 1;
    if (arguments.size() > 1 || (!arguments.empty() && !toCount(arguments[0], count)))
        return misuse(uuidCommand, "at most one number is taken, from 1 to 4294967295");
    for (; count != 0 && ferror(stdout) == 0; --count) {
        cu_UUID uuid;
        char text[CU_UUID_TEXT_SIZE];
        cu_ErrorCode code = cu_UUID_create(&uuid);
        if (code == 0)
            code = cu_UUID_toString(&uuid, text);
        if (code != 0)
            return failByRecord(code, "creating an identifier");
        puts(text);
    }
    return done;
}

} // namespace

constinit const Command uuidCommand = {"uuid", "prints new random identifiers", usage, run};

} // namespace cutil
