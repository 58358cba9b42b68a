// The server: takes the records that the sampler puts, remembers the last minute and answers watchers. One thread takes
// and answers; what is to be reckoned, moved over the network and written to the log is left to others.
#include "aggregation.h"
#include "commands.h"
#include "history.h"
#include "log.h"
#include "messages.h"
#include "record.h"
#include "region.h"
#include "service.h"
#include "watchdog.h"

#include <cUtil/fifo.h>
#include <cUtil/network/ipAddress.h>
#include <cUtil/time/time.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace telemetry
{

namespace
{

/// How long a look for a record lasts, and so how soon a request is answered and the end of the run is noticed.
constexpr uint32_t lookMilliseconds = 20;

int64_t toNanoseconds(const cu_TimeValue& time)
{
    return time.tv_sec * int64_t{1'000'000'000} + time.tv_nsec;
}

/// Takes the oldest record, or leaves @p taken false when there is none for a while. @p now is the time afterwards.
cu_ErrorCode take(const Region& region, Record& record, bool& taken, cu_TimeValue& now)
{
    taken = false;
    cu_TimeValue deadline{};
    cu_ErrorCode code = cu_makeTimeoutMilliSecond(&deadline, lookMilliseconds, CLOCK_REALTIME);
    if (code != 0)
        return code;

    const Watchdog watchdog;
    void* entry = nullptr;
    code = cu_Fifo_timedGet(region.queue(), &entry, &deadline);
    if (code == 0 && entry != nullptr) {
        memcpy(&record, entry, sizeof(record));
        code = cu_Fifo_getCommit(region.queue());
        taken = code == 0;
    }
    return code == 0 ? cu_getTime(&now, CLOCK_MONOTONIC) : code;
}

bool samplerHasEnded(const Region& region, int& status)
{
    switch (region.sampler()) {
    case Presence::there:
        return false;
    case Presence::dead:
        status = fail("the sampler (process %d) has died", region.samplerNumber());
        return true;
    default:
        say("the sampler has ended");
        return true;
    }
}

/// Until it is told to end, or the sampler has ended and its queue is empty.
int run(const Options& options, const Region& region, Aggregation& aggregation, Service& service, History& history)
{
    cu_TimeValue now{};
    cu_ErrorCode code = cu_getTime(&now, CLOCK_MONOTONIC);
    cu_TimeValue end = now;
    if (code == 0)
        code = cu_addSeconds(&end, options.seconds);
    int status = done;
    while (code == 0 && !stopRequested() && (options.seconds == 0 || toNanoseconds(now) < toNanoseconds(end))) {
        Record record{};
        bool taken = false;
        code = take(region, record, taken, now);
        if (code == 0 && taken && !aggregation.add(record, toNanoseconds(now)))
            return failed;
        if (code == 0 && !taken && !stopRequested() && samplerHasEnded(region, status))
            break;
        aggregation.gather(history);
        if (code == 0)
            code = service.answer(history);
    }
    return code == 0 ? status : failByRecord(code, "serving");
}

} // namespace

int serve(const Options& options)
{
    catchStopSignals();
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // lines arrive as they are made, into a pipe, too
    uint32_t address = 0;
    if (const cu_ErrorCode code = cu_IPAddress_lookup(options.host.c_str(), &address); code != 0)
        return failByRecord(code, options.host.c_str());

    const auto logPort = static_cast<uint16_t>(options.port + 1);
    Log log; // ends last: the others may have something to say
    Service service;
    Aggregation aggregation;
    if (!log.start(options.log, address, logPort) || !service.start(address, options.port) || !aggregation.start())
        return failed;
    const std::optional<Region> region = Region::attach(options.name);
    if (!region)
        return failed;
    printf("serving at %s, port %" PRIu16 "; the log is at port %" PRIu16 " and in %s\n", options.host.c_str(),
           options.port, logPort, options.log.c_str());

    History history;
    const int status = run(options, *region, aggregation, service, history);
    const bool good = aggregation.end(history);
    printf("%" PRIu64 " requests answered\n", service.answers());
    return good ? status : failed;
}

} // namespace telemetry
