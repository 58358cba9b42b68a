// What the sampler puts into the queue and the server takes out: one look at the machine.
#pragma once

#include <cstddef>
#include <cstdint>

namespace telemetry
{

constexpr uint32_t maxCores = 94; ///< Further cores count only in the busy share of all.

/// The same on both word sizes.
struct alignas(8) Record {
    int64_t realTime;     ///< Nanoseconds since the epoch when the values were read.
    int64_t putAt;        ///< Nanoseconds on the monotonic clock when the record was put; the clock never jumps.
    uint64_t memoryUsed;  ///< Bytes.
    uint64_t memoryTotal; ///< Bytes.
    uint64_t received;    ///< Bytes since the machine started, over all interfaces but the loopback.
    uint64_t sent;        ///< Likewise.
    uint32_t load[3];     ///< Hundredths of runnable threads, over 1, 5 and 15 minutes.
    uint32_t lost;        ///< Records of this run that found the queue full, up to this one.
    uint16_t coreCount;   ///< Values in busyOfCore.
    uint16_t busy;        ///< Share of the interval that all cores together were busy, in thousandths.
    uint16_t busyOfCore[maxCores];
};

static_assert(sizeof(Record) == 256 && alignof(Record) == 8);
static_assert(offsetof(Record, realTime) == 0 && offsetof(Record, putAt) == 8);
static_assert(offsetof(Record, memoryUsed) == 16 && offsetof(Record, memoryTotal) == 24);
static_assert(offsetof(Record, received) == 32 && offsetof(Record, sent) == 40);
static_assert(offsetof(Record, load) == 48 && offsetof(Record, lost) == 60);
static_assert(offsetof(Record, coreCount) == 64 && offsetof(Record, busy) == 66);
static_assert(offsetof(Record, busyOfCore) == 68);

} // namespace telemetry
