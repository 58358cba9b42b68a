#include <cUtil/threadLocal.h>

#include "internal/owned.h"
#include "internal/report.h"

#include <cerrno>
#include <pthread.h>

struct cu_ThreadLocal {
    cu_allocator* allocator;
    pthread_key_t key;
    void* userData;
    cu_ErrorCode (*create)(void** value, void* userData);
    void (*destroy)(void* value);
};

namespace
{

// Stores what the create function made, unless that has filled the slot itself: a slot is never overwritten.
int store(const cu_ThreadLocal* me, void** value)
{
    void* present = pthread_getspecific(me->key);
    if (present == nullptr)
        return pthread_setspecific(me->key, *value);
    if (*value != nullptr && *value != present)
        return EEXIST;
    *value = present;
    return 0;
}

} // namespace

cu_ErrorCode cu_ThreadLocal_new(cu_ThreadLocal** me, void* userData,
                                cu_ErrorCode (*create)(void** value, void* userData), void (*destroy)(void* value),
                                cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);

    internal::Owned<cu_ThreadLocal> object;
    CU_TRY(object.allocate(allocator));
    object->userData = userData;
    object->create = create;
    object->destroy = destroy;
    if (const int error = pthread_key_create(&object->key, destroy); error != 0) {
        // Compatibility: the text tells errno, which the call does not set; the cause is its result.
        const int unrelated = errno;
        return CU_REPORT(cu_ERROR_TLS_CREATE_FAILED, error, "pthread_key_create(..) failed: [%d] %s", unrelated,
                         internal::SystemErrorText(unrelated).get());
    }
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_ThreadLocal_delete(cu_ThreadLocal** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    if (const int error = pthread_key_delete((*me)->key); error != 0)
        return CU_REPORT(cu_ERROR_TLS_FREE_FAILED, error, nullptr);
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_ThreadLocal_getSpecific(cu_ThreadLocal* me, void** value)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(value != nullptr);

    *value = pthread_getspecific(me->key);
    if (*value != nullptr || me->create == nullptr)
        return 0;
    if (const cu_ErrorCode code = me->create(value, me->userData); code != 0)
        return code;
    if (const int error = store(me, value); error != 0) {
        if (me->destroy != nullptr)
            me->destroy(*value);
        *value = nullptr;
        return CU_REPORT(cu_ERROR_TLS_GET_FAILED, error, nullptr);
    }
    return 0;
}

cu_ErrorCode cu_ThreadLocal_setSpecific(cu_ThreadLocal* me, void* value)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(value != nullptr);
    CU_REQUIRE(pthread_getspecific(me->key) == nullptr);

    // Compatibility: a value that cannot be stored counts as exhausted memory, whatever the cause.
    if (const int error = pthread_setspecific(me->key, value); error != 0)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_ThreadLocal_clearSpecific(cu_ThreadLocal* me)
{
    CU_REQUIRE(me != nullptr);

    void* value = pthread_getspecific(me->key);
    if (value == nullptr)
        return 0;
    pthread_setspecific(me->key, nullptr);
    if (me->destroy != nullptr)
        me->destroy(value);
    return 0;
}
