// Where threads sleep until others have changed something: who changes it enters the kernel only when somebody sleeps,
// and at most one wake is under way at a time. A woken thread that leaves work for others wakes the next.
#pragma once

#include "internal/posixSemaphore.h"

#include <atomic>
#include <cerrno>
#include <cstdint>

namespace cu::internal
{

/// The sleeper announces itself and then looks once more before it sleeps; the other side makes its change and then
/// looks for sleepers. All four steps are sequentially consistent, so that at least one of the two sees the other.
class Gate
{
public:
    int open() { return sem_init(&semaphore_, 0, 0) == 0 ? 0 : errno; }
    int close() { return sem_destroy(&semaphore_) == 0 ? 0 : errno; }

    void announce() { sleepers_.fetch_add(1, std::memory_order_seq_cst); }
    void leave() { sleepers_.fetch_sub(1, std::memory_order_relaxed); }

    /// Sleeps until woken or, with a deadline (real-time clock), until it passes: `woken` tells. Gives an error number.
    int sleep(const timespec* deadline, bool* woken)
    {
        const int error = sleepOnSemaphore(&semaphore_, deadline, woken);
        // Reads what the waker wrote, and so what it had changed before is seen from here on.
        if (error == 0 && *woken)
            wakeUnderWay_.exchange(false, std::memory_order_seq_cst);
        return error;
    }

    bool isQuiet() const { return sleepers_.load(std::memory_order_seq_cst) == 0; }

    /// Wakes one sleeper, if there is any and none is being woken. Gives an error number.
    int wake()
    {
        if (isQuiet()) [[likely]]
            return 0;
        return wakeUnderWay_.exchange(true, std::memory_order_seq_cst) ? 0 : postSemaphore(&semaphore_);
    }

private:
    std::atomic<uint32_t> sleepers_{0};
    std::atomic<bool> wakeUnderWay_{false};
    sem_t semaphore_;
};

} // namespace cu::internal
