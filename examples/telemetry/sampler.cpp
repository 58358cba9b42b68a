// The sampler: at a steady pace reads what the machine does and puts it into the queue. It never waits for the
// reporter.
#include "commands.h"
#include "messages.h"
#include "procfs.h"
#include "record.h"
#include "region.h"
#include "watchdog.h"

#include <cUtil/fifo.h>
#include <cUtil/time/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>

namespace telemetry
{

namespace
{

constexpr int64_t nanosecondsPerSecond = 1'000'000'000;

cu_ErrorCode readClock(int32_t clock, int64_t& nanoseconds)
{
    cu_TimeValue now{};
    const cu_ErrorCode code = cu_getTime(&now, clock);
    if (code == 0)
        nanoseconds = now.tv_sec * nanosecondsPerSecond + now.tv_nsec;
    return code;
}

/// Reads a file and what is in it; says what is wrong with it.
template <typename Value>
bool readAs(const char* path, std::optional<Value> (*parse)(std::string_view), Value& value)
{
    const auto text = readWholeFile(path);
    if (!text) {
        say("%s: %s", path, strerror(errno));
        return false;
    }
    auto parsed = parse(*text);
    if (!parsed) {
        say("%s: does not look as expected", path);
        return false;
    }
    value = std::move(*parsed);
    return true;
}

class Machine
{
public:
    /// The busy shares are those since the call before; the first call has none to tell.
    bool read(Record& record)
    {
        Processors now;
        Memory memory;
        Load load;
        if (!readAs("/proc/stat", parseStat, now) || !readAs("/proc/meminfo", parseMeminfo, memory) ||
            !readAs("/proc/loadavg", parseLoadavg, load))
            return false;

        const std::size_t count = std::min<std::size_t>(now.cores.size(), maxCores);
        before_.cores.resize(std::max(before_.cores.size(), count));
        record.coreCount = static_cast<uint16_t>(count);
        for (std::size_t i = 0; i < count; ++i)
            record.busyOfCore[i] = busyShare(before_.cores[i], now.cores[i]);
        record.busy = busyShare(before_.all, now.all);
        before_ = std::move(now);

        record.memoryUsed = memory.used;
        record.memoryTotal = memory.total;
        std::copy(std::begin(load.hundredths), std::end(load.hundredths), record.load);

        // A kernel without networking has no such file: no traffic then.
        const auto text = readWholeFile("/proc/net/dev");
        const Traffic traffic = text ? parseNetDev(*text).value_or(Traffic{}) : Traffic{};
        record.received = traffic.received;
        record.sent = traffic.sent;
        return true;
    }

private:
    Processors before_;
};

/// Puts a record unless the queue is full, which @p record.lost counts from then on.
cu_ErrorCode put(const Region& region, Record& record)
{
    // The record is complete before the transaction begins: so short is the time in which dying would lock the queue.
    const Watchdog watchdog;
    void* entry = nullptr;
    cu_ErrorCode code = cu_Fifo_tryPut(region.queue(), &entry);
    if (code != 0)
        return code;
    if (entry == nullptr) {
        ++record.lost;
        return 0;
    }
    code = readClock(CLOCK_MONOTONIC, record.putAt);
    if (code != 0) {
        cu_Fifo_putRollback(region.queue());
        return code;
    }
    memcpy(entry, &record, sizeof(record));
    return cu_Fifo_putCommit(region.queue());
}

/// Beats at multiples of the interval, however long the work in between takes.
class Pace
{
public:
    explicit Pace(uint32_t milliseconds) : interval_(milliseconds) {}

    cu_ErrorCode start() { return cu_getTime(&next_, CLOCK_MONOTONIC); }

    cu_ErrorCode wait()
    {
        cu_ErrorCode code = cu_addMilliSeconds(&next_, interval_);
        cu_TimeValue now{};
        if (code == 0)
            code = cu_getTime(&now, CLOCK_MONOTONIC);
        if (code != 0)
            return code;
        // After a pause (the process was stopped) missed beats are not made up for.
        if (now.tv_sec > next_.tv_sec + 1)
            next_ = now;
        return cu_sleepAbsolute(&next_, CLOCK_MONOTONIC);
    }

private:
    uint32_t interval_;
    cu_TimeValue next_{};
};

bool reporterHasEnded(const Region& region, int& status)
{
    switch (region.reporter()) {
    case Presence::dead:
        status = fail("the reporter (process %d) has died", region.reporterNumber());
        return true;
    case Presence::left:
        return true;
    default:
        return false;
    }
}

} // namespace

int sample(const Options& options)
{
    catchStopSignals();
    Machine machine;
    Record record{};
    if (!machine.read(record))
        return failed;
    std::optional<Region> region = Region::create(options.name);
    if (!region)
        return failed;

    Pace pace(options.interval);
    cu_ErrorCode code = pace.start();
    if (code != 0)
        return failByRecord(code, "reading the clock");
    int64_t end = 0;
    code = readClock(CLOCK_MONOTONIC, end);
    if (code != 0)
        return failByRecord(code, "reading the clock");
    end += options.seconds * nanosecondsPerSecond;

    int status = done;
    int64_t now = 0;
    while (!stopRequested() && !reporterHasEnded(*region, status) && (options.seconds == 0 || now < end)) {
        code = pace.wait();
        if (code == 0)
            code = readClock(CLOCK_REALTIME, record.realTime);
        if (code == 0)
            code = readClock(CLOCK_MONOTONIC, now);
        if (code != 0)
            return failByRecord(code, "keeping the time");
        if (!machine.read(record))
            return failed;
        code = put(*region, record);
        if (code != 0)
            return failByRecord(code, "putting a record");
    }
    return status;
}

} // namespace telemetry
