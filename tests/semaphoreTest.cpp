#include "support/deadline.h"
#include "support/process.h"
#include "support/record.h"
#include "support/refusal.h"
#include "support/signalStorm.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

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
    EXPECT_CLEAN_FAILURES(cu_Semaphore_new, cu_Semaphore_delete, 1U);
    EXPECT_CLEAN_FAILURES(cu_Semaphore_create, cu_Semaphore_delete, 1U, &storage);
    EXPECT_CLEAN_FAILURES(cu_Semaphore_open, cu_Semaphore_delete, &storage);
}

TEST_F(Semaphore, badArgumentsAreRefused)
{
    sem_t storage;
    bool taken = false;
    const cu_TimeValue deadline = {};
    ASSERT_EQ(cu_Semaphore_new(&semaphore, 0, nullptr), 0U);
    cu_Semaphore* none = nullptr;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, semaphore, &storage, &deadline, &taken}), cu_Semaphore_new,
                         cu_Semaphore_create, cu_Semaphore_open, cu_Semaphore_p, cu_Semaphore_tryP, cu_Semaphore_timedP,
                         cu_Semaphore_v);
    EXPECT_NULLS_REFUSED(file, std::tuple{&semaphore}, cu_Semaphore_delete);
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
        EXPECT_GT(support::SignalStorm::delivered(), 0U);
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
    const cu_TimeValue past = {1, 0};
    support::expectSystemFailures(file,
                                  {{"sem_wait", EINVAL, cu_ERROR_SEM_LOCK_FAILED, "cu_Semaphore_p", errnoText(EINVAL),
                                    [&] { return cu_Semaphore_p(semaphore); }},
                                   {"sem_trywait", EINVAL, cu_ERROR_SEM_LOCK_FAILED, "cu_Semaphore_tryP",
                                    errnoText(EINVAL), [&] { return cu_Semaphore_tryP(semaphore, &taken); }},
                                   {"sem_timedwait", EINVAL, cu_ERROR_SEM_LOCK_FAILED, "cu_Semaphore_timedP",
                                    errnoText(EINVAL), [&] { return cu_Semaphore_timedP(semaphore, &past, &taken); }},
                                   {"sem_post", EOVERFLOW, cu_ERROR_SEM_UNLOCK_FAILED, "cu_Semaphore_v", "",
                                    [&] { return cu_Semaphore_v(semaphore); }},
                                   {"sem_destroy", EINVAL, cu_ERROR_SEM_FREE_FAILED, "cu_Semaphore_delete", "",
                                    [&] { return cu_Semaphore_delete(&semaphore); }}});
    EXPECT_NE(semaphore, nullptr);
    EXPECT_TRUE(taken);
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
    EXPECT_NULLS_REFUSED(ipcFile, (std::tuple{&sem, &count, &taken, &soon}), cu_ipcSem_init, cu_ipcSem_free,
                         cu_ipcSem_getCount, cu_ipcSem_lock, cu_ipcSem_tryLock, cu_ipcSem_timedLock, cu_ipcSem_unlock);

    support::expectSystemFailures(
        ipcFile,
        {{"sem_init", EINVAL, cu_ERROR_SEM_INIT_FAILED, "cu_ipcSem_init", "", [&] { return cu_ipcSem_init(&sem); }},
         {"sem_destroy", EINVAL, cu_ERROR_SEM_FREE_FAILED, "cu_ipcSem_free", "", [&] { return cu_ipcSem_free(&sem); }},
         {"sem_getvalue", EINVAL, cu_ERROR_SEM_GET_COUNT_FAILED, "cu_ipcSem_getCount", "",
          [&] { return cu_ipcSem_getCount(&sem, &count); }},
         {"sem_wait", EINVAL, cu_ERROR_SEM_LOCK_FAILED, "cu_ipcSem_lock", "", [&] { return cu_ipcSem_lock(&sem); }},
         {"sem_trywait", EINVAL, cu_ERROR_SEM_LOCK_FAILED, "cu_ipcSem_tryLock", errnoText(EINVAL),
          [&] { return cu_ipcSem_tryLock(&sem, &taken); }},
         {"sem_timedwait", EINVAL, cu_ERROR_SEM_LOCK_FAILED, "cu_ipcSem_timedLock", errnoText(EINVAL),
          [&] { return cu_ipcSem_timedLock(&sem, &soon, &taken); }},
         {"sem_post", EINVAL, cu_ERROR_SEM_UNLOCK_FAILED, "cu_ipcSem_unlock", "",
          [&] { return cu_ipcSem_unlock(&sem); }}});
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
