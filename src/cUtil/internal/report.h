// How an exported function fails: require, report, try, must. The cold half of each stands out of line in report.cpp,
// so that a check costs the caller one predictable branch.
#pragma once

#include <cUtil/errorInfo.h>

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace cu::internal
{

/// The path of a source from its "src" folder on, without suffix: "src/cUtil/network/tcpSocket.linux".
template <std::size_t size>
struct SourcePath {
    char text[size] = {};

    consteval SourcePath(const char (&file)[size])
    {
        std::size_t root = 0;
        std::size_t end = size - 1;
        constexpr char folder[] = "src/cUtil/";
        for (std::size_t at = 0; at + sizeof(folder) <= size; ++at) {
            std::size_t same = 0;
            while (folder[same] != '\0' && file[at + same] == folder[same])
                ++same;
            if (folder[same] == '\0')
                root = at;
        }
        while (end > root && file[end] != '.')
            --end;
        for (std::size_t at = root; at < end; ++at)
            text[at - root] = file[at];
    }
};

/// Where a failure was found. Code that several exported functions share is given the place of the one that was called.
struct Place {
    const char* function;
    uint32_t line;
    const char* file;

    Place(const char* functionName, uint32_t lineNumber, const char* fileName)
        : function(functionName), line(lineNumber), file(fileName)
    {
        // What is no constant as a whole goes by registers; a constant would lie in relocated data, one for each check.
        asm("" : "+r"(function));
    }
};

/// cu_Error_report() with its arguments as a list.
[[gnu::format(printf, 5, 0)]] void fillRecord(cu_Error* me, cu_ErrorCode code, int32_t systemErrorCode, Place place,
                                              const char* format, va_list arguments);

/// Reports cu_ERROR_COM_INVALID_ARGUMENT without a description and yields it.
[[gnu::cold]] cu_ErrorCode reportInvalidArgument(Place place);

/// Reports a failure and yields its code, which is not read back: the record may be the emptied fall-back.
[[gnu::cold, gnu::format(printf, 4, 5)]] cu_ErrorCode report(cu_ErrorCode code, int32_t systemErrorCode, Place place,
                                                             const char* format, ...);

/// The same with the text "errno[%d]='%s'" of the system error.
[[gnu::cold]] cu_ErrorCode reportErrno(cu_ErrorCode code, int error, Place place);

/// Appends a stack-trace point to the thread's record and yields the code.
[[gnu::cold]] cu_ErrorCode passOn(cu_ErrorCode code, Place place);

/// Tells on the standard output that a clean-up that cannot fail did fail, and ends the process with status 1.
[[noreturn, gnu::cold]] void failFatally(cu_ErrorCode code, Place place);

/// The text of a system error, as strerror gives it, without its shared buffer.
class SystemErrorText
{
public:
    explicit SystemErrorText(int error) : text_(strerror_r(error, buffer_, sizeof(buffer_))) {}
    SystemErrorText(const SystemErrorText&) = delete;
    SystemErrorText& operator=(const SystemErrorText&) = delete;

    const char* get() const { return text_; }

private:
    char buffer_[64];
    const char* text_;
};

/// What a description tells of an address, "0x%08X" on every host: its low 32 bits.
inline uint32_t printable(const void* address)
{
    return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(address));
}

} // namespace cu::internal

namespace internal = cu::internal; // NOLINT(misc-unused-alias-decls): sources say internal::

namespace
{
[[maybe_unused]] constexpr internal::SourcePath<sizeof(__BASE_FILE__)> sourcePath{__BASE_FILE__};
}

/// This place. It names the exported function, so it never stands inside a lambda.
#define CU_HERE (internal::Place{__func__, __LINE__, sourcePath.text})

/// Checks an argument.
#define CU_REQUIRE(condition)                                                                                          \
    do {                                                                                                               \
        if (!(condition)) [[unlikely]]                                                                                 \
            return internal::reportInvalidArgument(CU_HERE);                                                           \
    } while (false)

/// Reports a failure and yields its code: `return CU_REPORT(code, errno, "text %u", value);`, nullptr for no text.
#define CU_REPORT(code, systemErrorCode, ...) internal::report(code, systemErrorCode, CU_HERE, __VA_ARGS__)

/// The same with the text "errno[%d]='%s'" of a system error.
#define CU_REPORT_ERRNO(code, error) internal::reportErrno(code, error, CU_HERE)

/// Calls what returns a code; a failure is passed on with a stack-trace point.
#define CU_TRY(call) CU_TRY_AT(CU_HERE, call)

/// CU_TRY in code that several exported functions share: the point names the one that was called.
#define CU_TRY_AT(place, call)                                                                                         \
    do {                                                                                                               \
        if (const cu_ErrorCode failure = (call); failure != 0) [[unlikely]]                                            \
            return internal::passOn(failure, place);                                                                   \
    } while (false)

/// Calls a clean-up that cannot fail; if it does, the process ends.
#define CU_MUST(call)                                                                                                  \
    do {                                                                                                               \
        if (const cu_ErrorCode failure = (call); failure != 0) [[unlikely]]                                            \
            internal::failFatally(failure, CU_HERE);                                                                   \
    } while (false)
