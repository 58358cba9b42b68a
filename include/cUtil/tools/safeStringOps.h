/** @file
 *  Bounded text: copying, joining, formatting and counting that never write beyond a given size.
 *
 *  A text that does not fit is the error cu_ERROR_TRUNCATION_DETECTED; the destination then holds the cut text,
 *  NUL-terminated. A character argument is a byte value: cast a `char` to `unsigned char` first, for a value above 255
 *  matches nothing. No function blocks; as everywhere, two threads may call them at once on different memory.
 */
#ifndef CUTIL_TOOLS_SAFE_STRING_OPS_H
#define CUTIL_TOOLS_SAFE_STRING_OPS_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

#include <stdarg.h>

CU_BEGIN_DECLS

/**
 * Copies a text, without checks and reports.
 *
 * @param destination  receives at most @p size - 1 characters and a NUL; untouched when @p size is 0
 * @param source       the text
 * @param size         bytes of @p destination
 * @return the length of @p source; the copy is cut when it is not smaller than @p size
 */
CU_EXPORT size_t cu_strlcpy(char* destination, const char* source, size_t size);

/**
 * Appends a text, without checks and reports.
 *
 * @param destination  a text; the result keeps within @p size bytes, the NUL included
 * @param source       the text to append
 * @param size         bytes of @p destination
 * @return the length that the whole result would have: that of @p destination, but at most @p size, plus that of
 *         @p source; the result is cut when it is not smaller than @p size
 */
CU_EXPORT size_t cu_strlcat(char* destination, const char* source, size_t size);

/**
 * Copies a text.
 *
 * @param destination  receives the text
 * @param source       the text
 * @param size         bytes of @p destination; 0 is a truncation and writes nothing
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TRUNCATION_DETECTED
 */
CU_EXPORT cu_ErrorCode cu_str_copy(char* destination, const char* source, uint32_t size);

/**
 * Appends a text.
 *
 * @param destination  a text that receives the other one
 * @param source       the text to append
 * @param size         bytes of @p destination in all; 0 is a truncation and writes nothing
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TRUNCATION_DETECTED
 */
CU_EXPORT cu_ErrorCode cu_str_cat(char* destination, const char* source, uint32_t size);

/**
 * Duplicates a text.
 *
 * @param destination  receives the copy, null when memory is exhausted; the caller frees it with cu_safeFreeImpl()
 * @param source       the text
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_str_clone(char** destination, const char* source);

/**
 * Formats into a buffer.
 *
 * @param destination  receives the text
 * @param size         bytes of @p destination, not 0
 * @param format       printf format
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TRUNCATION_DETECTED, also when the format itself fails
 */
CU_EXPORT cu_ErrorCode cu_snprintf(char* destination, uint32_t size, const char* format, ...) CU_PRINTF(3, 4);

/**
 * Formats a list of arguments into a buffer.
 *
 * @param destination  receives the text
 * @param size         bytes of @p destination; 0 is a truncation
 * @param format       printf format
 * @param arguments    its arguments; undefined afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TRUNCATION_DETECTED, also when the format itself fails
 */
CU_EXPORT cu_ErrorCode cu_vsnprintf(char* destination, uint32_t size, const char* format, va_list arguments)
    CU_PRINTF(3, 0);

/**
 * Formats a list of arguments into a block that grows until the text fits: 1024 bytes, 2048, 4096 and so on.
 *
 * @param destination    holds null or a block of @p allocator, whose contents are lost; receives the block with the
 *                       text, which the caller returns to the allocator. When the block cannot grow, it keeps the last
 *                       valid block, which is still the caller's; when the format itself fails, the block is returned
 *                       and this is null.
 * @param allocatedSize  receives the bytes of the block (not the length of the text); null is allowed, unchanged on
 *                       failure
 * @param format         printf format
 * @param arguments      its arguments, not changed
 * @param allocator      null: the shared one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TRUNCATION_DETECTED when the format itself fails; or what the
 *         allocator says
 */
CU_EXPORT cu_ErrorCode cu_vsnprintfDyn(char** destination, uint32_t* allocatedSize, const char* format,
                                       va_list arguments, cu_allocator* allocator) CU_PRINTF(3, 0);

/**
 * Formats into a block of the heap that grows; see cu_vsnprintfDyn().
 *
 * @param destination    holds null or a block of the heap; receives the block with the text, which the caller frees
 * with cu_safeFreeImpl()
 * @param allocatedSize  receives the bytes of the block; null is allowed
 * @param format         printf format
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TRUNCATION_DETECTED when the format itself fails;
 *         cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_snprintfDyn(char** destination, uint32_t* allocatedSize, const char* format, ...)
    CU_PRINTF(3, 4);

/**
 * Formats into a buffer or into a fresh block, as the size says.
 *
 * @param destination  with a size: the buffer, a `char*`; with size 0: a `char**` as for cu_snprintfDyn()
 * @param size         bytes of the buffer; 0 asks for a block of the heap
 * @param format       printf format
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TRUNCATION_DETECTED; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_str_lenDepPrintf(void* destination, uint32_t size, const char* format, ...) CU_PRINTF(3, 4);

/**
 * Counts a character.
 *
 * @param text       the text
 * @param character  byte value; above 255 never matches, and the terminating NUL does not count
 * @param count      receives the number of bytes that equal it
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_str_count(const char* text, uint32_t character, uint32_t* count);

/**
 * Counts a character and adds the result to a total.
 *
 * @param text       the text
 * @param character  byte value; above 255 never matches, and the terminating NUL does not count
 * @param total      grows by the number of bytes that equal it
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_str_countAndAdd(const char* text, uint32_t character, uint32_t* total);

/**
 * Copies bytes into a buffer that must be large enough.
 *
 * @param destination        receives the bytes; untouched on failure
 * @param destinationLength  bytes of @p destination
 * @param source             the bytes; they do not overlap the destination
 * @param sourceLength       how many
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TRUNCATION_DETECTED
 */
CU_EXPORT cu_ErrorCode cu_str_memcpy(void* destination, uint32_t destinationLength, const void* source,
                                     uint32_t sourceLength);

CU_END_DECLS

#endif
