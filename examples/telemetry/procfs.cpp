#include "procfs.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <memory>
#include <system_error>

namespace telemetry
{

namespace
{

constexpr std::string_view blanks = " \t";

/// Cuts the first line off a text.
std::string_view takeLine(std::string_view& text)
{
    const std::size_t end = text.find('\n');
    const std::string_view line = text.substr(0, end);
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    return line;
}

/// Cuts the first word off a line; empty at the end of it.
std::string_view takeWord(std::string_view& line)
{
    line.remove_prefix(std::min(line.find_first_not_of(blanks), line.size()));
    const std::string_view word = line.substr(0, line.find_first_of(blanks));
    line.remove_prefix(word.size());
    return word;
}

/// A decimal number that is the whole of a word.
template <typename Number>
std::optional<Number> toNumber(std::string_view word)
{
    Number number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    if (error != std::errc{} || end != word.data() + word.size())
        return std::nullopt;
    return number;
}

template <typename Number>
std::optional<Number> takeNumber(std::string_view& line)
{
    return toNumber<Number>(takeWord(line));
}

// user nice system idle [iowait [irq softirq [steal ...]]]; what follows is part of user and nice.
std::optional<CpuTimes> parseTimes(std::string_view line)
{
    constexpr int idle = 3;
    constexpr int waitingForInput = 4;
    CpuTimes times;
    for (int field = 0; field < 8; ++field) {
        const auto ticks = takeNumber<uint64_t>(line);
        if (!ticks && field <= idle)
            return std::nullopt;
        if (!ticks)
            break;
        times.total += *ticks;
        if (field != idle && field != waitingForInput)
            times.busy += *ticks;
    }
    return times;
}

// "0.52" in hundredths.
std::optional<uint32_t> takeHundredths(std::string_view& line)
{
    const std::string_view word = takeWord(line);
    const std::size_t point = word.find('.');
    if (point == std::string_view::npos || word.size() - point != 3)
        return std::nullopt;
    const auto whole = toNumber<uint32_t>(word.substr(0, point));
    const auto part = toNumber<uint32_t>(word.substr(point + 1));
    if (!whole || !part || *whole > UINT32_MAX / 100 - 1)
        return std::nullopt;
    return *whole * 100 + *part;
}

} // namespace

std::optional<Processors> parseStat(std::string_view text)
{
    constexpr std::size_t mostCores = 4096; // beyond what kernels are built for
    Processors result;
    bool complete = false;
    while (!text.empty()) {
        std::string_view line = takeLine(text);
        std::string_view name = takeWord(line);
        if (!name.starts_with("cpu"))
            continue;
        const std::optional<CpuTimes> times = parseTimes(line);
        if (!times)
            return std::nullopt;
        name.remove_prefix(3);
        if (name.empty()) {
            result.all = *times;
            complete = true;
            continue;
        }
        const auto core = toNumber<uint32_t>(name);
        if (!core || *core >= mostCores)
            return std::nullopt;
        if (result.cores.size() <= *core)
            result.cores.resize(*core + 1);
        result.cores[*core] = *times;
    }
    if (!complete)
        return std::nullopt;
    return result;
}

std::optional<Memory> parseMeminfo(std::string_view text)
{
    std::optional<uint64_t> total;
    std::optional<uint64_t> available;
    uint64_t reclaimable = 0; // what kernels before 3.14 tell instead
    while (!text.empty()) {
        std::string_view line = takeLine(text);
        const std::string_view name = takeWord(line);
        if (name == "MemTotal:")
            total = takeNumber<uint64_t>(line);
        else if (name == "MemAvailable:")
            available = takeNumber<uint64_t>(line);
        else if (name == "MemFree:" || name == "Buffers:" || name == "Cached:")
            reclaimable += takeNumber<uint64_t>(line).value_or(0);
    }
    if (!total || *total > UINT64_MAX / 1024)
        return std::nullopt;
    const uint64_t unused = std::min(available.value_or(reclaimable), *total);
    return Memory{(*total - unused) * 1024, *total * 1024};
}

std::optional<Load> parseLoadavg(std::string_view text)
{
    std::string_view line = takeLine(text);
    Load load;
    for (uint32_t& value : load.hundredths) {
        const auto hundredths = takeHundredths(line);
        if (!hundredths)
            return std::nullopt;
        value = *hundredths;
    }
    return load;
}

std::optional<Traffic> parseNetDev(std::string_view text)
{
    Traffic traffic;
    while (!text.empty()) {
        std::string_view line = takeLine(text);
        const std::size_t colon = line.find(':'); // the first number may follow without a blank
        if (colon == std::string_view::npos)
            continue; // heading
        std::string_view nameField = line.substr(0, colon);
        const std::string_view name = takeWord(nameField);
        line.remove_prefix(colon + 1);
        const auto received = takeNumber<uint64_t>(line);
        for (int skipped = 0; skipped < 7; ++skipped)
            takeWord(line);
        const auto sent = takeNumber<uint64_t>(line);
        if (!received || !sent)
            return std::nullopt;
        if (name == "lo")
            continue;
        traffic.received += *received;
        traffic.sent += *sent;
    }
    return traffic;
}

std::optional<ProcessState> parseProcessStat(std::string_view text)
{
    // The command's name stands in parentheses and may itself hold blanks and parentheses.
    const std::size_t end = text.rfind(')');
    if (end == std::string_view::npos)
        return std::nullopt;
    text.remove_prefix(end + 1);
    std::string_view line = takeLine(text);
    const std::string_view state = takeWord(line);
    for (int skipped = 0; skipped < 18; ++skipped)
        takeWord(line);
    const auto start = takeNumber<uint64_t>(line);
    if (state.size() != 1 || !start)
        return std::nullopt;
    return ProcessState{state[0], *start};
}

uint16_t busyShare(const CpuTimes& before, const CpuTimes& after)
{
    if (after.total <= before.total || after.busy <= before.busy)
        return 0;
    const uint64_t total = after.total - before.total;
    return static_cast<uint16_t>(std::min(after.busy - before.busy, total) * 1000 / total);
}

std::optional<std::string> readWholeFile(const char* path)
{
    struct Close {
        void operator()(FILE* file) const { fclose(file); }
    };
    const std::unique_ptr<FILE, Close> file(fopen(path, "re"));
    if (!file)
        return std::nullopt;
    std::string text;
    char piece[4096];
    while (const std::size_t count = fread(piece, 1, sizeof(piece), file.get()))
        text.append(piece, count);
    if (ferror(file.get()) != 0)
        return std::nullopt;
    return text;
}

} // namespace telemetry
