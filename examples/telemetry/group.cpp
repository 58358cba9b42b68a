#include "group.h"

#include "messages.h"

#include <algorithm>

namespace telemetry
{

namespace
{

/// Whatever times the records tell, a group does not grow beyond this.
constexpr std::size_t mostRecords = 4096;

// What comes out of shared memory may be anything.
Record checked(Record record)
{
    constexpr uint16_t whole = 1000;
    record.coreCount = static_cast<uint16_t>(std::min<uint32_t>(record.coreCount, maxCores));
    record.busy = std::min(record.busy, whole);
    for (uint16_t& busy : record.busyOfCore)
        busy = std::min(busy, whole);
    return record;
}

int64_t elapsed(int64_t from, int64_t to)
{
    return static_cast<int64_t>(static_cast<uint64_t>(to) - static_cast<uint64_t>(from));
}

} // namespace

Group::Group(const Table& table, const Record& base, uint64_t records)
    : table_(table), base_(base), recordsBefore_(records)
{
    if (const cu_ErrorCode code = cu_Runnable_new(&job_, run, this, nullptr); code != 0)
        static_cast<void>(failByRecord(code, "making a job"));
}

Group::~Group()
{
    if (job_ == nullptr)
        return;
    if (const cu_ErrorCode code = cu_Runnable_delete(&job_); code != 0)
        static_cast<void>(failByRecord(code, "deleting a job"));
}

// On the clock that never jumps, and in the sampler's time: a backlog is shown as it came about.
bool Group::isComplete() const
{
    return taken_.size() >= mostRecords || (!isEmpty() && elapsed(base_.putAt, last().putAt) >= table_.period());
}

uintptr_t Group::run(void*, void* me)
{
    auto* group = static_cast<Group*>(me);
    group->work();
    group->done_.store(true, std::memory_order_release);
    return 0;
}

void Group::work()
{
    Showing showing;
    showing.base = base_;
    showing.records = records();
    for (const Taken& taken : taken_) {
        showing.last = checked(taken.record);
        latencies_.add(elapsed(taken.record.putAt, taken.takenAt));
        ++showing.count;
        showing.busy += showing.last.busy;
        for (uint32_t i = 0; i < showing.last.coreCount; ++i)
            showing.busyOfCore[i] += showing.last.busyOfCore[i];
    }
    if (isComplete())
        text_ = table_.compose(showing);
}

} // namespace telemetry
