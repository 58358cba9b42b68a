#include "support/record.h"
#include "support/refusal.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/spinLock.h>

#include <cerrno>
#include <thread>

namespace
{

constexpr char file[] = "src/cUtil/spinLock";

class SpinLock : public testing::Test
{
protected:
    void SetUp() override { ASSERT_EQ(cu_SpinLock_new(&lock, nullptr), 0U); }
    void TearDown() override
    {
        EXPECT_EQ(cu_SpinLock_delete(&lock), 0U);
        EXPECT_EQ(lock, nullptr);
    }

    cu_SpinLock* lock = nullptr;
};

TEST_F(SpinLock, constructorsLeaveNothingBehind)
{
    EXPECT_CLEAN_FAILURES(cu_SpinLock_new, cu_SpinLock_delete);
}

TEST_F(SpinLock, badArgumentsAreRefused)
{
    bool locked = true;
    cu_SpinLock* none = nullptr;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, lock, &locked}), cu_SpinLock_new, cu_SpinLock_lock,
                         cu_SpinLock_tryLock, cu_SpinLock_unlock);
    EXPECT_NULLS_REFUSED(file, std::tuple{&lock}, cu_SpinLock_delete);
}

TEST_F(SpinLock, threadsExcludeEachOther)
{
    constexpr unsigned rounds = 5'000;
    unsigned count = 0;
    const auto work = [&] {
        for (unsigned round = 0; round < rounds; ++round) {
            ASSERT_EQ(cu_SpinLock_lock(lock), 0U);
            ++count;
            ASSERT_EQ(cu_SpinLock_unlock(lock), 0U);
        }
    };
    std::thread other(work);
    work();
    other.join();
    EXPECT_EQ(count, 2 * rounds);
}

TEST_F(SpinLock, eachResultOfTheSystemHasItsMeaning)
{
    bool locked = true;
    ASSERT_EQ(cu_SpinLock_lock(lock), 0U);
    EXPECT_EQ(cu_SpinLock_tryLock(lock, &locked), 0U);
    EXPECT_FALSE(locked);
    EXPECT_EQ(cu_SpinLock_unlock(lock), 0U);
    EXPECT_EQ(cu_SpinLock_tryLock(lock, &locked), 0U);
    EXPECT_TRUE(locked);
    EXPECT_EQ(cu_SpinLock_unlock(lock), 0U);
    locked = false;
    support::expectSystemFailures(file,
                                  {{"pthread_spin_trylock", EDEADLK, cu_ERROR_SPINLOCK_LOCK_FAILED,
                                    "cu_SpinLock_tryLock", "", [&] { return cu_SpinLock_tryLock(lock, &locked); }},
                                   {"pthread_spin_lock", EDEADLK, cu_ERROR_SPINLOCK_LOCK_FAILED, "cu_SpinLock_lock", "",
                                    [&] { return cu_SpinLock_lock(lock); }},
                                   {"pthread_spin_unlock", EPERM, cu_ERROR_SPINLOCK_UNLOCK_FAILED, "cu_SpinLock_unlock",
                                    "", [&] { return cu_SpinLock_unlock(lock); }},
                                   {"pthread_spin_destroy", EBUSY, cu_ERROR_CONDWAIT_FREE_FAILED, "cu_SpinLock_delete",
                                    "", [&] { return cu_SpinLock_delete(&lock); }}});
    EXPECT_TRUE(locked);
    EXPECT_NE(lock, nullptr);
}

} // namespace
