#include "table.h"

#include "history.h"
#include "messages.h"

#include <algorithm>
#include <clocale>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <langinfo.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace telemetry
{

namespace
{

__attribute__((__format__(__printf__, 2, 3))) void append(std::string& text, const char* format, ...)
{
    char piece[160];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(piece, sizeof(piece), format, arguments);
    va_end(arguments);
    text += piece;
}

/// How many of @p count steps a share of 1 amounts to, whatever has come over the network.
std::size_t stepsOf(double share, std::size_t count)
{
    const double steps = share * static_cast<double>(count) + 0.5;
    return steps >= 0 ? static_cast<std::size_t>(std::min(steps, static_cast<double>(count))) : 0;
}

std::string bar(double share, std::size_t width)
{
    const std::size_t filled = stepsOf(share, width);
    return '[' + std::string(filled, '#') + std::string(width - filled, '.') + ']';
}

/// A character for each second: the lowest one stands for 0, the highest one for @p most.
std::string sparkline(const std::vector<double>& values, double most, bool inUtf8)
{
    static constexpr const char* blocks[] = {"\u2581", "\u2582", "\u2583", "\u2584",
                                             "\u2585", "\u2586", "\u2587", "\u2588"};
    static constexpr const char* plain[] = {"_", ".", ":", "-", "=", "+", "*", "#"};
    std::string text(historySeconds - std::min<std::size_t>(values.size(), historySeconds), ' ');
    for (const double value : values)
        text += (inUtf8 ? blocks : plain)[stepsOf(most > 0 ? value / most : 0, std::size(plain) - 1)];
    return text;
}

std::string timeOfDay(double time)
{
    constexpr double farAway = 1e11;
    const auto seconds = static_cast<time_t>(time >= 0 && time < farAway ? static_cast<int64_t>(time) : 0);
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

std::string composeDrawing(const Properties& shown, bool inUtf8)
{
    constexpr std::size_t width = 46;
    constexpr std::size_t coresInLine = 12;
    constexpr char endOfLine[] = "\033[K\n"; // clears what an earlier drawing left there
    const double busy = shown.number("busy");
    const double used = shown.number("memory.used");
    const double total = shown.number("memory.total");

    std::string text;
    const auto addMinute = [&](const char* label, const char* name, double most) {
        const std::vector<double> values = shown.list(name);
        if (most == 0 && !values.empty())
            most = *std::max_element(values.begin(), values.end());
        append(text, "  %-9s", label);
        text += sparkline(values, most, inUtf8) + endOfLine;
    };
    append(text, "time       %s   %s records, %s lost, %s watching%s", timeOfDay(shown.number("time")).c_str(),
           shown.text("records").c_str(), shown.text("lost").c_str(), shown.text("watchers").c_str(), endOfLine);
    append(text, "processor  %s %5.1f%%%s", bar(busy, width).c_str(), busy * 100, endOfLine);
    addMinute("minute", "history.busy", 1);
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
    addMinute("received", "history.received", 0);
    addMinute("sent", "history.sent", 0);
    append(text, "cost       sampler %.2f s, server %.2f s of processor time%s", shown.number("cost.sampler"),
           shown.number("cost.server"), endOfLine);
    return text;
}

} // namespace

Table::Table() : inPlace_(isTerminal(STDOUT_FILENO))
{
    setlocale(LC_CTYPE, "");
    inUtf8_ = nl_langinfo(CODESET) == std::string_view("UTF-8");
}

Table::~Table()
{
    if (inPlace_)
        fputs(shown_.c_str(), stdout);
}

void Table::print(const Properties& shown)
{
    if (!inPlace_ && shown_.empty())
        puts("time      processor                  memory used        received      sent");
    shown_ = inPlace_ ? composeDrawing(shown, inUtf8_) : composeLine(shown);
    fputs(shown_.c_str(), stdout);
    if (inPlace_)
        printf("\033[%dA", static_cast<int>(std::count(shown_.begin(), shown_.end(), '\n')));
    fflush(stdout);
}

} // namespace telemetry
