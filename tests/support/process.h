// A second process for tests: run to its end, or killed at the worst moment.
#pragma once

#include "support/pinned.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <string>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace support
{

using namespace std::chrono_literals;

/// Waits for a condition, with a generous limit; says whether it came true.
template <typename Condition>
bool comesTrue(Condition condition, std::chrono::milliseconds limit = 20s)
{
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(100us);
    }
    return true;
}

/// A process that runs a function and ends with its result: 0 for success. It is killed when it is still there at the
/// end of the scope, or when a crash ends the test.
class Process : Pinned
{
public:
    template <typename Function>
    explicit Process(Function function) : id_(fork())
    {
        if (id_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            _exit(function());
        }
    }
    ~Process() { kill(); }

    pid_t id() const { return id_; }

    /// The exit status, or minus the signal that ended it; a process that does not end is killed.
    int wait(std::chrono::milliseconds limit = 60s)
    {
        if (!comesTrue([this] { return hasEnded(); }, limit))
            kill();
        return result_;
    }

    int kill(int signal = SIGKILL)
    {
        if (!ended_) {
            ::kill(id_, signal);
            while (!hasEnded(0)) {
            }
        }
        return result_;
    }

    /// Does not wait for it, unless the options of waitpid() say so.
    bool hasEnded(int options = WNOHANG)
    {
        int status = 0;
        if (!ended_ && waitpid(id_, &status, options) == id_) {
            ended_ = true;
            result_ = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
        }
        return ended_;
    }

private:
    pid_t id_;
    int result_ = 0;
    bool ended_ = false;
};

/// What a process wrote and how it ended.
struct Outcome {
    int status; ///< exit status, or minus the signal
    std::string out;
    std::string error;
};

/// Runs a function in a process of its own and collects what it writes; the function may end the process. An
/// expectation that fails in it ends it with status 99.
template <typename Function>
Outcome outcomeOf(Function function)
{
    FILE* out = tmpfile();
    FILE* error = tmpfile();
    fflush(nullptr);
    Process process([&] {
        dup2(fileno(out), STDOUT_FILENO);
        dup2(fileno(error), STDERR_FILENO);
        function();
        fflush(nullptr);
        return testing::Test::HasFailure() ? 99 : 0;
    });
    Outcome outcome{process.wait(), "", ""};
    for (const auto& [file, text] : {std::pair{out, &outcome.out}, {error, &outcome.error}}) {
        fseek(file, 0, SEEK_END);
        text->resize(static_cast<std::size_t>(ftell(file)));
        rewind(file);
        EXPECT_EQ(fread(text->data(), 1, text->size(), file), text->size());
        fclose(file);
    }
    return outcome;
}

/// Zeroed memory that child processes share.
template <typename T>
class Shared : Pinned
{
public:
    explicit Shared(std::size_t count = 1)
        : size_(count * sizeof(T)),
          memory_(static_cast<T*>(mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
    }
    ~Shared() { munmap(memory_, size_); }

    T* get() const { return memory_; }
    T* operator->() const { return memory_; }
    T& operator*() const { return *memory_; }
    T& operator[](std::size_t at) const { return memory_[at]; }

private:
    std::size_t size_;
    T* memory_;
};

} // namespace support
