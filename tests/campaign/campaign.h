// What the families of the kill campaign share: random moments, broken promises, and how to tell who hangs.
#pragma once

#include "support/deadline.h"
#include "support/process.h"

#include <cUtil/ipcSemaphore.h>

#include <atomic>
#include <cstdint>
#include <random>
#include <string>
#include <vector>

namespace campaign
{

using support::comesTrue;
using support::Process;
using support::Shared;
using namespace std::chrono_literals;

/// A promise that did not hold.
struct Breach {
    std::string what;
};

inline void require(bool holds, const std::string& what)
{
    if (!holds)
        throw Breach{what};
}

/// Far longer than anything takes on a busy machine: who exceeds it hangs.
constexpr auto hangs = 60s;

class Random
{
public:
    explicit Random(uint64_t seed) : engine_(seed) {}

    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(engine_() % limit); }
    bool heads() { return below(2) == 0; }

    /// Lets the others run until it is time to kill.
    void awaitMoment() { std::this_thread::sleep_for(std::chrono::microseconds(below(3000))); }

    /// A while of up to ten microseconds, within a call that others are in.
    void awaitInstant()
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::nanoseconds(below(10000));
        while (std::chrono::steady_clock::now() < end) {
        }
    }

private:
    std::mt19937_64 engine_;
};

/// The members of a trial that are still to end.
using Parties = std::vector<Process*>;

inline bool haveEnded(const Parties& parties)
{
    for (Process* party : parties) {
        if (!party->hasEnded())
            return false;
    }
    return true;
}

inline void requireGoodEnds(const Parties& parties)
{
    require(comesTrue([&] { return haveEnded(parties); }, hangs), "a survivor hangs");
    for (Process* party : parties) {
        const int status = party->wait();
        require(status == 0, "a survivor ended with " + std::to_string(status) + " (see the statuses in its source)");
    }
}

/// Whether those that have not ended all sleep in the kernel.
bool areAsleep(const Parties& parties);

/// Whether a lock can be had by a deadline; it is given back at once.
bool canBeTaken(sem_t* lock);

/// Waits until a condition comes true, or until the parties all sleep before a lock that nobody alive holds.
/// @return whether they hang
template <typename Condition>
bool hangBefore(Condition condition, const Parties& parties, sem_t* lock)
{
    bool hang = false;
    const auto isStuck = [&] {
        return lock != nullptr && !haveEnded(parties) && areAsleep(parties) && !canBeTaken(lock) && areAsleep(parties);
    };
    require(comesTrue([&] { return condition() || (hang = isStuck() && isStuck() && !condition()); }, hangs),
            "survivors hang though nothing stayed locked");
    return hang;
}

// One kill each. They return how it went; a promise that does not hold is a Breach.
std::string killAtFifo(Random& random);
std::string killAtRing(Random& random);
std::string killAtChannel(Random& random);
std::string killAtRegion(Random& random);
std::string killAtLog(Random& random);

} // namespace campaign
