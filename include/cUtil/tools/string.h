/** @file
 *  A text that grows.
 *
 *  Every function but cu_String_get() returns 0 or an error code, and cu_ERROR_COM_INVALID_ARGUMENT for a null argument
 *  that is not said to be allowed. A character argument is a byte value: cast a `char` to `unsigned char` first.
 *  Texts compare as bytes. A text handed to a string may lie in the string itself, except as an argument of a format.
 *
 *  Strings are not locked: one thread at a time per string. Nothing blocks, unless the allocator does.
 */
#ifndef CUTIL_TOOLS_STRING_H
#define CUTIL_TOOLS_STRING_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

#include <stdarg.h>

CU_BEGIN_DECLS

/** A text with its length and its capacity: a NUL-terminated buffer of an allocator. */
typedef struct cu_String cu_String;

/**
 * Creates an empty string with room for 255 characters.
 *
 * @param string     address of a null handle; set only on success. cu_String_delete() ends the string.
 * @param allocator  for the object and its buffer; null: the shared one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_String_new(cu_String** string, cu_allocator* allocator);

/**
 * Creates a copy of a string: its text, its length and its capacity.
 *
 * @param string     address of a null handle; set only on success
 * @param source     the string to copy
 * @param allocator  for the copy; null: the shared one, not that of @p source
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_String_clone(cu_String** string, const cu_String* source, cu_allocator* allocator);

/**
 * Creates a string from a text.
 *
 * @param string     address of a null handle; set only on success
 * @param text       the text. Its length becomes the capacity when that is above 256.
 * @param allocator  for the object and its buffer; null: the shared one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_String_cloneStr(cu_String** string, const char* text, cu_allocator* allocator);

/**
 * Ends a string.
 *
 * @param string  address of the handle, which must hold a string; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_String_delete(cu_String** string);

/** Gives the text of @p string to read, null for a null string. It is valid until the string changes or ends. */
CU_EXPORT const char* cu_String_get(const cu_String* string);

/** Makes @p string empty; its capacity stays. */
CU_EXPORT cu_ErrorCode cu_String_clear(cu_String* string);

/**
 * Cuts the capacity to the length + 1, and a text that is longer than the length (after cu_String_format()) with it.
 * On the shared heap the buffer grows ahead of appended texts; this gives the surplus back.
 *
 * @param string  the string
 * @return 0, even when the buffer cannot be had (the error record tells): it then stays as it was;
 *         cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_String_squeeze(cu_String* string);

/**
 * Makes room for fresh contents, and makes the string empty in every case.
 *
 * @param string    the string
 * @param capacity  bytes, the NUL included, not 0; a capacity that is already there stays
 * @return 0, even when the memory cannot be had (the error record tells): the string is then empty and gets its room
 *         when it is needed; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_String_grow(cu_String* string, uint32_t capacity);

/**
 * Replaces the text by that of another string.
 *
 * @param string  the string
 * @param source  where the text comes from; it may be the string itself
 * @return 0, even when the memory cannot be had (the error record tells): the text is then cut to what fits;
 *         cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED for a text of 4 GiB, which changes nothing
 */
CU_EXPORT cu_ErrorCode cu_String_assign(cu_String* string, const cu_String* source);

/** As cu_String_assign(), from a NUL-terminated @p text, which may lie in the string itself. */
CU_EXPORT cu_ErrorCode cu_String_assignStr(cu_String* string, const char* text);

/**
 * Appends the text of another string.
 *
 * @param string  the string
 * @param source  where the text comes from; it may be the string itself
 * @return 0, even when the memory cannot be had (the error record tells): the text is then cut to what fits;
 *         cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED for a text of 4 GiB, which changes nothing
 */
CU_EXPORT cu_ErrorCode cu_String_append(cu_String* string, const cu_String* source);

/** As cu_String_append(), from a NUL-terminated @p text, which may lie in the string itself. */
CU_EXPORT cu_ErrorCode cu_String_appendStr(cu_String* string, const char* text);

/**
 * Replaces the text by a formatted one; the length as recorded does not change.
 *
 * Only a text that fits into the capacity succeeds: make room with cu_String_grow() first. A longer one gets a larger
 * buffer, loses its last character, and is an error.
 *
 * @param string  the string
 * @param format  printf format; its arguments must not point into the string
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TRUNCATION_DETECTED when the format itself fails;
 *         cu_ERROR_COM_INVARIANT for a text that did not fit; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_String_format(cu_String* string, const char* format, ...) CU_PRINTF(2, 3);

/** As cu_String_format(), with the @p arguments as a list; they are undefined afterwards. */
CU_EXPORT cu_ErrorCode cu_String_vaFormat(cu_String* string, const char* format, va_list arguments) CU_PRINTF(2, 0);

/**
 * Counts a character.
 *
 * @param string     the string
 * @param character  byte value; above 255 never matches
 * @param count      receives the number of bytes that equal it
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_String_count(const cu_String* string, uint32_t character, uint32_t* count);

/**
 * Compares two strings.
 *
 * @param a       a string
 * @param b       another
 * @param result  receives a value below, equal to or above 0, as `strcmp` gives it
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_String_compare(const cu_String* a, const cu_String* b, int32_t* result);

/** As cu_String_compare(), with a NUL-terminated @p text. */
CU_EXPORT cu_ErrorCode cu_String_compareStr(const cu_String* a, const char* text, int32_t* result);

/**
 * Says whether two strings are equal, in their lengths as recorded and in their texts.
 *
 * @param a      a string
 * @param b      another
 * @param equal  receives the answer. After cu_String_format() the recorded length is not that of the text.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_String_equals(const cu_String* a, const cu_String* b, bool* equal);

/** Says whether the text of @p a equals a NUL-terminated @p text; lengths as recorded do not matter. */
CU_EXPORT cu_ErrorCode cu_String_equalsStr(const cu_String* a, const char* text, bool* equal);

/**
 * Duplicates the text.
 *
 * @param string  the string
 * @param copy    receives the copy, null when memory is exhausted; the caller frees it with cu_safeFreeImpl()
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED, which is not reported: the error record keeps
 *         what it held
 */
CU_EXPORT cu_ErrorCode cu_String_createCString(const cu_String* string, char** copy);

/**
 * Replaces a character wherever it stands.
 *
 * @param string  the string
 * @param from    byte value to look for; 0 and values above 255 match nothing
 * @param to      byte value to put there, of which the low eight bits count; 0 ends the text at the first match, and
 * the recorded length becomes that of the text
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_String_replace(cu_String* string, uint32_t from, uint32_t to);

CU_END_DECLS

#endif
