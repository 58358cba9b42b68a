// cutil error: the catalogue of error codes, by number and by name.
#include "cutil.h"
#include "json.h"

#include <cUtil/errorCodes.h>

#include <charconv>
#include <cstdio>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>

namespace cutil
{

namespace
{

constexpr char help[] = "Tells code, name, category and description of the library's error codes.\n"
                        "\n"
                        "  CODE  a number, decimal or hexadecimal (0x...)\n"
                        "  NAME  a symbolic name such as cu_ERROR_COM_INVALID_ARGUMENT\n"
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

void printJson(cu_ErrorCode code)
{
    Json json;
    json.add("code", code).add("name", cu_GetErrorName(code)).add("category", cu_GetErrorCategory(code));
    json.add("description", cu_GetErrorDescription(code)).print();
}

int list(const Arguments& arguments)
{
    for (const Entry& entry : catalogue) {
        const cu_ErrorCode code = entry.code;
        if (arguments.has('j'))
            printJson(code);
        else
            printf("0x%08X  %-41s %s\n", code, cu_GetErrorName(code), cu_GetErrorDescription(code));
    }
    return done;
}

void print(cu_ErrorCode code)
{
    printf("code:         0x%08X (%u)\n"
           "name:         %s\n"
           "category:     %s\n"
           "description:  %s\n",
           code, code, cu_GetErrorName(code), cu_GetErrorCategory(code), cu_GetErrorDescription(code));
}

int show(const Arguments& arguments)
{
    int status = done;
    bool first = true;
    for (uint32_t i = 0; i < arguments.size(); ++i) {
        const Entry* entry = find(arguments[i]);
        if (entry == nullptr) {
            status = fail("unknown error code: %s", arguments[i]);
        } else if (arguments.has('j')) {
            printJson(entry->code);
        } else {
            if (!std::exchange(first, false))
                putchar('\n');
            print(entry->code);
        }
    }
    return status;
}

constexpr Option options[] = {{'a', "all", nullptr, "lists all codes, one to a line"}, jsonOption};
constexpr Form forms[] = {{"CODE|NAME...", "j", show}, {"--all", "j", list}};

} // namespace

std::vector<std::string> errorNames()
{
    std::vector<std::string> names;
    for (const Entry& entry : catalogue)
        names.emplace_back(entry.name);
    return names;
}

constinit const Command errorCommand = {"error", "explains error codes, by number or by name", help, forms, options};

} // namespace cutil
