#include "internal/threadLayout.h"
#include "support/process.h"
#include "support/record.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <atomic>
#include <csignal>
#include <filesystem>
#include <functional>
#include <sys/syscall.h>
#include <thread>

namespace
{

constexpr char file[] = "src/cUtil/thread";

long taskCount()
{
    using Folder = std::filesystem::directory_iterator;
    return std::distance(Folder("/proc/self/task"), Folder());
}

// A runnable around a function of the running flag.
class Job
{
public:
    using Function = std::function<uintptr_t(const void*)>;

    explicit Job(Function function) : function_(std::move(function))
    {
        EXPECT_EQ(cu_Runnable_new(&runnable_, call, this, nullptr), 0U);
    }
    Job(const Job&) = delete;
    Job& operator=(const Job&) = delete;
    ~Job()
    {
        EXPECT_EQ(cu_Runnable_delete(&runnable_), 0U); // waits as long as an execution is pending
    }

    cu_Runnable* get() const { return runnable_; }

private:
    static uintptr_t call(void* flag, void* me) { return static_cast<Job*>(me)->function_(flag); }

    Function function_;
    cu_Runnable* runnable_ = nullptr;
};

uintptr_t runUntilStopped(const void* flag)
{
    while (cu_Thread_isRunning(flag))
        std::this_thread::yield();
    return 7;
}

class Thread : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(cu_Thread_new(&thread, nullptr), 0U); }

    void TearDown() override
    {
        if (thread != nullptr) {
            EXPECT_EQ(cu_Thread_delete(&thread), 0U);
        }
        EXPECT_EQ(thread, nullptr);
    }

    uint32_t state() const
    {
        uint32_t state = ~0U;
        EXPECT_EQ(cu_Thread_getState(thread, &state), 0U);
        return state;
    }

    // Brings the idle thread into a state.
    void bringTo(uint32_t state, const Job& job)
    {
        if (state != cu_THREAD_IDLE) {
            ASSERT_EQ(cu_Thread_start(thread, job.get()), 0U);
        }
        if (state == cu_THREAD_STOPPED) {
            ASSERT_EQ(cu_Thread_stop(thread, false), 0U);
        }
    }

    cu_Thread* thread = nullptr;
};

TEST_F(Thread, constructorLeavesNothingBehind)
{
    const long tasks = taskCount();
    support::sweep<cu_Thread>("cu_Thread_new", [](auto** me, auto* allocator) { return cu_Thread_new(me, allocator); },
                              cu_Thread_delete, {"sem_trywait", "clock_gettime", "sysconf"});
    EXPECT_TRUE(support::comesTrue([=] { return taskCount() == tasks; }));
    cu_Thread* none = nullptr;
    const support::Injection injection("pthread_create", EAGAIN);
    EXPECT_SYSTEM_FAILURE(cu_Thread_new(&none, nullptr), cu_ERROR_THREAD_CREATE_FAILED, EAGAIN, "cu_Thread_new", file,
                          "");
}

TEST_F(Thread, aWorkerWhoseStartCannotBeAwaitedIsEnded)
{
    const long tasks = taskCount();
    // The wait does not always get as far as to the call that fails.
    EXPECT_TRUE(support::comesTrue([] {
        support::WatchfulAllocator allocator;
        cu_Thread* none = nullptr;
        cu_ErrorCode code = 0;
        {
            const support::Injection injection("sem_wait", EINVAL);
            code = cu_Thread_new(&none, allocator.get());
        }
        if (code == 0) {
            EXPECT_EQ(cu_Thread_delete(&none), 0U);
            return false;
        }
        EXPECT_EQ(code, cu_ERROR_SEM_LOCK_FAILED);
        EXPECT_EQ(none, nullptr);
        return true;
    }));
    EXPECT_TRUE(support::comesTrue([=] { return taskCount() == tasks; }));
}

TEST_F(Thread, badArgumentsAreRefused)
{
    cu_Thread* none = nullptr;
    uintptr_t result = 0;
    uint32_t state = 0;
    cu_ThreadID id = {};
    bool equal = false;
    const Job job(runUntilStopped);
    EXPECT_REFUSED(cu_Thread_new(nullptr, nullptr), "cu_Thread_new", file);
    EXPECT_REFUSED(cu_Thread_new(&thread, nullptr), "cu_Thread_new", file);
    EXPECT_REFUSED(cu_Thread_delete(nullptr), "cu_Thread_delete", file);
    EXPECT_REFUSED(cu_Thread_delete(&none), "cu_Thread_delete", file);
    EXPECT_REFUSED(cu_Thread_start(nullptr, job.get()), "cu_Thread_start", file);
    EXPECT_REFUSED(cu_Thread_start(thread, nullptr), "cu_Thread_start", file);
    EXPECT_REFUSED(cu_Thread_stop(nullptr, true), "cu_Thread_stop", file);
    EXPECT_REFUSED(cu_Thread_join(nullptr, &result), "cu_Thread_join", file);
    EXPECT_REFUSED(cu_Thread_join(thread, nullptr), "cu_Thread_join", file);
    EXPECT_REFUSED(cu_Thread_getState(nullptr, &state), "cu_Thread_getState", file);
    EXPECT_REFUSED(cu_Thread_getState(thread, nullptr), "cu_Thread_getState", file);
    EXPECT_REFUSED(cu_Thread_getThreadID(nullptr, &id), "cu_Thread_getThreadID", file);
    EXPECT_REFUSED(cu_Thread_getThreadID(thread, nullptr), "cu_Thread_getThreadID", file);
    EXPECT_REFUSED(cu_ThreadID_equals(nullptr, &id, &equal), "cu_ThreadID_equals", file);
    EXPECT_REFUSED(cu_ThreadID_equals(&id, nullptr, &equal), "cu_ThreadID_equals", file);
    EXPECT_REFUSED(cu_ThreadID_equals(&id, &id, nullptr), "cu_ThreadID_equals", file);
}

TEST_F(Thread, runsInAWorkerOfItsOwnWithoutSignals)
{
    cu_ThreadID id = {};
    ASSERT_EQ(cu_Thread_getThreadID(thread, &id), 0U);
    char name[16] = {};
    const Job job([&](const void* flag) {
        const cu_ThreadID own = cu_Thread_getCurrentThreadID();
        bool equal = false;
        EXPECT_EQ(cu_ThreadID_equals(&own, &id, &equal), 0U);
        EXPECT_TRUE(equal);
        EXPECT_EQ(cu_Thread_getCurrentNativeThreadID(), syscall(SYS_gettid));
        EXPECT_NE(cu_Thread_getCurrentNativeThreadID(), cu_Thread_getProcessID());
        pthread_getname_np(own, name, sizeof(name));
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
    EXPECT_STREQ(name, "cu-thread");

    const cu_ThreadID own = cu_Thread_getCurrentThreadID();
    bool equal = true;
    EXPECT_EQ(cu_ThreadID_equals(&own, &id, &equal), 0U);
    EXPECT_FALSE(equal);
    EXPECT_EQ(cu_Thread_getProcessID(), getpid());
    sigset_t mask;
    pthread_sigmask(SIG_BLOCK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGUSR1), 0); // the creator's mask is what it was
}

TEST_F(Thread, callsInTheWrongStateAreRefusedAndChangeNothing)
{
    const Job job(runUntilStopped);
    const Job other([](const void*) -> uintptr_t { return ADD_FAILURE(), 0; });
    uintptr_t result = 99;
    for (const uint32_t at : {cu_THREAD_IDLE, cu_THREAD_RUNNING, cu_THREAD_STOPPED, cu_THREAD_SHUT_DOWN}) {
        const std::string number = std::to_string(at);
        SCOPED_TRACE(number);
        const bool isShutDown = at == cu_THREAD_SHUT_DOWN;
        if (isShutDown)
            thread->state = at;
        else
            bringTo(at, job);
        if (at != cu_THREAD_IDLE) {
            EXPECT_FAILURE(cu_Thread_start(thread, other.get()), cu_ERROR_THREAD_START_FAILED, "cu_Thread_start", file,
                           "Thread not in idle state: " + number);
        }
        for (const bool wait : {false, true})
            if (at != cu_THREAD_RUNNING) {
                EXPECT_FAILURE(cu_Thread_stop(thread, wait), cu_ERROR_THREAD_STOP_FAILED, "cu_Thread_stop", file,
                               "Thread not in running state: " + number);
            }
        if (at != cu_THREAD_STOPPED) {
            EXPECT_FAILURE(cu_Thread_join(thread, &result), cu_ERROR_THREAD_JOIN_FAILED, "cu_Thread_join", file,
                           "Thread not in stopped state: " + number);
        }
        EXPECT_EQ(result, 99U);
        EXPECT_EQ(state(), at);
        if (at == cu_THREAD_RUNNING) {
            EXPECT_EQ(cu_Thread_stop(thread, true), 0U);
        }
        if (at == cu_THREAD_STOPPED) {
            EXPECT_EQ(cu_Thread_join(thread, &(result = 0)), 0U);
        }
        result = 99;
        if (isShutDown)
            thread->state = cu_THREAD_IDLE;
        EXPECT_EQ(state(), cu_THREAD_IDLE);
    }

    thread->state = cu_THREAD_CREATED;
    EXPECT_FAILURE(cu_Thread_delete(&thread), cu_ERROR_COM_INVARIANT, "cu_Thread_delete", file,
                   "Illegal thread state!");
    thread->state = cu_THREAD_IDLE;
}

TEST_F(Thread, aStartThatIsStoppedAtOnceStillRunsOnce)
{
    unsigned runs = 0;
    bool sawItStopped = false;
    const Job job([&](const void* flag) {
        sawItStopped = !cu_Thread_isRunning(flag);
        return ++runs;
    });
    unsigned starts = 0;
    EXPECT_TRUE(support::comesTrue([&] {
        uintptr_t result = 0;
        ++starts;
        EXPECT_EQ(cu_Thread_start(thread, job.get()), 0U);
        EXPECT_EQ(cu_Thread_stop(thread, false), 0U);
        EXPECT_EQ(cu_Thread_join(thread, &result), 0U);
        EXPECT_EQ(result, starts);
        return sawItStopped;
    }));
    EXPECT_EQ(runs, starts);
}

TEST_F(Thread, theStateCanBeReadWhileAJoinBlocks)
{
    std::atomic<bool> gate = false;
    const Job job([&](const void*) -> uintptr_t {
        EXPECT_TRUE(support::comesTrue([&] { return gate.load(); }));
        return 1;
    });
    bringTo(cu_THREAD_STOPPED, job);
    std::thread owner([&] {
        uintptr_t result = 0;
        EXPECT_EQ(cu_Thread_join(thread, &result), 0U);
        EXPECT_EQ(result, 1U);
    });
    EXPECT_TRUE(support::comesTrue([&] {
        bool locked = true;
        EXPECT_EQ(cu_Mutex_tryLock(thread->mutex, &locked), 0U);
        return !locked || cu_Mutex_unlock(thread->mutex) != 0;
    }));
    cu_ThreadID id = {};
    EXPECT_EQ(state(), cu_THREAD_STOPPED);
    EXPECT_EQ(cu_Thread_getThreadID(thread, &id), 0U);
    EXPECT_FALSE(gate);
    gate = true;
    owner.join();
    EXPECT_EQ(state(), cu_THREAD_IDLE);
}

TEST_F(Thread, aFunctionThatIgnoresItsFlagIsWaitedFor)
{
    std::atomic<bool> ended = false;
    const Job job([&](const void* flag) {
        runUntilStopped(flag);
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        ended = true;
        return 0;
    });
    uintptr_t result = 0;
    const std::function<cu_ErrorCode()> ends[] = {
        [&] { return cu_Thread_stop(thread, true); },
        [&] { return cu_Thread_stop(thread, false) != 0 ? ~0U : cu_Thread_join(thread, &result); },
        [&] { return cu_Thread_delete(&thread); },
    };
    for (const auto& end : ends) {
        ended = false;
        ASSERT_EQ(cu_Thread_start(thread, job.get()), 0U);
        EXPECT_EQ(end(), 0U);
        EXPECT_TRUE(ended);
    }
}

TEST_F(Thread, canBeDeletedInEveryState)
{
    const long tasks = taskCount();
    for (const uint32_t at : {cu_THREAD_IDLE, cu_THREAD_RUNNING, cu_THREAD_STOPPED}) {
        for (const bool hasReturned : {false, true}) {
            std::atomic<bool> ended = false;
            const Job job([&](const void* flag) {
                if (!hasReturned)
                    runUntilStopped(flag);
                ended = true;
                return 0;
            });
            if (thread == nullptr) {
                ASSERT_EQ(cu_Thread_new(&thread, nullptr), 0U);
            }
            bringTo(at, job);
            if (hasReturned && at != cu_THREAD_IDLE) {
                EXPECT_EQ(cu_Runnable_wait(job.get()), 0U);
            }
            EXPECT_EQ(cu_Thread_delete(&thread), 0U);
            EXPECT_EQ(thread, nullptr);
            EXPECT_EQ(ended, at != cu_THREAD_IDLE);
        }
    }
    EXPECT_TRUE(support::comesTrue([=] { return taskCount() == tasks - 1; }));
}

TEST_F(Thread, aFailedDeleteCanBeRepeated)
{
    const Job job(runUntilStopped);
    bringTo(cu_THREAD_RUNNING, job);
    for (unsigned nth = 1; nth <= 3; ++nth) {
        const support::Injection injection("sem_destroy", EINVAL);
        EXPECT_EQ(cu_Thread_delete(&thread), cu_ERROR_SEM_FREE_FAILED);
        EXPECT_NE(thread, nullptr);
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
    const auto end = [&] { return cu_Thread_delete(&thread); };
    const auto fails = [&](const auto& call, cu_ErrorCode code, const std::string& function, uint32_t stateAfterwards) {
        EXPECT_EQ(support::failureOf(call).code, code) << function;
        EXPECT_NE(support::trace().find(function + "  -  src/cUtil/thread:"), std::string::npos) << support::trace();
        EXPECT_EQ(state(), stateAfterwards) << function;
    };
    const auto failsToLock = [&](const auto& call, const std::string& function) {
        EXPECT_EQ(cu_Mutex_lock(thread->mutex), 0U);
        fails(call, cu_ERROR_MUTEX_LOCK_FAILED, function, state());
        EXPECT_EQ(cu_Mutex_unlock(thread->mutex), 0U);
    };
    const auto failsToUnlock = [&](const auto& call, const std::string& function, uint32_t stateAfterwards) {
        {
            const support::Injection injection("pthread_mutex_unlock", EPERM);
            fails(call, cu_ERROR_MUTEX_UNLOCK_FAILED, function, stateAfterwards);
        }
        EXPECT_EQ(cu_Mutex_unlock(thread->mutex), 0U);
    };
    const auto failsToWait = [&](const auto& call, const std::string& function) {
        const support::Injection injection("sem_wait", EINVAL);
        fails(call, cu_ERROR_SEM_LOCK_FAILED, function, cu_THREAD_STOPPED);
    };
    failsToLock(start, "cu_Thread_start");
    failsToUnlock(start, "cu_Thread_start", cu_THREAD_RUNNING);
    failsToLock(stop, "cu_Thread_stop");
    failsToWait(stop, "cu_Thread_stop");
    failsToLock(join, "cu_Thread_join");
    failsToWait(join, "cu_Thread_join");
    EXPECT_EQ(result, 99U);
    gate = true;
    failsToUnlock(join, "cu_Thread_join", cu_THREAD_IDLE);
    EXPECT_EQ(result, 1U);
    gate = false;
    ASSERT_EQ(start(), 0U);
    failsToLock(end, "cu_Thread_delete");
    failsToWait(end, "cu_Thread_delete");
    gate = true;
    failsToUnlock(end, "cu_Thread_delete", cu_THREAD_SHUT_DOWN);
}

TEST_F(Thread, aFailedExecutionEndsTheWorkerForGood)
{
    const Job* self = nullptr;
    const Job job([&](const void*) { return cu_Runnable_unlock(self->get()); });
    self = &job;
    uintptr_t result = 99;
    bringTo(cu_THREAD_STOPPED, job);
    EXPECT_EQ(cu_Thread_join(thread, &result), 0U);
    EXPECT_EQ(result, 0U);
    EXPECT_FAILURE(cu_Thread_start(thread, job.get()), cu_ERROR_THREAD_START_FAILED, "cu_Thread_start", file, "");
    EXPECT_EQ(state(), cu_THREAD_IDLE);
}

TEST_F(Thread, twoThreadsShareTheCountOfOneRunnable)
{
    cu_Thread* second = nullptr;
    ASSERT_EQ(cu_Thread_new(&second, nullptr), 0U);
    std::atomic<int> arrived = 0;
    std::atomic<int> ended = 0;
    const Job job([&](const void* flag) {
        const int turn = ++arrived;
        runUntilStopped(flag);
        if (turn == 2)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return static_cast<uintptr_t>(++ended);
    });
    for (cu_Thread* each : {thread, second})
        EXPECT_EQ(cu_Thread_start(each, job.get()), 0U);
    EXPECT_TRUE(support::comesTrue([&] { return arrived == 2; }));
    for (cu_Thread* each : {thread, second})
        EXPECT_EQ(cu_Thread_stop(each, false), 0U);
    EXPECT_EQ(cu_Runnable_wait(job.get()), 0U);
    EXPECT_EQ(ended, 2);
    EXPECT_EQ(cu_Thread_delete(&second), 0U);
}

TEST_F(Thread, ownersCompeteWithoutLosingAnExecution)
{
    constexpr int owners = 4;
    std::atomic<int> runs = 0;
    std::atomic<int> starts = 0;
    std::atomic<int> stops = 0;
    std::atomic<int> joins = 0;
    const Job job([&](const void*) { return static_cast<uintptr_t>(++runs); });
    std::vector<std::thread> threads;
    for (int owner = 0; owner < owners; ++owner)
        threads.emplace_back([&] {
            const auto count = [](std::atomic<int>& successes, cu_ErrorCode code, cu_ErrorCode otherwise) {
                if (code == 0)
                    ++successes;
                else {
                    EXPECT_EQ(code, otherwise);
                }
            };
            for (int round = 0; round < support::scaled(10000); ++round) {
                uintptr_t result = 0;
                count(starts, cu_Thread_start(thread, job.get()), cu_ERROR_THREAD_START_FAILED);
                count(stops, cu_Thread_stop(thread, false), cu_ERROR_THREAD_STOP_FAILED);
                count(joins, cu_Thread_join(thread, &result), cu_ERROR_THREAD_JOIN_FAILED);
            }
        });
    for (auto& owner : threads)
        owner.join();
    EXPECT_EQ(state(), cu_THREAD_IDLE);
    EXPECT_GT(runs, 0);
    EXPECT_EQ(runs, starts);
    EXPECT_EQ(runs, stops);
    EXPECT_EQ(runs, joins);
}

TEST_F(Thread, canBeReusedWithoutEnd)
{
    support::WatchfulAllocator allocator;
    ASSERT_EQ(cu_Thread_delete(&thread), 0U);
    ASSERT_EQ(cu_Thread_new(&thread, allocator.get()), 0U);
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
    EXPECT_EQ(cu_Thread_delete(&thread), 0U);
}

} // namespace
