#include "support/inject.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dlfcn.h>
#include <fcntl.h>
#include <grp.h>
#include <ifaddrs.h>
#include <locale.h>
#include <malloc.h>
#include <netdb.h>
#include <poll.h>
#include <pthread.h>
#include <pwd.h>
#include <semaphore.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <sys/pidfd.h> // which does not say so itself
}

using namespace support;

namespace
{

bool comesFromLibrary(const void* caller)
{
    Dl_info where = {};
    return dladdr(caller, &where) != 0 && where.dli_fname != nullptr &&
           strstr(where.dli_fname, "libkoCUtil") != nullptr;
}

bool mustFail(const char* function, const void* caller)
{
    if (interlude != nullptr && comesFromLibrary(caller))
        (*interlude)();
    if (plan.callsLeft == 0 || (plan.function != nullptr && strcmp(plan.function, function) != 0) ||
        (plan.except != nullptr && strcmp(plan.except, function) == 0) || !comesFromLibrary(caller) ||
        (!plan.persists && --plan.callsLeft != 0))
        return false;
    plan.fired = function;
    errno = plan.error;
    return true;
}

bool standsStill(const void* caller)
{
    return standingClock.isOn && comesFromLibrary(caller);
}

void expectToClose(bool closesOnExec, const void* caller)
{
    EXPECT_TRUE(closesOnExec || !comesFromLibrary(caller)) << "a descriptor would stay open in other programs";
}

int readStandingClock(timespec* time)
{
    *time = standingClock.reading;
    return 0;
}

int sleepWithoutTime(const timespec& end)
{
    constexpr int64_t second = 1'000'000'000;
    timespec& now = standingClock.reading;
    if (end.tv_sec < now.tv_sec || (end.tv_sec == now.tv_sec && end.tv_nsec <= now.tv_nsec))
        return 0;
    const int64_t nanoSeconds = end.tv_nsec + standingClock.oversleep;
    now.tv_sec = end.tv_sec + static_cast<time_t>(nanoSeconds / second);
    now.tv_nsec = static_cast<decltype(now.tv_nsec)>(nanoSeconds % second);
    return 0;
}

} // namespace

// NAME(parameters) does some work, mostly calls the system's NAME, unless it is to fail.
#define INTERCEPT_DOING(Result, name, parameters, work, failure, ...)                                                  \
    extern "C" __attribute__((visibility("default"))) Result name parameters __VA_ARGS__                               \
    {                                                                                                                  \
        using Function = Result(*) parameters;                                                                         \
        static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, #name));                                  \
        const void* caller = __builtin_return_address(0);                                                              \
        return mustFail(#name, caller) ? (failure) : (work);                                                           \
    }
#define INTERCEPT_AS(Result, name, parameters, arguments, failure, ...)                                                \
    INTERCEPT_DOING(Result, name, parameters, real arguments, failure, __VA_ARGS__)
#define INTERCEPT(name, parameters, arguments) INTERCEPT_AS(int, name, parameters, arguments, -1)
#define INTERCEPT_NOTHROW(name, parameters, arguments) INTERCEPT_AS(int, name, parameters, arguments, -1, noexcept)
#define INTERCEPT_CODE(name, parameters, arguments) INTERCEPT_AS(int, name, parameters, arguments, errno, noexcept)
#define INTERCEPT_POINTER(name, parameters, arguments)                                                                 \
    INTERCEPT_AS(void*, name, parameters, arguments, nullptr, noexcept)
#define INTERCEPT_CLOCK(name)                                                                                          \
    INTERCEPT_DOING(int, name, (clockid_t clock, timespec * time),                                                     \
                    standsStill(caller) ? readStandingClock(time) : real(clock, time), -1, noexcept)

INTERCEPT_POINTER(calloc, (size_t count, size_t size), (count, size))
INTERCEPT_POINTER(realloc, (void* block, size_t size), (block, size))

// dlerror() resizes its text with the functions above; looking the real ones up in the middle of that would corrupt it.
__attribute__((constructor)) static void findTheHeapEarly()
{
    void* volatile block = calloc(1, 1);
    block = realloc(block, 2);
    free(block);
}

INTERCEPT_AS(char*, strdup, (const char* text), (text), nullptr, noexcept)

INTERCEPT_NOTHROW(sem_init, (sem_t * semaphore, int shared, unsigned value), (semaphore, shared, value))
INTERCEPT_NOTHROW(sem_destroy, (sem_t * semaphore), (semaphore))
INTERCEPT(sem_wait, (sem_t * semaphore), (semaphore))
INTERCEPT_NOTHROW(sem_trywait, (sem_t * semaphore), (semaphore))
INTERCEPT(sem_timedwait, (sem_t * semaphore, const timespec* deadline), (semaphore, deadline))
INTERCEPT_NOTHROW(sem_post, (sem_t * semaphore), (semaphore))
INTERCEPT_NOTHROW(sem_getvalue, (sem_t * semaphore, int* value), (semaphore, value))

INTERCEPT(shm_open, (const char* name, int flags, mode_t mode), (name, flags, mode))
INTERCEPT(shm_unlink, (const char* name), (name))
INTERCEPT_NOTHROW(ftruncate64, (int file, off64_t size), (file, size))
INTERCEPT_NOTHROW(fchown, (int file, uid_t user, gid_t group), (file, user, group))
INTERCEPT_NOTHROW(fstat64, (int file, struct stat64* status), (file, status))
INTERCEPT_AS(void*, mmap64, (void* hint, size_t size, int protection, int flags, int file, off64_t offset),
             (hint, size, protection, flags, file, offset), MAP_FAILED, noexcept)
INTERCEPT(close, (int file), (file))
INTERCEPT_AS(ssize_t, read, (int file, void* buffer, size_t size), (file, buffer, std::min(size, longestRead)), -1)
// What a fortified read becomes.
extern "C" __attribute__((visibility("default"))) ssize_t __read_chk(int file, void* buffer, size_t size, size_t room)
{
    EXPECT_LE(size, room);
    return mustFail("read", __builtin_return_address(0)) ? -1 : read(file, buffer, size);
}
INTERCEPT_NOTHROW(fork, (), ())
INTERCEPT_NOTHROW(mlockall, (int flags), (flags))
INTERCEPT_AS(int, mallopt, (int what, int value), (what, value), 0, noexcept)
INTERCEPT_NOTHROW(pidfd_open, (pid_t id, unsigned flags), (id, flags))
INTERCEPT_AS(FILE*, fopen64, (const char* path, const char* mode), (path, mode), nullptr)
INTERCEPT_NOTHROW(unlink, (const char* path), (path))
INTERCEPT_AS(long, sysconf, (int name), (name), -1, noexcept)

// Descriptors of sockets that the library makes.
#define INTERCEPT_OPENING(name, parameters, arguments, flags, closeOnExec, ...)                                        \
    INTERCEPT_DOING(int, name, parameters, (expectToClose(((flags) & (closeOnExec)) != 0, caller), real arguments),    \
                    -1, __VA_ARGS__)
INTERCEPT_OPENING(socket, (int family, int type, int protocol), (family, type, protocol), type, SOCK_CLOEXEC, noexcept)
INTERCEPT_OPENING(accept4, (int file, sockaddr* peer, socklen_t* size, int flags), (file, peer, size, flags), flags,
                  SOCK_CLOEXEC)
INTERCEPT_NOTHROW(bind, (int file, const sockaddr* address, socklen_t size), (file, address, size))
INTERCEPT_NOTHROW(listen, (int file, int backlog), (file, backlog))
INTERCEPT(connect, (int file, const sockaddr* address, socklen_t size), (file, address, size))
INTERCEPT_NOTHROW(shutdown, (int file, int how), (file, how))
INTERCEPT_NOTHROW(getsockname, (int file, sockaddr* address, socklen_t* size), (file, address, size))
INTERCEPT_NOTHROW(getsockopt, (int file, int level, int option, void* value, socklen_t* size),
                  (file, level, option, value, size))
INTERCEPT_NOTHROW(setsockopt, (int file, int level, int option, const void* value, socklen_t size),
                  (file, level, option, value, size))
INTERCEPT(ppoll, (pollfd * files, nfds_t count, const timespec* timeout, const sigset_t* mask),
          (files, count, timeout, mask))
INTERCEPT_AS(ssize_t, recv, (int file, void* buffer, size_t size, int flags), (file, buffer, size, flags), -1)
INTERCEPT_AS(ssize_t, send, (int file, const void* buffer, size_t size, int flags), (file, buffer, size, flags), -1)
INTERCEPT_AS(ssize_t, recvfrom, (int file, void* buffer, size_t size, int flags, sockaddr* from, socklen_t* fromSize),
             (file, buffer, size, flags, from, fromSize), -1)
INTERCEPT_AS(ssize_t, sendto,
             (int file, const void* buffer, size_t size, int flags, const sockaddr* to, socklen_t toSize),
             (file, buffer, size, flags, to, toSize), -1)

INTERCEPT_OPENING(epoll_create1, (int flags), (flags), flags, EPOLL_CLOEXEC, noexcept)
INTERCEPT_NOTHROW(epoll_ctl, (int epoll, int operation, int file, epoll_event* event), (epoll, operation, file, event))
INTERCEPT(epoll_wait, (int epoll, epoll_event* events, int most, int timeout), (epoll, events, most, timeout))
INTERCEPT_NOTHROW(getifaddrs, (ifaddrs * *list), (list))

INTERCEPT_CLOCK(clock_gettime)
INTERCEPT_CLOCK(clock_getres)
INTERCEPT_AS(clock_t, clock, (), (), -1, noexcept)

INTERCEPT_AS(int, getpwuid_r, (uid_t id, passwd* entry, char* buffer, size_t size, passwd** found),
             (id, entry, buffer, size, found), (*found = nullptr, errno))
INTERCEPT_AS(int, getpwnam_r, (const char* name, passwd* entry, char* buffer, size_t size, passwd** found),
             (name, entry, buffer, size, found), (*found = nullptr, errno))
INTERCEPT_AS(int, getgrgid_r, (gid_t id, group* entry, char* buffer, size_t size, group** found),
             (id, entry, buffer, size, found), (*found = nullptr, errno))
INTERCEPT_AS(int, getgrnam_r, (const char* name, group* entry, char* buffer, size_t size, group** found),
             (name, entry, buffer, size, found), (*found = nullptr, errno))

INTERCEPT_CODE(pthread_key_create, (pthread_key_t * key, void (*destructor)(void*)), (key, destructor))
INTERCEPT_CODE(pthread_key_delete, (pthread_key_t key), (key))
INTERCEPT_CODE(pthread_create,
               (pthread_t * thread, const pthread_attr_t* attributes, void* (*run)(void*), void* argument),
               (thread, attributes, run, argument))
INTERCEPT_CODE(pthread_setspecific, (pthread_key_t key, const void* value), (key, value))

INTERCEPT_CODE(pthread_mutexattr_init, (pthread_mutexattr_t * attributes), (attributes))
INTERCEPT_CODE(pthread_mutexattr_settype, (pthread_mutexattr_t * attributes, int type), (attributes, type))
INTERCEPT_CODE(pthread_mutexattr_setprotocol, (pthread_mutexattr_t * attributes, int protocol), (attributes, protocol))
INTERCEPT_CODE(pthread_mutexattr_destroy, (pthread_mutexattr_t * attributes), (attributes))
INTERCEPT_CODE(pthread_mutex_init, (pthread_mutex_t * mutex, const pthread_mutexattr_t* attributes),
               (mutex, attributes))
INTERCEPT_CODE(pthread_mutex_destroy, (pthread_mutex_t * mutex), (mutex))
INTERCEPT_CODE(pthread_mutex_lock, (pthread_mutex_t * mutex), (mutex))
INTERCEPT_CODE(pthread_mutex_trylock, (pthread_mutex_t * mutex), (mutex))
INTERCEPT_CODE(pthread_mutex_timedlock, (pthread_mutex_t * mutex, const timespec* deadline), (mutex, deadline))
INTERCEPT_CODE(pthread_mutex_unlock, (pthread_mutex_t * mutex), (mutex))

INTERCEPT_CODE(pthread_rwlock_init, (pthread_rwlock_t * lock, const pthread_rwlockattr_t* attributes),
               (lock, attributes))
INTERCEPT_CODE(pthread_rwlock_destroy, (pthread_rwlock_t * lock), (lock))
INTERCEPT_CODE(pthread_rwlock_rdlock, (pthread_rwlock_t * lock), (lock))
INTERCEPT_CODE(pthread_rwlock_wrlock, (pthread_rwlock_t * lock), (lock))
INTERCEPT_CODE(pthread_rwlock_tryrdlock, (pthread_rwlock_t * lock), (lock))
INTERCEPT_CODE(pthread_rwlock_trywrlock, (pthread_rwlock_t * lock), (lock))
INTERCEPT_CODE(pthread_rwlock_timedrdlock, (pthread_rwlock_t * lock, const timespec* deadline), (lock, deadline))
INTERCEPT_CODE(pthread_rwlock_timedwrlock, (pthread_rwlock_t * lock, const timespec* deadline), (lock, deadline))
INTERCEPT_CODE(pthread_rwlock_unlock, (pthread_rwlock_t * lock), (lock))

INTERCEPT_CODE(pthread_spin_init, (pthread_spinlock_t * lock, int shared), (lock, shared))
INTERCEPT_CODE(pthread_spin_destroy, (pthread_spinlock_t * lock), (lock))
INTERCEPT_CODE(pthread_spin_lock, (pthread_spinlock_t * lock), (lock))
INTERCEPT_CODE(pthread_spin_trylock, (pthread_spinlock_t * lock), (lock))
INTERCEPT_CODE(pthread_spin_unlock, (pthread_spinlock_t * lock), (lock))

INTERCEPT_CODE(pthread_condattr_init, (pthread_condattr_t * attributes), (attributes))
INTERCEPT_CODE(pthread_condattr_setclock, (pthread_condattr_t * attributes, clockid_t clock), (attributes, clock))
INTERCEPT_CODE(pthread_cond_init, (pthread_cond_t * condition, const pthread_condattr_t* attributes),
               (condition, attributes))
INTERCEPT_CODE(pthread_cond_destroy, (pthread_cond_t * condition), (condition))
INTERCEPT_CODE(pthread_cond_signal, (pthread_cond_t * condition), (condition))
INTERCEPT_CODE(pthread_cond_broadcast, (pthread_cond_t * condition), (condition))
// A cancellation ends these two by unwinding.
INTERCEPT_AS(int, pthread_cond_wait, (pthread_cond_t * condition, pthread_mutex_t* mutex), (condition, mutex), errno)
INTERCEPT_AS(int, pthread_cond_timedwait,
             (pthread_cond_t * condition, pthread_mutex_t* mutex, const timespec* deadline),
             (condition, mutex, deadline), errno)

INTERCEPT(dlclose, (void* library), (library))

INTERCEPT_AS(locale_t, newlocale, (int categories, const char* name, locale_t base), (categories, name, base), nullptr,
             noexcept)

INTERCEPT_DOING(int, clock_nanosleep, (clockid_t clock, int flags, const timespec* time, timespec* rest),
                flags == TIMER_ABSTIME && standsStill(caller) ? sleepWithoutTime(*time)
                                                              : real(clock, flags, time, rest),
                errno)

// NAME(number, request, ...) with one argument at most, which is a number or a pointer.
#define INTERCEPT_REQUEST(name, Request, ...)                                                                          \
    extern "C" __attribute__((visibility("default"))) int name(int file, Request request, ...) __VA_ARGS__             \
    {                                                                                                                  \
        va_list arguments;                                                                                             \
        va_start(arguments, request);                                                                                  \
        void* argument = va_arg(arguments, void*);                                                                     \
        va_end(arguments);                                                                                             \
        using Function = int (*)(int, Request, ...);                                                                   \
        static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, #name));                                  \
        return mustFail(#name, __builtin_return_address(0)) ? -1 : real(file, request, argument);                      \
    }
INTERCEPT_REQUEST(fcntl64, int)
INTERCEPT_REQUEST(ioctl, unsigned long, noexcept)

extern "C" __attribute__((visibility("default"))) int open64(const char* path, int flags, ...)
{
    va_list arguments;
    va_start(arguments, flags);
    const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(arguments, mode_t) : 0;
    va_end(arguments);
    using Function = int (*)(const char*, int, ...);
    static const auto real = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "open64"));
    const void* caller = __builtin_return_address(0);
    expectToClose((flags & O_CLOEXEC) != 0, caller);
    return mustFail("open64", caller) ? -1 : real(path, flags, mode);
}
