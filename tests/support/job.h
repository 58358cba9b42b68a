// Runnables around functions.
#pragma once

#include <cUtil/thread.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <thread>

namespace support
{

/// A runnable around a function of the running flag.
class Job
{
public:
    using Function = std::function<uintptr_t(const void*)>;

    explicit Job(Function function) : function_(std::move(function))
    {
        EXPECT_EQ(cu_Runnable_new(&runnable_, call, this, nullptr), 0U);
    }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;
    ~Job() { EXPECT_EQ(cu_Runnable_delete(&runnable_), 0U); } ///< waits as long as an execution is pending

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
    cu_Runnable* runnable_ = nullptr;
};

inline uintptr_t runUntilStopped(const void* flag)
{
    while (cu_Thread_isRunning(flag))
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    return 7;
}

} // namespace support
