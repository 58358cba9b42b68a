#include <cUtil/semaphore.h>

#include "internal/owned.h"
#include "internal/posixSemaphore.h"
#include "internal/report.h"

#include <cerrno>
#include <sys/syscall.h>
#include <unistd.h>

struct cu_Semaphore {
    cu_allocator* allocator;
    sem_t* semaphore;
    bool ownsStorage;
    bool isInitialised;
};

cu_ErrorCode cu_Semaphore_new(cu_Semaphore** me, uint32_t initial, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);

    internal::Owned<cu_Semaphore> object;
    CU_TRY(object.allocate(allocator));
    internal::Owned<sem_t> storage;
    CU_TRY(storage.allocateBytes(allocator, sizeof(sem_t)));
    if (sem_init(storage.get(), 0, initial) != 0)
        return CU_REPORT(cu_ERROR_SEM_INIT_FAILED, errno, nullptr);
    object->semaphore = storage.release();
    object->ownsStorage = true;
    object->isInitialised = true;
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_Semaphore_create(cu_Semaphore** me, uint32_t initial, void* storage, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(storage != nullptr);

    internal::Owned<cu_Semaphore> object;
    CU_TRY(object.allocate(allocator));
    object->semaphore = static_cast<sem_t*>(storage);
    object->isInitialised = true;
    if (sem_init(object->semaphore, 1, initial) != 0)
        return CU_REPORT(cu_ERROR_SEM_INIT_FAILED, errno, nullptr);
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_Semaphore_open(cu_Semaphore** me, void* storage, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(storage != nullptr);

    internal::Owned<cu_Semaphore> object;
    CU_TRY(object.allocate(allocator));
    object->semaphore = static_cast<sem_t*>(storage);
    *me = object.release();
    return 0;
}

cu_ErrorCode cu_Semaphore_delete(cu_Semaphore** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    cu_Semaphore* object = *me;
    if (object->isInitialised && sem_destroy(object->semaphore) != 0)
        return CU_REPORT(cu_ERROR_SEM_FREE_FAILED, errno, nullptr);
    object->isInitialised = false;
    if (object->ownsStorage) {
        void* storage = object->semaphore;
        CU_TRY(cu_allocator_free(object->allocator, &storage));
        object->ownsStorage = false;
    }
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_Semaphore_p(cu_Semaphore* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = internal::waitForSemaphore(me->semaphore); error != 0)
        return CU_REPORT_ERRNO(cu_ERROR_SEM_LOCK_FAILED, error);
    return 0;
}

cu_ErrorCode cu_Semaphore_tryP(cu_Semaphore* me, bool* taken)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(taken != nullptr);

    if (const int error = internal::tryTakeSemaphore(me->semaphore, taken); error != 0)
        return CU_REPORT_ERRNO(cu_ERROR_SEM_LOCK_FAILED, error);
    return 0;
}

cu_ErrorCode cu_Semaphore_timedP(cu_Semaphore* me, const cu_TimeValue* deadline, bool* taken)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(taken != nullptr);

    if (const int error = internal::waitForSemaphoreUntil(me->semaphore, deadline, taken); error != 0)
        return CU_REPORT_ERRNO(cu_ERROR_SEM_LOCK_FAILED, error);
    return 0;
}

cu_ErrorCode cu_Semaphore_v(cu_Semaphore* me)
{
    CU_REQUIRE(me != nullptr);

    if (const int error = internal::postSemaphore(me->semaphore); error != 0)
        return CU_REPORT(cu_ERROR_SEM_UNLOCK_FAILED, error, nullptr);
    return 0;
}

int32_t cu_getPID(void)
{
    return getpid();
}

int32_t cu_getTID(void)
{
    return static_cast<int32_t>(syscall(SYS_gettid));
}
