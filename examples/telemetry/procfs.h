// The files of the proc file system, as values. The parsers take the text, whoever read it; none trusts it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace telemetry
{

/// Time in clock ticks since the start of the machine.
struct CpuTimes {
    uint64_t busy = 0;
    uint64_t total = 0;
};

struct Processors {
    CpuTimes all;
    std::vector<CpuTimes> cores; ///< By the core's number; empty times for one that is offline.
};

struct Memory {
    uint64_t used = 0;  ///< Bytes that programs could not have.
    uint64_t total = 0; ///< Bytes.
};

struct Load {
    uint32_t hundredths[3] = {}; ///< Over 1, 5 and 15 minutes.
};

struct Traffic {
    uint64_t received = 0; ///< Bytes.
    uint64_t sent = 0;     ///< Bytes.
};

struct ProcessState {
    char state = '?';        ///< 'Z' is a process that has ended.
    uint64_t startTicks = 0; ///< When it started: with the number it names a process once and for all.
};

std::optional<Processors> parseStat(std::string_view text);          ///< /proc/stat
std::optional<Memory> parseMeminfo(std::string_view text);           ///< /proc/meminfo
std::optional<Load> parseLoadavg(std::string_view text);             ///< /proc/loadavg
std::optional<Traffic> parseNetDev(std::string_view text);           ///< /proc/net/dev, without the loopback
std::optional<ProcessState> parseProcessStat(std::string_view text); ///< /proc/PID/stat, and a thread's

/// The busy share between two readings in thousandths; 0 when no time went by. Counters that ran backwards, as those of
/// idle cores may, count as standing still.
uint16_t busyShare(const CpuTimes& before, const CpuTimes& after);

/// A whole file, which the proc file system makes as it is read; nothing when that fails, with the reason in `errno`.
std::optional<std::string> readWholeFile(const char* path);

} // namespace telemetry
