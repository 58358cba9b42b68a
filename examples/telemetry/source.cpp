#include "source.h"

#include "messages.h"
#include "watchdog.h"

#include <cUtil/fifo.h>
#include <cUtil/logger/logger.h>
#include <cUtil/time/time.h>

#include <cstring>
#include <ctime>
#include <thread>

namespace telemetry
{

namespace
{

using namespace std::chrono_literals;

/// How long a look for a record lasts, and so how soon a request is answered and the end of the run is noticed.
constexpr uint32_t lookMilliseconds = 20;

constexpr auto patience = 3s; // until a missing sampler is worth a word

cu_ErrorCode takeFrom(const Region& region, Record& record, bool& taken)
{
    cu_TimeValue deadline{};
    cu_ErrorCode code = cu_makeTimeoutMilliSecond(&deadline, lookMilliseconds, CLOCK_REALTIME);
    if (code != 0)
        return code;
    const Watchdog watchdog;
    void* entry = nullptr;
    code = cu_Fifo_timedGet(region.queue(), &entry, &deadline);
    if (code == 0 && entry != nullptr) {
        memcpy(&record, entry, sizeof(record));
        code = cu_Fifo_getCommit(region.queue());
        taken = code == 0;
    }
    return code;
}

} // namespace

bool Source::take(Record& record, bool& taken)
{
    taken = false;
    if (!region_) {
        if (!attach())
            return false;
        if (!region_) {
            std::this_thread::sleep_for(std::chrono::milliseconds(lookMilliseconds));
            return true;
        }
    }
    const Presence sampler = region_->sampler(); // before the look: one that has ended puts nothing after it
    if (const cu_ErrorCode code = takeFrom(*region_, record, taken); code != 0) {
        static_cast<void>(failByRecord(code, "taking a record"));
        return false;
    }
    if (taken)
        lost_ = record.lost += lostBefore_;
    else if (sampler != Presence::there)
        leave(sampler);
    return true;
}

bool Source::attach()
{
    bool hopeless = false;
    std::optional<Region> found = Region::attach(name_, hopeless);
    if (found) {
        region_.emplace(std::move(*found));
        cu_Logger_formattedLog(cu_logger_LEVEL_INFO, "the sampler is process %d", sampler());
    } else if (!hopeless && !isTold_ && Clock::now() - begun_ > patience) {
        say("no sampler fills the region '%s': waiting for one", name_.c_str());
        isTold_ = true;
    }
    return !hopeless;
}

void Source::leave(Presence sampler)
{
    if (sampler == Presence::dead)
        say("the sampler (process %d) has died: waiting for another one", region_->samplerNumber());
    else
        say("the sampler has ended: waiting for another one");
    isTold_ = true;
    region_.reset();
    lostBefore_ = lost_;
}

} // namespace telemetry
