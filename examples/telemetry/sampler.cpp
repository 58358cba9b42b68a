// The sampler: at a steady pace reads what the machine does and puts it into the queue. It never waits for the
// server. One thread ticks, one samples at the ticks, and the main thread watches over the run.
#include "begin.h"
#include "commands.h"
#include "messages.h"
#include "procfs.h"
#include "record.h"
#include "region.h"
#include "watchdog.h"
#include "worker.h"

#include <cUtil/errorInfo.h>
#include <cUtil/fifo.h>
#include <cUtil/time/asyncClock.h>
#include <cUtil/time/time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <ctime>
#include <memory>
#include <thread>
#include <unistd.h>

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

/// How the interval is made of ticks. The threads look at the wish to stop at each tick, and a wait may end one tick
/// late: so a tick is a tenth of the interval, but no shorter than a millisecond.
struct Rhythm {
    explicit Rhythm(uint32_t interval)
        : ticks(interval < ticksPerInterval ? interval : ticksPerInterval),
          microseconds(interval * microsecondsPerMillisecond / ticks)
    {
    }

    static constexpr uint32_t ticksPerInterval = 10;
    static constexpr uint32_t microsecondsPerMillisecond = 1000;
    uint32_t ticks;        ///< Of an interval.
    uint32_t microseconds; ///< Of a tick.
};

struct DeleteClock {
    void operator()(cu_AsyncClock* clock) const
    {
        if (const cu_ErrorCode code = cu_AsyncClock_delete(&clock); code != 0)
            static_cast<void>(failByRecord(code, "deleting the clock"));
    }
};

struct DeleteRunnable {
    void operator()(cu_Runnable* runnable) const
    {
        if (const cu_ErrorCode code = cu_Runnable_delete(&runnable); code != 0)
            static_cast<void>(failByRecord(code, "deleting a runnable"));
    }
};

/// Two threads: one ticks, the other one samples at every so many ticks, as long as this lives.
class Sampling
{
public:
    explicit Sampling(const Region& region, const Options& options) : region_(region), rhythm_(options.interval) {}

    /// Takes the first look at the machine, before there is anything to clean up. @return whether all is well; if not,
    /// the reason is told
    [[nodiscard]] bool start()
    {
        if (!machine_.read(record_))
            return false;
        cu_AsyncClock* clock = nullptr;
        cu_Runnable* ticking = nullptr;
        cu_Runnable* sampling = nullptr;
        cu_ErrorCode code = cu_AsyncClock_new(&clock, rhythm_.microseconds, nullptr);
        clock_.reset(clock);
        if (code == 0)
            code = cu_Runnable_new(&ticking, tick, clock, nullptr);
        ticking_.reset(ticking);
        if (code == 0)
            code = cu_Runnable_new(&sampling, run, this, nullptr);
        sampling_.reset(sampling);
        if (code != 0) {
            static_cast<void>(failByRecord(code, "preparing the sampler"));
            return false;
        }
        return ticker_.start(tickName, ticking) && sampler_.start(samplerName, sampling);
    }

    /// Whether sampling has failed; the reason is told.
    bool hasFailed() const { return failed_.load(std::memory_order_relaxed); }

    /// Ends both threads, the one that waits for ticks first. @return whether all went well to the end
    [[nodiscard]] bool end()
    {
        uintptr_t result = 0;
        return sampler_.end(result) && ticker_.end(result) && !hasFailed();
    }

private:
    /// Nothing but a tick wakes who waits for one. So a clock that fails ends the process, which the server then
    /// takes for dead.
    static uintptr_t tick(void* runningFlag, void* clock)
    {
        cu_Runnable* loop = cu_AsyncClock_getRunnable(static_cast<cu_AsyncClock*>(clock));
        uintptr_t result = 0;
        cu_ErrorCode code = cu_Runnable_lock(loop);
        if (code == 0)
            code = cu_Runnable_execute(loop, runningFlag, &result);
        if (code == 0)
            code = static_cast<cu_ErrorCode>(result);
        if (code != 0)
            _exit(failByRecord(code, "ticking"));
        return 0;
    }

    static uintptr_t run(void* runningFlag, void* me)
    {
        auto* sampling = static_cast<Sampling*>(me);
        if (!sampling->sampleWhile(runningFlag))
            sampling->failed_.store(true, std::memory_order_relaxed);
        return 0;
    }

    bool sampleWhile(const void* runningFlag)
    {
        uint64_t next = 0;
        for (;;) {
            next += rhythm_.ticks; // whatever the work takes: beats are multiples of the interval
            cu_ErrorCode code = waitFor(next, runningFlag);
            if (!cu_Thread_isRunning(runningFlag))
                return true;
            if (code == 0)
                code = readClock(CLOCK_REALTIME, record_.realTime);
            if (code != 0) {
                static_cast<void>(failByRecord(code, "keeping the time"));
                return false;
            }
            if (!machine_.read(record_))
                return false;
            code = put(region_, record_);
            if (code == 0)
                code = skipMissed(next);
            if (code != 0) {
                static_cast<void>(failByRecord(code, "putting a record"));
                return false;
            }
        }
    }

    /// Looks at each tick whether to go on.
    cu_ErrorCode waitFor(uint64_t beat, const void* runningFlag) const
    {
        uint64_t tick = 0;
        cu_ErrorCode code = cu_AsyncClock_getCurrentTick(clock_.get(), &tick);
        while (code == 0 && tick < beat && cu_Thread_isRunning(runningFlag)) {
            code = cu_AsyncClock_wait(clock_.get(), tick + 1);
            if (code == 0)
                code = cu_AsyncClock_getCurrentTick(clock_.get(), &tick);
        }
        return code;
    }

    /// After a pause (the process was stopped) the clock makes up for its ticks; beats that were missed for more than
    /// a second are left out.
    cu_ErrorCode skipMissed(uint64_t& beat) const
    {
        constexpr uint64_t microsecondsPerSecond = 1'000'000;
        uint64_t tick = 0;
        const cu_ErrorCode code = cu_AsyncClock_getCurrentTick(clock_.get(), &tick);
        if (code == 0 && tick > beat && (tick - beat) * rhythm_.microseconds > microsecondsPerSecond)
            beat = tick - tick % rhythm_.ticks;
        return code;
    }

    const Region& region_;
    Rhythm rhythm_;
    Machine machine_; // this and the record: the sampling thread's alone while it runs
    Record record_{};
    std::atomic<bool> failed_{false};
    // The threads end before what they use: that which waits for ticks before that which ticks.
    std::unique_ptr<cu_AsyncClock, DeleteClock> clock_;
    std::unique_ptr<cu_Runnable, DeleteRunnable> ticking_;
    std::unique_ptr<cu_Runnable, DeleteRunnable> sampling_;
    Worker ticker_;
    Worker sampler_;
};

/// How soon the main thread notices that the run has to end.
constexpr auto watchPeriod = std::chrono::milliseconds(20);

} // namespace

int sample(const Options& options)
{
    if (!begin(options))
        return failed;
    std::optional<Region> region = Region::create(options.name);
    if (!region)
        return failed;
    Sampling sampling(*region, options);
    if (!sampling.start())
        return failed;

    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(options.seconds);
    while (!stopRequested() && !sampling.hasFailed() &&
           (options.seconds == 0 || std::chrono::steady_clock::now() < end))
        std::this_thread::sleep_for(watchPeriod);
    return sampling.end() ? done : failed;
}

} // namespace telemetry
