// Undoing the steps of a constructor when a later step fails.
#pragma once

#include "internal/report.h"

#include <utility>

namespace cu::internal
{

/// Runs a clean-up when its scope ends, unless dismissed. A clean-up that fails is fatal, and one that succeeds leaves
/// the record of the failure that started it intact.
template <typename CleanUp>
class Rollback
{
public:
    Rollback(CleanUp cleanUp, Place place) : cleanUp_(std::move(cleanUp)), place_(place) {}
    Rollback(const Rollback&) = delete;
    Rollback& operator=(const Rollback&) = delete;

    ~Rollback()
    {
        if (!armed_)
            return;
        if (const cu_ErrorCode code = cleanUp_(); code != 0) [[unlikely]]
            failFatally(code, place_);
    }

    void dismiss() { armed_ = false; }

private:
    CleanUp cleanUp_;
    Place place_;
    bool armed_ = true;
};

} // namespace cu::internal

/// Makes `name` undo something at the end of the scope by a call that returns a code:
/// `CU_ROLLBACK(unlock, cu_Mutex_unlock(mutex));`
#define CU_ROLLBACK(name, call) internal::Rollback name([&] { return (call); }, CU_HERE)
