// Failing system calls and the reports of them, as a table.
#pragma once

#include "support/inject.h"
#include "support/record.h"

#include <functional>
#include <initializer_list>
#include <string>

namespace support
{

struct SystemFailure {
    const char* systemCall;
    int error;
    cu_ErrorCode code;
    const char* function;
    std::string description;
    std::function<cu_ErrorCode()> call;
};

/// Each call reports the failing of its system call, with its own name and code.
inline void expectSystemFailures(const char* file, std::initializer_list<SystemFailure> table)
{
    for (const SystemFailure& row : table) {
        SCOPED_TRACE(row.systemCall);
        const Injection injection(row.systemCall, row.error);
        EXPECT_SYSTEM_FAILURE(row.call(), row.code, row.error, row.function, file, row.description);
        EXPECT_STREQ(injection.fired(), row.systemCall);
    }
}

} // namespace support
