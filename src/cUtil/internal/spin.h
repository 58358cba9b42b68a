// A short spin before a wait sleeps. Waking a sleeping processor costs tens of microseconds; what is about to come is
// often here within one.
#pragma once

#include <cstdint>
#include <ctime>

namespace cu::internal
{

/// About how long a spin lasts at most.
constexpr int64_t spinNanoSeconds = 1000;

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

/// How often the calling thread may look before it sleeps; 0 with a single processor, for then nobody else can move.
uint32_t spinBudget();

/// Spins of this thread that are in vain make its next ones shorter, others make them longer again.
void noteSpin(bool inVain);

/// Whether a deadline on the real-time clock lies further off than a spin lasts.
bool isBeyondSpin(const timespec& deadline);

/// Looks again and again, within the budget, whether a condition comes true.
template <typename Condition>
bool spinUntil(Condition condition)
{
    const uint32_t budget = spinBudget();
    for (uint32_t look = 0; look < budget; ++look) {
        relaxProcessor();
        if (condition()) {
            noteSpin(false);
            return true;
        }
    }
    if (budget != 0)
        noteSpin(true);
    return false;
}

} // namespace cu::internal
