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

} // namespace

int cu::internal::waitForSemaphore(sem_t* semaphore)
{
    const auto take = [=] { return sem_trywait(semaphore) == 0; };
    if (take())
        return 0;
    Spin spin;
    if (spin.spinUntil(take))
        return 0;
    spin.asleep();
    const int error = untilNotInterrupted([=] { return sem_wait(semaphore); });
    spin.awake();
    return error;
}

int cu::internal::tryTakeSemaphore(sem_t* semaphore, bool* taken)
{
    const int error = untilNotInterrupted([=] { return sem_trywait(semaphore); });
    *taken = error == 0;
    return error == EAGAIN ? 0 : error;
}

int cu::internal::waitForSemaphoreUntil(sem_t* semaphore, const timespec* deadline, bool* taken)
{
    const auto take = [=] { return sem_trywait(semaphore) == 0; };
    *taken = take();
    if (*taken)
        return 0;
    Spin spin(*deadline);
    *taken = spin.spinUntil(take);
    if (*taken)
        return 0;
    spin.asleep();
    const int error = untilNotInterrupted([=] { return sem_timedwait(semaphore, deadline); });
    spin.awake();
    *taken = error == 0;
    return error == ETIMEDOUT ? 0 : error;
}

int cu::internal::postSemaphore(sem_t* semaphore)
{
    return untilNotInterrupted([=] { return sem_post(semaphore); });
}
