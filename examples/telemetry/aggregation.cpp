#include "aggregation.h"

#include "messages.h"

#include <cUtil/logger/logger.h>

#include <cinttypes>
#include <cstdio>

namespace telemetry
{

namespace
{

constexpr uint32_t poolThreads = 2;
constexpr uint32_t poolQueue = 8;

void log(const Properties& summary)
{
    constexpr double percent = 100;
    cu_Logger_formattedLog(cu_logger_LEVEL_DEBUG, "%s records, %s lost, busy %.1f %%", summary.text("records").c_str(),
                           summary.text("lost").c_str(), percent * summary.number("busy"));
}

} // namespace

void Aggregation::DeletePool::operator()(cu_ThreadPool* pool) const
{
    if (const cu_ErrorCode code = cu_ThreadPool_delete(&pool); code != 0)
        static_cast<void>(failByRecord(code, "deleting the pool"));
}

bool Aggregation::start()
{
    cu_ThreadPool* pool = nullptr;
    const cu_ErrorCode code = cu_ThreadPool_new(&pool, poolThreads, poolQueue, nullptr);
    pool_.reset(pool);
    if (code != 0)
        static_cast<void>(failByRecord(code, "making the pool"));
    return code == 0;
}

bool Aggregation::add(const Record& record, int64_t takenAt)
{
    if (open_ == nullptr) {
        // The first record of all is what the first rates are reckoned from.
        open_ = std::make_unique<Group>(records_ == 0 ? record : last_, records_);
        if (open_->job() == nullptr)
            return false;
    }
    open_->add(record, takenAt);
    if (record.lost > last_.lost)
        cu_Logger_formattedLog(cu_logger_LEVEL_WARNING, "%" PRIu32 " records found the queue full",
                               record.lost - last_.lost);
    last_ = record;
    return !open_->isComplete() || handOver();
}

bool Aggregation::gather(History& history)
{
    bool isNew = false;
    while (!handed_.empty() && handed_.front()->isDone()) {
        const Group& group = *handed_.front();
        if (group.hasSummary()) {
            history.add(group.summary());
            cores_.add(group.summary().list("cores"));
            log(group.summary());
            isNew = true;
        }
        latencies_.add(group.latencies());
        handed_.pop_front();
    }
    return isNew;
}

bool Aggregation::end(History& history)
{
    bool good = open_ == nullptr || open_->isEmpty() || handOver();
    for (const std::unique_ptr<Group>& group : handed_) {
        if (const cu_ErrorCode code = cu_Runnable_wait(group->job()); code != 0) {
            static_cast<void>(failByRecord(code, "waiting for a job"));
            good = false;
        }
    }
    gather(history);
    print();
    return good;
}

bool Aggregation::handOver()
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

void Aggregation::print() const
{
    constexpr double perMicrosecond = 1000;
    cores_.print();
    printf("%" PRIu64 " records taken, %" PRIu32 " lost\n", latencies_.count(), last_.lost);
    if (latencies_.count() != 0)
        printf("from put to take: median %.1f us, 99th percentile %.1f us, maximum %.1f us\n",
               static_cast<double>(latencies_.percentile(50)) / perMicrosecond,
               static_cast<double>(latencies_.percentile(99)) / perMicrosecond,
               static_cast<double>(latencies_.maximum()) / perMicrosecond);
}

} // namespace telemetry
