// The records of one showing, worked through by a job of its own.
#pragma once

#include "latency.h"
#include "properties.h"
#include "record.h"
#include "table.h"

#include <cUtil/runnable.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

namespace telemetry
{

/// Filled by the main thread, then handed to a pool, then read by the main thread when it is done: never two at a time.
class Group
{
public:
    Group(const Table& table, const Record& base, uint64_t records);
    Group(const Group&) = delete;
    Group& operator=(const Group&) = delete;
    ~Group(); ///< Waits for the job.

    /// The job of the group; null when it could not be made, and the reason is told.
    cu_Runnable* job() const { return job_; }

    void add(const Record& record, int64_t takenAt) { taken_.push_back({record, takenAt}); }
    bool isEmpty() const { return taken_.empty(); }

    /// Whether the records span a period, or are as many as the group takes: it is to be shown.
    bool isComplete() const;
    uint64_t records() const { return recordsBefore_ + taken_.size(); } ///< Of the run, up to the last one here.
    const Record& last() const { return taken_.back().record; }

    /// Whether the job has come to its end. What follows is for afterwards.
    bool isDone() const { return done_.load(std::memory_order_acquire); }
    const std::string& text() const { return text_; }
    const Latencies& latencies() const { return latencies_; }
    std::vector<double> busyOfCores() const { return shown_.list("cores"); } ///< Shares of 1, empty when not shown.

private:
    struct Taken {
        Record record;
        int64_t takenAt; // nanoseconds on the monotonic clock
    };

    static uintptr_t run(void* runningFlag, void* me);
    void work();
    void summarize();

    const Table& table_;
    Record base_;
    uint64_t recordsBefore_;
    cu_Runnable* job_ = nullptr;
    std::vector<Taken> taken_;
    Properties shown_;
    std::string text_;
    Latencies latencies_;
    std::atomic<bool> done_{false};
};

} // namespace telemetry
