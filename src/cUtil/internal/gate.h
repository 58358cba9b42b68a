// Where threads sleep until others have changed something: who changes it enters the kernel only when somebody sleeps,
// and at most one wake is under way at a time. A woken thread that leaves work for others wakes the next.
#pragma once

#include <cUtil/semaphore.h>

#include <atomic>
#include <cstdint>

namespace cu::internal
{

/// The sleeper announces itself and then looks once more before it sleeps; the other side makes its change and then
/// looks for sleepers. All four steps are sequentially consistent, so that at least one of the two sees the other.
class Gate
{
public:
    cu_ErrorCode open(cu_allocator* allocator) { return cu_Semaphore_new(&semaphore_, 0, allocator); }

    /// May be called again, whether it failed or not.
    cu_ErrorCode close() { return semaphore_ != nullptr ? cu_Semaphore_delete(&semaphore_) : 0; }

    void announce() { sleepers_.fetch_add(1, std::memory_order_seq_cst); }
    void leave() { sleepers_.fetch_sub(1, std::memory_order_relaxed); }

    /// Sleeps until woken or, with a deadline (real-time clock), until it passes: `woken` tells.
    cu_ErrorCode sleep(const cu_TimeValue* deadline, bool* woken)
    {
        *woken = true;
        const cu_ErrorCode code =
            deadline != nullptr ? cu_Semaphore_timedP(semaphore_, deadline, woken) : cu_Semaphore_p(semaphore_);
        // Reads what the waker wrote, and so what it had changed before is seen from here on.
        if (code == 0 && *woken)
            wakeUnderWay_.exchange(false, std::memory_order_seq_cst);
        return code;
    }

    bool isQuiet() const { return sleepers_.load(std::memory_order_seq_cst) == 0; }

    /// Wakes one sleeper, if there is any and none is being woken.
    cu_ErrorCode wake()
    {
        if (isQuiet()) [[likely]]
            return 0;
        return wakeUnderWay_.exchange(true, std::memory_order_seq_cst) ? 0 : cu_Semaphore_v(semaphore_);
    }

private:
    std::atomic<uint32_t> sleepers_{0};
    std::atomic<bool> wakeUnderWay_{false};
    cu_Semaphore* semaphore_ = nullptr;
};

} // namespace cu::internal
