#include "support/record.h"
#include "support/sweep.h"

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
    support::sweep<cu_SpinLock>("cu_SpinLock_new", cu_SpinLock_new, cu_SpinLock_delete);
}

TEST_F(SpinLock, badArgumentsAreRefused)
{
    bool locked = true;
    cu_SpinLock* none = nullptr;
    EXPECT_REFUSED(cu_SpinLock_new(nullptr, nullptr), "cu_SpinLock_new", file);
    EXPECT_REFUSED(cu_SpinLock_new(&lock, nullptr), "cu_SpinLock_new", file);
    EXPECT_REFUSED(cu_SpinLock_delete(nullptr), "cu_SpinLock_delete", file);
    EXPECT_REFUSED(cu_SpinLock_delete(&none), "cu_SpinLock_delete", file);
    EXPECT_REFUSED(cu_SpinLock_lock(nullptr), "cu_SpinLock_lock", file);
    EXPECT_REFUSED(cu_SpinLock_tryLock(nullptr, &locked), "cu_SpinLock_tryLock", file);
    EXPECT_REFUSED(cu_SpinLock_tryLock(lock, nullptr), "cu_SpinLock_tryLock", file);
    EXPECT_REFUSED(cu_SpinLock_unlock(nullptr), "cu_SpinLock_unlock", file);
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
    {
        const support::Injection injection("pthread_spin_trylock", EDEADLK);
        EXPECT_SYSTEM_FAILURE(cu_SpinLock_tryLock(lock, &locked), cu_ERROR_SPINLOCK_LOCK_FAILED, EDEADLK,
                              "cu_SpinLock_tryLock", file, "");
        EXPECT_TRUE(locked);
    }
    {
        const support::Injection injection("pthread_spin_lock", EDEADLK);
        EXPECT_SYSTEM_FAILURE(cu_SpinLock_lock(lock), cu_ERROR_SPINLOCK_LOCK_FAILED, EDEADLK, "cu_SpinLock_lock", file,
                              "");
    }
    {
        const support::Injection injection("pthread_spin_unlock", EPERM);
        EXPECT_SYSTEM_FAILURE(cu_SpinLock_unlock(lock), cu_ERROR_SPINLOCK_UNLOCK_FAILED, EPERM, "cu_SpinLock_unlock",
                              file, "");
    }
    const support::Injection injection("pthread_spin_destroy", EBUSY);
    EXPECT_SYSTEM_FAILURE(cu_SpinLock_delete(&lock), cu_ERROR_CONDWAIT_FREE_FAILED, EBUSY, "cu_SpinLock_delete", file,
                          "");
    EXPECT_NE(lock, nullptr);
}

} // namespace
