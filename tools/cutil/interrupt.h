// The wish to end a command that goes on until then.
#pragma once

namespace cutil
{

/// Lets the first Ctrl-C, hang-up or termination request only clear the running flag; the second one ends the process.
void catchInterrupts();

/// The flag, as the library's loops take it.
bool* runningFlag();

/// Whether the process was asked to end.
bool isInterrupted();

} // namespace cutil
