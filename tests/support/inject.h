// Failing system calls: the test programs stand in front of the functions that the library calls.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <functional>

namespace support
{

/// While it lives, lets calls that the library makes in this thread fail with an error number.
class Injection
{
public:
    /// The n-th intercepted call of any kind, counted from 1; calls of the function `except` do not count.
    explicit Injection(unsigned nth, const char* except = nullptr);
    /// The n-th call of one function; its 64-bit name where it has one ("mmap64").
    explicit Injection(const char* function, int error, unsigned nth = 1);
    /// Every call of one function.
    static Injection ofEvery(const char* function, int error);
    ~Injection();
    Injection(const Injection&) = delete;
    Injection& operator=(const Injection&) = delete;

    /// The function that was made to fail, or null as long as none was.
    const char* fired() const;

private:
    Injection(const char* function, int error, unsigned nth, bool persists);
};

/// While it lives, lets something happen just before each intercepted call that the library makes in this thread.
class Interlude
{
public:
    explicit Interlude(std::function<void()> what);
    ~Interlude();
    Interlude(const Interlude&) = delete;
    Interlude& operator=(const Interlude&) = delete;

private:
    std::function<void()> what_;
};

/// While it lives, the library reads this from every clock in this thread, as the time and as the resolution. A sleep
/// until a point that is still to come takes no time but moves the reading there, and some nanoseconds beyond.
class ClockReading
{
public:
    explicit ClockReading(timespec reading, int64_t oversleep = 0);
    ~ClockReading();
    ClockReading(const ClockReading&) = delete;
    ClockReading& operator=(const ClockReading&) = delete;

    void set(timespec reading);
    static timespec get();
};

/// While it lives, a read in this thread gives so many bytes at most; 0 makes it the end of the file.
class ShortReads
{
public:
    explicit ShortReads(std::size_t most);
    ~ShortReads();
    ShortReads(const ShortReads&) = delete;
    ShortReads& operator=(const ShortReads&) = delete;
};

} // namespace support
