// What a mutex is: conditions wait with the inner one.
#pragma once

#include <cUtil/mutex.h>

#include <pthread.h>

struct cu_Mutex {
    cu_allocator* allocator;
    pthread_mutex_t mutex;
};
