// The waits on a POSIX semaphore, as every family of the library does them: never ended by a signal, and with a short
// spin before they sleep. Each gives 0 or an error number.
#pragma once

#include <ctime>
#include <semaphore.h>

namespace cu::internal
{

int waitForSemaphore(sem_t* semaphore);

/// A count of 0 is no error: `taken` tells.
int tryTakeSemaphore(sem_t* semaphore, bool* taken);

/// A deadline (real-time clock) that passes is no error: `taken` tells.
int waitForSemaphoreUntil(sem_t* semaphore, const timespec* deadline, bool* taken);

int postSemaphore(sem_t* semaphore);

} // namespace cu::internal
