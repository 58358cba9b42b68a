// A worker thread from inside, for those who chain or rename workers.
#pragma once

#include <cUtil/allocator.h>
#include <cUtil/mutex.h>
#include <cUtil/runnable.h>
#include <cUtil/semaphore.h>
#include <cUtil/thread.h>

#include <atomic>

struct cu_Thread {
    cu_allocator* allocator;
    cu_Mutex* mutex;             // held by the owners' calls, not by the worker
    std::atomic<uint32_t> state; // changed under the mutex
    cu_Semaphore* started;       // posted when the worker begins and when it ends
    cu_Semaphore* release;       // posted for each execution
    cu_Semaphore* done;          // posted after each execution
    cu_Runnable* runnable;       // the worker reads it between release and done
    bool running;                // functions see it as a plain byte; the library reads and writes it atomically
    uintptr_t result;            // written by the worker before done
    pthread_t worker;
    cu_Thread* next; // for whoever chains workers

    std::atomic<bool> workerLeft; // an execution failed
    bool isJoined;                // the worker is gone; what is left to delete does not need it
};
