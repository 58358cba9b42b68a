#include "support/deadline.h"
#include "support/made.h"
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

struct Semaphore : testing::Test {
    support::Made<cu_Semaphore_new, cu_Semaphore_delete> semaphore{0U};
};

TEST_F(Semaphore, constructorsLeaveNothingBehindAndBadArgumentsAreRefused)
{
    sem_t storage;
    EXPECT_CLEAN_FAILURES(cu_Semaphore_new, cu_Semaphore_delete, 1U);
    EXPECT_CLEAN_FAILURES(cu_Semaphore_create, cu_Semaphore_delete, 1U, &storage);
    EXPECT_CLEAN_FAILURES(cu_Semaphore_open, cu_Semaphore_delete, &storage);
    bool taken = false;
    const cu_TimeValue deadline = {};
    cu_Semaphore* none = nullptr;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, semaphore.get(), &storage, &deadline, &taken}), cu_Semaphore_new,
                         cu_Semaphore_create, cu_Semaphore_open, cu_Semaphore_p, cu_Semaphore_tryP, cu_Semaphore_timedP,
                         cu_Semaphore_v);
    EXPECT_NULLS_REFUSED(file, std::tuple{semaphore.handle()}, cu_Semaphore_delete);
    EXPECT_SYSTEM_FAILURE(cu_Semaphore_new(&none, UINT_MAX, nullptr), cu_ERROR_SEM_INIT_FAILED, EINVAL,
                          "cu_Semaphore_new", file, "");
}

TEST_F(Semaphore, deadlinesMayLieAsFarAwayAsTheirTypeReaches)
{
    using Seconds = std::numeric_limits<decltype(cu_TimeValue::tv_sec)>;
    bool taken = true;
    const cu_TimeValue farthestPast = {Seconds::min(), 0};
    const cu_TimeValue farthest = {Seconds::max(), 999'999'999};
    std::atomic<bool> isWanted = false;
    const std::jthread poster([&] {
        for (int round = 0; round < 200; ++round) { // not every wait spins, and not every one has to wait
            EXPECT_TRUE(support::comesTrue([&] { return isWanted.exchange(false); }));
            EXPECT_EQ(cu_Semaphore_v(semaphore), 0U);
        }
    });
    for (int round = 0; round < 200; ++round) {
        EXPECT_EQ(cu_Semaphore_timedP(semaphore, &farthestPast, &taken), 0U);
        EXPECT_FALSE(taken);
        isWanted = true;
        EXPECT_EQ(cu_Semaphore_timedP(semaphore, &farthest, &taken), 0U);
        EXPECT_TRUE(taken);
    }
}

TEST_F(Semaphore, signalsNeitherEndAWaitNorBringItsDeadlineForward)
{
    bool taken = true;
    const support::SignalStorm storm;
    const cu_TimeValue deadline = support::fromNow(50);
    EXPECT_EQ(cu_Semaphore_timedP(semaphore, &deadline, &taken), 0U);
    EXPECT_FALSE(taken);
    EXPECT_TRUE(support::hasPassed(deadline));
    const auto isHit = [before = storm.delivered()] { return support::SignalStorm::delivered() > before + 100; };
    const std::jthread poster([&] { EXPECT_EQ(support::comesTrue(isHit) ? cu_Semaphore_v(semaphore) : ~0U, 0U); });
    EXPECT_EQ(cu_Semaphore_p(semaphore), 0U);
    EXPECT_TRUE(isHit());
}

TEST_F(Semaphore, failingSystemCallsAreReportedAndKeepTheObject)
{
    bool taken = false;
    const cu_TimeValue past = {1, 0};
    const std::string text = errnoText(EINVAL);
    const auto tryP = [&] { return cu_Semaphore_tryP(semaphore, &taken); };
    const auto timedP = [&] { return cu_Semaphore_timedP(semaphore, &past, &taken); };
    support::expectSystemFailures(
        file, {{"sem_wait", EINVAL, cu_ERROR_SEM_LOCK_FAILED, "cu_Semaphore_p", text,
                [&] { return cu_Semaphore_p(semaphore); }},
               {"sem_trywait", EINVAL, cu_ERROR_SEM_LOCK_FAILED, "cu_Semaphore_tryP", text, tryP},
               {"sem_timedwait", EINVAL, cu_ERROR_SEM_LOCK_FAILED, "cu_Semaphore_timedP", text, timedP},
               {"sem_post", EOVERFLOW, cu_ERROR_SEM_UNLOCK_FAILED, "cu_Semaphore_v", "",
                [&] { return cu_Semaphore_v(semaphore); }},
               {"sem_destroy", EINVAL, cu_ERROR_SEM_FREE_FAILED, "cu_Semaphore_delete", "",
                [&] { return cu_Semaphore_delete(semaphore.handle()); }}});
    EXPECT_NE(semaphore.get(), nullptr);
    EXPECT_TRUE(taken);
    EXPECT_EQ(cu_Semaphore_v(semaphore), 0U);
    for (const int32_t nanoSeconds : {1'000'000'000, -1}) {
        const cu_TimeValue invalid = {0, nanoSeconds};
        taken = false;
        EXPECT_SYSTEM_FAILURE(cu_Semaphore_timedP(semaphore, &invalid, &taken), cu_ERROR_SEM_LOCK_FAILED, EINVAL,
                              "cu_Semaphore_timedP", file, text);
        EXPECT_TRUE(taken);
    }
    EXPECT_EQ(tryP(), 0U);
    EXPECT_TRUE(taken);
}

TEST_F(Semaphore, worksBetweenProcessesAndOutlivesTheWrappersOfOthers)
{
    const support::Shared<sem_t> storage(2);
    const support::Made<cu_Semaphore_create, cu_Semaphore_delete> ask(0U, &storage[0]);
    const support::Made<cu_Semaphore_create, cu_Semaphore_delete> answer(0U, &storage[1]);
    const auto answerAll = [&] {
        const support::Made<cu_Semaphore_open, cu_Semaphore_delete> asked(&storage[0]);
        const support::Made<cu_Semaphore_open, cu_Semaphore_delete> answered(&storage[1]);
        for (int round = 0; round < 1000; ++round)
            EXPECT_EQ(cu_Semaphore_p(asked) | cu_Semaphore_v(answered), 0U);
    };
    support::Process other([&] { return answerAll(), HasFailure() ? 99 : 0; });
    const cu_TimeValue limit = support::fromNow(60000);
    bool taken = true;
    for (int round = 0; round < 1000 && taken; ++round)
        EXPECT_EQ(cu_Semaphore_v(ask) | cu_Semaphore_timedP(answer, &limit, &taken), 0U);
    EXPECT_TRUE(taken);
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(cu_Semaphore_v(ask) | cu_Semaphore_p(ask), 0U);
}

TEST(IpcSemaphore, startsAsAFreeLockAndCountsWhateverFails)
{
    sem_t sem;
    int32_t count = 0;
    bool taken = true;
    const cu_TimeValue soon = support::fromNow(0);
    ASSERT_EQ(cu_ipcSem_init(&sem), 0U);
    EXPECT_EQ(cu_ipcSem_lock(&sem), 0U);
    EXPECT_NULLS_REFUSED(ipcFile, (std::tuple{&sem, &count, &taken, &soon}), cu_ipcSem_init, cu_ipcSem_free,
                         cu_ipcSem_getCount, cu_ipcSem_lock, cu_ipcSem_tryLock, cu_ipcSem_timedLock, cu_ipcSem_unlock);

    const auto fails = [&](const char* systemCall, cu_ErrorCode code, const char* function, const auto& call,
                           const std::string& text = "") {
        support::expectSystemFailures(ipcFile, {{systemCall, EINVAL, code, function, text, call}});
    };
    const auto tryLock = [&] { return cu_ipcSem_tryLock(&sem, &taken); };
    const auto timedLock = [&] { return cu_ipcSem_timedLock(&sem, &soon, &taken); };
    fails("sem_init", cu_ERROR_SEM_INIT_FAILED, "cu_ipcSem_init", [&] { return cu_ipcSem_init(&sem); });
    fails("sem_destroy", cu_ERROR_SEM_FREE_FAILED, "cu_ipcSem_free", [&] { return cu_ipcSem_free(&sem); });
    fails("sem_getvalue", cu_ERROR_SEM_GET_COUNT_FAILED, "cu_ipcSem_getCount",
          [&] { return cu_ipcSem_getCount(&sem, &count); });
    fails("sem_wait", cu_ERROR_SEM_LOCK_FAILED, "cu_ipcSem_lock", [&] { return cu_ipcSem_lock(&sem); });
    fails("sem_trywait", cu_ERROR_SEM_LOCK_FAILED, "cu_ipcSem_tryLock", tryLock, errnoText(EINVAL));
    fails("sem_timedwait", cu_ERROR_SEM_LOCK_FAILED, "cu_ipcSem_timedLock", timedLock, errnoText(EINVAL));
    fails("sem_post", cu_ERROR_SEM_UNLOCK_FAILED, "cu_ipcSem_unlock", [&] { return cu_ipcSem_unlock(&sem); });
    for (const bool isFree : {false, true}) {
        for (const std::function<cu_ErrorCode()>& take : {std::function<cu_ErrorCode()>(tryLock), {timedLock}}) {
            taken = !isFree;
            EXPECT_EQ(take(), 0U);
            EXPECT_EQ(taken, isFree);
        }
        EXPECT_EQ(cu_ipcSem_unlock(&sem) | cu_ipcSem_unlock(&sem) | cu_ipcSem_getCount(&sem, &count), 0U);
        EXPECT_EQ(count, 2);
    }
    EXPECT_EQ(cu_ipcSem_free(&sem), 0U);
}

TEST(Ids, areTheSystemsOwn)
{
    EXPECT_EQ(cu_getPID(), getpid());
    EXPECT_EQ(cu_getTID(), getpid());
    std::thread([] { EXPECT_EQ(cu_getTID(), syscall(SYS_gettid)); }).join();
}

} // namespace
