#include "child.h"

#include "messages.h"

#include <csignal>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

namespace telemetry
{

namespace
{

// By its path and not by "/proc/self/exe", so that lists of processes show its name.
std::string pathOfThisProgram()
{
    char path[4096];
    const ssize_t length = readlink("/proc/self/exe", path, sizeof(path));
    return {path, length > 0 ? static_cast<std::size_t>(length) : 0};
}

Ending endingOf(const siginfo_t& info, bool askedToEnd)
{
    const int number = info.si_status;
    if (info.si_code == CLD_EXITED)
        return {number == 0, "ended with status " + std::to_string(number)};
    // One that is asked before it catches signals ends by this one.
    return {askedToEnd && number == SIGTERM,
            "was ended by signal " + std::to_string(number) + " (" + strsignal(number) + ')'};
}

} // namespace

void Child::DeleteProcess::operator()(cu_Process* process) const
{
    if (const cu_ErrorCode code = cu_Process_delete(&process); code != 0)
        static_cast<void>(failByRecord(code, "ending a child"));
}

bool Child::prepare()
{
    cu_Process* made = nullptr;
    cu_ErrorCode code = cu_Process_new(&made, pathOfThisProgram().c_str(), nullptr);
    process_.reset(made);
    for (const std::string& word : words_) {
        if (code == 0)
            code = cu_Process_addArgument(made, word.c_str());
    }
    if (code != 0)
        static_cast<void>(failByRecord(code, "preparing a child"));
    return code == 0;
}

bool Child::start()
{
    if (process_ == nullptr && !prepare())
        return false;
    if (const cu_ErrorCode code = cu_Process_start(process_.get(), false); code != 0) {
        static_cast<void>(failByRecord(code, "starting a child"));
        return false;
    }
    ++starts_;
    askedToEnd_ = false;
    say("the %s is process %d", role_, number());
    return true;
}

bool Child::isRunning() const
{
    bool running = false;
    return process_ != nullptr && cu_Process_isRunning(process_.get(), &running) == 0 && running;
}

int Child::number() const
{
    int32_t number = 0;
    return cu_Process_getProcessID(process_.get(), &number) == 0 ? number : 0;
}

std::optional<Ending> Child::collect()
{
    siginfo_t info{};
    // A look only: the library waits for its child itself, and until then what it has used can be told.
    if (!isRunning() || waitid(P_PID, static_cast<id_t>(number()), &info, WEXITED | WNOHANG | WNOWAIT) != 0 ||
        info.si_pid == 0)
        return std::nullopt;
    stop();
    return endingOf(info, askedToEnd_);
}

void Child::askToEnd()
{
    askedToEnd_ = true;
    kill(number(), SIGTERM);
}

void Child::stop()
{
    used_ += processorTimeOf(number());
    if (const cu_ErrorCode code = cu_Process_stop(process_.get()); code != 0)
        static_cast<void>(failByRecord(code, "ending a child"));
}

} // namespace telemetry
