// Null arguments: every function of a family in one list.
#pragma once

#include "support/record.h"

#include <cUtil/allocator.h>

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>

namespace support
{

/// A good argument for any pointer that nobody follows far, or a place of some of them. Allocators may be null.
struct Anything {
    void* places[8] = {};

    template <typename T>
    operator T*() const requires(!std::is_same_v<T, cu_allocator>)
    {
        void* const here = const_cast<void**>(places);
        return reinterpret_cast<T*>(here);
    }
};

/// A good argument for a parameter: the first value of its very type, else the first pointer that converts to it. Where
/// there is none it is null, as what may be null, or 1.
template <typename Parameter, typename... Good>
Parameter goodArgument(const std::tuple<Good...>& good)
{
    constexpr auto convert = [](const auto& value) -> Parameter {
        using Value = std::decay_t<decltype(value)>;
        if constexpr (std::is_pointer_v<Parameter> && std::is_convertible_v<Value, Parameter>)
            return value;
        else
            return Parameter{};
    };
    if constexpr ((std::is_same_v<Parameter, Good> || ...)) {
        return std::get<Parameter>(good);
    } else if constexpr (std::is_pointer_v<Parameter>) {
        Parameter found = nullptr;
        std::apply([&](const auto&... value) { ((found = found != nullptr ? found : convert(value)), ...); }, good);
        return found;
    } else {
        return Parameter{1};
    }
}

/// The n-th argument of an otherwise good call is null, if it is not in the good call. As the first one, a handle that
/// should be empty holds something, and one that should not is empty. Tells whether there was something to refuse.
template <std::size_t nth, typename... Parameters>
bool expectNullRefused(const std::string& function, const char* file, cu_ErrorCode (*call)(Parameters...),
                       std::tuple<Parameters...> arguments)
{
    auto& wrong = std::get<nth>(arguments);
    using Argument = std::remove_reference_t<decltype(wrong)>;
    if constexpr (std::is_pointer_v<Argument>) {
        if (wrong == nullptr)
            return false;
        const auto expectRefusal = [&] {
            SCOPED_TRACE(function + " with a wrong argument " + std::to_string(nth + 1));
            EXPECT_REFUSED(std::apply(call, arguments), function, file);
        };
        using Target = std::remove_pointer_t<Argument>;
        if constexpr (nth == 0 && std::is_pointer_v<Target> && std::is_class_v<std::remove_pointer_t<Target>>) {
            alignas(64) static char something[64];
            Target handle = *wrong == nullptr ? static_cast<Target>(static_cast<void*>(something)) : nullptr;
            const Target before = handle;
            wrong = &handle;
            expectRefusal();
            EXPECT_EQ(handle, before);
        }
        wrong = nullptr;
        expectRefusal();
        return true;
    } else {
        return false;
    }
}

template <typename Good, typename... Parameters>
void expectNullsRefused(const std::string& function, const char* file, const Good& good,
                        cu_ErrorCode (*call)(Parameters...))
{
    const std::tuple<Parameters...> arguments(goodArgument<Parameters>(good)...);
    const bool tried = [&]<std::size_t... nth>(std::index_sequence<nth...>)
    {
        return (0 + ... + static_cast<int>(expectNullRefused<nth>(function, file, call, arguments))) != 0;
    }
    (std::index_sequence_for<Parameters...>());
    EXPECT_TRUE(tried) << function << " has nothing to refuse";
}

template <typename Good, typename... Calls>
void expectAllNullsRefused(std::string_view names, const char* file, const Good& good, Calls... calls)
{
    const auto next = [&] {
        const std::size_t end = std::min(names.find(','), names.size());
        const std::string name(names.substr(0, end));
        names.remove_prefix(std::min(names.find_first_not_of(", ", end), names.size()));
        return name;
    };
    (expectNullsRefused(next(), file, good, calls), ...);
}

} // namespace support

/// Each of the functions that follow refuses a null for each pointer that is not null in a good call, and the wrong
/// kind of handle. `good` is a tuple of the arguments of good calls, which are not made.
#define EXPECT_NULLS_REFUSED(file, good, ...) support::expectAllNullsRefused(#__VA_ARGS__, file, good, __VA_ARGS__)
