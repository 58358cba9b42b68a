// Data for other programs.
#pragma once

#include <charconv>
#include <cmath>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

namespace cutil
{

/// A JSON object, put together member by member.
class Json
{
public:
    template <typename Value>
    Json& add(const char* key, const Value& value)
    {
        text_ += text_.empty() ? "{" : ", ";
        quote(key);
        text_ += ": ";
        if constexpr (std::is_same_v<Value, std::nullptr_t>)
            text_ += "null";
        else if constexpr (std::is_same_v<Value, bool>)
            text_ += value ? "true" : "false";
        else if constexpr (std::is_convertible_v<Value, std::string_view>)
            quote(value);
        else
            number(value);
        return *this;
    }

    /// Writes it to the standard output as a line, which others see at once.
    void print() const;

private:
    /// JSON has no word for what is no number.
    template <typename Value>
    void number(Value value)
    {
        char digits[32];
        const std::string_view text(digits, std::to_chars(digits, digits + sizeof(digits), value).ptr);
        if (std::is_floating_point_v<Value> && !std::isfinite(static_cast<double>(value)))
            quote(text);
        else
            text_ += text;
    }

    void quote(std::string_view text);

    std::string text_;
};

} // namespace cutil
