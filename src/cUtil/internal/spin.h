// A short spin before a wait sleeps. Sleeping and being woken costs tens of microseconds; what is about to come is
// often here within one.
#pragma once

#include <cstdint>
#include <ctime>

namespace cu::internal
{

/// Tells a processor that this is a spin.
inline void relaxProcessor()
{
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    asm volatile("yield" ::: "memory");
#else
    asm volatile("" ::: "memory");
#endif
}

/// One wait of the calling thread: spinUntil(), and if that was in vain, asleep() before and awake() after a sleep that
/// was not.
///
/// A spin lasts about a microsecond. Two threads that answer each other may both be asleep when the other's answer
/// comes, and then neither is ever spinning when the next one does, so after a sleep that was hardly longer than its
/// own cost one spin is long enough to outlast it. Either kind is left out more and more often while it is in vain, and
/// there is none with a single processor, for then nobody else can move.
class Spin
{
public:
    Spin();
    /// With a normalised point on the real-time clock beyond which the spin must not last.
    explicit Spin(const timespec& deadline);

    /// Looks again and again whether a condition comes true. Before each look it lets others run, for whoever is to
    /// make it true may be waiting for this very processor. After it comes a pause of most of a short spin: whoever is
    /// at it on another one is not disturbed all the time by a processor that wants the same cache line, and does
    /// several things at a stretch where there are several to do.
    template <typename Condition>
    bool spinUntil(Condition condition)
    {
        for (uint32_t spent = 0; spent < budget_; spent += pause_) {
            letOthersRun();
            if (condition()) {
                note(false);
                return true;
            }
            for (uint32_t turn = 0; turn < pause_; ++turn)
                relaxProcessor();
        }
        if (budget_ != 0)
            note(true);
        return false;
    }

    void asleep();
    void awake();

private:
    void letOthersRun();
    void note(bool inVain);

    uint32_t budget_; // turns of relaxProcessor(), like the next
    uint32_t pause_;
    bool isLong_;
    int64_t asleepSince_ = 0;
};

} // namespace cu::internal
