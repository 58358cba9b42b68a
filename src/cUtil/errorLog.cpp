// The error log of errorInfo.h: its entries and the version information at their head.

#include <cUtil/errorInfo.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace
{

constexpr std::size_t commandLineSize = 4096;
constexpr char doubleRule[] = "================================================================================\n";
constexpr char singleRule[] = "--------------------------------------------------------------------------------\n";
static_assert(sizeof(doubleRule) == 82 && sizeof(singleRule) == 82);

cu_VersionInfoCallback versionInfoCallbacks[CU_VERSION_INFO_CALLBACK_COUNT];

ssize_t readSome(int file, char* destination, std::size_t size)
{
    ssize_t got = 0;
    do
        got = read(file, destination, size);
    while (got < 0 && errno == EINTR);
    return got;
}

// The arguments stand one behind the other, each with its NUL; the last byte gives way to the terminating one.
void readCommandLine(char (&text)[commandLineSize])
{
    text[0] = '\0';
    const int file = open("/proc/self/cmdline", O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return;
    std::size_t length = 0;
    for (ssize_t got = 1; got > 0 && length < sizeof(text);) {
        got = readSome(file, text + length, sizeof(text) - length);
        if (got > 0)
            length += static_cast<std::size_t>(got);
    }
    close(file);
    if (length == 0)
        return;
    for (std::size_t at = 0; at < length; ++at)
        if (text[at] == '\0')
            text[at] = ' ';
    text[length - 1] = '\0';
}

} // namespace

void cu_logErrorMessage(const char* message)
{
    // A cancelled thread finishes its entry: it would take the lock of the stream with it.
    int cancelState = 0;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    char commandLine[commandLineSize];
    readCommandLine(commandLine);
    const time_t now = time(nullptr);
    tm local = {};
    localtime_r(&now, &local);

    flockfile(stderr);
    fputs(doubleRule, stderr);
    for (const cu_VersionInfoCallback callback : versionInfoCallbacks)
        if (callback != nullptr)
            fprintf(stderr, "%s\n", callback());
    fprintf(stderr, "%d.%d.%d at %02d:%02d:%02d\n", local.tm_mday, local.tm_mon + 1, local.tm_year + 1900,
            local.tm_hour, local.tm_min, local.tm_sec);
    fprintf(stderr, "Cmd: '%s'\n", commandLine);
    fprintf(stderr, "PID: '%d'\n", static_cast<int>(getpid()));
    fputs(singleRule, stderr);
    fprintf(stderr, "%s\n", message != nullptr ? message : "");
    fputs(singleRule, stderr);
    fflush(stderr);
    funlockfile(stderr);
    pthread_setcancelstate(cancelState, nullptr);
}

const char* cu_getLogName(void)
{
    return "zevErrorLog.txt";
}

int32_t cu_addVersionInfoCallback(cu_VersionInfoCallback callback)
{
    if (callback == nullptr)
        return -1;
    cu_VersionInfoCallback* free = nullptr;
    for (cu_VersionInfoCallback& slot : versionInfoCallbacks) {
        if (slot == callback)
            return 0;
        if (slot == nullptr && free == nullptr)
            free = &slot;
    }
    if (free == nullptr)
        return -1;
    *free = callback;
    return 0;
}

int32_t cu_delVersionInfoCallback(cu_VersionInfoCallback callback)
{
    if (callback == nullptr)
        return -1;
    for (cu_VersionInfoCallback& slot : versionInfoCallbacks)
        if (slot == callback)
            slot = nullptr;
    return 0;
}

int32_t cu_getVersionInfoCallbacks(cu_VersionInfoCallback** slots, uint32_t* count)
{
    if (slots == nullptr || count == nullptr)
        return -1;
    *slots = versionInfoCallbacks;
    *count = CU_VERSION_INFO_CALLBACK_COUNT;
    return 0;
}

int32_t cu_DebugAssert(void)
{
    static constinit std::atomic<int32_t> answer{-1};
    int32_t cached = answer.load(std::memory_order_relaxed);
    if (cached < 0) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): there is no other way to ask
        cached = getenv("ZEV_CUTIL_ASSERT_ABORT") != nullptr ? 1 : 0;
        answer.store(cached, std::memory_order_relaxed);
    }
    return cached;
}
