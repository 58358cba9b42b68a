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

std::string timeOfDay(double time)
{
    const auto seconds = static_cast<time_t>(static_cast<int64_t>(time));
    tm local{};
    char text[16] = "--:--:--";
    if (localtime_r(&seconds, &local) != nullptr)
        strftime(text, sizeof(text), "%H:%M:%S", &local);
    return text;
}

/// Ten characters.
std::string rate(double value)
{
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

double gibibytes(double bytes)
{
    return bytes / (1U << 30);
}

std::string composeLine(const Properties& shown)
{
    const double busy = shown.number("busy");
    std::string text;
    append(text, "%s  %s %5.1f%%  %5.1f of %5.1f GiB  %s %s\n", timeOfDay(shown.number("time")).c_str(),
           bar(busy, 15).c_str(), busy * 100, gibibytes(shown.number("memory.used")),
           gibibytes(shown.number("memory.total")), rate(shown.number("received")).c_str(),
           rate(shown.number("sent")).c_str());
    return text;
}

std::string composeDrawing(const Properties& shown)
{
    constexpr int width = 46;
    constexpr std::size_t coresInLine = 12;
    constexpr char endOfLine[] = "\033[K\n"; // clears what an earlier drawing left there
    const double busy = shown.number("busy");
    const double used = shown.number("memory.used");
    const double total = shown.number("memory.total");

    std::string text;
    append(text, "time       %s   %s records, %s lost%s", timeOfDay(shown.number("time")).c_str(),
           shown.text("records").c_str(), shown.text("lost").c_str(), endOfLine);
    append(text, "processor  %s %5.1f%%%s", bar(busy, width).c_str(), busy * 100, endOfLine);
    const std::vector<double> cores = shown.list("cores");
    for (std::size_t i = 0; i < cores.size(); ++i) {
        if (i % coresInLine == 0)
            text += i == 0 ? "  cores    " : "           ";
        append(text, "%4.0f%%", cores[i] * 100);
        if (i % coresInLine == coresInLine - 1 || i == cores.size() - 1)
            text += endOfLine;
    }
    append(text, "memory     %s %5.1f of %5.1f GiB%s", bar(total > 0 ? used / total : 0, width).c_str(),
           gibibytes(used), gibibytes(total), endOfLine);
    text += "load     ";
    for (const double load : shown.list("load"))
        append(text, "  %.2f", load);
    text += endOfLine;
    append(text, "network    %s received  %s sent%s", rate(shown.number("received")).c_str(),
           rate(shown.number("sent")).c_str(), endOfLine);
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

std::string Table::compose(const Properties& shown) const
{
    return inPlace_ ? composeDrawing(shown) : composeLine(shown);
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
