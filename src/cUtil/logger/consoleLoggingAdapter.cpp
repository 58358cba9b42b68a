#include <cUtil/logger/consoleLoggingAdapter.h>

#include "internal/logLine.h"
#include "internal/newAdapter.h"

namespace
{

cu_ErrorCode cu_logger_ConsoleLoggingAdapter_logMessage(void* context, uint32_t level, const char* text)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(level <= internal::highestLogLevel);

    return internal::writeLogLine(static_cast<internal::StreamAdapter*>(context), level, text, true, CU_HERE);
}

cu_ErrorCode cu_logger_ConsoleLoggingAdapter_destruct(void* context)
{
    CU_REQUIRE(context != nullptr);

    auto* me = static_cast<internal::StreamAdapter*>(context);
    CU_TRY(cu_Mutex_delete(&me->mutex));
    CU_TRY(internal::freeAdapter(me));
    return 0;
}

} // namespace

cu_ErrorCode cu_logger_ConsoleLoggingAdapter_new(cu_logger_Adapter** adapter, cu_allocator* allocator)
{
    CU_REQUIRE(adapter != nullptr);
    CU_REQUIRE(*adapter == nullptr);

    internal::NewAdapter<internal::StreamAdapter> made;
    CU_TRY(made.allocate(allocator));
    made->stream = stdout;
    CU_TRY(cu_Mutex_new(&made->mutex, false, made->allocator));
    *adapter = made.release(cu_logger_ConsoleLoggingAdapter_logMessage, cu_logger_ConsoleLoggingAdapter_destruct);
    return 0;
}
