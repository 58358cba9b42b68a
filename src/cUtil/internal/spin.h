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

    /// Looks again and again whether a condition comes true. The gaps between the looks grow: whoever is to make it
    /// true is not disturbed all the time by a processor that wants the same cache line.
    template <typename Condition>
    bool spinUntil(Condition condition)
    {
        uint32_t gap = 1;
        for (uint32_t spent = 0; spent < budget_; spent += gap, gap += gap < longestGap ? (gap + 1) / 2 : 0) {
            for (uint32_t turn = 0; turn < gap; ++turn)
                relaxProcessor();
            if (condition()) {
                note(false);
                return true;
            }
        }
        if (budget_ != 0)
            note(true);
        return false;
    }

    void asleep();
    void awake();

private:
    static constexpr uint32_t longestGap = 8;

    void note(bool inVain);

    uint32_t budget_; // turns of relaxProcessor()
    bool isLong_;
    int64_t asleepSince_ = 0;
};

} // namespace cu::internal
