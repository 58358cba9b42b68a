#include "table.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>
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

__attribute__((__format__(__printf__, 2, 3))) void append(std::string& text, const char* format, ...)
{
    char piece[160];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(piece, sizeof(piece), format, arguments);
    va_end(arguments);
    text += piece;
}

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
    return static_cast<double>(static_cast<uint64_t>(last.putAt) - static_cast<uint64_t>(first.putAt)) / 1e9;
}

std::string composeLine(const Showing& showing)
{
    const Record& record = showing.last;
    const double busy = static_cast<double>(showing.busy) / 1000 / showing.count;
    const double seconds = secondsBetween(showing.base, record);
    std::string text;
    append(text, "%s  %s %5.1f%%  %5.1f of %5.1f GiB  %s %s\n", timeOfDay(record.realTime).c_str(),
           bar(busy, 15).c_str(), busy * 100, gibibytes(record.memoryUsed), gibibytes(record.memoryTotal),
           rate(showing.base.received, record.received, seconds).c_str(),
           rate(showing.base.sent, record.sent, seconds).c_str());
    return text;
}

std::string composeDrawing(const Showing& showing)
{
    constexpr int width = 46;
    constexpr uint32_t coresInLine = 12;
    constexpr char endOfLine[] = "\033[K\n"; // clears what an earlier drawing left there
    const Record& record = showing.last;
    const double busy = static_cast<double>(showing.busy) / 1000 / showing.count;
    const double seconds = secondsBetween(showing.base, record);

    std::string text;
    append(text, "time       %s   %" PRIu64 " records, %" PRIu32 " lost%s", timeOfDay(record.realTime).c_str(),
           showing.records, record.lost, endOfLine);
    append(text, "processor  %s %5.1f%%%s", bar(busy, width).c_str(), busy * 100, endOfLine);
    for (uint32_t i = 0; i < record.coreCount; ++i) {
        if (i % coresInLine == 0)
            text += i == 0 ? "  cores    " : "           ";
        append(text, "%4.0f%%", static_cast<double>(showing.busyOfCore[i]) / 10 / showing.count);
        if (i % coresInLine == coresInLine - 1 || i == record.coreCount - 1U)
            text += endOfLine;
    }
    append(text, "memory     %s %5.1f of %5.1f GiB%s",
           bar(shareOf(record.memoryUsed, record.memoryTotal), width).c_str(), gibibytes(record.memoryUsed),
           gibibytes(record.memoryTotal), endOfLine);
    append(text, "load       %.2f  %.2f  %.2f%s", record.load[0] / 100.0, record.load[1] / 100.0,
           record.load[2] / 100.0, endOfLine);
    append(text, "network    %s received  %s sent%s", rate(showing.base.received, record.received, seconds).c_str(),
           rate(showing.base.sent, record.sent, seconds).c_str(), endOfLine);
    return text;
}

} // namespace

Table::Table()
{
    const char* terminal = getenv("TERM");
    inPlace_ = isatty(STDOUT_FILENO) != 0 && terminal != nullptr && terminal != std::string_view("dumb");
}

int64_t Table::period() const
{
    return inPlace_ ? inPlacePeriod : linePeriod;
}

std::string Table::compose(const Showing& showing) const
{
    return inPlace_ ? composeDrawing(showing) : composeLine(showing);
}

void Table::print(const std::string& text)
{
    if (inPlace_ && drawn_)
        printf("\033[%dA", lines_);
    if (!inPlace_ && !drawn_)
        puts("time      processor                  memory used        received      sent");
    drawn_ = true;
    lines_ = static_cast<int>(std::count(text.begin(), text.end(), '\n'));
    fputs(text.c_str(), stdout);
}

} // namespace telemetry
