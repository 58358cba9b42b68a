// A queue stays locked for ever when a process is killed between get or put and the commit. No call can be given a
// limit for that wait, so a timer outside ends the process.
#pragma once

namespace telemetry
{

/// Ends the process with a message when the scope is not left within #watchdogSeconds. One at a time.
class Watchdog
{
public:
    Watchdog();
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;
    ~Watchdog();
};

constexpr int watchdogSeconds = 4;

} // namespace telemetry
