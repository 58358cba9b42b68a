// Signals that hail on a thread while it blocks.
#pragma once

#include "support/pinned.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <pthread.h>
#include <thread>

namespace support
{

/// Sends a caught signal to the constructing thread every 100 µs, without restarting what it interrupts, until the end
/// of the scope or for as long as it is told.
class SignalStorm : Pinned
{
public:
    using Time = std::chrono::steady_clock::time_point;

    explicit SignalStorm(std::chrono::milliseconds duration = std::chrono::hours(24))
        : sender_([this, target = pthread_self(), end = now() + duration] { hail(target, end); })
    {
    }
    ~SignalStorm()
    {
        over_ = true;
        sender_.join();
        sigaction(SIGUSR1, &before_, nullptr);
    }

    static unsigned delivered() { return count_.load(); }
    Time lastSent() const { return last_.load(); }

private:
    static Time now() { return std::chrono::steady_clock::now(); }

    static struct sigaction install()
    {
        count_ = 0;
        struct sigaction action = {};
        struct sigaction before = {};
        action.sa_handler = [](int) { ++count_; };
        sigaction(SIGUSR1, &action, &before);
        return before;
    }

    void hail(pthread_t target, Time end)
    {
        while (!over_ && now() < end) {
            last_ = now();
            pthread_kill(target, SIGUSR1);
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }

    static inline std::atomic<unsigned> count_;
    struct sigaction before_ = install();
    std::atomic<bool> over_{false};
    std::atomic<Time> last_{now()};
    std::thread sender_;
};

} // namespace support
