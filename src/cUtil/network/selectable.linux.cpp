#include <cUtil/network/selectable.h>

#include "internal/rollback.h"
#include "internal/socket.h"

#include <cUtil/tools/safeMalloc.h>

#include <cerrno>

static_assert(sizeof(cu_Selectable) == 4);

namespace
{

// Waits for one of several; `index` as the exported functions give it.
cu_ErrorCode waitForOne(const cu_Selectable* const* selectables, uint32_t count, short events, uint32_t timeoutUs,
                        int32_t* index, internal::Place here)
{
    constexpr uint32_t fewDescriptors = 64;
    pollfd few[fewDescriptors];
    pollfd* descriptors = few;
    void* block = nullptr;
    if (count > fewDescriptors) {
        if (count > UINT32_MAX / sizeof(pollfd))
            return internal::report(cu_ERROR_COM_MALLOC_FAILED, 0, here, nullptr);
        CU_TRY_AT(here, cu_safeMalloc(&block, static_cast<uint32_t>(count * sizeof(pollfd))));
        descriptors = static_cast<pollfd*>(block);
    }
    internal::Rollback release([&] { return cu_safeFreeImpl(block); }, here);
    for (uint32_t i = 0; i < count; ++i) {
        if (selectables[i] == nullptr)
            return internal::reportInvalidArgument(here);
        if (selectables[i]->handle < 0) // poll() would pass over it
            return internal::report(cu_ERROR_SOCKET_SELECT_FAILED, EBADF, here, nullptr);
        descriptors[i] = {selectables[i]->handle, events, 0};
    }

    const int64_t deadline =
        timeoutUs != 0 ? internal::monotonicNow() + int64_t{timeoutUs} * 1000 : internal::noDeadline;
    if (internal::waitForEvents(descriptors, count, deadline) == -1)
        return internal::report(cu_ERROR_SOCKET_SELECT_FAILED, errno, here, nullptr);
    int32_t first = -1;
    for (uint32_t i = count; i-- != 0;) {
        if ((descriptors[i].revents & POLLNVAL) != 0)
            return internal::report(cu_ERROR_SOCKET_SELECT_FAILED, EBADF, here, nullptr);
        if (descriptors[i].revents != 0)
            first = static_cast<int32_t>(i);
    }
    *index = first;
    return 0;
}

cu_ErrorCode waitForTheOne(const cu_Selectable* selectable, short events, uint32_t timeoutUs, bool* ready,
                           internal::Place here)
{
    int32_t index = -1;
    const cu_ErrorCode code = waitForOne(&selectable, 1, events, timeoutUs, &index, here);
    *ready = index == 0;
    return code;
}

} // namespace

int32_t cu_Selectable_getHandle(const cu_Selectable* selectable)
{
    return selectable != nullptr ? selectable->handle : internal::noDescriptor;
}

cu_ErrorCode cu_Selectable_waitReadReady(const cu_Selectable* selectable, uint32_t timeoutUs, bool* ready)
{
    CU_REQUIRE(selectable != nullptr);
    CU_REQUIRE(ready != nullptr);
    return waitForTheOne(selectable, POLLIN, timeoutUs, ready, CU_HERE);
}

cu_ErrorCode cu_Selectable_waitWriteReady(const cu_Selectable* selectable, uint32_t timeoutUs, bool* ready)
{
    CU_REQUIRE(selectable != nullptr);
    CU_REQUIRE(ready != nullptr);
    return waitForTheOne(selectable, POLLOUT, timeoutUs, ready, CU_HERE);
}

cu_ErrorCode cu_Selectable_waitReadReadyMultiple(const cu_Selectable* const* selectables, uint32_t count,
                                                 uint32_t timeoutUs, int32_t* index)
{
    CU_REQUIRE(selectables != nullptr);
    CU_REQUIRE(count != 0);
    CU_REQUIRE(index != nullptr);
    return waitForOne(selectables, count, POLLIN, timeoutUs, index, CU_HERE);
}

cu_ErrorCode cu_Selectable_waitWriteReadyMultiple(const cu_Selectable* const* selectables, uint32_t count,
                                                  uint32_t timeoutUs, int32_t* index)
{
    CU_REQUIRE(selectables != nullptr);
    CU_REQUIRE(count != 0);
    CU_REQUIRE(index != nullptr);
    return waitForOne(selectables, count, POLLOUT, timeoutUs, index, CU_HERE);
}
