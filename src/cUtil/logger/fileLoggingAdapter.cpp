#include <cUtil/logger/fileLoggingAdapter.h>

#include "internal/logLine.h"
#include "internal/newAdapter.h"
#include "internal/rollback.h"

#include <cerrno>

namespace
{

cu_ErrorCode cu_logger_FileLoggingAdapter_logMessage(void* context, uint32_t level, const char* text)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(level <= internal::highestLogLevel);

    return internal::writeLogLine(static_cast<internal::StreamAdapter*>(context), level, text, false, CU_HERE);
}

cu_ErrorCode cu_logger_FileLoggingAdapter_destruct(void* context)
{
    CU_REQUIRE(context != nullptr);

    auto* me = static_cast<internal::StreamAdapter*>(context);
    CU_TRY(cu_Mutex_delete(&me->mutex));
    fclose(me->stream);
    CU_TRY(internal::freeAdapter(me));
    return 0;
}

} // namespace

cu_ErrorCode cu_logger_FileLoggingAdapter_new(cu_logger_Adapter** adapter, const char* path, cu_allocator* allocator)
{
    CU_REQUIRE(adapter != nullptr);
    CU_REQUIRE(*adapter == nullptr);
    CU_REQUIRE(path != nullptr);
    CU_REQUIRE(path[0] != '\0');

    internal::NewAdapter<internal::StreamAdapter> made;
    CU_TRY(made.allocate(allocator));
    CU_TRY(cu_Mutex_new(&made->mutex, false, made->allocator));
    CU_ROLLBACK(mutex, cu_Mutex_delete(&made->mutex));
    made->stream = fopen(path, "ae");
    if (made->stream == nullptr)
        return CU_REPORT(cu_ERROR_FILEOPEN_FAILED, errno, nullptr);
    mutex.dismiss();
    *adapter = made.release(cu_logger_FileLoggingAdapter_logMessage, cu_logger_FileLoggingAdapter_destruct);
    return 0;
}
