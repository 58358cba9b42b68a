#include "internal/report.h"

#include <cstdio>
#include <cstdlib>

namespace cu::internal
{

cu_ErrorCode reportInvalidArgument(const char* function, uint32_t line, const char* file)
{
    cu_Error_report(cu_getErrorLocation(), cu_ERROR_COM_INVALID_ARGUMENT, 0, function, line, file, nullptr);
    return cu_ERROR_COM_INVALID_ARGUMENT;
}

cu_ErrorCode report(cu_ErrorCode code, int32_t systemErrorCode, const char* function, uint32_t line, const char* file,
                    const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fillRecord(cu_getErrorLocation(), code, systemErrorCode, function, line, file, format, arguments);
    va_end(arguments);
    return code;
}

cu_ErrorCode report(cu_ErrorCode code, int32_t systemErrorCode, const Place& place, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fillRecord(cu_getErrorLocation(), code, systemErrorCode, place.function, place.line, place.file, format, arguments);
    va_end(arguments);
    return code;
}

cu_ErrorCode passOn(cu_ErrorCode code, const char* function, uint32_t line, const char* file)
{
    cu_Error_setStackTracePoint(cu_getErrorLocation(), function, line, file);
    return code;
}

void failFatally(cu_ErrorCode code, const char* function, uint32_t line, const char* file)
{
    const cu_Error* record = cu_getErrorLocation();
    printf("!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!\n"
           "! Fatal internal unrecoverable error encountered!\n"
           "!   File: '%s'\n"
           "!   Line: '%d'\n"
           "!   Function: '%s'\n"
           "!   Return Code: '%d' (0x%08X)\n"
           "! Going to terminate the program to avoid further damage to \n"
           "! the system!\n"
           "!\n"
           "! The error that lead to the abnormal termination:\n"
           "!   File: '%s'\n"
           "!   Line: '%d'\n"
           "!   Function: '%s'\n"
           "!   Description: '%s'\n"
           "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!\n",
           file, static_cast<int>(line), function, static_cast<int>(code), code, cu_Error_getFileName(record),
           static_cast<int>(cu_Error_getLineNumber(record)), cu_Error_getFunctionName(record),
           cu_Error_getDescription(record));
    exit(1);
}

} // namespace cu::internal
