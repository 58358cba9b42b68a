// A logging adapter while its constructor runs, and at its end. An adapter is two blocks: the record that everybody
// sees, and a private state with `adapter`, the link back to it, and `allocator`.
#pragma once

#include "internal/owned.h"

#include <cUtil/logger/adapter.h>

namespace cu::internal
{

template <typename State>
class NewAdapter
{
public:
    cu_ErrorCode allocate(cu_allocator* allocator)
    {
        if (const cu_ErrorCode code = record_.allocateBytes(allocator, sizeof(cu_logger_Adapter)); code != 0)
            return code;
        if (const cu_ErrorCode code = state_.allocate(allocator); code != 0)
            return code;
        state_->adapter = record_.get();
        return 0;
    }

    State* get() const { return state_.get(); }
    State* operator->() const { return get(); }

    cu_logger_Adapter* release(cu_ErrorCode (*logMessage)(void*, uint32_t, const char*),
                               cu_ErrorCode (*destruct)(void*))
    {
        return new (record_.release()) cu_logger_Adapter{nullptr, state_.release(), 0, nullptr, logMessage, destruct};
    }

private:
    Owned<cu_logger_Adapter> record_;
    Owned<State> state_;
};

/// Gives both blocks back.
template <typename State>
cu_ErrorCode freeAdapter(State* state)
{
    cu_allocator* allocator = state->allocator;
    void* record = state->adapter;
    const cu_ErrorCode code = freeObject(&state);
    return code != 0 ? code : cu_allocator_free(allocator, &record);
}

} // namespace cu::internal
