#include <cUtil/tools/safeStringOps.h>

#include "internal/owned.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace
{

constexpr uint32_t firstDynamicSize = 1024;

// What vsnprintf tells of a text that is in the buffer as a whole.
bool fits(int result, uint32_t size)
{
    return result >= 0 && static_cast<uint32_t>(result) < size;
}

uint32_t countByte(const char* text, uint32_t character)
{
    uint32_t count = 0;
    if (character <= UINT8_MAX) {
        const std::size_t length = strlen(text);
        for (std::size_t at = 0; at < length; ++at)
            count += static_cast<unsigned char>(text[at]) == character;
    }
    return count;
}

} // namespace

size_t cu_strlcpy(char* destination, const char* source, size_t size)
{
    const std::size_t length = strlen(source);
    if (size != 0) {
        const std::size_t copied = std::min(length, size - 1);
        memcpy(destination, source, copied);
        destination[copied] = '\0';
    }
    return length;
}

size_t cu_strlcat(char* destination, const char* source, size_t size)
{
    const std::size_t present = strnlen(destination, size);
    return present + cu_strlcpy(destination + present, source, size - present);
}

cu_ErrorCode cu_str_copy(char* destination, const char* source, uint32_t size)
{
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(source != nullptr);
    if (cu_strlcpy(destination, source, size) >= size)
        return CU_REPORT(cu_ERROR_TRUNCATION_DETECTED, 0, nullptr);
    return 0;
}

cu_ErrorCode cu_str_cat(char* destination, const char* source, uint32_t size)
{
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(source != nullptr);
    if (cu_strlcat(destination, source, size) >= size)
        return CU_REPORT(cu_ERROR_TRUNCATION_DETECTED, 0, nullptr);
    return 0;
}

cu_ErrorCode cu_str_clone(char** destination, const char* source)
{
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(source != nullptr);
    *destination = strdup(source);
    if (*destination == nullptr)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    return 0;
}

cu_ErrorCode cu_snprintf(char* destination, uint32_t size, const char* format, ...)
{
    // Compatibility: the format is checked before the size, although it follows it.
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(format != nullptr);
    CU_REQUIRE(size != 0);

    va_list arguments;
    va_start(arguments, format);
    const int result = vsnprintf(destination, size, format, arguments);
    va_end(arguments);
    // Compatibility: a negative result is printed as an unsigned number.
    if (!fits(result, size))
        return CU_REPORT(cu_ERROR_TRUNCATION_DETECTED, 0, "vsnprintf returned '%u'. given size was '%u'",
                         static_cast<uint32_t>(result), size);
    return 0;
}

cu_ErrorCode cu_vsnprintf(char* destination, uint32_t size, const char* format, va_list arguments)
{
    CU_REQUIRE(format != nullptr && destination != nullptr);
    // Compatibility: size 0 is a truncation here, not a bad argument.
    const int result = vsnprintf(destination, size, format, arguments);
    if (!fits(result, size))
        return CU_REPORT(cu_ERROR_TRUNCATION_DETECTED, 0, "vsnprintf returned '%u'. given size was '%u'",
                         static_cast<uint32_t>(result), size);
    return 0;
}

cu_ErrorCode cu_vsnprintfDyn(char** destination, uint32_t* allocatedSize, const char* format, va_list arguments,
                             cu_allocator* allocator)
{
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(format != nullptr);
    allocator = internal::allocatorOrShared(allocator);

    // Doubling ends: no result of vsnprintf reaches 2 GiB.
    for (uint32_t size = firstDynamicSize;; size *= 2) {
        void* block = *destination;
        CU_TRY(cu_allocator_realloc(allocator, &block, size));
        *destination = static_cast<char*>(block);

        va_list attempt;
        va_copy(attempt, arguments);
        const int result = vsnprintf(*destination, size, format, attempt);
        va_end(attempt);
        if (result < 0) {
            const cu_ErrorCode code = CU_REPORT(cu_ERROR_TRUNCATION_DETECTED, 0, "vsnprintf failed with '%d'", result);
            CU_MUST(cu_allocator_free(allocator, &block));
            *destination = nullptr;
            return code;
        }
        if (fits(result, size)) {
            if (allocatedSize != nullptr)
                *allocatedSize = size;
            return 0;
        }
    }
}

cu_ErrorCode cu_snprintfDyn(char** destination, uint32_t* allocatedSize, const char* format, ...)
{
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(format != nullptr);

    va_list arguments;
    va_start(arguments, format);
    const cu_ErrorCode code = cu_vsnprintfDyn(destination, allocatedSize, format, arguments, nullptr);
    va_end(arguments);
    CU_TRY(code);
    return 0;
}

cu_ErrorCode cu_str_lenDepPrintf(void* destination, uint32_t size, const char* format, ...)
{
    CU_REQUIRE(format != nullptr && destination != nullptr);

    va_list arguments;
    va_start(arguments, format);
    const cu_ErrorCode code =
        size != 0 ? cu_vsnprintf(static_cast<char*>(destination), size, format, arguments)
                  : cu_vsnprintfDyn(static_cast<char**>(destination), nullptr, format, arguments, nullptr);
    va_end(arguments);
    CU_TRY(code);
    return 0;
}

cu_ErrorCode cu_str_count(const char* text, uint32_t character, uint32_t* count)
{
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(count != nullptr);
    *count = countByte(text, character);
    return 0;
}

cu_ErrorCode cu_str_countAndAdd(const char* text, uint32_t character, uint32_t* total)
{
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(total != nullptr);
    *total += countByte(text, character);
    return 0;
}

cu_ErrorCode cu_str_memcpy(void* destination, uint32_t destinationLength, const void* source, uint32_t sourceLength)
{
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(source != nullptr);
    if (sourceLength > destinationLength)
        // Compatibility: the first quotation mark of this text has no partner.
        return CU_REPORT(cu_ERROR_TRUNCATION_DETECTED, 0, "Dest length='%u, src length='%u'", destinationLength,
                         sourceLength);
    memcpy(destination, source, sourceLength);
    return 0;
}
