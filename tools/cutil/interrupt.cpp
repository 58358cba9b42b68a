#include "interrupt.h"

#include <cUtil/thread.h>

#include <atomic>
#include <csignal>

namespace cutil
{

namespace
{

bool running = true;
static_assert(std::atomic_ref<bool>::is_always_lock_free); // so a signal handler may clear it

void onInterrupt(int)
{
    std::atomic_ref<bool>(running).store(false);
}

} // namespace

void catchInterrupts()
{
    struct sigaction action {
    };
    action.sa_handler = onInterrupt;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP})
        sigaction(signal, &action, nullptr);
}

bool* runningFlag()
{
    return &running;
}

bool isInterrupted()
{
    return !cu_Thread_isRunning(&running);
}

} // namespace cutil
