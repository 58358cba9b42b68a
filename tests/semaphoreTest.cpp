#include "support/deadline.h"
#include "support/process.h"
#include "support/record.h"
#include "support/signalStorm.h"
#include "support/sweep.h"

#include <cUtil/ipcSemaphore.h>
#include <cUtil/semaphore.h>
#include <cUtil/tools/safeMalloc.h>

#include <atomic>
#include <climits>
#include <cstring>
#include <limits>
#include <sys/syscall.h>
#include <thread>

namespace
{

constexpr char file[] = "src/cUtil/semaphore.linux";
constexpr char ipcFile[] = "src/cUtil/ipcSemaphore.linux";

std::string errnoText(int error)
{
    return "errno[" + std::to_string(error) + "]='" + strerror(error) + "'";
}

class Semaphore : public testing::Test
{
protected:
    void TearDown() override
    {
        if (semaphore != nullptr) {
            EXPECT_EQ(cu_Semaphore_delete(&semaphore), 0U);
        }
        EXPECT_EQ(semaphore, nullptr);
    }

    cu_Semaphore* semaphore = nullptr;
};

TEST_F(Semaphore, constructorsLeaveNothingBehind)
{
    sem_t storage;
    support::sweep<cu_Semaphore>(
        "cu_Semaphore_new", [](auto** me, auto* allocator) { return cu_Semaphore_new(me, 1, allocator); },
        cu_Semaphore_delete);
    support::sweep<cu_Semaphore>(
        "cu_Semaphore_create",
        [&](auto** me, auto* allocator) { return cu_Semaphore_create(me, 1, &storage, allocator); },
        cu_Semaphore_delete);
    support::sweep<cu_Semaphore>(
        "cu_Semaphore_open", [&](auto** me, auto* allocator) { return cu_Semaphore_open(me, &storage, allocator); },
        cu_Semaphore_delete);
}

TEST_F(Semaphore, badArgumentsAreRefused)
{
    sem_t storage;
    bool taken = false;
    const cu_TimeValue deadline = {};
    ASSERT_EQ(cu_Semaphore_new(&semaphore, 0, nullptr), 0U);
    EXPECT_REFUSED(cu_Semaphore_new(nullptr, 0, nullptr), "cu_Semaphore_new", file);
    EXPECT_REFUSED(cu_Semaphore_new(&semaphore, 0, nullptr), "cu_Semaphore_new", file);
    EXPECT_REFUSED(cu_Semaphore_create(&semaphore, 0, &storage, nullptr), "cu_Semaphore_create", file);
    EXPECT_REFUSED(cu_Semaphore_open(&semaphore, &storage, nullptr), "cu_Semaphore_open", file);
    cu_Semaphore* none = nullptr;
    EXPECT_REFUSED(cu_Semaphore_create(&none, 0, nullptr, nullptr), "cu_Semaphore_create", file);
    EXPECT_REFUSED(cu_Semaphore_open(&none, nullptr, nullptr), "cu_Semaphore_open", file);
    EXPECT_REFUSED(cu_Semaphore_delete(nullptr), "cu_Semaphore_delete", file);
    EXPECT_REFUSED(cu_Semaphore_delete(&none), "cu_Semaphore_delete", file);
    EXPECT_REFUSED(cu_Semaphore_p(nullptr), "cu_Semaphore_p", file);
    EXPECT_REFUSED(cu_Semaphore_tryP(nullptr, &taken), "cu_Semaphore_tryP", file);
    EXPECT_REFUSED(cu_Semaphore_tryP(semaphore, nullptr), "cu_Semaphore_tryP", file);
    EXPECT_REFUSED(cu_Semaphore_timedP(nullptr, &deadline, &taken), "cu_Semaphore_timedP", file);
    EXPECT_REFUSED(cu_Semaphore_timedP(semaphore, nullptr, &taken), "cu_Semaphore_timedP", file);
    EXPECT_REFUSED(cu_Semaphore_timedP(semaphore, &deadline, nullptr), "cu_Semaphore_timedP", file);
    EXPECT_REFUSED(cu_Semaphore_v(nullptr), "cu_Semaphore_v", file);
    EXPECT_SYSTEM_FAILURE(cu_Semaphore_new(&none, UINT_MAX, nullptr), cu_ERROR_SEM_INIT_FAILED, EINVAL,
                          "cu_Semaphore_new", file, "");
    EXPECT_EQ(none, nullptr);
}

TEST_F(Semaphore, countsAndTellsByAFlagThatItIsEmpty)
{
    ASSERT_EQ(cu_Semaphore_new(&semaphore, 2, nullptr), 0U);
    bool taken = false;
    EXPECT_EQ(cu_Semaphore_p(semaphore), 0U);
    EXPECT_EQ(cu_Semaphore_tryP(semaphore, &taken), 0U);
    EXPECT_TRUE(taken);
    EXPECT_EQ(cu_Semaphore_tryP(semaphore, &taken), 0U);
    EXPECT_FALSE(taken);
    taken = true;
    const cu_TimeValue past = {1, 0};
    EXPECT_EQ(cu_Semaphore_timedP(semaphore, &past, &taken), 0U);
    EXPECT_FALSE(taken);
    EXPECT_EQ(cu_Semaphore_v(semaphore), 0U);
    EXPECT_EQ(cu_Semaphore_timedP(semaphore, &past, &taken), 0U);
    EXPECT_TRUE(taken);
}

TEST_F(Semaphore, deadlinesMayLieAsFarAwayAsTheirTypeReaches)
{
    using Seconds = std::numeric_limits<decltype(cu_TimeValue::tv_sec)>;
    ASSERT_EQ(cu_Semaphore_new(&semaphore, 0, nullptr), 0U);
    bool taken = true;
    const cu_TimeValue farthestPast = {Seconds::min(), 0};
    const cu_TimeValue farthest = {Seconds::max(), 999'999'999};
    constexpr int rounds = 200; // not every wait spins, and not every one has to wait
    for (int round = 0; round < rounds; ++round) {
        EXPECT_EQ(cu_Semaphore_timedP(semaphore, &farthestPast, &taken), 0U);
        EXPECT_FALSE(taken);
    }
    std::atomic<int> done = 0;
    std::thread poster([&] {
        for (int round = 0; round < rounds; ++round) {
            EXPECT_TRUE(support::comesTrue([&] { return done == round; }));
            EXPECT_EQ(cu_Semaphore_v(semaphore), 0U);
        }
    });
    for (; done < rounds; ++done) {
        EXPECT_EQ(cu_Semaphore_timedP(semaphore, &farthest, &taken), 0U);
        EXPECT_TRUE(taken);
    }
    poster.join();
}

TEST_F(Semaphore, signalsNeitherEndAWaitNorBringItsDeadlineForward)
{
    ASSERT_EQ(cu_Semaphore_new(&semaphore, 0, nullptr), 0U);
    bool taken = true;
    {
        const support::SignalStorm storm;
        const cu_TimeValue deadline = support::fromNow(50);
        EXPECT_EQ(cu_Semaphore_timedP(semaphore, &deadline, &taken), 0U);
        EXPECT_FALSE(taken);
        EXPECT_TRUE(support::hasPassed(deadline));
        EXPECT_GT(support::SignalStorm::delivered(), 10U);
    }
    const support::SignalStorm storm;
    std::thread poster([&] {
        EXPECT_TRUE(support::comesTrue([] { return support::SignalStorm::delivered() > 100; }));
        EXPECT_EQ(cu_Semaphore_v(semaphore), 0U);
    });
    EXPECT_EQ(cu_Semaphore_p(semaphore), 0U);
    EXPECT_GT(support::SignalStorm::delivered(), 100U);
    poster.join();
}

TEST_F(Semaphore, failingSystemCallsAreReportedAndKeepTheObject)
{
    ASSERT_EQ(cu_Semaphore_new(&semaphore, 0, nullptr), 0U);
    bool taken = false;
    {
        const support::Injection injection("sem_wait", EINVAL);
        EXPECT_SYSTEM_FAILURE(cu_Semaphore_p(semaphore), cu_ERROR_SEM_LOCK_FAILED, EINVAL, "cu_Semaphore_p", file,
                              errnoText(EINVAL));
    }
    {
        const support::Injection injection("sem_trywait", EINVAL);
        EXPECT_SYSTEM_FAILURE(cu_Semaphore_tryP(semaphore, &taken), cu_ERROR_SEM_LOCK_FAILED, EINVAL,
                              "cu_Semaphore_tryP", file, errnoText(EINVAL));
        EXPECT_TRUE(taken);
    }
    for (const int32_t nanoSeconds : {1'000'000'000, -1}) {
        const cu_TimeValue invalid = {0, nanoSeconds};
        for (int count = 0; count < 2; ++count) {
            taken = false;
            EXPECT_SYSTEM_FAILURE(cu_Semaphore_timedP(semaphore, &invalid, &taken), cu_ERROR_SEM_LOCK_FAILED, EINVAL,
                                  "cu_Semaphore_timedP", file, errnoText(EINVAL));
            EXPECT_TRUE(taken);
            EXPECT_EQ(cu_Semaphore_v(semaphore), 0U);
        }
        while (taken)
            EXPECT_EQ(cu_Semaphore_tryP(semaphore, &taken), 0U);
    }
    {
        const support::Injection injection("sem_post", EOVERFLOW);
        EXPECT_SYSTEM_FAILURE(cu_Semaphore_v(semaphore), cu_ERROR_SEM_UNLOCK_FAILED, EOVERFLOW, "cu_Semaphore_v", file,
                              "");
    }
    {
        const support::Injection injection("sem_destroy", EINVAL);
        EXPECT_SYSTEM_FAILURE(cu_Semaphore_delete(&semaphore), cu_ERROR_SEM_FREE_FAILED, EINVAL, "cu_Semaphore_delete",
                              file, "");
        EXPECT_NE(semaphore, nullptr);
    }
}

TEST_F(Semaphore, worksBetweenProcessesAndOutlivesTheWrappersOfOthers)
{
    const support::Shared<sem_t> storage(2);
    cu_Semaphore* answer = nullptr;
    ASSERT_EQ(cu_Semaphore_create(&semaphore, 0, &storage[0], nullptr), 0U);
    ASSERT_EQ(cu_Semaphore_create(&answer, 0, &storage[1], nullptr), 0U);
    support::Process other([&] {
        cu_Semaphore* mine[2] = {};
        if (cu_Semaphore_open(&mine[0], &storage[0], nullptr) != 0 ||
            cu_Semaphore_open(&mine[1], &storage[1], nullptr) != 0)
            return 1;
        for (int round = 0; round < 1000; ++round)
            if (cu_Semaphore_p(mine[0]) != 0 || cu_Semaphore_v(mine[1]) != 0)
                return 2;
        return cu_Semaphore_delete(&mine[0]) == 0 && cu_Semaphore_delete(&mine[1]) == 0 ? 0 : 3;
    });
    const cu_TimeValue limit = support::fromNow(60000);
    bool taken = true;
    for (int round = 0; round < 1000 && taken; ++round) {
        EXPECT_EQ(cu_Semaphore_v(semaphore), 0U);
        EXPECT_EQ(cu_Semaphore_timedP(answer, &limit, &taken), 0U);
    }
    EXPECT_TRUE(taken);
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(cu_Semaphore_v(semaphore), 0U);
    EXPECT_EQ(cu_Semaphore_p(semaphore), 0U);
    EXPECT_EQ(cu_Semaphore_delete(&answer), 0U);
}

TEST(IpcSemaphore, startsAsAFreeLockAndCounts)
{
    sem_t sem;
    int32_t count = 0;
    bool taken = false;
    const cu_TimeValue past = {1, 0};
    ASSERT_EQ(cu_ipcSem_init(&sem), 0U);
    EXPECT_EQ(cu_ipcSem_getCount(&sem, &count), 0U);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(cu_ipcSem_lock(&sem), 0U);
    EXPECT_EQ(cu_ipcSem_tryLock(&sem, &taken), 0U);
    EXPECT_FALSE(taken);
    taken = true;
    EXPECT_EQ(cu_ipcSem_timedLock(&sem, &past, &taken), 0U);
    EXPECT_FALSE(taken);
    EXPECT_EQ(cu_ipcSem_unlock(&sem), 0U);
    EXPECT_EQ(cu_ipcSem_unlock(&sem), 0U);
    EXPECT_EQ(cu_ipcSem_getCount(&sem, &count), 0U);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(cu_ipcSem_tryLock(&sem, &taken), 0U);
    EXPECT_TRUE(taken);
    EXPECT_EQ(cu_ipcSem_free(&sem), 0U);
}

TEST(IpcSemaphore, refusesNullAndReportsFailingSystemCalls)
{
    sem_t sem;
    int32_t count = 0;
    bool taken = false;
    const cu_TimeValue soon = support::fromNow(0);
    ASSERT_EQ(cu_ipcSem_init(&sem), 0U);
    ASSERT_EQ(cu_ipcSem_lock(&sem), 0U);
    EXPECT_REFUSED(cu_ipcSem_init(nullptr), "cu_ipcSem_init", ipcFile);
    EXPECT_REFUSED(cu_ipcSem_free(nullptr), "cu_ipcSem_free", ipcFile);
    EXPECT_REFUSED(cu_ipcSem_getCount(nullptr, &count), "cu_ipcSem_getCount", ipcFile);
    EXPECT_REFUSED(cu_ipcSem_getCount(&sem, nullptr), "cu_ipcSem_getCount", ipcFile);
    EXPECT_REFUSED(cu_ipcSem_lock(nullptr), "cu_ipcSem_lock", ipcFile);
    EXPECT_REFUSED(cu_ipcSem_tryLock(&sem, nullptr), "cu_ipcSem_tryLock", ipcFile);
    EXPECT_REFUSED(cu_ipcSem_timedLock(&sem, nullptr, &taken), "cu_ipcSem_timedLock", ipcFile);
    EXPECT_REFUSED(cu_ipcSem_unlock(nullptr), "cu_ipcSem_unlock", ipcFile);

    struct {
        const char* systemCall;
        cu_ErrorCode code;
        const char* function;
        std::string description;
        cu_ErrorCode (*call)(sem_t*, const cu_TimeValue*);
    } const cases[] = {
        {"sem_init", cu_ERROR_SEM_INIT_FAILED, "cu_ipcSem_init", "",
         [](sem_t* s, const cu_TimeValue*) { return cu_ipcSem_init(s); }},
        {"sem_destroy", cu_ERROR_SEM_FREE_FAILED, "cu_ipcSem_free", "",
         [](sem_t* s, const cu_TimeValue*) { return cu_ipcSem_free(s); }},
        {"sem_getvalue", cu_ERROR_SEM_GET_COUNT_FAILED, "cu_ipcSem_getCount", "",
         [](sem_t* s, const cu_TimeValue*) {
             int32_t value = 0;
             return cu_ipcSem_getCount(s, &value);
         }},
        {"sem_wait", cu_ERROR_SEM_LOCK_FAILED, "cu_ipcSem_lock", "",
         [](sem_t* s, const cu_TimeValue*) { return cu_ipcSem_lock(s); }},
        {"sem_trywait", cu_ERROR_SEM_LOCK_FAILED, "cu_ipcSem_tryLock", errnoText(EINVAL),
         [](sem_t* s, const cu_TimeValue*) {
             bool flag = false;
             return cu_ipcSem_tryLock(s, &flag);
         }},
        {"sem_timedwait", cu_ERROR_SEM_LOCK_FAILED, "cu_ipcSem_timedLock", errnoText(EINVAL),
         [](sem_t* s, const cu_TimeValue* deadline) {
             bool flag = false;
             return cu_ipcSem_timedLock(s, deadline, &flag);
         }},
        {"sem_post", cu_ERROR_SEM_UNLOCK_FAILED, "cu_ipcSem_unlock", "",
         [](sem_t* s, const cu_TimeValue*) { return cu_ipcSem_unlock(s); }},
    };
    for (const auto& one : cases) {
        const support::Injection injection(one.systemCall, EINVAL);
        EXPECT_SYSTEM_FAILURE(one.call(&sem, &soon), one.code, EINVAL, one.function, ipcFile, one.description);
    }
    EXPECT_EQ(cu_ipcSem_getCount(&sem, &count), 0U);
    EXPECT_EQ(count, 0);
}

TEST(Ids, areTheSystemsOwn)
{
    EXPECT_EQ(cu_getPID(), getpid());
    EXPECT_EQ(cu_getTID(), getpid());
    std::thread([] { EXPECT_EQ(cu_getTID(), syscall(SYS_gettid)); }).join();
}

} // namespace
