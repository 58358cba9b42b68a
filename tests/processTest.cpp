#include <cUtil/process.h>

#include "support/process.h"
#include "support/refusal.h"
#include "support/sanitizer.h"
#include "support/signalStorm.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/processInfo.h>
#include <cUtil/realTime.h>

#include <fstream>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>

namespace
{

constexpr char file[] = "src/cUtil/process.linux";

class Child
{
public:
    explicit Child(const char* path, const std::vector<const char*>& arguments = {})
    {
        EXPECT_EQ(cu_Process_new(&me_, path, allocator_.get()), 0U);
        for (const char* argument : arguments)
            EXPECT_EQ(cu_Process_addArgument(me_, argument), 0U);
    }
    ~Child() { EXPECT_EQ(cu_Process_delete(&me_), 0U); }

    operator cu_Process*() const { return me_; }

    pid_t start(bool waitBeforeExec = false) const
    {
        int32_t id = 0;
        EXPECT_EQ(cu_Process_start(me_, waitBeforeExec), 0U);
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
    int32_t id = 0;
    const char* command = "untouched";
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, "path"}), cu_Process_new);
    EXPECT_NULLS_REFUSED(file, (std::tuple{some, "argument", &running, &id, &command, &some}), cu_Process_addArgument,
                         cu_Process_isRunning, cu_Process_getProcessID, cu_Process_getCommand, cu_Process_delete);
    EXPECT_REFUSED(cu_Process_start(nullptr, false), "cu_Process_start", file);
    EXPECT_REFUSED(cu_Process_stop(nullptr), "cu_Process_stop", file);
    EXPECT_REFUSED(cu_Process_addArgument(some, ""), "cu_Process_addArgument", file);
    EXPECT_EQ(cu_Process_getCommand(some, &command), 0U);
    EXPECT_STREQ(command, "untouched");
    EXPECT_FALSE(child.isRunning());
    EXPECT_EQ(cu_Process_stop(some), cu_ERROR_COM_INVARIANT);
    EXPECT_EQ(cu_Process_getProcessID(some, &id), cu_ERROR_COM_INVARIANT);
}

TEST(Process, handsOnAsManyArgumentsAsThereAre)
{
    for (const auto& [path, name] : {std::pair{"/none//", "none"}, {"//", "/"}, {"", "."}}) {
        const support::Outcome outcome = support::outcomeOf([path = path] { statusOf(Child(path).start()); });
        EXPECT_THAT(outcome.error, testing::HasSubstr(std::string("\targv[0] = '") + name + "'\n\terrno: ["));
    }
    const support::Outcome outcome = support::outcomeOf([] {
        const Child child("/bin/sh", {"-c", "echo $# $1 ${251} ${252}", "sh"});
        for (int count = 4; count < 255; ++count)
            EXPECT_EQ(cu_Process_addArgument(child, count == 254 ? "last" : "more words"), 0U);
        EXPECT_EQ(cu_Process_addArgument(child, "one too many"), cu_ERROR_COM_INVARIANT);
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
        const support::SignalStorm storm; // does not cut the wait short
        for (int round = 0; round < 50; ++round) {
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
    EXPECT_EQ(cu_Process_stop(gone), cu_ERROR_COM_INVARIANT);
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
    constexpr char name[] = "cu_ProcessInfo_getCPUTimes";
    cu_TimeValue user = {};
    cu_TimeValue system = {};
    EXPECT_REFUSED(cu_ProcessInfo_getCPUTimes(1, nullptr, &system), name, infoFile);
    EXPECT_REFUSED(cu_ProcessInfo_getCPUTimes(1, &user, nullptr), name, infoFile);
    EXPECT_SYSTEM_FAILURE(cu_ProcessInfo_getCPUTimes(-1, &user, &system), cu_ERROR_COM_INVALID_ARGUMENT, ENOENT, name,
                          infoFile, "Failed to open '/proc/-1/stat'.");
    support::expectSystemFailures(infoFile, {{"read", EIO, cu_ERROR_COM_INVARIANT, name,
                                              "Failed to parse '/proc/" + std::to_string(getpid()) + "/stat'.",
                                              [&] { return cu_ProcessInfo_getCPUTimes(getpid(), &user, &system); }}});

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
}

TEST(RealTime, locksMemoryOrSaysWhyNot)
{
    constexpr char realTimeFile[] = "src/cUtil/realTime.linux";
    constexpr char name[] = "cu_configureTaskForRealTime";
    EXPECT_REFUSED(cu_configureTaskForRealTime(0), name, realTimeFile);
    support::expectSystemFailures(realTimeFile, {{"mlockall", EPERM, cu_ERROR_COM_INVARIANT, name,
                                                  "mlockall(..) failed: [1] Operation not permitted",
                                                  [] { return cu_configureTaskForRealTime(1); }}});
    {
        const support::Injection injection("mallopt", EINVAL, 2);
        EXPECT_FAILURE(cu_configureTaskForRealTime(1), cu_ERROR_COM_INVARIANT, name, realTimeFile,
                       "mallopt(..) failed");
        EXPECT_EQ(munlockall(), 0);
    }
    if (getuid() != 0 || mallopt(M_MMAP_MAX, 0) == 0)
        GTEST_SKIP() << "only root may lock all memory, and a sanitizer's heap has no settings";
    support::Process granted([] { return static_cast<int>(cu_configureTaskForRealTime(UINT32_MAX)); });
    EXPECT_EQ(granted.wait(), 0);
}

} // namespace
