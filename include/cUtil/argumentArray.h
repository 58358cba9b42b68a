/** @file
 *  A list of words in the form of a program's arguments, and a parser that makes it from a command line.
 *
 *  The words stand in an array of pointers that ends with NULL, as execv() takes it. Words are never empty.
 *
 *  Every function returns 0 or an error code, and cu_ERROR_COM_INVALID_ARGUMENT for a null argument that is not said to
 *  be allowed. Argument arrays are not locked: one thread at a time per array. Nothing blocks, unless the allocator
 *  does.
 */
#ifndef CUTIL_ARGUMENTARRAY_H
#define CUTIL_ARGUMENTARRAY_H

#include <cUtil/allocator.h>
#include <cUtil/tools/string.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A growing list of words, which it owns. */
typedef struct cu_ArgumentArray cu_ArgumentArray;

/**
 * Creates an empty array.
 *
 * @param array      address of a null handle; set only on success. cu_ArgumentArray_delete() ends the array.
 * @param allocator  for the array and its words; null: the shared one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_ArgumentArray_new(cu_ArgumentArray** array, cu_allocator* allocator);

/**
 * Appends a copy of a word.
 *
 * @param array  the array; unchanged on failure
 * @param s      the word, not empty; it is taken as it is
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED when 32 bits cannot say how much memory is
 *         needed; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_ArgumentArray_addCString(cu_ArgumentArray* array, const char* s);

/**
 * Appends a copy of a string.
 *
 * @param array  the array; unchanged on failure
 * @param s      the string, not empty; its text is taken as it is
 * @return as cu_ArgumentArray_addCString()
 */
CU_EXPORT cu_ErrorCode cu_ArgumentArray_add(cu_ArgumentArray* array, const cu_String* s);

/**
 * Gives the words.
 *
 * @param array  the array, to which the words and their vector belong: they stay valid until it changes
 * @param argv   receives the vector, with NULL behind the last word
 * @param count  receives the number of words
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_ArgumentArray_get(const cu_ArgumentArray* array, char*** argv, uint32_t* count);

/**
 * Releases all words.
 *
 * @param array  the array; on failure it keeps the words that could not be released
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_ArgumentArray_clear(cu_ArgumentArray* array);

/**
 * Ends an array and its words.
 *
 * @param array  address of the handle, which must hold an array; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_ArgumentArray_delete(cu_ArgumentArray** array);

/**
 * Splits a command line and appends its words.
 *
 * Spaces separate the words; tabs and line feeds are characters like any other. Between two double quotes spaces and
 * single quotes are characters like any other, between two single quotes spaces and double quotes are. The quotes
 * themselves are dropped, and do not end a word: `a"b c"d` is the one word `ab cd`. There is no escape character. What
 * is empty is no word, quoted or not.
 *
 * @param array  the array; on failure it has the words in front of the one that failed
 * @param line   the command line
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when the line ends within quotes; cu_ERROR_COM_MALLOC_FAILED when 32
 *         bits cannot say how much memory is needed; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_ArgumentArray_parse(cu_ArgumentArray* array, const char* line);

CU_END_DECLS

#endif
