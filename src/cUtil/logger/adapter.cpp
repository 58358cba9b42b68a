#include <cUtil/logger/adapter.h>

#include "internal/report.h"

static_assert(offsetof(cu_logger_Adapter, next) == 0 && offsetof(cu_logger_Adapter, context) == sizeof(void*));
static_assert(offsetof(cu_logger_Adapter, level) == 2 * sizeof(void*));
static_assert(offsetof(cu_logger_Adapter, name) == 3 * sizeof(void*));
static_assert(offsetof(cu_logger_Adapter, logMessage) == 4 * sizeof(void*));
static_assert(offsetof(cu_logger_Adapter, destruct) == 5 * sizeof(void*));
static_assert(sizeof(cu_logger_Adapter) == 6 * sizeof(void*));

cu_ErrorCode cu_logger_Adapter_logMessage(cu_logger_Adapter* adapter, uint32_t level, const char* text)
{
    CU_REQUIRE(adapter != nullptr && adapter->logMessage != nullptr);
    CU_REQUIRE(text != nullptr);

    CU_TRY(adapter->logMessage(adapter->context, level, text));
    return 0;
}

cu_ErrorCode cu_logger_Adapter_destruct(cu_logger_Adapter** adapter)
{
    CU_REQUIRE(adapter != nullptr);
    CU_REQUIRE(*adapter != nullptr && (*adapter)->destruct != nullptr);

    CU_TRY((*adapter)->destruct((*adapter)->context));
    *adapter = nullptr;
    return 0;
}
