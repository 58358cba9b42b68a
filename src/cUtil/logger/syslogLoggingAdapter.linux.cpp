#include <cUtil/logger/syslogLoggingAdapter.h>

#include "internal/logLine.h"
#include "internal/newAdapter.h"
#include "internal/rollback.h"

#include <syslog.h>

namespace
{

struct SyslogAdapter {
    cu_logger_Adapter* adapter;
    cu_allocator* allocator;
    cu_Mutex* mutex;
};

cu_ErrorCode cu_logger_SyslogLoggingAdapter_logMessage(void* context, uint32_t level, const char* text)
{
    static constexpr int priorities[internal::highestLogLevel + 1] = {LOG_ERR, LOG_WARNING, LOG_INFO, LOG_DEBUG};
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(level <= internal::highestLogLevel);

    auto* me = static_cast<SyslogAdapter*>(context);
    CU_TRY(cu_Mutex_lock(me->mutex));
    syslog(priorities[level], "%s: %s\n", internal::logLevelName(level), text);
    CU_TRY(cu_Mutex_unlock(me->mutex));
    return 0;
}

cu_ErrorCode cu_logger_SyslogLoggingAdapter_destruct(void* context)
{
    CU_REQUIRE(context != nullptr);

    auto* me = static_cast<SyslogAdapter*>(context);
    CU_TRY(cu_Mutex_delete(&me->mutex));
    closelog();
    CU_TRY(internal::freeAdapter(me));
    return 0;
}

} // namespace

cu_ErrorCode cu_logger_SyslogLoggingAdapter_new(cu_logger_Adapter** adapter, const char* ident, cu_allocator* allocator)
{
    CU_REQUIRE(adapter != nullptr);
    CU_REQUIRE(*adapter == nullptr);
    CU_REQUIRE(ident != nullptr);
    CU_REQUIRE(ident[0] != '\0');

    internal::NewAdapter<SyslogAdapter> made;
    CU_TRY(made.allocate(allocator));
    CU_TRY(cu_Mutex_new(&made->mutex, false, made->allocator));
    openlog(ident, LOG_CONS | LOG_NDELAY, LOG_DAEMON);
    *adapter = made.release(cu_logger_SyslogLoggingAdapter_logMessage, cu_logger_SyslogLoggingAdapter_destruct);
    return 0;
}
