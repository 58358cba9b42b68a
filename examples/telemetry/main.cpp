// telemetry: real data of this machine, through a queue in shared memory to a server, and over TCP to its watchers.
#include "commands.h"
#include "messages.h"

#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>
#include <system_error>

namespace
{

using telemetry::Options;

constexpr char usage[] =
    "usage: telemetry sample [--name NAME] [--interval MS] [--seconds N]\n"
    "       telemetry serve  [--name NAME] [--host HOST] [--port PORT] [--log FILE] [--seconds N]\n"
    "       telemetry watch  [--host HOST] [--port PORT] [--seconds N]\n"
    "       telemetry run    [--name NAME] [--host HOST] [--port PORT] [--log FILE] [--interval MS] [--seconds N]\n"
    "       telemetry demo   [--name NAME] [--host HOST] [--port PORT] [--log FILE] [--interval MS] [--seconds N]\n"
    "\n"
    "Shows what this machine does: through shared memory to a server, and over TCP to a table.\n"
    "\n"
    "  sample  reads what the machine does and puts it into a queue in shared memory\n"
    "  serve   takes the records from the queue, remembers the last minute and answers watchers over TCP;\n"
    "          offers its log to one viewer at the port behind its own (cutil log watch)\n"
    "  watch   asks a server and shows what it tells\n"
    "  run     runs a sampler and a server as processes, starts again what dies, ends them in order, and tells\n"
    "          what processor time they took\n"
    "  demo    the same with a watcher\n"
    "\n"
    "A sampler or server goes on when the other one ends, and works with the next one.\n"
    "\n"
    "  --name NAME    the shared region (telemetry)\n"
    "  --host HOST    where the server listens, name or address (127.0.0.1)\n"
    "  --port PORT    and at which port, 1 to 65534 (7070)\n"
    "  --log FILE     where the server's log is appended (telemetry.log)\n"
    "  --interval MS  milliseconds from sample to sample, 1 to 1000 (100)\n"
    "  --seconds N    ends after this time (demo: 10; else when it is asked to)\n"
    "\n"
    "Ctrl-C ends a run in order. Exit status: 0 done, 1 failed, 2 wrong usage.\n";

constexpr uint32_t longestInterval = 1000;
constexpr uint32_t longestRun = 1'000'000'000;
constexpr uint16_t lastPort = 65534;

struct Command {
    std::string_view name;
    int (*run)(const Options& options);
    std::string_view takes; ///< Options, between spaces.
};

constexpr Command commands[] = {
    {"sample", telemetry::sample, " --name --interval --seconds --supervisor "},
    {"serve", telemetry::serve, " --name --host --port --log --seconds --supervisor "},
    {"watch", telemetry::watch, " --host --port --seconds --supervisor "},
    {"run", telemetry::run, " --name --host --port --log --interval --seconds "},
    {"demo", telemetry::demo, " --name --host --port --log --interval --seconds "},
};

template <typename Number>
bool toNumber(std::string_view text, Number limit, Number& number)
{
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size() && number >= 1 && number <= limit;
}

bool isRegionName(std::string_view text)
{
    return !text.empty() && text.size() < 250 && text.find('/') == std::string_view::npos;
}

/// @return whether the value makes sense
bool set(Options& options, std::string_view name, std::string_view value)
{
    if (name == "--name") {
        options.name = value;
        return isRegionName(value);
    }
    if (name == "--host" || name == "--log") {
        (name == "--host" ? options.host : options.log) = value;
        return !value.empty();
    }
    if (name == "--port")
        return toNumber(value, lastPort, options.port);
    if (name == "--interval")
        return toNumber(value, longestInterval, options.interval);
    if (name == "--supervisor") // what a supervisor says to its parts
        return toNumber(value, INT32_MAX, options.supervisor);
    return toNumber(value, longestRun, options.seconds);
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
        if (!word.starts_with("--") || command->takes.find(' ' + std::string(word) + ' ') == std::string_view::npos)
            return misuse("unknown argument", words[i]);
        if (++i == count)
            return misuse("a value is missing after", words[i - 1]);
        if (!set(options, word, words[i]))
            return misuse("this is no value for the option before it:", words[i]);
    }
    return command->run(options);
}
