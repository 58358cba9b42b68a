// All three as processes of their own, the way a product would run them: this program, started three times.
#include "commands.h"
#include "messages.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <iterator>
#include <span>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace telemetry
{

namespace
{

/// How long the others may last when one has ended, before they are asked to end, and then until they are made to.
constexpr uint32_t graceSeconds = 6;

constexpr uint32_t defaultSeconds = 10;

struct Child {
    const char* role;
    std::vector<std::string> words; // its command line, without the program
    pid_t number = -1;              // -1: not running
    bool succeeded = false;
};

sigset_t watchedSignals()
{
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP})
        sigaddset(&set, signal);
    return set;
}

bool start(Child& child)
{
    std::string program = "telemetry";
    std::vector<char*> arguments = {program.data()};
    for (std::string& word : child.words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);

    // The child gets the signals that are held back here.
    posix_spawnattr_t attributes;
    sigset_t none;
    sigemptyset(&none);
    int error = posix_spawnattr_init(&attributes);
    if (error == 0) {
        posix_spawnattr_setsigmask(&attributes, &none);
        posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
        error = posix_spawn(&child.number, "/proc/self/exe", nullptr, &attributes, arguments.data(), environ);
        posix_spawnattr_destroy(&attributes);
    }
    if (error == 0)
        return true;
    child.number = -1;
    say("starting the %s: %s", child.role, strerror(error));
    return false;
}

void collect(Child& child)
{
    int status = 0;
    if (child.number == -1 || waitpid(child.number, &status, WNOHANG) != child.number)
        return;
    child.number = -1;
    child.succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (WIFSIGNALED(status))
        say("the %s was ended by signal %d (%s)", child.role, WTERMSIG(status), strsignal(WTERMSIG(status)));
}

void send(const Child& child, int signal)
{
    if (child.number != -1)
        kill(child.number, signal);
}

/// Waits until none runs any more. They stand in the order of the data; the wish to end goes the other way: who has
/// ended needs nothing from those before it.
void watchOver(std::span<Child> children)
{
    const sigset_t signals = watchedSignals();
    constexpr int unhurried = -1;
    int secondsLeft = unhurried;
    int nextRemedy = SIGTERM;
    const auto runs = [](const Child& child) { return child.number != -1; };
    while (std::any_of(children.begin(), children.end(), runs)) {
        const timespec second{1, 0};
        const int signal = sigtimedwait(&signals, nullptr, &second);
        if (signal != -1 && signal != SIGCHLD)
            send(children.back(), signal);
        for (std::size_t i = 0; i < children.size(); ++i) {
            const bool ran = runs(children[i]);
            collect(children[i]);
            if (ran && !runs(children[i]) && i != 0)
                send(children[i - 1], SIGTERM);
        }
        if (secondsLeft == unhurried && !std::all_of(children.begin(), children.end(), runs))
            secondsLeft = graceSeconds;
        if (secondsLeft == 0) {
            for (const Child& child : children)
                send(child, nextRemedy);
            nextRemedy = SIGKILL;
            secondsLeft = graceSeconds;
        } else if (signal == -1 && errno == EAGAIN && secondsLeft > 0) {
            --secondsLeft;
        }
    }
}

} // namespace

int demo(const Options& options)
{
    const sigset_t signals = watchedSignals();
    sigprocmask(SIG_BLOCK, &signals, nullptr);

    const std::string seconds = std::to_string(options.seconds != 0 ? options.seconds : defaultSeconds);
    const std::string port = std::to_string(options.port);
    Child children[] = {
        {"sampler", {"sample", "--name", options.name, "--interval", std::to_string(options.interval)}},
        {"server", {"serve", "--name", options.name, "--port", port, "--log", options.log}},
        {"watcher", {"watch", "--port", port, "--seconds", seconds}},
    };
    if (!std::all_of(std::begin(children), std::end(children), start))
        send(children[0], SIGTERM); // the others miss it then
    watchOver(children);
    const bool good =
        std::all_of(std::begin(children), std::end(children), [](const Child& child) { return child.succeeded; });
    return good ? done : failed;
}

} // namespace telemetry
