#include "watchdog.h"

#include "messages.h"

#include <atomic>
#include <csignal>
#include <sys/time.h>
#include <unistd.h>

namespace telemetry
{

namespace
{

// The main thread takes the signal, whichever thread works in the scope.
std::atomic<int> ticks{0};
static_assert(std::atomic<int>::is_always_lock_free);

// Counting ticks instead of waiting for a single one lets a process that was stopped for a while go on: the ticks of
// that time come as one.
void onTick(int)
{
    constexpr char message[] = "telemetry: the queue stays locked: the other process ended in the middle of a "
                               "transaction\n";
    if (ticks.fetch_add(1) + 1 < watchdogSeconds)
        return;
    static_cast<void>(!write(STDERR_FILENO, message, sizeof(message) - 1));
    _exit(failed);
}

void setTimer(int seconds)
{
    itimerval timer{};
    timer.it_interval.tv_sec = seconds;
    timer.it_value.tv_sec = seconds;
    setitimer(ITIMER_REAL, &timer, nullptr);
}

} // namespace

Watchdog::Watchdog()
{
    struct sigaction action {
    };
    action.sa_handler = onTick;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    ticks = 0;
    setTimer(1);
}

Watchdog::~Watchdog()
{
    setTimer(0);
}

} // namespace telemetry
