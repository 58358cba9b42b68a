// The reporter: takes the records that the sampler puts, shows them, and tells in the end how they came.
#include "commands.h"
#include "latency.h"
#include "messages.h"
#include "record.h"
#include "region.h"
#include "table.h"
#include "watchdog.h"

#include <cUtil/fifo.h>
#include <cUtil/time/time.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>

namespace telemetry
{

namespace
{

/// How long a look for a record lasts, and so how soon the end of the run or of the sampler is noticed.
constexpr uint32_t lookMilliseconds = 200;

int64_t toNanoseconds(const cu_TimeValue& time)
{
    return time.tv_sec * int64_t{1'000'000'000} + time.tv_nsec;
}

/// Takes the oldest record and notes when; leaves @p taken false when there is none for a while.
cu_ErrorCode take(const Region& region, Record& record, cu_TimeValue& takenAt, bool& taken)
{
    taken = false;
    cu_TimeValue deadline{};
    cu_ErrorCode code = cu_makeTimeoutMilliSecond(&deadline, lookMilliseconds, CLOCK_REALTIME);
    if (code != 0)
        return code;

    const Watchdog watchdog;
    void* entry = nullptr;
    code = cu_Fifo_timedGet(region.queue(), &entry, &deadline);
    if (code != 0 || entry == nullptr)
        return code;
    memcpy(&record, entry, sizeof(record));
    code = cu_Fifo_getCommit(region.queue());
    if (code != 0)
        return code;
    taken = true;
    return cu_getTime(&takenAt, CLOCK_MONOTONIC);
}

struct Summary {
    Latencies latencies;
    uint32_t lost = 0;

    void print() const
    {
        constexpr double perMicrosecond = 1000;
        printf("%" PRIu64 " records taken, %" PRIu32 " lost\n", latencies.count(), lost);
        if (latencies.count() != 0)
            printf("from put to take: median %.1f us, 99th percentile %.1f us, maximum %.1f us\n",
                   static_cast<double>(latencies.percentile(50)) / perMicrosecond,
                   static_cast<double>(latencies.percentile(99)) / perMicrosecond,
                   static_cast<double>(latencies.maximum()) / perMicrosecond);
    }
};

} // namespace

int report(const Options& options)
{
    catchStopSignals();
    // Lines arrive as they are made, into a pipe, too.
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    std::optional<Region> region = Region::attach(options.name);
    if (!region)
        return failed;

    cu_TimeValue now{};
    cu_ErrorCode code = cu_getTime(&now, CLOCK_MONOTONIC);
    if (code != 0)
        return failByRecord(code, "reading the clock");
    cu_TimeValue end = now;
    code = cu_addSeconds(&end, options.seconds);
    if (code != 0)
        return failByRecord(code, "computing the end");

    Table table;
    Summary summary;
    int status = done;
    while (!stopRequested() && (options.seconds == 0 || toNanoseconds(now) < toNanoseconds(end))) {
        Record record{};
        bool taken = false;
        code = take(*region, record, now, taken);
        if (code == 0 && !taken)
            code = cu_getTime(&now, CLOCK_MONOTONIC);
        if (code != 0) {
            status = failByRecord(code, "taking a record");
            break;
        }
        if (taken) {
            // What comes out of shared memory may be anything.
            record.coreCount = static_cast<uint16_t>(std::min<uint32_t>(record.coreCount, maxCores));
            summary.latencies.add(toNanoseconds(now) - record.putAt);
            summary.lost = record.lost;
            table.show(record);
            continue;
        }
        if (stopRequested())
            break;
        const Presence sampler = region->sampler();
        if (sampler == Presence::dead)
            status = fail("the sampler (process %d) has died", region->samplerNumber());
        else if (sampler == Presence::left)
            say("the sampler has ended");
        if (sampler != Presence::there)
            break;
    }
    summary.print();
    return status;
}

} // namespace telemetry
