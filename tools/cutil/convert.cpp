// cutil convert: what the library reads from a text.
#include "cutil.h"
#include "json.h"

#include <cUtil/convert.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <iterator>
#include <string_view>
#include <type_traits>

namespace cutil
{

namespace
{

constexpr char help[] =
    "The function cu_Convert_TYPE() of the library reads TEXT; what is printed is the value, or why there is none.\n"
    "\n"
    "  TYPE  bool, char, sint8, uint8, sint16, uint16, sint32, uint32, sint64, uint64, ieee32 or ieee64\n"
    "  TEXT  is taken as it is, also when it begins with '-': options stand in front of the TYPE\n";

/// Converts and prints.
using Show = cu_ErrorCode (*)(int32_t base, const char* text, Json* json);

template <auto member, typename Value>
cu_ErrorCode show(int32_t base, const char* text, Json* json)
{
    Value value{};
    cu_ErrorCode code = 0;
    if constexpr (std::is_invocable_v<decltype(member), Value*, int32_t, const char*>)
        code = member(&value, base, text);
    else
        code = member(&value, text);
    if (code != 0)
        return code;
    if (json != nullptr) {
        if constexpr (std::is_same_v<Value, char>)
            json->add("value", std::string_view(&value, 1));
        else
            json->add("value", value);
    } else if constexpr (std::is_same_v<Value, char>)
        printf("%c\n", value);
    else if constexpr (std::is_same_v<Value, float>)
        printf("%.9g\n", double{value});
    else if constexpr (std::is_same_v<Value, double>)
        printf("%.17g\n", value);
    else if constexpr (std::is_signed_v<Value>)
        printf("%" PRId64 "\n", int64_t{value});
    else
        printf("%" PRIu64 "\n", uint64_t{value});
    return 0;
}

struct Type {
    std::string_view name;
    Show show;
};

constexpr Type types[] = {
    {"bool", show<cu_Convert_bool, bool>},        {"char", show<cu_Convert_char, char>},
    {"sint8", show<cu_Convert_sint8, int8_t>},    {"uint8", show<cu_Convert_uint8, uint8_t>},
    {"sint16", show<cu_Convert_sint16, int16_t>}, {"uint16", show<cu_Convert_uint16, uint16_t>},
    {"sint32", show<cu_Convert_sint32, int32_t>}, {"uint32", show<cu_Convert_uint32, uint32_t>},
    {"sint64", show<cu_Convert_sint64, int64_t>}, {"uint64", show<cu_Convert_uint64, uint64_t>},
    {"ieee32", show<cu_Convert_ieee32, float>},   {"ieee64", show<cu_Convert_ieee64, double>},
};

int run(const Arguments& arguments)
{
    int32_t base = 0;
    if (const char* word = arguments.valueOf('b'); word != nullptr) {
        if (cu_Convert_sint32(&base, 10, word) != 0 || base < 0 || base == 1 || base > 36)
            return misuse(convertCommand, "'%s' is no base", word);
    }
    const char* name = arguments[0];
    const auto* type = std::find_if(std::begin(types), std::end(types), [&](auto& t) { return t.name == name; });
    if (type == std::end(types))
        return misuse(convertCommand, "there is no type '%s'", name);
    Json json;
    json.add("type", name).add("text", arguments[1]);
    const bool wantsJson = arguments.has('j');
    const cu_ErrorCode code = type->show(base, arguments[1], wantsJson ? &json : nullptr);
    if (code == 0 && wantsJson)
        json.print();
    return code == 0 ? done : failByRecord(code, name);
}

constexpr Option options[] = {
    {'b', "base", "BASE",
     "of an integer's digits, 2 to 36. Without one, or with 0, the text tells it:\n"
     "16 by a leading 0x, 8 by a leading 0, else 10"},
    {'j', "json", nullptr, "prints JSON, one object to a line; what is no number is a text"},
};
constexpr Form forms[] = {{"TYPE TEXT", "bj", run}};

} // namespace

std::vector<std::string> typeNames()
{
    std::vector<std::string> names;
    for (const Type& type : types)
        names.emplace_back(type.name);
    return names;
}

constinit const Command convertCommand = {
    "convert", "reads a text as a value, as the library does it", help, forms, options, true};

} // namespace cutil
