// Both sides as processes of their own, the way a product would run them: this program, started twice.
#include "commands.h"
#include "messages.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace telemetry
{

namespace
{

/// How long one side may last when the other one has ended, before it is asked to end, and then until it is made to.
constexpr uint32_t graceSeconds = 6;

constexpr uint32_t defaultSeconds = 10;

struct Child {
    const char* role;
    pid_t number = -1; // -1: not running
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

bool start(Child& child, std::vector<std::string> words)
{
    std::vector<char*> arguments;
    for (std::string& word : words)
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

/// Watches until neither runs any more. An end that is asked for goes to the reporter; the sampler follows it.
void watch(Child& sampler, Child& reporter)
{
    const sigset_t signals = watchedSignals();
    constexpr int unhurried = -1;
    int secondsLeft = unhurried;
    int nextRemedy = SIGTERM;
    while (sampler.number != -1 || reporter.number != -1) {
        const timespec second{1, 0};
        const int signal = sigtimedwait(&signals, nullptr, &second);
        if (signal != -1 && signal != SIGCHLD)
            send(reporter, signal);
        collect(sampler);
        collect(reporter);
        const bool oneHasEnded = sampler.number == -1 || reporter.number == -1;
        if (oneHasEnded && secondsLeft == unhurried)
            secondsLeft = graceSeconds;
        if (secondsLeft == 0) {
            send(sampler, nextRemedy);
            send(reporter, nextRemedy);
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

    const uint32_t seconds = options.seconds != 0 ? options.seconds : defaultSeconds;
    Child sampler{"sampler"};
    Child reporter{"reporter"};
    if (!start(sampler,
               {"telemetry", "sample", "--name", options.name, "--interval", std::to_string(options.interval)}))
        return failed;
    if (!start(reporter, {"telemetry", "report", "--name", options.name, "--seconds", std::to_string(seconds)}))
        send(sampler, SIGTERM);
    watch(sampler, reporter);
    return sampler.succeeded && reporter.succeeded ? done : failed;
}

} // namespace telemetry
