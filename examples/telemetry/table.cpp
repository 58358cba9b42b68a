#include "table.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <unistd.h>

namespace telemetry
{

namespace
{

constexpr int64_t inPlacePeriod = 250'000'000; // nanoseconds
constexpr int64_t linePeriod = 1'000'000'000;

std::string bar(double share, int width)
{
    const auto filled = static_cast<std::size_t>(std::clamp(share * width + 0.5, 0.0, static_cast<double>(width)));
    return '[' + std::string(filled, '#') + std::string(static_cast<std::size_t>(width) - filled, '.') + ']';
}

std::string timeOfDay(int64_t nanoseconds)
{
    const auto seconds = static_cast<time_t>(nanoseconds / 1'000'000'000);
    tm local{};
    char text[16] = "--:--:--";
    if (localtime_r(&seconds, &local) != nullptr)
        strftime(text, sizeof(text), "%H:%M:%S", &local);
    return text;
}

/// Ten characters.
std::string rate(uint64_t before, uint64_t after, double seconds)
{
    // An interface that went away takes its bytes along.
    double value = seconds > 0 && after > before ? static_cast<double>(after - before) / seconds : 0;
    const char* unit = " B/s";
    for (const char* larger : {"kB/s", "MB/s", "GB/s"}) {
        if (value < 1000)
            break;
        value /= 1000;
        unit = larger;
    }
    char text[32];
    snprintf(text, sizeof(text), "%5.1f %s", value, unit);
    return text;
}

double shareOf(uint64_t used, uint64_t total)
{
    return total == 0 ? 0 : static_cast<double>(used) / static_cast<double>(total);
}

double gibibytes(uint64_t bytes)
{
    return static_cast<double>(bytes) / (1U << 30);
}

double secondsBetween(const Record& first, const Record& last)
{
    return static_cast<double>(last.putAt - first.putAt) / 1e9;
}

} // namespace

Table::Table()
{
    const char* terminal = getenv("TERM");
    inPlace_ = isatty(STDOUT_FILENO) != 0 && terminal != nullptr && terminal != std::string_view("dumb");
}

void Table::show(const Record& record)
{
    if (++records_ == 1)
        first_ = record; // the base for the rates
    ++count_;
    busy_ += record.busy;
    for (uint32_t i = 0; i < record.coreCount; ++i)
        busyOfCore_[i] += record.busyOfCore[i];
    // On the clock that never jumps, and in the sampler's time: a backlog is shown as it came about.
    if (record.putAt - first_.putAt < (inPlace_ ? inPlacePeriod : linePeriod))
        return;
    if (inPlace_)
        draw(record);
    else
        printLine(record);
    first_ = record;
    count_ = 0;
    busy_ = 0;
    std::fill(std::begin(busyOfCore_), std::end(busyOfCore_), 0);
}

void Table::printLine(const Record& record)
{
    if (!drawn_)
        puts("time      processor                  memory used        received      sent");
    drawn_ = true;
    const double busy = busy_ / 1000.0 / count_;
    const double seconds = secondsBetween(first_, record);
    printf("%s  %s %5.1f%%  %5.1f of %5.1f GiB  %s %s\n", timeOfDay(record.realTime).c_str(), bar(busy, 15).c_str(),
           busy * 100, gibibytes(record.memoryUsed), gibibytes(record.memoryTotal),
           rate(first_.received, record.received, seconds).c_str(), rate(first_.sent, record.sent, seconds).c_str());
}

void Table::draw(const Record& record)
{
    constexpr int width = 46;
    constexpr uint32_t coresInLine = 12;
    constexpr char endOfLine[] = "\033[K\n"; // clears what an earlier drawing left there
    const double busy = busy_ / 1000.0 / count_;
    const double seconds = secondsBetween(first_, record);
    const uint32_t coreLines = (record.coreCount + coresInLine - 1) / coresInLine;

    if (drawn_)
        printf("\033[%" PRIu32 "A", lines_);
    drawn_ = true;
    lines_ = 5 + coreLines;
    printf("time       %s   %" PRIu64 " records, %" PRIu32 " lost%s", timeOfDay(record.realTime).c_str(), records_,
           record.lost, endOfLine);
    printf("processor  %s %5.1f%%%s", bar(busy, width).c_str(), busy * 100, endOfLine);
    for (uint32_t i = 0; i < record.coreCount; ++i) {
        if (i % coresInLine == 0)
            fputs(i == 0 ? "  cores    " : "           ", stdout);
        printf("%4.0f%%", busyOfCore_[i] / 10.0 / count_);
        if (i % coresInLine == coresInLine - 1 || i == record.coreCount - 1U)
            fputs(endOfLine, stdout);
    }
    printf("memory     %s %5.1f of %5.1f GiB%s", bar(shareOf(record.memoryUsed, record.memoryTotal), width).c_str(),
           gibibytes(record.memoryUsed), gibibytes(record.memoryTotal), endOfLine);
    printf("load       %.2f  %.2f  %.2f%s", record.load[0] / 100.0, record.load[1] / 100.0, record.load[2] / 100.0,
           endOfLine);
    printf("network    %s received  %s sent%s", rate(first_.received, record.received, seconds).c_str(),
           rate(first_.sent, record.sent, seconds).c_str(), endOfLine);
}

} // namespace telemetry
