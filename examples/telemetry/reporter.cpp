// The reporter: takes the records that the sampler puts, shows them, and tells in the end how they came. The main
// thread takes and prints; a pool works the records through, and its jobs may finish in any order.
#include "commands.h"
#include "cores.h"
#include "group.h"
#include "latency.h"
#include "messages.h"
#include "record.h"
#include "region.h"
#include "table.h"
#include "watchdog.h"

#include <cUtil/fifo.h>
#include <cUtil/threadPool.h>
#include <cUtil/time/time.h>

#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <deque>
#include <memory>

namespace telemetry
{

namespace
{

/// How long a look for a record lasts, and so how soon the end of the run or of the sampler is noticed.
constexpr uint32_t lookMilliseconds = 200;

/// The same while a job is under way, whose result is to be shown soon.
constexpr uint32_t busyLookMilliseconds = 5;

constexpr uint32_t poolThreads = 2;
constexpr uint32_t poolQueue = 8;

int64_t toNanoseconds(const cu_TimeValue& time)
{
    return time.tv_sec * int64_t{1'000'000'000} + time.tv_nsec;
}

/// Takes the oldest record and notes when; leaves @p taken false when there is none for a while.
cu_ErrorCode take(const Region& region, uint32_t milliseconds, Record& record, cu_TimeValue& takenAt, bool& taken)
{
    taken = false;
    cu_TimeValue deadline{};
    cu_ErrorCode code = cu_makeTimeoutMilliSecond(&deadline, milliseconds, CLOCK_REALTIME);
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

struct DeletePool {
    void operator()(cu_ThreadPool* pool) const
    {
        if (const cu_ErrorCode code = cu_ThreadPool_delete(&pool); code != 0)
            static_cast<void>(failByRecord(code, "deleting the pool"));
    }
};

/// Has the records worked through on a pool, group by group, and shows the groups in order.
class Aggregation
{
public:
    /// @return whether all is well; if not, the reason is told
    [[nodiscard]] bool start()
    {
        cu_ThreadPool* pool = nullptr;
        if (const cu_ErrorCode code = cu_ThreadPool_new(&pool, poolThreads, poolQueue, nullptr); code != 0) {
            static_cast<void>(failByRecord(code, "making the pool"));
            return false;
        }
        pool_.reset(pool);
        return true;
    }

    /// @return whether all is well; if not, the reason is told
    [[nodiscard]] bool add(const Record& record, int64_t takenAt)
    {
        if (open_ == nullptr) {
            // The first record of all is what the first rates are reckoned from.
            open_ = std::make_unique<Group>(table_, records_ == 0 ? record : last_, records_);
            if (open_->job() == nullptr)
                return false;
        }
        open_->add(record, takenAt);
        last_ = record;
        summary_.lost = record.lost;
        return !open_->isComplete() || handOver();
    }

    bool isUnderWay() const { return !handed_.empty(); }

    /// Shows what is done, up to the oldest group that is not.
    void show()
    {
        while (!handed_.empty() && handed_.front()->isDone()) {
            const Group& group = *handed_.front();
            if (!group.text().empty())
                table_.print(group.text());
            summary_.latencies.add(group.latencies());
            cores_.add(group.busyOfCores());
            handed_.pop_front();
        }
    }

    /// Works through what is left, shows it and sums up. @return whether all went well; if not, the reason is told
    [[nodiscard]] bool end()
    {
        bool good = open_ == nullptr || open_->isEmpty() || handOver();
        for (const std::unique_ptr<Group>& group : handed_) {
            if (const cu_ErrorCode code = cu_Runnable_wait(group->job()); code != 0) {
                static_cast<void>(failByRecord(code, "waiting for a job"));
                good = false;
            }
        }
        show();
        cores_.print();
        summary_.print();
        return good;
    }

private:
    bool handOver()
    {
        records_ = open_->records();
        if (const cu_ErrorCode code = cu_ThreadPool_insert(pool_.get(), open_->job()); code != 0) {
            static_cast<void>(failByRecord(code, "handing a job to the pool"));
            open_.reset();
            return false;
        }
        handed_.push_back(std::move(open_));
        return true;
    }

    std::unique_ptr<cu_ThreadPool, DeletePool> pool_; // outlives the groups, which wait for their jobs
    Table table_;
    Summary summary_;
    Cores cores_;
    uint64_t records_ = 0;
    Record last_{};
    std::unique_ptr<Group> open_;
    std::deque<std::unique_ptr<Group>> handed_; // in order
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

    Aggregation aggregation;
    if (!aggregation.start())
        return failed;
    int status = done;
    while (!stopRequested() && (options.seconds == 0 || toNanoseconds(now) < toNanoseconds(end))) {
        Record record{};
        bool taken = false;
        aggregation.show();
        code = take(*region, aggregation.isUnderWay() ? busyLookMilliseconds : lookMilliseconds, record, now, taken);
        if (code == 0 && !taken)
            code = cu_getTime(&now, CLOCK_MONOTONIC);
        if (code != 0) {
            status = failByRecord(code, "taking a record");
            break;
        }
        if (taken) {
            if (!aggregation.add(record, toNanoseconds(now))) {
                status = failed;
                break;
            }
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
    return aggregation.end() ? status : failed;
}

} // namespace telemetry
