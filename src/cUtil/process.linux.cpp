#include <cUtil/process.h>

#include "internal/owned.h"
#include "internal/report.h"

#include <cUtil/time/time.h>

#include <cerrno>
#include <charconv>
#include <csignal>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
#include <sys/pidfd.h> // which does not say so itself
}

namespace
{

constexpr uint32_t mostArguments = 255;

} // namespace

struct cu_Process {
    cu_allocator* allocator;
    char* path;
    char* arguments[mostArguments + 1]; // null behind the last one
    uint32_t count;
    uint32_t running;
    int32_t id;
    int32_t handle; // of the child, which keeps its meaning when another process gets the id; -1: the kernel has none
};

namespace
{

// The last component of a path, which may be the root's or the working directory's.
std::string_view baseName(std::string_view path)
{
    if (path.empty())
        return ".";
    const std::size_t last = path.find_last_not_of('/');
    if (last == std::string_view::npos)
        return "/";
    path.remove_suffix(path.size() - last - 1);
    path.remove_prefix(path.find_last_of('/') + 1); // none: it stays whole
    return path;
}

// Text from a child whose parent had other threads: nothing is called that could wait for one of them.
class ChildOutput
{
public:
    explicit ChildOutput(int descriptor) : descriptor_(descriptor) {}
    ChildOutput(const ChildOutput&) = delete;
    ChildOutput& operator=(const ChildOutput&) = delete;

    ChildOutput& operator<<(std::string_view text)
    {
        while (!text.empty()) {
            const ssize_t written = write(descriptor_, text.data(), text.size());
            if (written < 0 && errno != EINTR)
                break;
            text.remove_prefix(written < 0 ? 0 : static_cast<std::size_t>(written));
        }
        return *this;
    }

    ChildOutput& operator<<(uint32_t number)
    {
        char digits[10];
        const char* end = std::to_chars(digits, digits + sizeof(digits), number).ptr;
        return *this << std::string_view(digits, static_cast<std::size_t>(end - digits));
    }

private:
    int descriptor_;
};

void waitForDebugger()
{
    constexpr std::string_view line = "*********************************************************\n";
    static_assert(line.size() == 57 + 1);
    ChildOutput(STDOUT_FILENO) << "\n"
                               << line << "  Continuing in 10s\n  PID: " << static_cast<uint32_t>(getpid()) << "\n"
                               << line;
    cu_TimeValue deadline = {};
    cu_makeTimeoutSecond(&deadline, 10, CLOCK_MONOTONIC);
    cu_sleepAbsolute(&deadline, CLOCK_MONOTONIC);
}

// What an ignored signal is stays over execv(), as does what is blocked.
void resetSignals()
{
    struct sigaction action = {};
    action.sa_handler = SIG_DFL;
    for (int signal = 1; signal < NSIG; ++signal)
        sigaction(signal, &action, nullptr); // fails for those that cannot be caught
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

[[noreturn]] void runChild(const cu_Process* me, bool waitBeforeExec)
{
    resetSignals();
    if (waitBeforeExec)
        waitForDebugger();
    execv(me->path, me->arguments);

    const int error = errno;
    const char* text = strerrordesc_np(error); // neither translated nor kept in a buffer
    ChildOutput output(STDERR_FILENO);
    output << "Failed to execv() the requested process. Arguments:\n\tfile = '" << me->path << "'\n";
    for (uint32_t number = 0; number < me->count; ++number)
        output << "\targv[" << number << "] = '" << me->arguments[number] << "'\n";
    output << "\terrno: [" << static_cast<uint32_t>(error) << "] " << (text != nullptr ? text : "") << "\n";
    _exit(1);
}

// Forks with all signals blocked, so that no handler of the parent's runs in the child.
pid_t start(const cu_Process* me, bool waitBeforeExec)
{
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const pid_t id = fork();
    if (id == 0)
        runChild(me, waitBeforeExec);
    const int error = errno;
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return id;
}

// Kills the child and waits for it. Gives the system's error: ECHILD for a child that is gone already.
int endChild(cu_Process* me)
{
    const idtype_t kind = me->handle >= 0 ? P_PIDFD : P_PID;
    const auto id = static_cast<id_t>(me->handle >= 0 ? me->handle : me->id);
    siginfo_t info = {};
    // Until it has been waited for its id is nobody else's.
    if (waitid(kind, id, &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        return errno;
    if (me->handle < 0 || pidfd_send_signal(me->handle, SIGKILL, nullptr, 0) != 0)
        kill(me->id, SIGKILL);
    int result = 0;
    do
        result = waitid(kind, id, &info, WEXITED);
    while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : errno;
}

// A handle of the child; -1 where the kernel has none, or none that can be waited for.
int32_t handleOf(pid_t id)
{
    const int32_t handle = pidfd_open(id, 0);
    siginfo_t info = {};
    if (handle < 0 || waitid(P_PIDFD, static_cast<id_t>(handle), &info, WEXITED | WNOHANG | WNOWAIT) == 0)
        return handle;
    close(handle);
    return -1;
}

void forgetChild(cu_Process* me)
{
    if (me->handle >= 0)
        close(me->handle);
    me->id = 0;
    me->running = 0;
}

} // namespace

cu_ErrorCode cu_Process_new(cu_Process** process, const char* path, cu_allocator* allocator)
{
    CU_REQUIRE(process != nullptr);
    CU_REQUIRE(*process == nullptr);
    CU_REQUIRE(path != nullptr);

    internal::Owned<cu_Process> object;
    CU_TRY(object.allocate(allocator));
    internal::Owned<char> copy;
    CU_TRY(internal::copyText(copy, path, allocator, CU_HERE));
    internal::Owned<char> name;
    CU_TRY(internal::copyText(name, baseName(path), allocator, CU_HERE));
    object->path = copy.release();
    object->arguments[0] = name.release();
    object->count = 1;
    *process = object.release();
    return 0;
}

cu_ErrorCode cu_Process_addArgument(cu_Process* process, const char* argument)
{
    CU_REQUIRE(process != nullptr);
    CU_REQUIRE(argument != nullptr && *argument != '\0');

    if (process->count >= mostArguments)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
    internal::Owned<char> copy;
    CU_TRY(internal::copyText(copy, argument, process->allocator, CU_HERE));
    process->arguments[process->count++] = copy.release();
    return 0;
}

cu_ErrorCode cu_Process_start(cu_Process* process, bool waitBeforeExec)
{
    CU_REQUIRE(process != nullptr);

    if (process->running != 0)
        return CU_REPORT(cu_ERROR_PROCESS_ALREADY_RUNNING, 0, "Process is already running");
    const pid_t id = start(process, waitBeforeExec);
    if (id < 0)
        return CU_REPORT(cu_ERROR_PROCESS_LAUNCH_FAILURE, errno, "Failed to start process");
    process->id = id;
    process->handle = handleOf(id);
    process->running = 1;
    return 0;
}

cu_ErrorCode cu_Process_isRunning(const cu_Process* process, bool* running)
{
    CU_REQUIRE(process != nullptr);
    CU_REQUIRE(running != nullptr);

    *running = process->running != 0;
    return 0;
}

cu_ErrorCode cu_Process_stop(cu_Process* process)
{
    CU_REQUIRE(process != nullptr);

    if (process->running == 0)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
    if (const int error = endChild(process); error != 0)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, error, "waitpid failed!");
    forgetChild(process);
    return 0;
}

cu_ErrorCode cu_Process_getProcessID(const cu_Process* process, int32_t* pid)
{
    CU_REQUIRE(process != nullptr);
    CU_REQUIRE(pid != nullptr);

    if (process->running == 0)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
    *pid = process->id;
    return 0;
}

cu_ErrorCode cu_Process_getCommand(const cu_Process* process, const char** command)
{
    CU_REQUIRE(process != nullptr);
    CU_REQUIRE(command != nullptr);

    // Compatibility: nothing is given.
    return 0;
}

cu_ErrorCode cu_Process_delete(cu_Process** process)
{
    CU_REQUIRE(process != nullptr);
    CU_REQUIRE(*process != nullptr);

    cu_Process* me = *process;
    if (me->running != 0) {
        if (const int error = endChild(me); error != 0 && error != ECHILD)
            return CU_REPORT(cu_ERROR_COM_INVARIANT, error, "waitpid failed!");
        forgetChild(me);
    }
    CU_TRY(internal::freeTexts(me->arguments, &me->count, me->allocator));
    CU_TRY(internal::freeArray(me->allocator, &me->path));
    CU_TRY(internal::freeObject(process));
    return 0;
}
