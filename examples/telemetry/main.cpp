// telemetry: two processes on real data of this machine, with a queue in shared memory between them.
#include "commands.h"
#include "messages.h"

#include <charconv>
#include <cstdio>
#include <string_view>
#include <system_error>

namespace
{

using telemetry::Options;

constexpr char usage[] =
    "usage: telemetry sample [--name NAME] [--interval MS] [--seconds N]\n"
    "       telemetry report [--name NAME] [--seconds N]\n"
    "       telemetry demo   [--name NAME] [--interval MS] [--seconds N]\n"
    "\n"
    "  sample  reads what the machine does and puts it into a queue in shared memory\n"
    "  report  takes the records from the queue and shows them\n"
    "  demo    runs both as two processes\n"
    "\n"
    "  --name NAME    the shared region (telemetry)\n"
    "  --interval MS  milliseconds from sample to sample, 1 to 1000 (100)\n"
    "  --seconds N    ends after this time (sample and report: when the other side ends; demo: 10)\n"
    "\n"
    "Ctrl-C ends a run in order. Exit status: 0 done, 1 failed or the other side died, 2 wrong usage.\n";

constexpr uint32_t longestInterval = 1000;
constexpr uint32_t longestRun = 1'000'000'000;

struct Command {
    std::string_view name;
    int (*run)(const Options& options);
    bool takesInterval;
};

constexpr Command commands[] = {
    {"sample", telemetry::sample, true},
    {"report", telemetry::report, false},
    {"demo", telemetry::demo, true},
};

bool toNumber(std::string_view text, uint32_t limit, uint32_t& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size() && number >= 1 && number <= limit;
}

bool isRegionName(std::string_view text)
{
    return !text.empty() && text.size() < 250 && text.find('/') == std::string_view::npos;
}

int misuse(const char* what, const char* word)
{
    fprintf(stderr, "telemetry: %s '%s'\nTry 'telemetry --help'.\n", what, word);
    return telemetry::misused;
}

} // namespace

int main(int count, char** words)
{
    if (count < 2) {
        fputs(usage, stderr);
        return telemetry::misused;
    }
    const Command* command = nullptr;
    Options options;
    for (int i = 1; i < count; ++i) {
        const std::string_view word = words[i];
        if (word == "--help" || word == "-h") {
            fputs(usage, stdout);
            return telemetry::done;
        }
        if (command == nullptr) {
            for (const Command& each : commands) {
                if (each.name == word)
                    command = &each;
            }
            if (command == nullptr)
                return misuse("there is no command", words[i]);
            continue;
        }
        const bool known = word == "--name" || word == "--seconds" || (word == "--interval" && command->takesInterval);
        if (!known)
            return misuse("unknown argument", words[i]);
        if (++i == count)
            return misuse("a value is missing after", words[i - 1]);
        const std::string_view value = words[i];
        bool good = true;
        if (word == "--name") {
            options.name = value;
            good = isRegionName(value);
        } else if (word == "--seconds") {
            good = toNumber(value, longestRun, options.seconds);
        } else {
            good = toNumber(value, longestInterval, options.interval);
        }
        if (!good)
            return misuse("this is no value for the option before it:", words[i]);
    }
    return command->run(options);
}
