#include "support/record.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/threadLocal.h>

#include <cerrno>
#include <pthread.h>
#include <thread>

namespace
{

constexpr char file[] = "src/cUtil/threadLocal";

/// A value that knows its thread; `destroyed` tells what was released by it.
struct Value {
    pthread_t maker = pthread_self();
};

struct Log {
    std::atomic<unsigned> created{0};
    std::atomic<unsigned> destroyed{0};
    std::atomic<unsigned> destroyedElsewhere{0};
} logOfValues;

cu_ErrorCode create(void** value, void* userData)
{
    ++static_cast<Log*>(userData)->created;
    *value = new Value;
    return 0;
}

void destroy(void* value)
{
    auto* object = static_cast<Value*>(value);
    ++logOfValues.destroyed;
    if (pthread_equal(object->maker, pthread_self()) == 0)
        ++logOfValues.destroyedElsewhere;
    delete object;
}

class ThreadLocal : public testing::Test
{
protected:
    void SetUp() override
    {
        logOfValues.created = logOfValues.destroyed = logOfValues.destroyedElsewhere = 0;
        ASSERT_EQ(cu_ThreadLocal_new(&making, &logOfValues, create, destroy, nullptr), 0U);
        ASSERT_EQ(cu_ThreadLocal_new(&plain, nullptr, nullptr, nullptr, nullptr), 0U);
    }
    void TearDown() override
    {
        EXPECT_EQ(cu_ThreadLocal_clearSpecific(making), 0U);
        EXPECT_EQ(logOfValues.destroyed, logOfValues.created);
        EXPECT_EQ(logOfValues.destroyedElsewhere, 0U);
        EXPECT_EQ(cu_ThreadLocal_delete(&making), 0U);
        EXPECT_EQ(cu_ThreadLocal_delete(&plain), 0U);
        EXPECT_EQ(making, nullptr);
    }

    static void* valueOf(cu_ThreadLocal* slot)
    {
        void* value = &value;
        EXPECT_EQ(cu_ThreadLocal_getSpecific(slot, &value), 0U);
        return value;
    }

    cu_ThreadLocal* making = nullptr;
    cu_ThreadLocal* plain = nullptr;
};

TEST_F(ThreadLocal, constructorsLeaveNothingBehindAndTellErrnoBesideTheCause)
{
    EXPECT_CLEAN_FAILURES(cu_ThreadLocal_new, cu_ThreadLocal_delete, nullptr, nullptr, nullptr);

    // The system's own failure does not set errno.
    pthread_key_t keys[PTHREAD_KEYS_MAX];
    unsigned count = 0;
    while (pthread_key_create(&keys[count], nullptr) == 0)
        ++count;
    cu_ThreadLocal* none = nullptr;
    errno = EDOM;
    EXPECT_SYSTEM_FAILURE(cu_ThreadLocal_new(&none, nullptr, nullptr, nullptr, nullptr), cu_ERROR_TLS_CREATE_FAILED,
                          EAGAIN, "cu_ThreadLocal_new", file,
                          "pthread_key_create(..) failed: [" + std::to_string(EDOM) + "] " + strerror(EDOM));
    EXPECT_EQ(none, nullptr);
    while (count > 0)
        pthread_key_delete(keys[--count]);
}

TEST_F(ThreadLocal, badArgumentsAreRefused)
{
    void* value = nullptr;
    EXPECT_NULLS_REFUSED(file, (std::tuple{plain, &value, static_cast<void*>(&value)}), cu_ThreadLocal_getSpecific,
                         cu_ThreadLocal_setSpecific, cu_ThreadLocal_clearSpecific);
    EXPECT_REFUSED(cu_ThreadLocal_new(nullptr, nullptr, nullptr, nullptr, nullptr), "cu_ThreadLocal_new", file);
    EXPECT_REFUSED(cu_ThreadLocal_new(&plain, nullptr, nullptr, nullptr, nullptr), "cu_ThreadLocal_new", file);
    EXPECT_NULLS_REFUSED(file, std::tuple{&plain}, cu_ThreadLocal_delete);
}

TEST_F(ThreadLocal, eachThreadHasItsOwnValueAndReleasesItAtItsEnd)
{
    const void* here = valueOf(making);
    EXPECT_EQ(valueOf(making), here);
    EXPECT_EQ(logOfValues.created, 1U);
    const void* there = nullptr;
    std::thread([&] {
        there = valueOf(making);
        EXPECT_EQ(static_cast<const Value*>(there)->maker, pthread_self());
        EXPECT_EQ(valueOf(making), there);
    }).join();
    EXPECT_NE(there, here);
    EXPECT_EQ(logOfValues.created, 2U);
    EXPECT_EQ(logOfValues.destroyed, 1U);

    EXPECT_EQ(cu_ThreadLocal_clearSpecific(making), 0U);
    EXPECT_EQ(logOfValues.destroyed, 2U);
    EXPECT_EQ(cu_ThreadLocal_clearSpecific(making), 0U);
    EXPECT_EQ(logOfValues.destroyed, 2U);
    valueOf(making);
    EXPECT_EQ(logOfValues.created, 3U);
}

TEST_F(ThreadLocal, aSlotIsNeverOverwritten)
{
    int first = 0;
    int second = 0;
    EXPECT_EQ(valueOf(plain), nullptr);
    EXPECT_EQ(cu_ThreadLocal_setSpecific(plain, &first), 0U);
    EXPECT_REFUSED(cu_ThreadLocal_setSpecific(plain, &second), "cu_ThreadLocal_setSpecific", file);
    EXPECT_EQ(valueOf(plain), &first);
    EXPECT_EQ(cu_ThreadLocal_clearSpecific(plain), 0U);
    EXPECT_EQ(valueOf(plain), nullptr);
    EXPECT_EQ(cu_ThreadLocal_setSpecific(plain, &second), 0U);
    EXPECT_EQ(valueOf(plain), &second);
}

TEST_F(ThreadLocal, failuresAreToldAndReleaseWhatWasMade)
{
    cu_getErrorLocation(); // its own use of thread-specific data is not what is to fail
    void* value = &value;
    {
        const support::Injection injection("pthread_setspecific", ENOMEM);
        EXPECT_SYSTEM_FAILURE(cu_ThreadLocal_getSpecific(making, &value), cu_ERROR_TLS_GET_FAILED, ENOMEM,
                              "cu_ThreadLocal_getSpecific", file, "");
    }
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(logOfValues.destroyed, 1U);
    {
        const support::Injection injection("pthread_setspecific", EINVAL);
        EXPECT_SYSTEM_FAILURE(cu_ThreadLocal_setSpecific(plain, &value), cu_ERROR_COM_MALLOC_FAILED, EINVAL,
                              "cu_ThreadLocal_setSpecific", file, "");
    }
    {
        const support::Injection injection("pthread_key_delete", EINVAL);
        EXPECT_SYSTEM_FAILURE(cu_ThreadLocal_delete(&plain), cu_ERROR_TLS_FREE_FAILED, EINVAL, "cu_ThreadLocal_delete",
                              file, "");
    }
    cu_ThreadLocal* failing = nullptr;
    constexpr cu_ErrorCode own = 0x05000007;
    ASSERT_EQ(cu_ThreadLocal_new(
                  &failing, nullptr, [](void**, void*) { return own; }, destroy, nullptr),
              0U);
    value = &value;
    EXPECT_EQ(cu_ThreadLocal_getSpecific(failing, &value), own);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(logOfValues.destroyed, 1U);
    EXPECT_EQ(cu_ThreadLocal_delete(&failing), 0U);
}

/// A slot whose create function fills another slot and this one, with `filling`, and makes `made`.
struct Filling {
    cu_ThreadLocal* other;
    cu_ThreadLocal* own;
    void* filling;
    void* made;
};

TEST_F(ThreadLocal, aCreateFunctionMayFillOtherSlotsAndItsOwnOnlyWithWhatItMakes)
{
    static unsigned released;
    int one = 0;
    int two = 0;
    struct Case {
        void* filling;
        void* made;
        int error;
        void* value;
        unsigned released;
    };
    for (const Case& expected : {Case{nullptr, &one, 0, &one, 0}, Case{&one, &one, 0, &one, 0},
                                 Case{&one, nullptr, 0, &one, 0}, Case{&one, &two, EEXIST, nullptr, 1}}) {
        released = 0;
        Filling filling = {plain, nullptr, expected.filling, expected.made};
        ASSERT_EQ(cu_ThreadLocal_new(
                      &filling.own, &filling,
                      [](void** value, void* userData) -> cu_ErrorCode {
                          const auto* me = static_cast<Filling*>(userData);
                          EXPECT_EQ(cu_ThreadLocal_setSpecific(me->other, userData), 0U);
                          if (me->filling != nullptr) {
                              EXPECT_EQ(cu_ThreadLocal_setSpecific(me->own, me->filling), 0U);
                          }
                          *value = me->made;
                          return 0;
                      },
                      [](void*) { ++released; }, nullptr),
                  0U);
        void* value = &value;
        const support::Failure failure =
            support::failureOf([&] { return cu_ThreadLocal_getSpecific(filling.own, &value); });
        EXPECT_EQ(failure.systemErrorCode, expected.error);
        EXPECT_EQ(failure.code == cu_ERROR_TLS_GET_FAILED, expected.error != 0);
        EXPECT_EQ(value, expected.value);
        EXPECT_EQ(released, expected.released);
        EXPECT_EQ(valueOf(filling.own), &one);
        EXPECT_EQ(valueOf(plain), &filling);
        EXPECT_EQ(cu_ThreadLocal_clearSpecific(plain), 0U);
        EXPECT_EQ(cu_ThreadLocal_clearSpecific(filling.own), 0U);
        EXPECT_EQ(cu_ThreadLocal_delete(&filling.own), 0U);
    }
}

} // namespace
