#include "internal/threadLayout.h"
#include "support/job.h"
#include "support/process.h"
#include "support/refusal.h"
#include "support/scale.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <csignal>
#include <filesystem>
#include <sys/syscall.h>

namespace
{

using support::Job;
using support::runUntilStopped;

constexpr char file[] = "src/cUtil/thread";

long taskCount()
{
    using Folder = std::filesystem::directory_iterator;
    return std::distance(Folder("/proc/self/task"), Folder());
}

struct Thread : testing::Test {
    uint32_t state() const
    {
        uint32_t state = ~0U;
        EXPECT_EQ(cu_Thread_getState(thread, &state), 0U);
        return state;
    }

    support::Made<cu_Thread_new, cu_Thread_delete> thread;
};

TEST_F(Thread, constructorLeavesNothingBehindAndBadArgumentsAreRefused)
{
    const long tasks = taskCount();
    support::sweep<cu_Thread>("cu_Thread_new", cu_Thread_new, cu_Thread_delete,
                              {"sem_trywait", "clock_gettime", "sysconf"});
    EXPECT_TRUE(support::comesTrue([=] { return taskCount() <= tasks; }));
    cu_Thread* none = nullptr;
    support::expectSystemFailures(file, {{"pthread_create", EAGAIN, cu_ERROR_THREAD_CREATE_FAILED, "cu_Thread_new", "",
                                          [&] { return cu_Thread_new(&none, nullptr); }}});

    uintptr_t result = 0;
    uint32_t state = 0;
    cu_ThreadID id = {};
    bool equal = false;
    const Job job(runUntilStopped);
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, thread.get(), job.get(), &state}), cu_Thread_new, cu_Thread_start,
                         cu_Thread_stop, cu_Thread_getState);
    EXPECT_NULLS_REFUSED(file, (std::tuple{thread.get(), &result}), cu_Thread_join);
    EXPECT_NULLS_REFUSED(file, (std::tuple{thread.get(), &id, &equal}), cu_Thread_getThreadID, cu_ThreadID_equals);
    EXPECT_NULLS_REFUSED(file, std::tuple{thread.handle()}, cu_Thread_delete);
}

TEST_F(Thread, runsInAWorkerOfItsOwnWithoutSignals)
{
    cu_ThreadID id = {};
    ASSERT_EQ(cu_Thread_getThreadID(thread, &id), 0U);
    const auto isWorker = [&] {
        const cu_ThreadID own = cu_Thread_getCurrentThreadID();
        bool equal = false;
        EXPECT_EQ(cu_ThreadID_equals(&own, &id, &equal), 0U);
        return equal;
    };
    const Job job([&](const void* flag) {
        EXPECT_TRUE(isWorker());
        EXPECT_EQ(cu_Thread_getCurrentNativeThreadID(), syscall(SYS_gettid));
        char name[16] = {};
        pthread_getname_np(pthread_self(), name, sizeof(name));
        EXPECT_STREQ(name, "cu-thread");
        sigset_t mask;
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        for (int signal = 1; signal <= SIGRTMAX - 2; ++signal) // user-mode emulation keeps the last two
            EXPECT_TRUE(signal == SIGKILL || signal == SIGSTOP || signal == 32 || signal == 33 ||
                        sigismember(&mask, signal) == 1)
                << signal;
        return runUntilStopped(flag);
    });
    uintptr_t result = 0;
    ASSERT_EQ(cu_Thread_start(thread, job.get()), 0U);
    EXPECT_EQ(cu_Thread_stop(thread, false), 0U);
    EXPECT_EQ(cu_Thread_join(thread, &result), 0U);
    EXPECT_EQ(result, 7U);
    EXPECT_FALSE(isWorker());
    EXPECT_EQ(cu_Thread_getProcessID(), getpid());
    sigset_t mask; // the creator's is what it was
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGUSR1), 0);
}

TEST_F(Thread, callsInTheWrongStateAreRefusedAndChangeNothing)
{
    const Job job(runUntilStopped);
    uintptr_t result = 99;
    for (uint32_t at = cu_THREAD_IDLE; at <= cu_THREAD_SHUT_DOWN; ++at) {
        thread->state = at;
        const auto refuses = [&](uint32_t wanted, const char* name, cu_ErrorCode code, const char* function,
                                 auto call) {
            const std::string text = std::string("Thread not in ") + name + " state: " + std::to_string(at);
            EXPECT_TRUE(at == wanted || support::failureOf(call) == (support::Failure{code, function, file, text}));
            EXPECT_EQ(state(), at);
        };
        refuses(cu_THREAD_IDLE, "idle", cu_ERROR_THREAD_START_FAILED, "cu_Thread_start",
                [&] { return cu_Thread_start(thread, job.get()); });
        for (const bool wait : {false, true})
            refuses(cu_THREAD_RUNNING, "running", cu_ERROR_THREAD_STOP_FAILED, "cu_Thread_stop",
                    [&] { return cu_Thread_stop(thread, wait); });
        refuses(cu_THREAD_STOPPED, "stopped", cu_ERROR_THREAD_JOIN_FAILED, "cu_Thread_join",
                [&] { return cu_Thread_join(thread, &result); });
    }
    EXPECT_EQ(result, 99U);
    EXPECT_FALSE(job.isPending());
    thread->state = cu_THREAD_CREATED;
    EXPECT_FAILURE(cu_Thread_delete(thread.handle()), cu_ERROR_COM_INVARIANT, "cu_Thread_delete", file,
                   "Illegal thread state!");
    thread->state = cu_THREAD_IDLE;
}

TEST_F(Thread, everyEndWaitsForTheFunction)
{
    const long tasks = taskCount();
    uintptr_t result = 0;
    const auto stop = [&] { return cu_Thread_stop(thread, false); };
    const std::function<cu_ErrorCode()> ends[] = {
        [&] { return cu_Thread_stop(thread, true); },
        [&] { return stop() != 0 ? ~0U : cu_Thread_join(thread, &result); },
        [&] { return cu_Thread_delete(thread.handle()); },
        [&] { return stop() != 0 ? ~0U : cu_Thread_delete(thread.handle()); },
    };
    for (const auto& end : ends) {
        std::atomic<bool> ended = false;
        const Job job([&](const void* flag) {
            runUntilStopped(flag);
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            ended = true;
            return 0;
        });
        ASSERT_EQ(thread == nullptr ? cu_Thread_new(thread.handle(), nullptr) : 0, 0U);
        ASSERT_EQ(cu_Thread_start(thread, job.get()), 0U);
        EXPECT_EQ(end(), 0U);
        EXPECT_TRUE(ended);
    }
    EXPECT_EQ(thread.get(), nullptr);
    EXPECT_TRUE(support::comesTrue([=] { return taskCount() <= tasks; }));
}

TEST_F(Thread, aFailingSystemCallIsPassedOnAndLeavesTheMutexToTheNextCall)
{
    std::atomic<bool> gate = false;
    const Job job([&](const void*) { return uintptr_t{support::comesTrue([&] { return gate.load(); })}; });
    uintptr_t result = 99;
    const auto start = [&] { return cu_Thread_start(thread, job.get()); };
    const auto stop = [&] { return cu_Thread_stop(thread, true); };
    const auto join = [&] { return cu_Thread_join(thread, &result); };
    const auto end = [&] { return cu_Thread_delete(thread.handle()); };
    const auto fails = [&](const auto& call, const std::string& name, const char* systemCall, cu_ErrorCode code,
                           uint32_t stateAfterwards) {
        const support::Injection injection(systemCall, EPERM);
        EXPECT_EQ(support::failureOf(call).code, code) << name;
        EXPECT_NE(support::trace().find(name + "  -  src/cUtil/thread:"), std::string::npos) << support::trace();
        EXPECT_EQ(state(), stateAfterwards) << name;
    };
    // This thread keeps the mutex, which the next call cannot lock; whoever asks for the state or the id need not.
    const auto failsToUnlockAndToLock = [&](const auto& call, const std::string& name, uint32_t stateAfterwards) {
        cu_ThreadID id = {};
        fails(call, name, "pthread_mutex_unlock", cu_ERROR_MUTEX_UNLOCK_FAILED, stateAfterwards);
        fails(call, name, "", cu_ERROR_MUTEX_LOCK_FAILED, stateAfterwards);
        EXPECT_EQ(cu_Thread_getThreadID(thread, &id), 0U);
    };
    fails(start, "cu_Thread_start", "sem_post", cu_ERROR_SEM_UNLOCK_FAILED, cu_THREAD_IDLE);
    EXPECT_FALSE(job.isPending());
    failsToUnlockAndToLock(start, "cu_Thread_start", cu_THREAD_RUNNING);
    fails(stop, "cu_Thread_stop", "", cu_ERROR_MUTEX_LOCK_FAILED, cu_THREAD_RUNNING);
    EXPECT_EQ(cu_Mutex_unlock(thread->mutex), 0U);
    fails(stop, "cu_Thread_stop", "sem_wait", cu_ERROR_SEM_LOCK_FAILED, cu_THREAD_STOPPED);
    fails(join, "cu_Thread_join", "sem_wait", cu_ERROR_SEM_LOCK_FAILED, cu_THREAD_STOPPED);
    EXPECT_EQ(result, 99U);
    gate = true;
    failsToUnlockAndToLock(join, "cu_Thread_join", cu_THREAD_IDLE);
    EXPECT_EQ(result, 1U);
    EXPECT_EQ(cu_Mutex_unlock(thread->mutex), 0U);
    gate = false;
    ASSERT_EQ(start(), 0U);
    fails(end, "cu_Thread_delete", "sem_wait", cu_ERROR_SEM_LOCK_FAILED, cu_THREAD_STOPPED);
    gate = true;
    fails(end, "cu_Thread_delete", "sem_post", cu_ERROR_SEM_UNLOCK_FAILED, cu_THREAD_IDLE);
    failsToUnlockAndToLock(end, "cu_Thread_delete", cu_THREAD_SHUT_DOWN);
    EXPECT_EQ(cu_Mutex_unlock(thread->mutex), 0U);
    for (int semaphore = 0; semaphore < 3; ++semaphore)
        fails(end, "cu_Thread_delete", "sem_destroy", cu_ERROR_SEM_FREE_FAILED, cu_THREAD_SHUT_DOWN);
}

TEST_F(Thread, aFailedExecutionEndsTheWorkerForGood)
{
    const Job* self = nullptr;
    const Job job([&](const void*) { return cu_Runnable_unlock(self->get()); });
    self = &job;
    uintptr_t result = 99;
    EXPECT_EQ(cu_Thread_start(thread, job.get()), 0U);
    EXPECT_EQ(cu_Thread_stop(thread, false), 0U);
    EXPECT_EQ(cu_Thread_join(thread, &result), 0U);
    EXPECT_EQ(result, 0U);
    EXPECT_FAILURE(cu_Thread_start(thread, job.get()), cu_ERROR_THREAD_START_FAILED, "cu_Thread_start", file, "");
    EXPECT_EQ(state(), cu_THREAD_IDLE);
}

TEST_F(Thread, ownersCompeteWithoutLosingAnExecution)
{
    std::atomic<int> successes[3] = {};
    const Job job([](const void*) { return 0; });
    const auto compete = [&] {
        uintptr_t result = 0;
        const auto count = [&](int call, cu_ErrorCode code, cu_ErrorCode otherwise) {
            successes[call] += code == 0 ? 1 : 0;
            EXPECT_TRUE(code == 0 || code == otherwise) << code;
        };
        for (int round = 0; round < support::scaled(10000); ++round) {
            count(0, cu_Thread_start(thread, job.get()), cu_ERROR_THREAD_START_FAILED);
            count(1, cu_Thread_stop(thread, false), cu_ERROR_THREAD_STOP_FAILED);
            count(2, cu_Thread_join(thread, &result), cu_ERROR_THREAD_JOIN_FAILED);
        }
    };
    for (std::vector<std::jthread> owners; owners.size() < 4;)
        owners.emplace_back(compete);
    EXPECT_GT(job.begun(), 0);
    for (const auto& count : successes)
        EXPECT_EQ(count, job.begun());
}

} // namespace
