/** @file
 *  Splits a text at a delimiter character.
 *
 *  Tokenizers are not locked; any number of threads may read one.
 */
#ifndef CUTIL_TOOLS_STRING_TOKENIZER_H
#define CUTIL_TOOLS_STRING_TOKENIZER_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** The tokens of a text, in a private copy of it. */
typedef struct cu_StringTokenizer cu_StringTokenizer;

/**
 * Splits a text. Adjacent delimiters and delimiters at either end give empty tokens.
 *
 * @param tokenizer  address of a null handle; set only on success. cu_StringTokenizer_delete() ends the tokenizer.
 * @param text       the text, which is copied to the heap
 * @param delimiter  byte value: cast a `char` to `unsigned char`; 0 and values above 255 occur in no text
 * @param allocator  for the object; null: the shared one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_NO_TOKEN_POSSIBLE when the text does not contain the delimiter,
 * for not even a single token is made then; cu_ERROR_COM_MALLOC_FAILED; or what the allocator says
 *
 * Does not block, unless the allocator does.
 */
CU_EXPORT cu_ErrorCode cu_StringTokenizer_new(cu_StringTokenizer** tokenizer, const char* text, uint32_t delimiter,
                                              cu_allocator* allocator);

/**
 * Gives the number of tokens.
 *
 * @param tokenizer  the tokenizer
 * @param count      receives the number, 2 at least
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_StringTokenizer_getNumTokens(const cu_StringTokenizer* tokenizer, uint32_t* count);

/**
 * Gives a token.
 *
 * @param tokenizer  the tokenizer
 * @param index      0 to the number of tokens - 1
 * @param token      receives the NUL-terminated text, which belongs to the tokenizer
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_StringTokenizer_getToken(const cu_StringTokenizer* tokenizer, uint32_t index,
                                                   const char** token);

/**
 * Ends a tokenizer and its tokens.
 *
 * @param tokenizer  address of the handle, which must hold a tokenizer; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_StringTokenizer_delete(cu_StringTokenizer** tokenizer);

CU_END_DECLS

#endif
