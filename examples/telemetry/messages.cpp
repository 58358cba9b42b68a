#include "messages.h"

#include <cUtil/errorInfo.h>
#include <cUtil/logger/logger.h>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <unistd.h>

namespace telemetry
{

namespace
{

volatile std::sig_atomic_t stop = 0;

void onStopSignal(int)
{
    stop = 1;
}

// In one write, for several processes speak to one terminal.
__attribute__((__format__(__printf__, 2, 0))) void sayLine(uint32_t level, const char* format, va_list arguments)
{
    char text[1500];
    vsnprintf(text, sizeof(text), format, arguments);
    cu_Logger_log(level, text); // of the server; the others have no log
    // On a terminal over a line of the table, which is drawn anew below.
    const std::string line = std::string("telemetry: ") + text + (isTerminal(STDERR_FILENO) ? "\033[K\n" : "\n");
    fflush(stdout);
    fputs(line.c_str(), stderr);
}

} // namespace

void say(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    sayLine(cu_logger_LEVEL_INFO, format, arguments);
    va_end(arguments);
}

int fail(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    sayLine(cu_logger_LEVEL_ERROR, format, arguments);
    va_end(arguments);
    return failed;
}

int failByRecord(cu_ErrorCode code, const char* operation)
{
    const cu_Error* record = cu_getErrorLocation();
    const char* description = cu_Error_getDescription(record);
    if (description[0] == '\0') // many failures have nothing to add to the text of their code
        description = cu_GetErrorDescription(code);
    return fail("%s: %s (%s in %s)", operation, description, cu_GetErrorName(code), cu_Error_getFunctionName(record));
}

void catchStopSignals(bool isSupervised)
{
    struct sigaction action {
    };
    action.sa_flags = SA_RESTART;
    action.sa_handler = onStopSignal;
    sigaction(SIGTERM, &action, nullptr);
    if (isSupervised)
        action.sa_handler = SIG_IGN;
    for (const int signal : {SIGINT, SIGHUP})
        sigaction(signal, &action, nullptr);
}

bool stopRequested()
{
    return stop != 0;
}

bool isTerminal(int descriptor)
{
    const char* terminal = getenv("TERM");
    return isatty(descriptor) != 0 && terminal != nullptr && terminal != std::string_view("dumb");
}

} // namespace telemetry
