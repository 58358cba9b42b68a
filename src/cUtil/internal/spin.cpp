#include "internal/spin.h"

#include <algorithm>
#include <atomic>
#include <sched.h>
#include <unistd.h>

namespace
{

constexpr int64_t shortSpin = 1'000; // nanoseconds, like the next two
constexpr int64_t longSpin = 50'000;
constexpr int64_t second = 1'000'000'000;

constexpr uint32_t unknown = UINT32_MAX;

// Turns within a short spin; threads that find it out at the same time find much the same.
constinit std::atomic<uint32_t> shortBudget{unknown};

// How often something is left out that was in vain. What was not halves that so many times.
struct Reluctance {
    uint16_t most;
    uint8_t halvings;
    uint16_t leftOut = 0;
    uint16_t stillToLeaveOut = 0;

    bool lets()
    {
        if (stillToLeaveOut == 0)
            return true;
        --stillToLeaveOut;
        return false;
    }

    void note(bool inVain)
    {
        leftOut = inVain ? std::min(static_cast<uint16_t>(2 * leftOut + 1), most)
                         : static_cast<uint16_t>(leftOut >> halvings);
        stillToLeaveOut = leftOut;
    }
};

struct History {
    Reluctance shortSpins{15, 4};
    Reluctance longSpins{127, 7};
    Reluctance yields{32767, 1};
    bool sleptBriefly = false;
};
[[gnu::tls_model("initial-exec")]] constinit thread_local History history;

int64_t nanoSecondsOf(clockid_t clock)
{
    timespec now = {};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * second + now.tv_nsec;
}

uint32_t measureShortBudget()
{
    if (sysconf(_SC_NPROCESSORS_ONLN) < 2)
        return 0;
    // The shortest of several runs: an interrupted one tells nothing.
    constexpr int runs = 5;
    constexpr uint32_t turns = 32;
    constexpr int64_t mostTurns = 4096;
    int64_t shortest = INT64_MAX;
    for (int run = 0; run < runs; ++run) {
        const int64_t start = nanoSecondsOf(CLOCK_MONOTONIC);
        for (uint32_t turn = 0; turn < turns; ++turn)
            cu::internal::relaxProcessor();
        shortest = std::min(shortest, nanoSecondsOf(CLOCK_MONOTONIC) - start);
    }
    return static_cast<uint32_t>(std::clamp<int64_t>(turns * shortSpin / std::max<int64_t>(shortest, 1), 1, mostTurns));
}

} // namespace

cu::internal::Spin::Spin()
    : budget_(shortBudget.load(std::memory_order_relaxed)), pause_(0),
      isLong_(history.sleptBriefly && history.longSpins.lets())
{
    if (budget_ == unknown) [[unlikely]] {
        budget_ = measureShortBudget();
        shortBudget.store(budget_, std::memory_order_relaxed);
    }
    pause_ = std::max(budget_ * 3 / 4, 1U);
    if (isLong_)
        budget_ *= longSpin / shortSpin;
    else if (!history.shortSpins.lets())
        budget_ = 0;
}

cu::internal::Spin::Spin(const timespec& deadline) : Spin()
{
    if (budget_ == 0)
        return;
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    // A deadline may lie as far away as its type reaches, which is too far for nanoseconds.
    const auto seconds = std::clamp<int64_t>(deadline.tv_sec, int64_t{now.tv_sec} - 1, int64_t{now.tv_sec} + 2);
    const int64_t left = (seconds - now.tv_sec) * second + deadline.tv_nsec - now.tv_nsec;
    if (left < (isLong_ ? longSpin : shortSpin))
        budget_ = 0;
}

void cu::internal::Spin::letOthersRun()
{
    if (!history.yields.lets())
        return;
    const int64_t start = nanoSecondsOf(CLOCK_MONOTONIC);
    sched_yield();
    history.yields.note(nanoSecondsOf(CLOCK_MONOTONIC) - start > longSpin);
}

void cu::internal::Spin::note(bool inVain)
{
    (isLong_ ? history.longSpins : history.shortSpins).note(inVain);
    if (!inVain)
        history.shortSpins.note(false);
}

void cu::internal::Spin::asleep()
{
    asleepSince_ = nanoSecondsOf(CLOCK_MONOTONIC);
}

void cu::internal::Spin::awake()
{
    history.sleptBriefly = nanoSecondsOf(CLOCK_MONOTONIC) - asleepSince_ < longSpin;
}
