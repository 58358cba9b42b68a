// What a process costs.
#pragma once

namespace telemetry
{

/// Seconds of processor time.
struct ProcessorTime {
    double own = 0;    ///< In the process's own code.
    double system = 0; ///< What the system did for it.

    double total() const { return own + system; }
    ProcessorTime& operator+=(const ProcessorTime& other)
    {
        own += other.own;
        system += other.system;
        return *this;
    }
};

/// What a process has used so far, all its threads together. One that has ended can be asked until it is waited for.
/// Nothing when it is not there.
ProcessorTime processorTimeOf(int process);

} // namespace telemetry
