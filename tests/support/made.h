// An object for the length of a scope.
#pragma once

#include "support/pinned.h"

#include <cUtil/allocator.h>

#include <gtest/gtest.h>

namespace support
{

/// Made with the shared allocator where the constructor takes one, and deleted at the end of the scope if that has not
/// been done before.
template <auto create, auto destroy>
class Made;

template <typename T, typename... Parameters, cu_ErrorCode (*create)(T**, Parameters...), cu_ErrorCode (*destroy)(T**)>
class Made<create, destroy> : Pinned
{
public:
    template <typename... Given>
    explicit Made(const Given&... given)
    {
        if constexpr (sizeof...(Given) == sizeof...(Parameters))
            EXPECT_EQ(create(&object_, given...), 0U);
        else
            EXPECT_EQ(create(&object_, given..., nullptr), 0U);
    }
    ~Made() { end(); }

    T* get() const { return object_; }
    T** handle() { return &object_; }
    operator T*() const { return object_; }
    T* operator->() const { return object_; }

    void end()
    {
        if (object_ != nullptr) {
            EXPECT_EQ(destroy(&object_), 0U);
        }
        EXPECT_EQ(object_, nullptr);
    }

private:
    T* object_ = nullptr;
};

} // namespace support
