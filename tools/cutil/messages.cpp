// How cutil speaks when something is wrong.
#include "cutil.h"

#include <cUtil/errorInfo.h>

#include <cstdarg>
#include <cstdio>

namespace cutil
{

int fail(const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fputs("cutil: ", stderr);
    vfprintf(stderr, format, arguments);
    fputc('\n', stderr);
    va_end(arguments);
    return failed;
}

int failByRecord(cu_ErrorCode code, const char* operation)
{
    const cu_Error* record = cu_getErrorLocation();
    // The constant text of the code stands in where the failure left no description.
    const char* description = cu_Error_getDescription(record);
    if (description[0] == '\0')
        description = cu_GetErrorDescription(code);
    return fail("%s: %s (%s)", operation, description, cu_GetErrorName(code));
}

int misuse(const Command& command, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const char* space = command.name[0] != '\0' ? " " : "";
    fprintf(stderr, "cutil%s%s: ", space, command.name);
    vfprintf(stderr, format, arguments);
    fprintf(stderr, "\nTry 'cutil%s%s --help'.\n", space, command.name);
    va_end(arguments);
    return misused;
}

} // namespace cutil
