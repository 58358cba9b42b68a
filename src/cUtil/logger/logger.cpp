#include <cUtil/logger/logger.h>

#include "internal/report.h"
#include "internal/rollback.h"

#include <cUtil/mutex.h>
#include <cUtil/rwMutex.h>
#include <cUtil/threadLocal.h>
#include <cUtil/time/time.h>
#include <cUtil/tools/safeMalloc.h>
#include <cUtil/tools/safeStringOps.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <pthread.h>
#include <utility>

namespace
{

constexpr std::size_t bufferSize = 2048;

// How long a log call lets changes of the list go first. Without an end, threads that wait for each other beside the
// logger could wait for ever.
constexpr uint32_t patience = 50; // milliseconds

struct Logger {
    cu_RWMutex* lock; // shared by whoever logs or sets levels
    cu_Mutex* changing;
    cu_ThreadLocal* threadSpecific;
    cu_logger_Adapter* first;
    std::atomic<uint32_t> changes; // that wait or are under way
    std::atomic<uint32_t> loudest; // no adapter listens to a level above it
};
constinit Logger logger = {};

// Calls of this thread that share the lock, one within the other: adapters may log. The inner ones must not ask for it
// again, behind a change that waits for the outer one.
[[gnu::tls_model("initial-exec")]] constinit thread_local uint32_t depth = 0;

// Whether the thread could be cancelled before the outermost of them: in the middle, adapters' locks would stay behind.
[[gnu::tls_model("initial-exec")]] constinit thread_local int cancelState = PTHREAD_CANCEL_ENABLE;

cu_ErrorCode makeLogger()
{
    CU_TRY(cu_RWMutex_new(&logger.lock, nullptr));
    CU_TRY(cu_Mutex_new(&logger.changing, false, nullptr));
    CU_TRY(cu_ThreadLocal_new(&logger.threadSpecific, nullptr, nullptr, nullptr, nullptr));
    return 0;
}

// Before the constructors of a program that is linked with the static library, too.
[[gnu::constructor(101)]] void initialise()
{
    const cu_ErrorCode code = makeLogger();
    if (code == 0)
        return;
    if (code == cu_ERROR_COM_MALLOC_FAILED)
        printf("FATAL: Logger initialization failed: out of memory! Bye\n");
    else
        printf("FATAL: Logger initialization failed: %i! Bye\n", static_cast<int>(code));
    exit(1); // NOLINT(concurrency-mt-unsafe): no other thread knows of the library yet
}

cu_ErrorCode letChangesGoFirst()
{
    cu_TimeValue deadline = {};
    bool locked = false;
    if (const cu_ErrorCode code = cu_makeTimeoutMilliSecond(&deadline, patience, CLOCK_REALTIME); code != 0)
        return code;
    if (const cu_ErrorCode code = cu_Mutex_timedLock(logger.changing, &deadline, &locked); code != 0)
        return code;
    return locked ? cu_Mutex_unlock(logger.changing) : 0;
}

// Between these two the list stays as it is.
cu_ErrorCode share()
{
    if (depth == 0) {
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
        cu_ErrorCode code = 0;
        if (logger.changes.load(std::memory_order_relaxed) != 0) [[unlikely]]
            code = letChangesGoFirst();
        if (code == 0)
            code = cu_RWMutex_readLock(logger.lock);
        if (code != 0) {
            pthread_setcancelstate(cancelState, nullptr);
            return code;
        }
    }
    ++depth;
    return 0;
}

cu_ErrorCode unshare()
{
    if (--depth != 0)
        return 0;
    const cu_ErrorCode code = cu_RWMutex_unlock(logger.lock);
    pthread_setcancelstate(cancelState, nullptr);
    return code;
}

// Between these two nobody else is at the list.
cu_ErrorCode beginChange(internal::Place place)
{
    if (depth != 0)
        return internal::report(cu_ERROR_MUTEX_LOCK_FAILED, EDEADLK, place, nullptr);
    logger.changes.fetch_add(1, std::memory_order_relaxed);
    cu_ErrorCode code = cu_Mutex_lock(logger.changing);
    if (code == 0) {
        code = cu_RWMutex_writeLock(logger.lock);
        if (code != 0)
            CU_MUST(cu_Mutex_unlock(logger.changing));
    }
    if (code == 0)
        return 0;
    logger.changes.fetch_sub(1, std::memory_order_relaxed);
    return internal::passOn(code, place);
}

cu_ErrorCode endChange()
{
    logger.changes.fetch_sub(1, std::memory_order_relaxed);
    const cu_ErrorCode code = cu_RWMutex_unlock(logger.lock);
    return code != 0 ? code : cu_Mutex_unlock(logger.changing);
}

// The link that leads to the adapter of a name, or the last one.
cu_logger_Adapter** find(const char* name)
{
    cu_logger_Adapter** link = &logger.first;
    while (*link != nullptr && strcmp((*link)->name, name) != 0)
        link = &(*link)->next;
    return link;
}

std::atomic_ref<uint32_t> levelOf(cu_logger_Adapter* adapter)
{
    return std::atomic_ref(adapter->level);
}

uint32_t highestLevel()
{
    uint32_t highest = 0;
    for (cu_logger_Adapter* adapter = logger.first; adapter != nullptr; adapter = adapter->next)
        highest = std::max(highest, levelOf(adapter).load());
    return highest;
}

// After each change of levels. Several threads may be at it, and all of their steps have one order: who stores last has
// looked again afterwards.
void noteLevels()
{
    uint32_t highest = highestLevel();
    uint32_t stored = 0;
    do {
        stored = highest;
        logger.loudest.store(stored);
        highest = highestLevel();
    } while (highest != stored);
}

bool isHeard(uint32_t level)
{
    return level <= logger.loudest.load(std::memory_order_relaxed);
}

cu_ErrorCode logTo(cu_logger_Adapter* adapter, uint32_t level, const char* text)
{
    return levelOf(adapter).load(std::memory_order_relaxed) >= level
               ? cu_logger_Adapter_logMessage(adapter, level, text)
               : 0;
}

// Goes on behind an adapter that failed, and keeps the record of its failure.
[[gnu::cold, gnu::noinline]] void logToOthers(cu_logger_Adapter* adapter, uint32_t level, const char* text)
{
    cu_Error failure;
    cu_Error_copy(&failure, cu_getErrorLocation());
    for (; adapter != nullptr; adapter = adapter->next)
        logTo(adapter, level, text);
    cu_Error_copy(cu_getErrorLocation(), &failure);
}

cu_ErrorCode logToAll(uint32_t level, const char* text)
{
    for (cu_logger_Adapter* adapter = logger.first; adapter != nullptr; adapter = adapter->next)
        if (const cu_ErrorCode code = logTo(adapter, level, text); code != 0) [[unlikely]] {
            logToOthers(adapter->next, level, text);
            return code;
        }
    return 0;
}

// Gives back what the logger lent to an adapter that leaves its list.
void disown(cu_logger_Adapter* adapter)
{
    cu_safeFreeImpl(adapter->name);
    adapter->name = nullptr;
    adapter->next = nullptr;
}

cu_logger_Adapter* takeOut(cu_logger_Adapter** link)
{
    cu_logger_Adapter* adapter = *link;
    if (adapter != nullptr) {
        *link = adapter->next;
        disown(adapter);
    }
    return adapter;
}

} // namespace

cu_ErrorCode cu_Logger_log(uint32_t level, const char* text)
{
    CU_REQUIRE(text != nullptr);

    if (!isHeard(level))
        return 0;
    CU_TRY(share());
    const cu_ErrorCode code = logToAll(level, text);
    if (code != 0) {
        CU_ROLLBACK(unlock, unshare());
        return internal::passOn(code, CU_HERE);
    }
    CU_TRY(unshare());
    return 0;
}

cu_ErrorCode cu_Logger_formattedLog(uint32_t level, const char* format, ...)
{
    CU_REQUIRE(format != nullptr);

    if (!isHeard(level))
        return 0;
    char buffer[bufferSize];
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(buffer, sizeof(buffer), format, arguments);
    va_end(arguments);
    CU_REQUIRE(length >= 0);
    const auto size = static_cast<std::size_t>(length);
    if (size < sizeof(buffer)) {
        CU_TRY(cu_Logger_log(level, buffer));
        return 0;
    }

    // Compatibility: there is no room for the NUL, so that a long text loses its last character.
    auto* text = static_cast<char*>(calloc(1, size));
    if (text == nullptr)
        return cu_ERROR_COM_MALLOC_FAILED; // Compatibility: without a report.
    va_start(arguments, format);
    vsnprintf(text, size, format, arguments);
    va_end(arguments);
    const cu_ErrorCode code = cu_Logger_log(level, text);
    free(text);
    CU_TRY(code);
    return 0;
}

cu_ErrorCode cu_Logger_setLogLevel(uint32_t level)
{
    CU_TRY(share());
    for (cu_logger_Adapter* adapter = logger.first; adapter != nullptr; adapter = adapter->next)
        levelOf(adapter).store(level);
    noteLevels();
    CU_TRY(unshare());
    return 0;
}

cu_ErrorCode cu_Logger_setSpecificLogLevel(const char* name, uint32_t level)
{
    CU_REQUIRE(name != nullptr);
    CU_REQUIRE(name[0] != '\0');

    CU_TRY(share());
    cu_logger_Adapter* adapter = *find(name);
    if (adapter != nullptr) {
        levelOf(adapter).store(level);
        noteLevels();
    }
    CU_TRY(unshare());
    return adapter != nullptr ? 0 : cu_ERROR_COM_INVALID_ARGUMENT; // Compatibility: without a report.
}

cu_ErrorCode cu_Logger_addAdapter(const char* name, cu_logger_Adapter* adapter, uint32_t level)
{
    CU_REQUIRE(name != nullptr);
    CU_REQUIRE(name[0] != '\0');
    CU_REQUIRE(adapter != nullptr);
    CU_REQUIRE(adapter->name == nullptr);

    if (const cu_ErrorCode code = beginChange(CU_HERE); code != 0)
        return code;
    CU_ROLLBACK(end, endChange());
    CU_REQUIRE(adapter->name == nullptr); // again: another thread may have added it meanwhile
    CU_REQUIRE(*find(name) == nullptr);
    CU_TRY(cu_str_clone(&adapter->name, name));
    levelOf(adapter).store(level);
    adapter->next = logger.first;
    logger.first = adapter;
    noteLevels();
    return 0;
}

cu_ErrorCode cu_Logger_removeAdapter(const char* name)
{
    CU_REQUIRE(name != nullptr);

    if (const cu_ErrorCode code = beginChange(CU_HERE); code != 0)
        return code;
    cu_logger_Adapter* adapter = takeOut(find(name));
    noteLevels();
    const cu_ErrorCode code = endChange();
    // What it still has to do may take its time, and may be logged.
    if (adapter != nullptr)
        CU_TRY(cu_logger_Adapter_destruct(&adapter));
    else if (code == 0)
        return cu_ERROR_COM_INVALID_ARGUMENT; // Compatibility: without a report.
    CU_TRY(code);
    return 0;
}

cu_ErrorCode cu_Logger_removeAllAdapters(void)
{
    if (const cu_ErrorCode code = beginChange(CU_HERE); code != 0)
        return code;
    cu_logger_Adapter* first = std::exchange(logger.first, nullptr);
    noteLevels();
    CU_MUST(endChange());
    while (cu_logger_Adapter* adapter = takeOut(&first))
        CU_MUST(cu_logger_Adapter_destruct(&adapter));
    return 0;
}

cu_ErrorCode cu_Logger_setThreadSpecific(void* pointer)
{
    CU_TRY(cu_ThreadLocal_setSpecific(logger.threadSpecific, pointer));
    return 0;
}

cu_ErrorCode cu_Logger_getThreadSpecific(void** pointer)
{
    CU_TRY(cu_ThreadLocal_getSpecific(logger.threadSpecific, pointer));
    return 0;
}
