// cutil error: the catalogue of error codes, by number and by name.
#include "cutil.h"

#include <cUtil/errorCodes.h>

#include <charconv>
#include <cstdio>
#include <optional>
#include <string_view>
#include <system_error>

namespace cutil
{

namespace
{

constexpr char usage[] = "usage: cutil error CODE|NAME...\n"
                         "       cutil error --all\n"
                         "\n"
                         "Tells code, name, category and description of error codes.\n"
                         "\n"
                         "  CODE   a number, decimal or hexadecimal (0x...)\n"
                         "  NAME   a symbolic name such as cu_ERROR_COM_INVALID_ARGUMENT\n"
                         "  --all  lists all codes, one to a line\n"
                         "\n"
                         "The codes of applications' own components are not known here.\n";

struct Entry {
    cu_ErrorCode code;
    std::string_view name;
};

constexpr Entry catalogue[] = {
#define CUTIL_ENTRY(number, name, description) {name, #name},
    CU_COMMON_ERRORS(CUTIL_ENTRY) CU_LIBRARY_ERRORS(CUTIL_ENTRY)
#undef CUTIL_ENTRY
};

std::optional<cu_ErrorCode> toCode(std::string_view text)
{
    int base = 10;
    if (text.starts_with("0x") || text.starts_with("0X")) {
        text.remove_prefix(2);
        base = 16;
    }
    cu_ErrorCode code = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, code, base);
    if (error != std::errc{} || stop != end)
        return std::nullopt;
    return code;
}

const Entry* find(std::string_view word)
{
    const std::optional<cu_ErrorCode> code = toCode(word);
    for (const Entry& entry : catalogue) {
        if (code ? entry.code == *code : entry.name == word)
            return &entry;
    }
    return nullptr;
}

void list()
{
    for (const Entry& entry : catalogue)
        printf("0x%08X  %-41s %s\n", entry.code, cu_GetErrorName(entry.code), cu_GetErrorDescription(entry.code));
}

void show(cu_ErrorCode code)
{
    printf("code:         0x%08X (%u)\n"
           "name:         %s\n"
           "category:     %s\n"
           "description:  %s\n",
           code, code, cu_GetErrorName(code), cu_GetErrorCategory(code), cu_GetErrorDescription(code));
}

constexpr Option options[] = {{"all"}};

int run(const Arguments& arguments)
{
    if (arguments.has('a')) {
        if (!arguments.empty())
            return misuse(errorCommand, "either codes and names or --all");
        list();
        return done;
    }
    if (arguments.empty())
        return misuse(errorCommand, "which code?");

    int status = done;
    bool first = true;
    for (uint32_t i = 0; i < arguments.size(); ++i) {
        const Entry* entry = find(arguments[i]);
        if (entry == nullptr) {
            status = fail("unknown error code: %s", arguments[i]);
            continue;
        }
        if (!first)
            putchar('\n');
        first = false;
        show(entry->code);
    }
    return status;
}

} // namespace

constinit const Command errorCommand = {"error", "explains error codes, by number or by name", usage, run, options};

} // namespace cutil
