#include <cUtil/process.h>

#include "support/inject.h"
#include "support/process.h"
#include "support/record.h"
#include "support/refusal.h"
#include "support/sanitizer.h"
#include "support/signalStorm.h"
#include "support/sweep.h"

#include <cUtil/processInfo.h>
#include <cUtil/realTime.h>

#include <fstream>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>

namespace
{

using testing::HasSubstr;
using testing::StartsWith;

constexpr char file[] = "src/cUtil/process.linux";

class Child
{
public:
    explicit Child(const char* path, std::vector<const char*> arguments = {})
    {
        EXPECT_EQ(cu_Process_new(&me_, path, allocator_.get()), 0U);
        for (const char* argument : arguments)
            EXPECT_EQ(cu_Process_addArgument(me_, argument), 0U);
    }
    ~Child() { EXPECT_EQ(cu_Process_delete(&me_), 0U); }

    operator cu_Process*() const { return me_; }

    pid_t start(bool waitBeforeExec = false) const
    {
        EXPECT_EQ(cu_Process_start(me_, waitBeforeExec), 0U);
        int32_t id = 0;
        EXPECT_EQ(cu_Process_getProcessID(me_, &id), 0U);
        return id;
    }

    bool isRunning() const
    {
        bool running = false;
        EXPECT_EQ(cu_Process_isRunning(me_, &running), 0U);
        return running;
    }

private:
    support::WatchfulAllocator allocator_;
    cu_Process* me_ = nullptr;
};

// Waits for a child behind the library's back.
int statusOf(pid_t id)
{
    int status = 0;
    EXPECT_EQ(waitpid(id, &status, 0), id);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

TEST(Process, refusesNullsAndEndsWithoutAChild)
{
    EXPECT_CLEAN_FAILURES(cu_Process_new, cu_Process_delete, "/usr/bin/tool");
    const Child child("/usr/bin/tool");
    cu_Process* none = nullptr;
    cu_Process* some = child;
    bool running = true;
    int32_t id = -7;
    const char* const untouched = "untouched";
    const char* command = untouched;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, "path"}), cu_Process_new);
    EXPECT_NULLS_REFUSED(file, (std::tuple{some, "argument"}), cu_Process_addArgument);
    EXPECT_NULLS_REFUSED(file, (std::tuple{some, &running}), cu_Process_isRunning);
    EXPECT_NULLS_REFUSED(file, (std::tuple{some, &id}), cu_Process_getProcessID);
    EXPECT_NULLS_REFUSED(file, (std::tuple{some, &command}), cu_Process_getCommand);
    EXPECT_NULLS_REFUSED(file, std::tuple{&some}, cu_Process_delete);
    EXPECT_REFUSED(cu_Process_start(nullptr, false), "cu_Process_start", file);
    EXPECT_REFUSED(cu_Process_stop(nullptr), "cu_Process_stop", file);
    EXPECT_REFUSED(cu_Process_addArgument(some, ""), "cu_Process_addArgument", file);
    EXPECT_EQ(cu_Process_getCommand(some, &command), 0U);
    EXPECT_EQ(command, untouched);
    EXPECT_FALSE(child.isRunning());
    EXPECT_FAILURE(cu_Process_stop(some), cu_ERROR_COM_INVARIANT, "cu_Process_stop", file, "");
    EXPECT_FAILURE(cu_Process_getProcessID(some, &id), cu_ERROR_COM_INVARIANT, "cu_Process_getProcessID", file, "");
    EXPECT_EQ(id, -7);
}

TEST(Process, handsOnAsManyArgumentsAsThereAre)
{
    for (const auto& [path, name] :
         {std::pair{"/usr/bin/no-such-tool", "no-such-tool"}, {"/none//", "none"}, {"//", "/"}}) {
        const support::Outcome outcome = support::outcomeOf([path = path] {
            const Child child(path);
            EXPECT_EQ(statusOf(child.start()), 1);
        });
        EXPECT_EQ(outcome.status, 0) << outcome.out;
        EXPECT_THAT(outcome.error, HasSubstr(std::string("\targv[0] = '") + name + "'\n\terrno: ["));
    }
    const support::Outcome outcome = support::outcomeOf([] {
        const Child child("/bin/sh", {"-c", "echo $# $1 ${251} ${252}", "sh"});
        for (int count = 4; count < 255; ++count)
            EXPECT_EQ(cu_Process_addArgument(child, count == 254 ? "last" : "more words"), 0U);
        EXPECT_FAILURE(cu_Process_addArgument(child, "one too many"), cu_ERROR_COM_INVARIANT, "cu_Process_addArgument",
                       file, "");
        EXPECT_EQ(statusOf(child.start()), 0);
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "251 more words last\n");
}

TEST(Process, isStartedOnceAndKilledByStopAndDelete)
{
    pid_t id = 0;
    {
        const Child child("/bin/sleep", {"1000"});
        for (int round = 0; round < 3; ++round) {
            id = child.start();
            EXPECT_TRUE(child.isRunning());
            EXPECT_FAILURE(cu_Process_start(child, false), cu_ERROR_PROCESS_ALREADY_RUNNING, "cu_Process_start", file,
                           "Process is already running");
            EXPECT_EQ(cu_Process_stop(child), 0U);
            EXPECT_FALSE(child.isRunning());
            EXPECT_EQ(kill(id, 0), -1) << "waited for";
        }
        id = child.start();
    }
    EXPECT_EQ(kill(id, 0), -1);
    const Child quick("/bin/true");
    id = quick.start();
    siginfo_t info = {};
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOWAIT), 0);
    EXPECT_TRUE(quick.isRunning()) << "the system is not asked";
    EXPECT_EQ(cu_Process_stop(quick), 0U);
    const support::Injection injection("fork", EAGAIN);
    EXPECT_SYSTEM_FAILURE(cu_Process_start(quick, false), cu_ERROR_PROCESS_LAUNCH_FAILURE, EAGAIN, "cu_Process_start",
                          file, "Failed to start process");
    EXPECT_FALSE(quick.isRunning());
}

// Another child of this process that has got the number of one that somebody else waited for.
TEST(Process, aStrangerWithTheChildsNumberIsLeftAlone)
{
    const Child gone("/bin/true");
    const pid_t id = gone.start();
    EXPECT_EQ(statusOf(id), 0);
    std::ofstream("/proc/sys/kernel/ns_last_pid") << id - 1;
    support::Process stranger([] { return pause(); });
    if (stranger.id() != id)
        std::cout << "the kernel gives no numbers on demand here: nobody has the child's\n";
    EXPECT_SYSTEM_FAILURE(cu_Process_stop(gone), cu_ERROR_COM_INVARIANT, ECHILD, "cu_Process_stop", file,
                          "waitpid failed!");
    EXPECT_EQ(kill(stranger.id(), 0), 0);
    siginfo_t info = {};
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(stranger.id()), &info, WEXITED | WNOHANG | WNOWAIT), 0);
    EXPECT_EQ(info.si_pid, 0) << "it runs";
}

TEST(Process, withoutHandlesOfTheKernelIdsDo)
{
    const support::Injection injection = support::Injection::ofEvery("pidfd_open", ENOSYS);
    const Child child("/bin/sleep", {"1000"});
    const pid_t id = child.start();
    EXPECT_EQ(cu_Process_stop(child), 0U);
    EXPECT_EQ(kill(id, 0), -1);
    const Child gone("/bin/true");
    EXPECT_EQ(statusOf(gone.start()), 0);
    EXPECT_SYSTEM_FAILURE(cu_Process_stop(gone), cu_ERROR_COM_INVARIANT, ECHILD, "cu_Process_stop", file,
                          "waitpid failed!");
}

// What the parent has buffered, its exit handlers, its blocked and ignored signals are its own.
TEST(Process, theChildBeginsAfresh)
{
    const support::Outcome outcome = support::outcomeOf([] {
        fputs(support::endsAreOrderly ? "" : "once", stdout);
        atexit([] { puts(" at the end"); });
        sigset_t all;
        sigfillset(&all);
        pthread_sigmask(SIG_SETMASK, &all, nullptr);
        signal(SIGUSR1, SIG_IGN);
        EXPECT_EQ(statusOf(Child("/no/such/program", {"an argument"}).start()), 1);
        EXPECT_EQ(statusOf(Child("/bin/grep", {"-E", "^Sig(Blk|Ign):.*[1-9a-f]", "/proc/self/status"}).start()), 1);
        exit(testing::Test::HasFailure() ? 99 : 0);
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, support::endsAreOrderly ? " at the end\n" : "once at the end\n");
    EXPECT_EQ(outcome.error, "Failed to execv() the requested process. Arguments:\n\tfile = '/no/such/program'\n"
                             "\targv[0] = 'program'\n\targv[1] = 'an argument'\n"
                             "\terrno: [2] No such file or directory\n");
}

TEST(Process, signalsDoNotCutTheWaitShort)
{
    const support::SignalStorm storm;
    for (int round = 0; round < 50; ++round) {
        const Child child("/bin/sleep", {"1000"});
        child.start();
        EXPECT_EQ(cu_Process_stop(child), 0U);
    }
}

TEST(Process, aDebuggerGetsTimeAndTheId)
{
    const support::Outcome outcome = support::outcomeOf([] {
        const Child child("/bin/true");
        const auto start = std::chrono::steady_clock::now();
        const pid_t id = child.start(true);
        EXPECT_EQ(statusOf(id), 0);
        EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(9999));
        fprintf(stderr, "%d", id);
    });
    EXPECT_EQ(outcome.status, 0);
    const std::string line = std::string(57, '*') + '\n';
    EXPECT_EQ(outcome.out, '\n' + line + "  Continuing in 10s\n  PID: " + outcome.error + '\n' + line);
}

TEST(ProcessInfo, tellsTheTimesOfAProcessWhateverItsName)
{
    constexpr char infoFile[] = "src/cUtil/processInfo.linux";
    cu_TimeValue user = {-1, -1};
    cu_TimeValue system = {-1, -1};
    EXPECT_REFUSED(cu_ProcessInfo_getCPUTimes(1, nullptr, &system), "cu_ProcessInfo_getCPUTimes", infoFile);
    EXPECT_REFUSED(cu_ProcessInfo_getCPUTimes(1, &user, nullptr), "cu_ProcessInfo_getCPUTimes", infoFile);
    EXPECT_SYSTEM_FAILURE(cu_ProcessInfo_getCPUTimes(-1, &user, &system), cu_ERROR_COM_INVALID_ARGUMENT, ENOENT,
                          "cu_ProcessInfo_getCPUTimes", infoFile, "Failed to open '/proc/-1/stat'.");
    EXPECT_EQ(user.tv_nsec, -1);

    const auto used = [] {
        rusage usage = {};
        getrusage(RUSAGE_SELF, &usage);
        return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
               1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
    };
    const support::Shared<std::atomic<double>> seconds;
    const support::Process other([&] {
        prctl(PR_SET_NAME, ") R 1 (2");
        while (used() < 0.15) {
        }
        *seconds = used();
        return pause();
    });
    ASSERT_TRUE(support::comesTrue([&] { return *seconds != 0; }));
    ASSERT_EQ(cu_ProcessInfo_getCPUTimes(other.id(), &user, &system), 0U);
    // The kernel splits the sum by samples: only that is sure.
    EXPECT_NEAR(static_cast<double>(user.tv_sec + system.tv_sec) +
                    1e-9 * static_cast<double>(user.tv_nsec + system.tv_nsec),
                *seconds, 0.03);
    const support::Injection injection("read", EIO);
    EXPECT_SYSTEM_FAILURE(cu_ProcessInfo_getCPUTimes(getpid(), &user, &system), cu_ERROR_COM_INVARIANT, EIO,
                          "cu_ProcessInfo_getCPUTimes", infoFile,
                          "Failed to parse '/proc/" + std::to_string(getpid()) + "/stat'.");
}

TEST(RealTime, locksMemoryOrSaysWhyNot)
{
    constexpr char realTimeFile[] = "src/cUtil/realTime.linux";
    EXPECT_REFUSED(cu_configureTaskForRealTime(0), "cu_configureTaskForRealTime", realTimeFile);
    {
        const support::Injection injection("mlockall", EPERM);
        EXPECT_SYSTEM_FAILURE(cu_configureTaskForRealTime(1), cu_ERROR_COM_INVARIANT, EPERM,
                              "cu_configureTaskForRealTime", realTimeFile,
                              "mlockall(..) failed: [1] Operation not permitted");
    }
    {
        const support::Injection injection("mallopt", EINVAL, 2);
        EXPECT_FAILURE(cu_configureTaskForRealTime(1), cu_ERROR_COM_INVARIANT, "cu_configureTaskForRealTime",
                       realTimeFile, "mallopt(..) failed");
        EXPECT_EQ(munlockall(), 0);
    }
    if (getuid() != 0 || mallopt(M_MMAP_MAX, 0) == 0)
        GTEST_SKIP() << "only root may lock all memory, and a sanitizer's heap has no settings";
    support::Process granted([] { return static_cast<int>(cu_configureTaskForRealTime(UINT32_MAX)); });
    EXPECT_EQ(granted.wait(), 0);
}

} // namespace
