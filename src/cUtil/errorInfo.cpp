#include "internal/report.h"

#include <cUtil/tools/safeMalloc.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <pthread.h>

// Callers copy the record byte by byte.
static_assert(offsetof(cu_Error, errorID) == 0 && offsetof(cu_Error, systemErrorCode) == 4);
static_assert(offsetof(cu_Error, fileName) == 8 && offsetof(cu_Error, functionName) == 8 + sizeof(void*));
static_assert(offsetof(cu_Error, lineNumber) == 8 + 2 * sizeof(void*));
static_assert(offsetof(cu_Error, description) == 12 + 2 * sizeof(void*));
static_assert(offsetof(cu_Error, stackTrace) == offsetof(cu_Error, description) + 1000);
static_assert(sizeof(void*) != 4 || sizeof(cu_Error) == 2020);

namespace
{

constexpr char placeholder[] = "Currently no information available.";
constexpr char notAvailable[] = "N/A (Encountered internal error!)";
constexpr uint32_t reportSize = 1024;

pthread_once_t once = PTHREAD_ONCE_INIT;
pthread_key_t key;
constinit std::atomic<bool> keyIsMade{false};

cu_Error fallBackRecord;  // for every thread whose own record cannot be had
cu_Error departureRecord; // for the thread that ends the process, once its own is freed
cu_Error allocating;      // never filled: its address marks a thread that is about to get its record

cu_Error* makeFresh(cu_Error* record)
{
    *record = {};
    record->fileName = placeholder;
    record->functionName = placeholder;
    return record;
}

void freeRecord(void* record)
{
    if (record != &departureRecord && record != &allocating)
        cu_safeFreeImpl(record);
}

// Handlers that run later still find a working record, and one that nobody has to free.
void departFromProcess()
{
    freeRecord(pthread_getspecific(key));
    pthread_setspecific(key, makeFresh(&departureRecord));
}

void makeKey()
{
    if (pthread_key_create(&key, freeRecord) != 0)
        return;
    keyIsMade.store(true, std::memory_order_release);
    atexit(departFromProcess);
}

// The failure to get a record is reported, too, and so asks for the record again: the mark under the key ends that.
cu_Error* makeRecord()
{
    if (!keyIsMade || pthread_setspecific(key, &allocating) != 0)
        return makeFresh(&fallBackRecord);
    void* record = nullptr;
    if (cu_safeMalloc(&record, sizeof(cu_Error)) != 0) {
        pthread_setspecific(key, nullptr);
        return makeFresh(&fallBackRecord);
    }
    pthread_setspecific(key, record);
    return makeFresh(static_cast<cu_Error*>(record));
}

// Compatibility: the slips of this text, and the encrypted log files that it speaks of, are part of the interface.
[[gnu::cold]] void tellInvalid(const char* item, internal::Place place)
{
    printf("FATAL INTERNAL ERROR IN ERROR HANDLER!\n"
           "======================================\n"
           "THIS IS A SEVERE ERROR BECAUSE THERE IS NOW NO SAVE WAY TO REPORT\n"
           "ERROR VIA ENCRYPTED LOGFILES! THEREFORE THE FOLLOWING WILL DISPLAY\n"
           "INTERNAL INFORMATION ABOUNT THE ERROR HANDLER (IN CASE THIS MESSAGE\n"
           "CAN BE READ ANYWAY!):\n"
           "Detected '%s' as invalid (value/pointer)\n"
           "File: %s, \n"
           "Function: %s\n"
           "Line: %d",
           item, place.file, place.function, static_cast<int>(place.line));
}

[[noreturn, gnu::cold]] void endProcess(internal::Place place)
{
    printf("!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!\n"
           "! Fatal internal unrecoverable error encountered!\n"
           "! File: '%s'\n"
           "! Line: '%d'\n"
           "! Function: '%s'\n"
           "! Going to terminate the program to avoid further damage to \n"
           "! the system!\n"
           "!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!!\n",
           place.file, static_cast<int>(place.line), place.function);
    exit(1);
}

} // namespace

void cu::internal::fillRecord(cu_Error* me, cu_ErrorCode code, int32_t systemErrorCode, Place place, const char* format,
                              va_list arguments)
{
    const auto here = [](uint32_t line) { return Place{"cu_Error_report", line, sourcePath.text}; };

    if (me == nullptr) {
        tellInvalid("me", here(__LINE__));
        return;
    }
    if (code != 0)
        me->errorID = code;
    else
        tellInvalid("error", here(__LINE__));
    if (systemErrorCode != 0)
        me->systemErrorCode = systemErrorCode;
    if (place.function != nullptr)
        me->functionName = place.function;
    else
        tellInvalid("function", here(__LINE__));
    if (place.file != nullptr)
        me->fileName = place.file;
    else
        tellInvalid("file", here(__LINE__));
    if (format != nullptr) {
        // The arguments may point into the record, so the text is made beside it.
        char text[sizeof(me->description)];
        const int length = vsnprintf(text, sizeof(text), format, arguments);
        const std::size_t kept = std::min(static_cast<std::size_t>(std::max(length, 0)), sizeof(text) - 1);
        memcpy(me->description, text, kept);
        me->description[kept] = '\0';
    } else {
        me->description[0] = '\0';
    }
    if (place.line != 0)
        me->lineNumber = place.line;
    me->stackTrace[0] = '\0';
}

cu_Error* cu_getErrorLocation(void)
{
    if (!keyIsMade.load(std::memory_order_acquire)) [[unlikely]]
        pthread_once(&once, makeKey);
    void* record = keyIsMade.load(std::memory_order_acquire) ? pthread_getspecific(key) : nullptr;
    if (record == nullptr) [[unlikely]]
        return makeRecord();
    if (record == &allocating) [[unlikely]]
        return makeFresh(&fallBackRecord);
    return static_cast<cu_Error*>(record);
}

void cu_Error_report(cu_Error* me, cu_ErrorCode errorCode, int32_t systemErrorCode, const char* function, uint32_t line,
                     const char* file, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    internal::fillRecord(me, errorCode, systemErrorCode, {function, line, file}, format, arguments);
    va_end(arguments);
}

void cu_Error_setStackTracePoint(cu_Error* me, const char* function, uint32_t line, const char* file)
{
    if (me == nullptr) {
        tellInvalid("me", CU_HERE);
        return;
    }
    // Compatibility: the last byte of the array is left unused, so a full trace holds 998 characters.
    constexpr std::size_t room = sizeof(me->stackTrace) - 1;
    const std::size_t length = strnlen(me->stackTrace, room);
    snprintf(me->stackTrace + length, room - length, "%s  -  %s:%u\n", function, file, line);
}

cu_ErrorCode cu_Error_getError(const cu_Error* me)
{
    if (me != nullptr)
        return me->errorID;
    tellInvalid("me", CU_HERE);
    return 0;
}

int32_t cu_Error_getSystemErrorCode(const cu_Error* me)
{
    if (me != nullptr)
        return me->systemErrorCode;
    tellInvalid("me", CU_HERE);
    return 0;
}

const char* cu_Error_getFunctionName(const cu_Error* me)
{
    if (me != nullptr)
        return me->functionName;
    tellInvalid("me", CU_HERE);
    return notAvailable;
}

uint32_t cu_Error_getLineNumber(const cu_Error* me)
{
    if (me != nullptr)
        return me->lineNumber;
    tellInvalid("me", CU_HERE);
    return 0;
}

const char* cu_Error_getFileName(const cu_Error* me)
{
    if (me != nullptr)
        return me->fileName;
    tellInvalid("me", CU_HERE);
    return notAvailable;
}

const char* cu_Error_getDescription(const cu_Error* me)
{
    if (me != nullptr)
        return me->description;
    tellInvalid("me", CU_HERE);
    return notAvailable;
}

void cu_Error_copy(cu_Error* destination, const cu_Error* source)
{
    if (destination == nullptr || source == nullptr)
        endProcess(CU_HERE);
    memmove(destination, source, sizeof(*destination));
}

void cu_Error_clear(cu_Error* me)
{
    if (me == nullptr)
        endProcess(CU_HERE);
    *me = {};
}

void cu_Error_createReport(const cu_Error* me, char* destination, uint32_t length)
{
    if (destination == nullptr) {
        tellInvalid("destination", CU_HERE);
        return;
    }
    if (me == nullptr) {
        tellInvalid("me", CU_HERE);
        return;
    }
    if (length == 0) {
        tellInvalid("length", CU_HERE);
        return;
    }
    if (me->errorID == 0) {
        tellInvalid("me->errorID", CU_HERE);
        return;
    }
    snprintf(destination, length,
             "ERROR: #%d\n"
             "%s\n"
             "\n"
             "ORIGIN:\n"
             "Function:    %s\n"
             "File:        %s\n"
             "Line:        %u\n"
             "\n"
             "CONTEXT-SENSITIVE INFORMATION\n"
             "%s\n"
             "\n"
             "FURTHER STACK TRACE\n"
             "%s\n",
             static_cast<int>(me->errorID), cu_GetErrorDescription(me->errorID), me->functionName, me->fileName,
             me->lineNumber, me->description, me->stackTrace);
}

// Compatibility: the report is composed and thrown away; only cu_writeIntoErrorLog() writes.
void cu_Error_writeIntoErrorLog(const cu_Error* me)
{
    char text[reportSize];
    cu_Error_createReport(me, text, sizeof(text));
}

void cu_writeIntoErrorLog(void)
{
    char text[reportSize] = {};
    cu_Error_createReport(cu_getErrorLocation(), text, sizeof(text));
    cu_logErrorMessage(text);
}

void ku_createReport(char* destination, uint32_t length)
{
    cu_Error_createReport(cu_getErrorLocation(), destination, length);
}

cu_ErrorCode ku_getErrorCode(void)
{
    return cu_Error_getError(cu_getErrorLocation());
}

int32_t ku_getSystemErrorCode(void)
{
    return cu_Error_getSystemErrorCode(cu_getErrorLocation());
}

const char* ku_getFunctionName(void)
{
    return cu_Error_getFunctionName(cu_getErrorLocation());
}

const char* ku_getFileName(void)
{
    return cu_Error_getFileName(cu_getErrorLocation());
}

uint32_t ku_getLineNumber(void)
{
    return cu_Error_getLineNumber(cu_getErrorLocation());
}

const char* ku_getErrorMessage(void)
{
    return cu_Error_getDescription(cu_getErrorLocation());
}

const char* ku_getErrorCategory(void)
{
    return cu_GetErrorCategory(ku_getErrorCode());
}

const char* ku_getErrorName(void)
{
    return cu_GetErrorName(ku_getErrorCode());
}

const char* ku_getErrorDescription(void)
{
    return cu_GetErrorDescription(ku_getErrorCode());
}
