// How the processes of the demonstration speak when something is to be said, and the wish to end.
#pragma once

#include <cUtil/types.h>

namespace telemetry
{

enum ExitStatus : int {
    done = 0,
    failed = 1,  // something went wrong, or the other side died
    misused = 2, // the command line makes no sense
};

/// Writes one line to the standard error stream.
void say(const char* format, ...) CU_PRINTF(1, 2);

/// say() and nothing else. @return #failed
[[nodiscard]] int fail(const char* format, ...) CU_PRINTF(1, 2);

/// Says which operation failed and why, by the code that the library gave and the description in the calling thread's
/// error record. @return #failed
[[nodiscard]] int failByRecord(cu_ErrorCode code, const char* operation);

/// Lets Ctrl-C and a termination request end the process in order, see stopRequested(). What comes from the terminal
/// is not for a supervised one: it reaches the supervisor, too, which ends its parts one after the other.
void catchStopSignals(bool isSupervised);

/// Whether Ctrl-C was pressed or the process was asked to end.
bool stopRequested();

/// Whether what goes to a descriptor is seen on a terminal that knows the usual control sequences.
bool isTerminal(int descriptor);

} // namespace telemetry
