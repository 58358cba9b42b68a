// The sweep that every constructor survives: its n-th request for memory fails, for each n, and so does the n-th system
// call that it makes.
#pragma once

#include "support/allocator.h"
#include "support/inject.h"
#include "support/record.h"

#include <dirent.h>

#include <algorithm>
#include <initializer_list>
#include <string>

namespace support
{

inline unsigned openDescriptors()
{
    unsigned count = 0;
    DIR* folder = opendir("/proc/self/fd");
    while (readdir(folder) != nullptr)
        ++count;
    closedir(folder);
    return count;
}

/// After a failure the handle is null, nothing is left behind, and the record names the constructor as its origin or in
/// its trace.
template <typename T>
void expectCleanFailure(const char* constructor, cu_ErrorCode code, const T* handle, const WatchfulAllocator& allocator)
{
    EXPECT_NE(code, 0U);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(allocator.live(), 0U);
    EXPECT_EQ(code, cu_getErrorLocation()->errorID);
    if (std::string(cu_getErrorLocation()->functionName) != constructor) {
        EXPECT_NE(trace().find(std::string(constructor) + "  -  "), std::string::npos)
            << "origin " << cu_getErrorLocation()->functionName << ", trace:\n"
            << trace();
    }
}

/// `create(handle, allocator)` is the constructor with its other arguments, `destroy(handle)` the matching destructor.
/// Ends with one run of both in which nothing fails. The calls `inVain` may fail without consequence: those of a spin
/// before a wait. The function `except` never fails: for an unlock that the constructor's clean-up cannot do without.
template <typename T, typename Create, typename Destroy>
void sweep(const char* constructor, Create create, Destroy destroy, std::initializer_list<std::string> inVain = {},
           const char* except = nullptr)
{
    SCOPED_TRACE(constructor);
    const unsigned descriptors = openDescriptors();
    for (const bool ofMemory : {true, false}) {
        bool failed = true;
        for (unsigned nth = 1; failed; ++nth) {
            ASSERT_LT(nth, 1000U);
            T* handle = nullptr;
            WatchfulAllocator allocator(ofMemory ? nth : 0);
            cu_ErrorCode code = 0;
            const char* fired = "request";
            {
                const Injection injection(ofMemory ? 0 : nth, except);
                code = create(&handle, allocator.get());
                if (!ofMemory)
                    fired = injection.fired();
                failed = ofMemory ? allocator.refused() : fired != nullptr;
            }
            SCOPED_TRACE(testing::Message() << (failed ? fired : "nothing") << " fails, number " << nth);
            if (failed && (code != 0 || std::ranges::count(inVain, std::string(fired)) == 0)) {
                expectCleanFailure(constructor, code, handle, allocator);
            } else {
                ASSERT_EQ(code, 0U);
                EXPECT_EQ(destroy(&handle), 0U);
                EXPECT_EQ(handle, nullptr);
            }
            EXPECT_EQ(openDescriptors(), descriptors);
        }
    }
}

template <typename T, typename... Parameters, typename... Given>
void sweepCall(const char* constructor, cu_ErrorCode (*create)(T**, Parameters...), cu_ErrorCode (*destroy)(T**),
               const Given&... given)
{
    const auto call = [&](T** handle, cu_allocator* allocator) {
        if constexpr (sizeof...(Given) == sizeof...(Parameters))
            return create(handle, given...);
        else
            return create(handle, given..., allocator);
    };
    sweep<T>(constructor, call, destroy);
}

} // namespace support

/// The sweep of a constructor whose arguments between the handle and the allocator, if it takes one, follow.
#define EXPECT_CLEAN_FAILURES(create, destroy, ...)                                                                    \
    support::sweepCall(#create, create, destroy __VA_OPT__(, ) __VA_ARGS__)
