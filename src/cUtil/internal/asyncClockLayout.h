// A tick source from inside.
#pragma once

#include <cUtil/conditionWait.h>
#include <cUtil/mutex.h>
#include <cUtil/time/asyncClock.h>

#include <atomic>

struct cu_AsyncClock {
    cu_Runnable* runnable;
    cu_allocator* allocator;
    std::atomic<uint64_t> tick; // written by the tick loop alone
    uint32_t resolution;        // microseconds
    cu_Mutex* mutex;
    cu_ConditionWait* conditionWait;
    std::atomic<bool> stop; // ends the tick loop; the thread's running flag does so too
};
