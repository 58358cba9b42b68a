// Runnables around functions.
#pragma once

#include "support/made.h"

#include <cUtil/thread.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace support
{

/// A runnable around a function of the running flag. Its end waits as long as an execution is pending.
class Job : Pinned
{
public:
    using Function = std::function<uintptr_t(const void*)>;

    explicit Job(Function function) : function_(std::move(function)) {}

    cu_Runnable* get() const { return runnable_; }
    int begun() const { return begun_; } ///< how many executions

    bool isPending() const
    {
        const bool wasPending = cu_Runnable_unlock(runnable_) == 0; // refused for what was not announced
        return wasPending && cu_Runnable_lock(runnable_) == 0;
    }

private:
    static uintptr_t call(void* flag, void* context)
    {
        auto* me = static_cast<Job*>(context);
        ++me->begun_;
        return me->function_(flag);
    }

    Function function_;
    std::atomic<int> begun_ = 0;
    Made<cu_Runnable_new, cu_Runnable_delete> runnable_{call, static_cast<void*>(this)};
};

inline uintptr_t runUntilStopped(const void* flag)
{
    while (cu_Thread_isRunning(flag))
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    return 7;
}

} // namespace support
