#include <cUtil/processInfo.h>

#include "internal/report.h"

#include <cUtil/tools/safeStringOps.h>

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace
{

// The whole line is shorter: some fifty numbers and a name of at most 64 characters.
constexpr std::size_t longestLine = 2048;

// False, with errno: the line cannot be read.
bool readLine(int descriptor, char (&line)[longestLine])
{
    std::size_t size = 0;
    for (;;) {
        const ssize_t count = read(descriptor, line + size, longestLine - 1 - size);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return false;
        size += static_cast<std::size_t>(count);
        line[size] = '\0';
        if (count == 0)
            return true;
    }
}

// The name stands in parentheses and may hold any character, parentheses included: what counts begins behind the last.
bool parse(const char* line, unsigned long& userTicks, unsigned long& systemTicks)
{
    const char* behindName = strrchr(line, ')');
    return behindName != nullptr &&
           sscanf(behindName + 1, "%*s %*d %*d %*d %*d %*d %*u %*u %*u %*u %*u %lu %lu", &userTicks, &systemTicks) == 2;
}

cu_TimeValue timeOf(unsigned long ticks)
{
    const double seconds = static_cast<double>(ticks) / static_cast<double>(sysconf(_SC_CLK_TCK));
    const auto whole = static_cast<time_t>(seconds);
    const double fraction = seconds - static_cast<double>(whole);
    return {whole, static_cast<decltype(cu_TimeValue::tv_nsec)>(fraction * cu_NSEC_PER_SEC)};
}

} // namespace

cu_ErrorCode cu_ProcessInfo_getCPUTimes(int32_t pid, cu_TimeValue* userTime, cu_TimeValue* systemTime)
{
    CU_REQUIRE(userTime != nullptr);
    CU_REQUIRE(systemTime != nullptr);

    char path[32];
    CU_TRY(cu_snprintf(path, sizeof(path), "/proc/%d/stat", pid));
    const int descriptor = open(path, O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, errno, "Failed to open '%s'.", path);
    char line[longestLine];
    unsigned long userTicks = 0;
    unsigned long systemTicks = 0;
    errno = 0;
    const bool isParsed = readLine(descriptor, line) && parse(line, userTicks, systemTicks);
    const int error = errno;
    close(descriptor);
    if (!isParsed)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, error, "Failed to parse '%s'.", path);
    *userTime = timeOf(userTicks);
    *systemTime = timeOf(systemTicks);
    return 0;
}
