#include "internal/posixSemaphore.h"

#include "internal/spin.h"

#include <cerrno>

namespace
{

// Calls what sets errno until no signal interrupts it.
template <typename Call>
int untilNotInterrupted(Call call)
{
    while (call() != 0)
        if (errno != EINTR)
            return errno;
    return 0;
}

// Null deadline: without limit.
int sleepOnSemaphore(sem_t* semaphore, const timespec* deadline, bool* taken)
{
    const int error = untilNotInterrupted(
        [=] { return deadline != nullptr ? sem_timedwait(semaphore, deadline) : sem_wait(semaphore); });
    *taken = error != ETIMEDOUT; // Compatibility: it is true after a failure.
    return *taken ? error : 0;
}

} // namespace

int cu::internal::waitForSemaphore(sem_t* semaphore)
{
    const auto take = [=] { return sem_trywait(semaphore) == 0; };
    if (take())
        return 0;
    Spin spin;
    if (spin.spinUntil(take))
        return 0;
    bool taken = false;
    spin.asleep();
    const int error = sleepOnSemaphore(semaphore, nullptr, &taken);
    spin.awake();
    return error;
}

int cu::internal::tryTakeSemaphore(sem_t* semaphore, bool* taken)
{
    const int error = untilNotInterrupted([=] { return sem_trywait(semaphore); });
    *taken = error != EAGAIN; // Compatibility: it is true after a failure.
    return *taken ? error : 0;
}

int cu::internal::waitForSemaphoreUntil(sem_t* semaphore, const timespec* deadline, bool* taken)
{
    const auto take = [=] { return sem_trywait(semaphore) == 0; };
    *taken = true;
    // The system refuses such a deadline even while the semaphore is free.
    if (deadline->tv_nsec < 0 || deadline->tv_nsec >= 1'000'000'000)
        return EINVAL;
    if (take())
        return 0;
    Spin spin(*deadline);
    if (spin.spinUntil(take))
        return 0;
    spin.asleep();
    const int error = sleepOnSemaphore(semaphore, deadline, taken);
    if (*taken)
        spin.awake();
    return error;
}

int cu::internal::postSemaphore(sem_t* semaphore)
{
    return untilNotInterrupted([=] { return sem_post(semaphore); });
}
