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
    // The wait for the worker's start does not always get as far as to the call that fails.
    EXPECT_TRUE(support::comesTrue([] {
        support::WatchfulAllocator allocator;
        cu_Thread* none = nullptr;
        cu_ErrorCode code = 0;
        {
            const support::Injection injection("sem_wait", EINVAL);
            code = cu_Thread_new(&none, allocator.get());
        }
        EXPECT_EQ(code, none == nullptr ? cu_ErrorCode{cu_ERROR_SEM_LOCK_FAILED} : 0);
        return none == nullptr || cu_Thread_delete(&none) != 0;
    }));
    EXPECT_TRUE(support::comesTrue([=] { return taskCount() == tasks; }));
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
    sigset_t mask;
    char name[16] = {};
    const Job job([&](const void* flag) {
        EXPECT_TRUE(isWorker());
        EXPECT_EQ(cu_Thread_getCurrentNativeThreadID(), syscall(SYS_gettid));
        pthread_getname_np(pthread_self(), name, sizeof(name));
        pthread_sigmask(SIG_BLOCK, nullptr, &mask);
        return runUntilStopped(flag);
    });
    uintptr_t result = 0;
    ASSERT_EQ(cu_Thread_start(thread, job.get()), 0U);
    EXPECT_EQ(cu_Thread_stop(thread, false), 0U);
    EXPECT_EQ(cu_Thread_join(thread, &result), 0U);
    EXPECT_EQ(result, 7U);
    EXPECT_STREQ(name, "cu-thread");
    for (int signal = 1; signal <= SIGRTMAX - 2; ++signal) // user-mode emulation keeps the last two
        EXPECT_TRUE(signal == SIGKILL || signal == SIGSTOP || signal == 32 || signal == 33 ||
                    sigismember(&mask, signal) == 1)
            << signal;
    EXPECT_FALSE(isWorker());
    EXPECT_EQ(cu_Thread_getProcessID(), getpid());
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGUSR1), 0); // the creator's mask is what it was
}

TEST_F(Thread, callsInTheWrongStateAreRefusedAndChangeNothing)
{
    const Job job(runUntilStopped);
    uintptr_t result = 99;
    const auto expectNot = [&](const std::string& wanted, cu_ErrorCode code, const char* function, const auto& call) {
        EXPECT_FAILURE(call(), code, function, file,
                       "Thread not in " + wanted + " state: " + std::to_string(thread->state));
    };
    for (uint32_t at = cu_THREAD_IDLE; at <= cu_THREAD_SHUT_DOWN; ++at) {
        thread->state = at;
        if (at != cu_THREAD_IDLE)
            expectNot("idle", cu_ERROR_THREAD_START_FAILED, "cu_Thread_start",
                      [&] { return cu_Thread_start(thread, job.get()); });
        for (const bool wait : {false, true})
            if (at != cu_THREAD_RUNNING)
                expectNot("running", cu_ERROR_THREAD_STOP_FAILED, "cu_Thread_stop",
                          [&] { return cu_Thread_stop(thread, wait); });
        if (at != cu_THREAD_STOPPED)
            expectNot("stopped", cu_ERROR_THREAD_JOIN_FAILED, "cu_Thread_join",
                      [&] { return cu_Thread_join(thread, &result); });
        EXPECT_EQ(state(), at);
    }
    EXPECT_EQ(result, 99U);
    EXPECT_FALSE(job.isPending());
    thread->state = cu_THREAD_CREATED;
    EXPECT_FAILURE(cu_Thread_delete(thread.handle()), cu_ERROR_COM_INVARIANT, "cu_Thread_delete", file,
                   "Illegal thread state!");
    thread->state = cu_THREAD_IDLE;
}

TEST_F(Thread, everyEndWaitsForTheFunctionWhetherItLooksAtItsFlagOrNot)
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
    for (const bool hasReturned : {false, true})
        for (const auto& end : ends) {
            std::atomic<bool> ended = false;
            const Job job([&](const void* flag) {
                if (!hasReturned) {
                    runUntilStopped(flag);
                    std::this_thread::sleep_for(std::chrono::milliseconds(20));
                }
                ended = true;
                return 0;
            });
            if (thread == nullptr) {
                ASSERT_EQ(cu_Thread_new(thread.handle(), nullptr), 0U);
            }
            ASSERT_EQ(cu_Thread_start(thread, job.get()), 0U);
            if (hasReturned) {
                EXPECT_EQ(cu_Runnable_wait(job.get()), 0U);
            }
            EXPECT_EQ(end(), 0U);
            EXPECT_TRUE(ended);
        }
    EXPECT_EQ(thread.get(), nullptr);
    ASSERT_EQ(cu_Thread_new(thread.handle(), nullptr), 0U);
    EXPECT_TRUE(support::comesTrue([=] { return taskCount() == tasks; }));
}

TEST_F(Thread, aFailedDeleteCanBeRepeated)
{
    const Job job(runUntilStopped);
    ASSERT_EQ(cu_Thread_start(thread, job.get()), 0U);
    for (unsigned nth = 1; nth <= 3; ++nth) {
        const support::Injection injection("sem_destroy", EINVAL);
        EXPECT_EQ(cu_Thread_delete(thread.handle()), cu_ERROR_SEM_FREE_FAILED);
        EXPECT_NE(thread.get(), nullptr);
        EXPECT_EQ(state(), cu_THREAD_SHUT_DOWN);
    }
}

TEST_F(Thread, aStartWhoseReleaseFailsLeavesItIdleAndTheRunnableFree)
{
    const Job job(runUntilStopped);
    {
        const support::Injection injection("sem_post", EOVERFLOW);
        EXPECT_EQ(cu_Thread_start(thread, job.get()), cu_ERROR_SEM_UNLOCK_FAILED);
        EXPECT_NE(support::trace().find("cu_Thread_start  -  src/cUtil/thread:"), std::string::npos);
    }
    EXPECT_EQ(state(), cu_THREAD_IDLE);
    EXPECT_EQ(cu_Runnable_wait(job.get()), 0U);
    EXPECT_EQ(cu_Thread_start(thread, job.get()), 0U);
    EXPECT_EQ(cu_Thread_stop(thread, true), 0U);
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
    failsToUnlockAndToLock(end, "cu_Thread_delete", cu_THREAD_SHUT_DOWN);
    EXPECT_EQ(cu_Mutex_unlock(thread->mutex), 0U);
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
    {
        std::vector<std::jthread> owners;
        for (int owner = 0; owner < 4; ++owner)
            owners.emplace_back(compete);
    }
    EXPECT_EQ(state(), cu_THREAD_IDLE);
    EXPECT_GT(job.begun(), 0);
    for (const auto& count : successes)
        EXPECT_EQ(count, job.begun());
}

TEST_F(Thread, canBeReusedWithoutEnd)
{
    support::WatchfulAllocator allocator;
    ASSERT_EQ(cu_Thread_delete(thread.handle()), 0U);
    ASSERT_EQ(cu_Thread_new(thread.handle(), allocator.get()), 0U);
    const std::size_t requests = allocator.requests().size();
    const long tasks = taskCount();
    const unsigned descriptors = support::openDescriptors();
    uintptr_t runs = 0;
    const Job job([&](const void*) { return ++runs; });
    const auto rounds = static_cast<uintptr_t>(support::scaled(1'000'000));
    // As many as an overloaded machine lets through.
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(90);
    for (uintptr_t round = 1; round <= rounds && std::chrono::steady_clock::now() < end; ++round) {
        uintptr_t result = 0;
        ASSERT_EQ(cu_Thread_start(thread, job.get()), 0U);
        ASSERT_EQ(cu_Thread_stop(thread, false), 0U);
        ASSERT_EQ(cu_Thread_join(thread, &result), 0U);
        ASSERT_EQ(result, round);
    }
    EXPECT_EQ(allocator.requests().size(), requests);
    EXPECT_EQ(taskCount(), tasks);
    EXPECT_EQ(support::openDescriptors(), descriptors);
    ASSERT_EQ(cu_Thread_delete(thread.handle()), 0U);
    ASSERT_EQ(cu_Thread_new(thread.handle(), nullptr), 0U); // the allocator does not outlive this case
}

} // namespace
