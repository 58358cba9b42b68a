// The supervisor: runs the parts as processes of their own, the way a product would, and keeps them running. Nothing of
// a run is left when it ends; the parts end by themselves when the supervisor is killed (see begin()).
#include "child.h"
#include "commands.h"
#include "messages.h"
#include "region.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <ctime>
#include <unistd.h>
#include <vector>

namespace telemetry
{

namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto firstPause = 100ms; // before a part is started again; doubled from one death to the next
constexpr int mostRestarts = 5;    // one after the other
constexpr auto steadyTime = 10s;   // a part that has lasted so long has recovered: its deaths are forgotten
constexpr auto grace = 5s;         // for a part that was asked to end, before it is killed
constexpr uint32_t demoSeconds = 10;

struct Part {
    Child child;
    Clock::time_point startAt{}; // or when it was started, while it runs
    int deaths = 0;
};

sigset_t awaitedSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP})
        sigaddset(&set, signal);
    return set;
}

/// From here on the signals wait until waitUntil() takes them; children begin without this.
void holdSignals()
{
    signal(SIGCHLD, SIG_DFL); // ignored, as some parent may have left it, children would vanish untold
    const sigset_t signals = awaitedSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);
}

/// Waits until a child has ended, the time has come or the supervisor is to end. @return false in the last case
bool waitUntil(Clock::time_point time)
{
    const std::chrono::nanoseconds left = std::clamp<std::chrono::nanoseconds>(time - Clock::now(), 0s, 1h);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(left);
    const timespec limit{static_cast<time_t>(seconds.count()),
                         static_cast<decltype(timespec::tv_nsec)>((left - seconds).count())};
    const sigset_t signals = awaitedSignals();
    const int signal = sigtimedwait(&signals, nullptr, &limit);
    return signal == -1 || signal == SIGCHLD;
}

/// @return whether the part is to be started again; if not, the reason is told
bool planRestart(Part& part, const Ending& ending)
{
    const auto now = Clock::now();
    if (now - part.startAt >= steadyTime)
        part.deaths = 0;
    if (++part.deaths > mostRestarts) {
        say("the %s %s, the %dth time in a row: giving up", part.child.role(), ending.text.c_str(), part.deaths);
        return false;
    }
    const auto pause = firstPause * (1 << (part.deaths - 1));
    part.startAt = now + pause;
    say("the %s %s: it is started again in %.1f s", part.child.role(), ending.text.c_str(),
        std::chrono::duration<double>(pause).count());
    return true;
}

/// Until the run is to end. @return whether that was as planned; if not, the reason is told
bool keepRunning(std::vector<Part>& parts, Clock::time_point end)
{
    while (Clock::now() < end) {
        Clock::time_point next = end;
        for (Part& part : parts) {
            if (part.child.isRunning())
                continue;
            if (Clock::now() < part.startAt) {
                next = std::min(next, part.startAt);
                continue;
            }
            part.startAt = Clock::now();
            if (!part.child.start())
                return false;
        }
        if (!waitUntil(next))
            return true;
        for (Part& part : parts) {
            const std::optional<Ending> ending = part.child.collect();
            if (ending && !planRestart(part, *ending))
                return false;
        }
    }
    return true;
}

/// @return whether it ended in order; if not, the reason is told
bool end(Child& child)
{
    const auto limit = Clock::now() + grace;
    child.askToEnd();
    std::optional<Ending> ending = child.collect();
    while (!ending && Clock::now() < limit) {
        static_cast<void>(waitUntil(limit)); // that it is to end is known
        ending = child.collect();
    }
    if (!ending) {
        say("the %s does not end: it is killed", child.role());
        child.stop();
        return false;
    }
    if (!ending->inOrder)
        say("the %s %s", child.role(), ending->text.c_str());
    return ending->inOrder;
}

void printSummary(const std::vector<Part>& parts)
{
    puts("processor time   own code     system   starts");
    for (const auto& [child, startAt, deaths] : parts)
        printf("  %-12s %8.2f s %8.2f s %8u\n", child.role(), child.processorTime().own, child.processorTime().system,
               child.starts());
}

int supervise(const Options& options, uint32_t seconds, bool withWatcher)
{
    holdSignals();
    const std::string me = std::to_string(getpid());
    const std::string port = std::to_string(options.port);
    const std::string interval = std::to_string(options.interval);
    std::vector<Part> parts; // in the order of the data
    parts.push_back({{"sampler", {"sample", "--name", options.name, "--interval", interval, "--supervisor", me}}});
    parts.push_back({{"server",
                      {"serve", "--name", options.name, "--host", options.host, "--port", port, "--log", options.log,
                       "--supervisor", me}}});
    if (withWatcher)
        parts.push_back({{"watcher", {"watch", "--host", options.host, "--port", port, "--supervisor", me}}});

    const auto planned = seconds != 0 ? Clock::now() + std::chrono::seconds(seconds) : Clock::time_point::max();
    bool good = keepRunning(parts, planned);
    // Against the order of the data: who has ended misses nothing of those before it.
    for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
        if (part->child.isRunning())
            good = end(part->child) && good;
    }
    Region::removeStale(options.name); // of a sampler that was killed last
    printSummary(parts);
    return good ? done : failed;
}

} // namespace

int run(const Options& options)
{
    return supervise(options, options.seconds, false);
}

int demo(const Options& options)
{
    return supervise(options, options.seconds != 0 ? options.seconds : demoSeconds, true);
}

} // namespace telemetry
