/** @file
 *  The mutex of the process, cu_atomicLock(): it stands with the other mutexes.
 */
#ifndef CUTIL_ATOMIC_LOCK_H
#define CUTIL_ATOMIC_LOCK_H

#include <cUtil/mutex.h>

#endif
