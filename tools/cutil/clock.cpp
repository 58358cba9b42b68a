// cutil clock: the clocks of this system, by the numbers that the library takes.
#include "cutil.h"
#include "json.h"

#include <cUtil/time/time.h>

#include <cstdio>
#include <ctime>

namespace cutil
{

namespace
{

constexpr char help[] =
    "A line holds the number that the library's time functions take as the clock, the name, the resolution\n"
    "and the time that the clock shows, in seconds.\n";

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

/// What a clock tells; nothing where the system has no such clock.
void print(const Clock& clock, const cu_TimeValue* resolution, const cu_TimeValue* now)
{
    char text[32];
    if (resolution == nullptr)
        snprintf(text, sizeof(text), "not available");
    else if (resolution->tv_sec == 0 && resolution->tv_nsec == 0)
        snprintf(text, sizeof(text), "1 s or coarser");
    else
        snprintf(text, sizeof(text), "%ld ns", resolution->tv_nsec);
    printf("%5d  %-18s  %14s", clock.id, clock.name, text);
    if (now != nullptr)
        printf("  %lld.%09ld", static_cast<long long>(now->tv_sec), now->tv_nsec);
    putchar('\n');
}

void printJson(const Clock& clock, const cu_TimeValue* resolution, const cu_TimeValue* now)
{
    Json json;
    json.add("clock", clock.id).add("name", clock.name).add("available", now != nullptr);
    if (now != nullptr) {
        json.add("resolutionNanoseconds", resolution->tv_nsec);
        json.add("seconds", now->tv_sec).add("nanoseconds", now->tv_nsec);
    }
    json.print();
}

int run(const Arguments& arguments)
{
    const auto show = arguments.has('j') ? printJson : print;
    if (show == print)
        printf("%5s  %-18s  %14s  %s\n", "clock", "name", "resolution", "time");
    int status = done;
    for (const Clock& clock : clocks) {
        cu_TimeValue resolution{};
        cu_TimeValue now{};
        cu_ErrorCode code = cu_getClockPrecision(&resolution, clock.id);
        if (code == 0)
            code = cu_getTime(&now, clock.id);
        // Kernels without a real-time clock device have no alarm clocks: an answer, too. But those two exist always.
        if (code == 0)
            show(clock, &resolution, &now);
        else if (clock.id != CLOCK_REALTIME && clock.id != CLOCK_MONOTONIC)
            show(clock, nullptr, nullptr);
        else
            status = failByRecord(code, clock.name);
    }
    return status;
}

constexpr Option options[] = {
    {'j', "json", nullptr, "prints JSON, one object to a line; a resolution of 0 is 1 s or coarser"}};
constexpr Form forms[] = {{"", "j", run}};

} // namespace

constinit const Command clockCommand = {"clock", "lists the clocks of the system and their resolutions", help, forms,
                                        options};

} // namespace cutil
