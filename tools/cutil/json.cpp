#include "json.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace cutil
{

namespace
{

/// The length of the character in UTF-8 that a text begins with, 0 when there is none: neither overlong forms nor
/// halves of surrogates nor what is beyond Unicode are characters.
std::size_t characterLength(std::string_view text)
{
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(text[at]); };
    const unsigned first = byte(0);
    if (first < 0x80)
        return 1;
    const std::size_t length = first < 0xC2 ? 0 : first < 0xE0 ? 2 : first < 0xF0 ? 3 : first < 0xF5 ? 4 : 0;
    if (length == 0 || text.size() < length ||
        !std::all_of(text.begin() + 1, text.begin() + length, [](char c) { return (c & 0xC0) == 0x80; }))
        return 0;
    const bool isCharacter = (first != 0xE0 || byte(1) >= 0xA0) && (first != 0xED || byte(1) < 0xA0) &&
                             (first != 0xF0 || byte(1) >= 0x90) && (first != 0xF4 || byte(1) < 0x90);
    return isCharacter ? length : 0;
}

} // namespace

void Json::quote(std::string_view text)
{
    text_ += '"';
    while (!text.empty()) {
        const std::size_t length = characterLength(text);
        const unsigned first = static_cast<unsigned char>(text[0]);
        if (length == 0 || first < ' ') {
            char escape[8];
            snprintf(escape, sizeof(escape), "\\u%04x", (length == 0 ? 0xDC00U : 0U) + first);
            text_ += escape;
        } else {
            text_ += first == '"' || first == '\\' ? "\\" : "";
            text_ += text.substr(0, length);
        }
        text.remove_prefix(std::max<std::size_t>(length, 1));
    }
    text_ += '"';
}

void Json::print() const
{
    puts((text_ + '}').c_str());
    fflush(stdout);
}

} // namespace cutil
