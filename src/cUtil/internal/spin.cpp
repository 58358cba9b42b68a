#include "internal/spin.h"

#include <algorithm>
#include <atomic>
#include <unistd.h>

namespace
{

constexpr uint32_t unknown = UINT32_MAX;
constexpr uint32_t mostLooks = 4096;
constexpr int64_t nanoSecondsPerSecond = 1'000'000'000;

// Looks within spinNanoSeconds. Threads that find it out at the same time find much the same.
constinit std::atomic<uint32_t> fullBudget{unknown};

// How many eighths of the full budget this thread uses.
constexpr uint32_t fullShare = 8;
[[gnu::tls_model("initial-exec")]] constinit thread_local uint32_t share = fullShare;

int64_t nanoSecondsOf(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * nanoSecondsPerSecond + now.tv_nsec;
}

uint32_t measureBudget()
{
    if (sysconf(_SC_NPROCESSORS_ONLN) < 2)
        return 0;
    // The shortest of several runs: an interrupted one tells nothing.
    constexpr int runs = 5;
    constexpr uint32_t looks = 32;
    int64_t shortest = INT64_MAX;
    for (int run = 0; run < runs; ++run) {
        const int64_t start = nanoSecondsOf(CLOCK_MONOTONIC);
        for (uint32_t look = 0; look < looks; ++look)
            cu::internal::relaxProcessor();
        shortest = std::min(shortest, nanoSecondsOf(CLOCK_MONOTONIC) - start);
    }
    const int64_t affordable = looks * cu::internal::spinNanoSeconds / std::max<int64_t>(shortest, 1);
    return static_cast<uint32_t>(std::clamp<int64_t>(affordable, 1, mostLooks));
}

} // namespace

uint32_t cu::internal::spinBudget()
{
    uint32_t budget = fullBudget.load(std::memory_order_relaxed);
    if (budget == unknown) [[unlikely]] {
        budget = measureBudget();
        fullBudget.store(budget, std::memory_order_relaxed);
    }
    return (budget * share + fullShare - 1) / fullShare;
}

void cu::internal::noteSpin(bool inVain)
{
    share = inVain ? std::max(share - 1, 1U) : std::min(share + 2, fullShare);
}

bool cu::internal::isBeyondSpin(const timespec& deadline)
{
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const int64_t seconds = int64_t{deadline.tv_sec} - now.tv_sec;
    const bool isValid = deadline.tv_nsec >= 0 && deadline.tv_nsec < nanoSecondsPerSecond;
    return isValid && seconds >= 0 && (seconds > 1 || seconds * nanoSecondsPerSecond + deadline.tv_nsec - now.tv_nsec > spinNanoSeconds);
}
