// Where the server's records come from.
#pragma once

#include "record.h"
#include "region.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace telemetry
{

/// The queue of the sampler that fills the region of a name; when that one ends, of the next one that does.
class Source
{
public:
    explicit Source(std::string name) : name_(std::move(name)) {}

    /// Takes the oldest record, or leaves @p taken false when there is none for a while. The records that were lost
    /// are counted over all samplers. @return whether all is well; if not, the reason is told
    [[nodiscard]] bool take(Record& record, bool& taken);

    /// The process that fills the queue; 0: none does.
    int sampler() const { return region_ ? region_->samplerNumber() : 0; }

private:
    using Clock = std::chrono::steady_clock;

    bool attach();
    void leave(Presence sampler);

    std::string name_;
    std::optional<Region> region_;
    Clock::time_point begun_ = Clock::now();
    bool isTold_ = false;     // that there is no sampler
    uint32_t lostBefore_ = 0; // by earlier samplers
    uint32_t lost_ = 0;
};

} // namespace telemetry
