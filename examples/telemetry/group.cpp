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

// Per second. An interface that went away takes its bytes along.
double rate(uint64_t before, uint64_t after, double seconds)
{
    return seconds > 0 && after > before ? static_cast<double>(after - before) / seconds : 0;
}

} // namespace

Group::Group(const Record& base, uint64_t records) : base_(base), recordsBefore_(records)
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

// On the clock that never jumps, and in the sampler's time: a backlog is summed up as it came about.
bool Group::isComplete() const
{
    return taken_.size() >= mostRecords || (!isEmpty() && elapsed(base_.putAt, last().putAt) >= groupPeriod);
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
    for (Taken& taken : taken_) {
        taken.record = checked(taken.record);
        latencies_.add(elapsed(taken.record.putAt, taken.takenAt));
    }
    if (isComplete())
        summarize();
}

// Shares are means over the records, rates are over the time since the last record of the group before.
void Group::summarize()
{
    const Record& last = taken_.back().record;
    const double thousandths = 1000.0 * static_cast<double>(taken_.size());
    double busy = 0;
    std::vector<double> busyOfCore(last.coreCount);
    for (const Taken& taken : taken_) {
        busy += taken.record.busy / thousandths;
        for (std::size_t i = 0; i < std::min<std::size_t>(taken.record.coreCount, busyOfCore.size()); ++i)
            busyOfCore[i] += taken.record.busyOfCore[i] / thousandths;
    }
    const double seconds = static_cast<double>(elapsed(base_.putAt, last.putAt)) / 1e9;

    summary_.set("time", cu_Variant_set_uint64, static_cast<uint64_t>(last.realTime / 1'000'000'000));
    summary_.set("records", cu_Variant_set_uint64, records());
    summary_.set("lost", cu_Variant_set_uint64, last.lost);
    summary_.set("busy", cu_Variant_set_ieee64, busy);
    summary_.setList("cores", busyOfCore);
    summary_.setList("load", {last.load[0] / 100.0, last.load[1] / 100.0, last.load[2] / 100.0});
    summary_.set("memory.used", cu_Variant_set_uint64, last.memoryUsed);
    summary_.set("memory.total", cu_Variant_set_uint64, last.memoryTotal);
    summary_.set("received", cu_Variant_set_ieee64, rate(base_.received, last.received, seconds));
    summary_.set("sent", cu_Variant_set_ieee64, rate(base_.sent, last.sent, seconds));
}

} // namespace telemetry
