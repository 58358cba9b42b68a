// cutil clock: the clocks of this system, by the numbers that the library takes.
#include "cutil.h"

#include <cUtil/time/time.h>

#include <cstdio>
#include <ctime>

namespace cutil
{

namespace
{

constexpr char usage[] = "usage: cutil clock\n"
                         "\n"
                         "Lists the clocks of the system: the number that time functions take as the clock, the name,\n"
                         "the resolution and the time that the clock shows, in seconds.\n";

struct Clock {
    int32_t id;
    const char* name;
};

constexpr Clock clocks[] = {
    {CLOCK_REALTIME, "real time"},
    {CLOCK_MONOTONIC, "monotonic"},
    {CLOCK_PROCESS_CPUTIME_ID, "process CPU time"},
    {CLOCK_THREAD_CPUTIME_ID, "thread CPU time"},
    {CLOCK_MONOTONIC_RAW, "monotonic, raw"},
    {CLOCK_REALTIME_COARSE, "real time, coarse"},
    {CLOCK_MONOTONIC_COARSE, "monotonic, coarse"},
    {CLOCK_BOOTTIME, "since boot"},
    {CLOCK_REALTIME_ALARM, "real time, alarm"},
    {CLOCK_BOOTTIME_ALARM, "since boot, alarm"},
    {CLOCK_TAI, "atomic time"},
};

int run(const Arguments& arguments)
{
    if (!arguments.empty())
        return misuse(clockCommand, "no arguments are taken");

    printf("%5s  %-18s  %14s  %s\n", "clock", "name", "resolution", "time");
    int status = done;
    for (const Clock& clock : clocks) {
        cu_TimeValue resolution{};
        cu_TimeValue now{};
        cu_ErrorCode code = cu_getClockPrecision(&resolution, clock.id);
        if (code == 0)
            code = cu_getTime(&now, clock.id);
        if (code != 0) {
            // Kernels without a real-time clock device have no alarm clocks: an answer, too. But those two exist
            // always.
            if (clock.id == CLOCK_REALTIME || clock.id == CLOCK_MONOTONIC)
                status = failByRecord(code, clock.name);
            else
                printf("%5d  %-18s  %14s\n", clock.id, clock.name, "not available");
            continue;
        }
        char text[32];
        if (resolution.tv_sec == 0 && resolution.tv_nsec == 0)
            snprintf(text, sizeof(text), "1 s or coarser");
        else
            snprintf(text, sizeof(text), "%ld ns", resolution.tv_nsec);
        printf("%5d  %-18s  %14s  %lld.%09ld\n", clock.id, clock.name, text, static_cast<long long>(now.tv_sec),
               now.tv_nsec);
    }
    return status;
}

} // namespace

constinit const Command clockCommand = {"clock", "lists the clocks and their resolutions", usage, run};

} // namespace cutil
