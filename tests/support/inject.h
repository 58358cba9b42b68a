// Failing system calls: the test programs stand in front of the functions that the library calls.
#pragma once

#include "support/pinned.h"

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>

namespace support
{

/// What happens in a thread to the calls that the library makes; trivial, because sanitizers start threads through it.
struct Plan {
    const char* function = nullptr; ///< that is to fail; null: any
    const char* fired = nullptr;
    unsigned callsLeft = 0; ///< until the one that fails; 0: none is to fail
    int error = ENOMEM;
    bool persists = false; ///< every call fails
    const char* except = nullptr;
};
inline constinit thread_local Plan plan;
inline constinit thread_local const std::function<void()>* interlude = nullptr;
inline constinit thread_local std::size_t longestRead = SIZE_MAX;

struct StandingClock {
    bool isOn = false;
    timespec reading = {};
    int64_t oversleep = 0;
};
inline constinit thread_local StandingClock standingClock;

/// While it lives, lets calls that the library makes in this thread fail with an error number.
class Injection : Pinned
{
public:
    /// The n-th intercepted call of any kind, counted from 1; calls of the function `except` do not count.
    explicit Injection(unsigned nth, const char* except = nullptr)
    {
        plan = {nullptr, nullptr, nth, ENOMEM, false, except};
    }
    /// The n-th call of one function, or every one; its 64-bit name where it has one ("mmap64").
    explicit Injection(const char* function, int error, unsigned nth = 1, bool persists = false)
    {
        plan = {function, nullptr, nth, error, persists, nullptr};
    }
    static Injection ofEvery(const char* function, int error) { return Injection(function, error, 1, true); }
    ~Injection() { plan = {}; }

    /// The function that was made to fail, or null as long as none was.
    const char* fired() const { return plan.fired; }
};

/// While it lives, lets something happen just before each intercepted call that the library makes in this thread.
class Interlude : Pinned
{
public:
    explicit Interlude(std::function<void()> what) : what_(std::move(what)) { interlude = &what_; }
    ~Interlude() { interlude = nullptr; }

private:
    std::function<void()> what_;
};

/// While it lives, the library reads this from every clock in this thread, as the time and as the resolution. A sleep
/// until a point that is still to come takes no time but moves the reading there, and some nanoseconds beyond.
class ClockReading : Pinned
{
public:
    explicit ClockReading(timespec reading, int64_t oversleep = 0) { standingClock = {true, reading, oversleep}; }
    ~ClockReading() { standingClock = {}; }

    static void set(timespec reading) { standingClock.reading = reading; }
    static timespec get() { return standingClock.reading; }
};

/// While it lives, a read in this thread gives so many bytes at most; 0 makes it the end of the file.
class ShortReads : Pinned
{
public:
    explicit ShortReads(std::size_t most) { longestRead = most; }
    ~ShortReads() { longestRead = SIZE_MAX; }
};

} // namespace support
