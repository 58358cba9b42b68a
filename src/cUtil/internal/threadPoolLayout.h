// A thread pool from inside.
#pragma once

#include <cUtil/pointerBuffer.h>
#include <cUtil/semaphore.h>
#include <cUtil/thread.h>
#include <cUtil/threadPool.h>

#include <atomic>

struct cu_ThreadPool {
    cu_allocator* allocator;
    cu_Thread* workers; // newest first; the controller's affair while it runs
    std::atomic<uint32_t> workerCount;
    uint32_t configuredIdle;
    std::atomic<uint32_t> idleCount;
    cu_Thread* controller;
    cu_Runnable* controllerRunnable;
    cu_Semaphore* retired;               // posted by the worker that retires
    std::atomic<uint32_t> retireRequest; // 1 while the controller waits for a worker that retires
    cu_ThreadID retiringWorker;          // written before `retired` is posted
    cu_PointerBuffer* jobs;
    cu_Runnable* workerRunnable;
    uint32_t namedWorkers; // so far
};
