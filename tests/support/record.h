// One-line assertions on what a failing call returns and leaves in the error record.
#pragma once

#include <cUtil/errorInfo.h>

#include <gtest/gtest.h>

#include <ostream>
#include <string>

namespace support
{

/// What a failure looks like from outside.
struct Failure {
    cu_ErrorCode code;
    std::string function;
    std::string file;
    std::string description;
    int32_t systemErrorCode = 0;

    friend bool operator==(const Failure&, const Failure&) = default;

    friend std::ostream& operator<<(std::ostream& out, const Failure& failure)
    {
        return out << cu_GetErrorName(failure.code) << " in " << failure.function << " (" << failure.file
                   << "), system " << failure.systemErrorCode << ": \"" << failure.description << '"';
    }
};

/// Makes a call with an emptied record. A result that differs from the record's code shows up as the code ~0.
template <typename Call>
Failure failureOf(Call call)
{
    cu_Error_clear(cu_getErrorLocation());
    const cu_ErrorCode result = call();
    const cu_Error* record = cu_getErrorLocation();
    const auto text = [](const char* value) { return std::string(value != nullptr ? value : ""); };
    return {result == record->errorID ? result : ~0U, text(record->functionName), text(record->fileName),
            record->description, record->systemErrorCode};
}

/// The stack trace of the thread's record.
inline std::string trace()
{
    return cu_getErrorLocation()->stackTrace;
}

} // namespace support

/// The call fails with a code, from a function in a file, with a description, and with no system error code.
#define EXPECT_FAILURE(call, code, function, file, description)                                                        \
    EXPECT_EQ(support::failureOf([&] { return (call); }), (support::Failure{code, function, file, description}))

/// The same with a system error code.
#define EXPECT_SYSTEM_FAILURE(call, code, system, function, file, description)                                         \
    EXPECT_EQ(support::failureOf([&] { return (call); }), (support::Failure{code, function, file, description, system}))

/// The call refuses an argument.
#define EXPECT_REFUSED(call, function, file) EXPECT_FAILURE(call, cu_ERROR_COM_INVALID_ARGUMENT, function, file, "")
