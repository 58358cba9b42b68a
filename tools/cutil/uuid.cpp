// cutil uuid: new identifiers.
#include "cutil.h"
#include "json.h"

#include <cUtil/uuid.h>

#include <charconv>
#include <cstdio>
#include <string_view>

namespace cutil
{

namespace
{

constexpr char help[] = "There are N of them, or one, each on a line of its own: 32 hexadecimal digits.\n";

bool toCount(std::string_view text, uint32_t& count)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), count);
    return error == std::errc{} && end == text.data() + text.size() && count != 0;
}

int run(const Arguments& arguments)
{
    uint32_t count = 1;
    if (!arguments.empty() && !toCount(arguments[0], count))
        return misuse(uuidCommand, "N is a number from 1 to 4294967295");
    for (; count != 0 && ferror(stdout) == 0; --count) {
        cu_UUID uuid;
        char text[CU_UUID_TEXT_SIZE];
        cu_ErrorCode code = cu_UUID_create(&uuid);
        if (code == 0)
            code = cu_UUID_toString(&uuid, text);
        if (code != 0)
            return failByRecord(code, "creating an identifier");
        if (arguments.has('j'))
            Json().add("uuid", text).print();
        else
            puts(text);
    }
    return done;
}

constexpr Option options[] = {jsonOption};
constexpr Form forms[] = {{"[N]", "j", run}};

} // namespace

constinit const Command uuidCommand = {"uuid", "prints new random identifiers", help, forms, options};

} // namespace cutil
