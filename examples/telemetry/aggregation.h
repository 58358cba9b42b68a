// The records of a run, worked through second by second.
#pragma once

#include "cores.h"
#include "group.h"
#include "history.h"
#include "latency.h"
#include "record.h"

#include <cUtil/threadPool.h>

#include <cstdint>
#include <deque>
#include <memory>

namespace telemetry
{

/// Has the records worked through on a pool, whose jobs may finish in any order; what they found is gathered in order.
class Aggregation
{
public:
    /// @return whether all is well; if not, the reason is told
    [[nodiscard]] bool start();

    /// @return whether all is well; if not, the reason is told
    [[nodiscard]] bool add(const Record& record, int64_t takenAt);

    /// Gathers what is done, up to the oldest group that is not. @return whether there was a summary
    bool gather(History& history);

    /// Works through what is left and prints how the run was. @return whether all went well; if not, the reason is told
    [[nodiscard]] bool end(History& history);

private:
    struct DeletePool {
        void operator()(cu_ThreadPool* pool) const;
    };

    bool handOver();
    void print() const;

    std::unique_ptr<cu_ThreadPool, DeletePool> pool_; // outlives the groups, which wait for their jobs
    Cores cores_;
    Latencies latencies_;
    uint64_t records_ = 0;
    Record last_{};
    std::unique_ptr<Group> open_;
    std::deque<std::unique_ptr<Group>> handed_; // in order
};

} // namespace telemetry
