#include "support/inject.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
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
#include <string_view>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <tuple>
#include <type_traits>
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

int readClock(clockid_t clock, timespec* time, int (*real)(clockid_t, timespec*), const void* caller)
{
    if (!standsStill(caller))
        return real(clock, time);
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

// What a function of the system that is to fail gives back.
template <typename Result>
Result failureOf(std::string_view function)
{
    if constexpr (std::is_pointer_v<Result>)
        return static_cast<Result>(function == "mmap64" ? MAP_FAILED : nullptr);
    else if (function.starts_with("pthread_") || function.ends_with("_r") || function == "clock_nanosleep")
        return errno;
    else
        return function == "mallopt" ? 0 : -1;
}

template <std::size_t nth, typename Result, typename... Parameters>
std::tuple_element_t<nth, std::tuple<Parameters...>> parameterOf(Result (*)(Parameters...));

} // namespace

// The parameters of a function that is declared, and their names.
#define TYPE(function, nth) decltype(parameterOf<nth>(&::function))
#define PARAMETERS_0(function)
#define PARAMETERS_1(function) TYPE(function, 0) a
#define PARAMETERS_2(function) PARAMETERS_1(function), TYPE(function, 1) b
#define PARAMETERS_3(function) PARAMETERS_2(function), TYPE(function, 2) c
#define PARAMETERS_4(function) PARAMETERS_3(function), TYPE(function, 3) d
#define PARAMETERS_5(function) PARAMETERS_4(function), TYPE(function, 4) e
#define PARAMETERS_6(function) PARAMETERS_5(function), TYPE(function, 5) f
#define NAMES_0
#define NAMES_1 a
#define NAMES_2 a, b
#define NAMES_3 a, b, c
#define NAMES_4 a, b, c, d
#define NAMES_5 a, b, c, d, e
#define NAMES_6 a, b, c, d, e, f

// A function of so many parameters does some work, mostly calls the system's, unless it is to fail.
#define INTERCEPT_DOING(count, name, work)                                                                             \
    extern "C" __attribute__((visibility("default"))) auto name(PARAMETERS_##count(name)) noexcept(                    \
        noexcept(name(NAMES_##count)))                                                                                 \
        ->decltype(name(NAMES_##count))                                                                                \
    {                                                                                                                  \
        static const auto real = reinterpret_cast<decltype(&::name)>(dlsym(RTLD_NEXT, #name));                         \
        const void* caller = __builtin_return_address(0);                                                              \
        return mustFail(#name, caller) ? failureOf<decltype(name(NAMES_##count))>(#name) : (work);                     \
    }
#define INTERCEPT(count, name) INTERCEPT_DOING(count, name, real(NAMES_##count))

INTERCEPT(2, calloc)
INTERCEPT(2, realloc)

// dlerror() resizes its text with the functions above; looking the real ones up in the middle of that would corrupt it.
__attribute__((constructor)) static void findTheHeapEarly()
{
    void* volatile block = calloc(1, 1);
    block = realloc(block, 2);
    free(block);
}

// The same for a list of functions. Each pass over the text turns what is left of the list into one more.
#define NEXT(count, name, ...) INTERCEPT(count, name) __VA_OPT__(LATER PARENTHESES(count, __VA_ARGS__))
#define LATER() NEXT
#define PARENTHESES ()
#define PASSES(...) FEWER_PASSES(FEWER_PASSES(FEWER_PASSES(FEWER_PASSES(__VA_ARGS__))))
#define FEWER_PASSES(...) FEW_PASSES(FEW_PASSES(FEW_PASSES(FEW_PASSES(__VA_ARGS__))))
#define FEW_PASSES(...) __VA_ARGS__
#define INTERCEPT_ALL(count, ...) PASSES(NEXT(count, __VA_ARGS__))

INTERCEPT_ALL(0, fork, clock)
INTERCEPT_ALL(1, strdup, sem_destroy, sem_wait, sem_trywait, sem_post, shm_unlink, close, mlockall, unlink, sysconf,
              getifaddrs, dlclose, pthread_key_delete, pthread_cond_destroy, pthread_cond_signal,
              pthread_cond_broadcast)
INTERCEPT_ALL(1, pthread_mutexattr_init, pthread_mutexattr_destroy, pthread_mutex_destroy, pthread_mutex_lock,
              pthread_mutex_trylock, pthread_mutex_unlock, pthread_rwlock_destroy, pthread_rwlock_rdlock,
              pthread_rwlock_wrlock, pthread_rwlock_tryrdlock, pthread_rwlock_trywrlock, pthread_rwlock_unlock,
              pthread_spin_destroy, pthread_spin_lock, pthread_spin_trylock, pthread_spin_unlock, pthread_condattr_init)
INTERCEPT_ALL(2, sem_timedwait, sem_getvalue, ftruncate64, fstat64, mallopt, pidfd_open, fopen64, listen, shutdown)
INTERCEPT_ALL(2, pthread_key_create, pthread_setspecific, pthread_mutexattr_settype, pthread_mutexattr_setprotocol,
              pthread_mutex_init, pthread_mutex_timedlock, pthread_rwlock_init, pthread_rwlock_timedrdlock,
              pthread_rwlock_timedwrlock, pthread_spin_init, pthread_condattr_setclock, pthread_cond_init,
              pthread_cond_wait)
INTERCEPT_ALL(3, sem_init, shm_open, fchown, bind, connect, getsockname, pthread_cond_timedwait, newlocale)
INTERCEPT_ALL(4, ppoll, recv, send, epoll_ctl, epoll_wait, pthread_create)
INTERCEPT_ALL(5, getsockopt, setsockopt, getpwuid_r, getpwnam_r, getgrgid_r, getgrnam_r)
INTERCEPT_ALL(6, mmap64, recvfrom, sendto)

INTERCEPT_DOING(3, read, real(a, b, std::min(c, longestRead)))
// What a fortified read becomes.
extern "C" __attribute__((visibility("default"))) ssize_t __read_chk(int file, void* buffer, size_t size, size_t room)
{
    EXPECT_LE(size, room);
    return mustFail("read", __builtin_return_address(0)) ? -1 : read(file, buffer, size);
}

// Descriptors of sockets that the library makes.
#define INTERCEPT_OPENING(count, name, flags, closeOnExec)                                                             \
    INTERCEPT_DOING(count, name, (expectToClose(((flags) & (closeOnExec)) != 0, caller), real(NAMES_##count)))
INTERCEPT_OPENING(3, socket, b, SOCK_CLOEXEC)
INTERCEPT_OPENING(4, accept4, d, SOCK_CLOEXEC)
INTERCEPT_OPENING(1, epoll_create1, a, EPOLL_CLOEXEC)

INTERCEPT_DOING(2, clock_gettime, readClock(a, b, real, caller))
INTERCEPT_DOING(2, clock_getres, readClock(a, b, real, caller))
INTERCEPT_DOING(4, clock_nanosleep, b == TIMER_ABSTIME && standsStill(caller) ? sleepWithoutTime(*c) : real(a, b, c, d))

// NAME(file, request, ...) with one argument at most, which is a number or a pointer.
#define INTERCEPT_REQUEST(name, File, Request, closesOnExec, ...)                                                      \
    extern "C" __attribute__((visibility("default"))) int name(File file, Request request, ...) __VA_ARGS__            \
    {                                                                                                                  \
        va_list arguments;                                                                                             \
        va_start(arguments, request);                                                                                  \
        void* argument = va_arg(arguments, void*);                                                                     \
        va_end(arguments);                                                                                             \
        static const auto real = reinterpret_cast<int (*)(File, Request, ...)>(dlsym(RTLD_NEXT, #name));               \
        const void* caller = __builtin_return_address(0);                                                              \
        expectToClose(closesOnExec, caller);                                                                           \
        return mustFail(#name, caller) ? -1 : real(file, request, argument);                                           \
    }
INTERCEPT_REQUEST(fcntl64, int, int, true)
INTERCEPT_REQUEST(ioctl, int, unsigned long, true, noexcept)
INTERCEPT_REQUEST(open64, const char*, int, (request & O_CLOEXEC) != 0)
