// The records of one second, worked through by a job of their own.
#pragma once

#include "latency.h"
#include "properties.h"
#include "record.h"

#include <cUtil/runnable.h>

#include <atomic>
#include <cstdint>
#include <vector>

namespace telemetry
{

constexpr int64_t groupPeriod = 1'000'000'000; ///< Nanoseconds.

/// Filled by the main thread, then handed to a pool, then read by the main thread when it is done: never two at a time.
class Group
{
public:
    /// @param base     the record before the first one here, for rates
    /// @param records  how many there were before
    Group(const Record& base, uint64_t records);
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;
    ~Group(); ///< Waits for the job.

    /// The job of the group; null when it could not be made, and the reason is told.
    cu_Runnable* job() const { return job_; }

    void add(const Record& record, int64_t takenAt) { taken_.push_back({record, takenAt}); }
    bool isEmpty() const { return taken_.empty(); }

    /// Whether the records span a period, or are as many as the group takes: it is to be summed up.
    bool isComplete() const;
    uint64_t records() const { return recordsBefore_ + taken_.size(); } ///< Of the run, up to the last one here.
    const Record& last() const { return taken_.back().record; }

    /// Whether the job has come to its end. What follows is for afterwards.
    bool isDone() const { return done_.load(std::memory_order_acquire); }
    bool hasSummary() const { return !summary_.all().empty(); }

    /// "time" in seconds since the epoch, "records" and "lost" of the run, "busy" and "cores" as shares of 1,
    /// "memory.used" and "memory.total" in bytes, "load" as three averages, "received" and "sent" in bytes per second.
    const Properties& summary() const { return summary_; }
    const Latencies& latencies() const { return latencies_; }

private:
    struct Taken {
        Record record;
        int64_t takenAt; // nanoseconds on the monotonic clock
    };

    static uintptr_t run(void* runningFlag, void* me);
    void work();
    void summarize();

    Record base_;
    uint64_t recordsBefore_;
    cu_Runnable* job_ = nullptr;
    std::vector<Taken> taken_;
    Properties summary_;
    Latencies latencies_;
    std::atomic<bool> done_{false};
};

} // namespace telemetry
