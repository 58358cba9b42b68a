#include "internal/report.h"

#include <cstdio>
#include <cstdlib>

namespace cu::internal
{

cu_ErrorCode reportInvalidArgument(Place place)
{
    return report(cu_ERROR_COM_INVALID_ARGUMENT, 0, place, nullptr);
}

cu_ErrorCode report(cu_ErrorCode code, int32_t systemErrorCode, Place place, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    fillRecord(cu_getErrorLocation(), code, systemErrorCode, place, format, arguments);
    va_end(arguments);
    return code;
}

cu_ErrorCode reportErrno(cu_ErrorCode code, int error, Place place)
{
    return report(code, error, place, "errno[%d]='%s'", error, SystemErrorText(error).get());
}

cu_ErrorCode passOn(cu_ErrorCode code, Place place)
{
    cu_Error_setStackTracePoint(cu_getErrorLocation(), place.function, place.line, place.file);
    return code;
}

void failFatally(cu_ErrorCode code, Place place)
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
           place.file, static_cast<int>(place.line), place.function, static_cast<int>(code), code,
           cu_Error_getFileName(record), static_cast<int>(cu_Error_getLineNumber(record)),
           cu_Error_getFunctionName(record), cu_Error_getDescription(record));
    exit(1);
}

} // namespace cu::internal
