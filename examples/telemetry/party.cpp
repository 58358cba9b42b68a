#include "party.h"

#include "procfs.h"

#include <optional>
#include <string>
#include <unistd.h>

namespace telemetry
{

namespace
{

constexpr int numberBits = 22; // the kernel's limit of process numbers

// By the entry of the main thread: user-mode emulation shows a process another /proc/PID/stat of its own than others
// see.
std::optional<ProcessState> stateOf(int number)
{
    const std::string id = std::to_string(number);
    const auto text = readWholeFile(("/proc/" + id + "/task/" + id + "/stat").c_str());
    return text ? parseProcessStat(*text) : std::nullopt;
}

Party partyOf(int number, uint64_t startTicks)
{
    return startTicks << numberBits | static_cast<uint32_t>(number);
}

} // namespace

Party thisProcess()
{
    const auto state = stateOf(getpid());
    return partyOf(getpid(), state ? state->startTicks : 0);
}

int processNumber(Party party)
{
    return static_cast<int>(party & ((1U << numberBits) - 1));
}

Presence presenceOf(Party party)
{
    if (party == nobody)
        return Presence::awaited;
    if (party == gone)
        return Presence::left;
    const int number = processNumber(party);
    const auto state = stateOf(number);
    // A process that has ended but was not yet waited for still has its entry.
    const bool there =
        state && state->state != 'Z' && state->state != 'X' && partyOf(number, state->startTicks) == party;
    return there ? Presence::there : Presence::dead;
}

} // namespace telemetry
