#include "support/made.h"
#include "support/refusal.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/threadLocal.h>

#include <cerrno>
#include <pthread.h>
#include <thread>

namespace
{

constexpr char file[] = "src/cUtil/threadLocal";

/// Values know the thread that made them.
struct Log {
    std::atomic<unsigned> created = 0;
    std::atomic<unsigned> destroyed = 0;
} logOfValues;

cu_ErrorCode create(void** value, void* userData)
{
    ++static_cast<Log*>(userData)->created;
    *value = new pthread_t(pthread_self());
    return 0;
}

void destroy(void* value)
{
    ++logOfValues.destroyed;
    EXPECT_EQ(*static_cast<pthread_t*>(value), pthread_self());
    delete static_cast<pthread_t*>(value);
}

using Slot = support::Made<cu_ThreadLocal_new, cu_ThreadLocal_delete>;

struct ThreadLocal : testing::Test {
    ThreadLocal() { logOfValues.created = logOfValues.destroyed = 0; }
    ~ThreadLocal() override
    {
        EXPECT_EQ(cu_ThreadLocal_clearSpecific(making), 0U);
        EXPECT_EQ(logOfValues.destroyed, logOfValues.created);
    }

    static void* valueOf(cu_ThreadLocal* slot)
    {
        void* value = &value;
        EXPECT_EQ(cu_ThreadLocal_getSpecific(slot, &value), 0U);
        return value;
    }

    Slot making{static_cast<void*>(&logOfValues), create, destroy};
    Slot plain{nullptr, nullptr, nullptr};
};

TEST_F(ThreadLocal, constructorLeavesNothingBehindAndBadArgumentsAreRefused)
{
    EXPECT_CLEAN_FAILURES(cu_ThreadLocal_new, cu_ThreadLocal_delete, nullptr, nullptr, nullptr);

    void* value = nullptr;
    cu_ThreadLocal* none = nullptr;
    EXPECT_NULLS_REFUSED(file, (std::tuple{plain.get(), &value, static_cast<void*>(&value)}),
                         cu_ThreadLocal_getSpecific, cu_ThreadLocal_setSpecific, cu_ThreadLocal_clearSpecific);
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, static_cast<void*>(nullptr)}), cu_ThreadLocal_new);
    EXPECT_NULLS_REFUSED(file, std::tuple{plain.handle()}, cu_ThreadLocal_delete);

    // The system's own failure does not set errno.
    pthread_key_t keys[PTHREAD_KEYS_MAX];
    unsigned count = 0;
    while (pthread_key_create(&keys[count], nullptr) == 0)
        ++count;
    errno = EDOM;
    EXPECT_SYSTEM_FAILURE(cu_ThreadLocal_new(&none, nullptr, nullptr, nullptr, nullptr), cu_ERROR_TLS_CREATE_FAILED,
                          EAGAIN, "cu_ThreadLocal_new", file,
                          "pthread_key_create(..) failed: [" + std::to_string(EDOM) + "] " + strerror(EDOM));
    while (count > 0)
        pthread_key_delete(keys[--count]);
}

TEST_F(ThreadLocal, eachThreadHasItsOwnValueAndReleasesItAtItsEnd)
{
    const void* here = valueOf(making);
    EXPECT_EQ(valueOf(making), here);
    EXPECT_EQ(logOfValues.created, 1U);
    std::thread([&] { EXPECT_EQ(*static_cast<const pthread_t*>(valueOf(making)), pthread_self()); }).join();
    EXPECT_EQ(logOfValues.created, 2U);
    EXPECT_EQ(logOfValues.destroyed, 1U);
    for (int clear = 0; clear < 2; ++clear) {
        EXPECT_EQ(cu_ThreadLocal_clearSpecific(making), 0U);
        EXPECT_EQ(logOfValues.destroyed, 2U);
    }
}

TEST_F(ThreadLocal, aSlotIsNeverOverwritten)
{
    int values[2] = {};
    for (int& value : values) {
        EXPECT_EQ(valueOf(plain), nullptr);
        EXPECT_EQ(cu_ThreadLocal_setSpecific(plain, &value), 0U);
        EXPECT_REFUSED(cu_ThreadLocal_setSpecific(plain, this), "cu_ThreadLocal_setSpecific", file);
        EXPECT_EQ(valueOf(plain), &value);
        EXPECT_EQ(cu_ThreadLocal_clearSpecific(plain), 0U);
    }
}

TEST_F(ThreadLocal, failuresAreToldAndReleaseWhatWasMade)
{
    cu_getErrorLocation(); // its own use of thread-specific data is not what is to fail
    void* value = &value;
    support::expectSystemFailures(
        file, {{"pthread_setspecific", ENOMEM, cu_ERROR_TLS_GET_FAILED, "cu_ThreadLocal_getSpecific", "",
                [&] { return cu_ThreadLocal_getSpecific(making, &value); }},
               {"pthread_setspecific", EINVAL, cu_ERROR_COM_MALLOC_FAILED, "cu_ThreadLocal_setSpecific", "",
                [&] { return cu_ThreadLocal_setSpecific(plain, this); }},
               {"pthread_key_delete", EINVAL, cu_ERROR_TLS_FREE_FAILED, "cu_ThreadLocal_delete", "",
                [&] { return cu_ThreadLocal_delete(plain.handle()); }}});
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(logOfValues.destroyed, 1U);

    constexpr cu_ErrorCode own = 0x05000007;
    const Slot failing(
        nullptr, [](void**, void*) { return own; }, destroy);
    EXPECT_EQ(cu_ThreadLocal_getSpecific(failing, &(value = &value)), own);
    EXPECT_EQ(value, nullptr);
    EXPECT_EQ(logOfValues.destroyed, 1U);
}

struct Filling {
    void* filling; ///< with which the create function fills its own slot; it fills another one, too
    void* made;
    bool fails;
    cu_ThreadLocal* other = nullptr;
    cu_ThreadLocal* own = nullptr;
};

TEST_F(ThreadLocal, aCreateFunctionMayFillOtherSlotsAndItsOwnOnlyWithWhatItMakes)
{
    static unsigned released;
    int one = 0;
    int two = 0;
    const auto fill = [](void** value, void* userData) -> cu_ErrorCode {
        const auto* me = static_cast<Filling*>(userData);
        *value = me->made;
        return cu_ThreadLocal_setSpecific(me->other, userData) |
               (me->filling != nullptr ? cu_ThreadLocal_setSpecific(me->own, me->filling) : 0);
    };
    for (Filling it : {Filling{nullptr, &one, false}, Filling{&one, &one, false}, Filling{&one, nullptr, false},
                       Filling{&one, &two, true}}) {
        released = 0;
        it.other = plain;
        ASSERT_EQ(cu_ThreadLocal_new(
                      &it.own, &it, fill, [](void*) { ++released; }, nullptr),
                  0U);
        void* value = &value;
        const support::Failure failure = support::failureOf([&] { return cu_ThreadLocal_getSpecific(it.own, &value); });
        EXPECT_EQ(failure.code, it.fails ? cu_ERROR_TLS_GET_FAILED : 0);
        EXPECT_EQ(failure.systemErrorCode, it.fails ? EEXIST : 0);
        EXPECT_EQ(value, it.fails ? nullptr : &one);
        EXPECT_EQ(released, it.fails ? 1U : 0U);
        EXPECT_EQ(valueOf(it.own), &one);
        EXPECT_EQ(valueOf(plain), &it);
        EXPECT_EQ(cu_ThreadLocal_clearSpecific(plain) | cu_ThreadLocal_clearSpecific(it.own), 0U);
        EXPECT_EQ(cu_ThreadLocal_delete(&it.own), 0U);
    }
}

} // namespace
