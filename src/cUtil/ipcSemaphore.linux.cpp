#include <cUtil/ipcSemaphore.h>

#include "internal/posixSemaphore.h"
#include "internal/report.h"

#include <cerrno>

// The layouts in shared memory are made of them.
static_assert(sizeof(void*) != 4 || (sizeof(sem_t) == 16 && alignof(sem_t) == 4));

cu_ErrorCode cu_ipcSem_init(sem_t* sem)
{
    CU_REQUIRE(sem != nullptr);

    if (sem_init(sem, 1, 1) != 0)
        return CU_REPORT(cu_ERROR_SEM_INIT_FAILED, errno, nullptr);
    return 0;
}

cu_ErrorCode cu_ipcSem_free(sem_t* sem)
{
    CU_REQUIRE(sem != nullptr);

    if (sem_destroy(sem) != 0)
        return CU_REPORT(cu_ERROR_SEM_FREE_FAILED, errno, nullptr);
    return 0;
}

cu_ErrorCode cu_ipcSem_getCount(sem_t* sem, int32_t* count)
{
    CU_REQUIRE(sem != nullptr);
    CU_REQUIRE(count != nullptr);

    if (sem_getvalue(sem, count) != 0)
        return CU_REPORT(cu_ERROR_SEM_GET_COUNT_FAILED, errno, nullptr);
    return 0;
}

cu_ErrorCode cu_ipcSem_lock(sem_t* sem)
{
    CU_REQUIRE(sem != nullptr);

    if (const int error = internal::waitForSemaphore(sem); error != 0)
        return CU_REPORT(cu_ERROR_SEM_LOCK_FAILED, error, nullptr);
    return 0;
}

cu_ErrorCode cu_ipcSem_tryLock(sem_t* sem, bool* taken)
{
    CU_REQUIRE(sem != nullptr);
    CU_REQUIRE(taken != nullptr);

    if (const int error = internal::tryTakeSemaphore(sem, taken); error != 0)
        return CU_REPORT_ERRNO(cu_ERROR_SEM_LOCK_FAILED, error);
    return 0;
}

cu_ErrorCode cu_ipcSem_timedLock(sem_t* sem, const cu_TimeValue* deadline, bool* taken)
{
    CU_REQUIRE(sem != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(taken != nullptr);

    if (const int error = internal::waitForSemaphoreUntil(sem, deadline, taken); error != 0)
        return CU_REPORT_ERRNO(cu_ERROR_SEM_LOCK_FAILED, error);
    return 0;
}

cu_ErrorCode cu_ipcSem_unlock(sem_t* sem)
{
    CU_REQUIRE(sem != nullptr);

    if (const int error = internal::postSemaphore(sem); error != 0)
        return CU_REPORT(cu_ERROR_SEM_UNLOCK_FAILED, error, nullptr);
    return 0;
}
