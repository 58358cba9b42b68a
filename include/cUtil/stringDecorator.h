/** @file
 *  Puts a fixed decoration, such as an indentation or a tag, in front of texts, except in front of those that contain a
 *  pattern of a stack. Nested scopes push their own exceptions and pop them again.
 *
 *  Every function returns 0 or an error code, and cu_ERROR_COM_INVALID_ARGUMENT for a null argument that is not said to
 *  be allowed. Decorators are not locked: one thread at a time per decorator, any number as long as all of them only
 *  look. Nothing blocks.
 */
#ifndef CUTIL_STRING_DECORATOR_H
#define CUTIL_STRING_DECORATOR_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A decoration and the patterns that keep it away. */
typedef struct cu_StringDecorator cu_StringDecorator;

/**
 * Makes a decorator with an empty decoration and no pattern.
 *
 * @param dec          address of a null handle; set only on success. cu_StringDecorator_delete() ends the decorator.
 * @param maxPatterns  how many patterns its stack holds, at 1024 bytes each; 0: none
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED, always from 4194304 (4 GiB) on
 */
CU_EXPORT cu_ErrorCode cu_StringDecorator_new(cu_StringDecorator** dec, uint32_t maxPatterns);

/**
 * Ends a decorator.
 *
 * @param dec  address of the handle, which must hold a decorator; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_StringDecorator_delete(cu_StringDecorator** dec);

/**
 * Sets the decoration.
 *
 * @param dec   the decorator
 * @param text  the decoration, at most 1023 characters; copied
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TRUNCATION_DETECTED for a longer one, whose first 1023 characters
 *         are then the decoration
 */
CU_EXPORT cu_ErrorCode cu_StringDecorator_setDec(cu_StringDecorator* dec, const char* text);

/**
 * Gives the decoration.
 *
 * @param dec   the decorator
 * @param text  receives the decoration, which stays the decorator's and changes with it
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_StringDecorator_getDec(const cu_StringDecorator* dec, const char** text);

/**
 * Pushes a pattern. The empty one occurs in every text.
 *
 * @param dec      the decorator
 * @param pattern  the pattern, at most 1023 characters; copied
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when the stack is full; cu_ERROR_TRUNCATION_DETECTED for a longer one.
 *         After a failure the stack is as it was.
 */
CU_EXPORT cu_ErrorCode cu_StringDecorator_pushIgnorePatterns(cu_StringDecorator* dec, const char* pattern);

/** Pops the last pattern. @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when the stack is empty */
CU_EXPORT cu_ErrorCode cu_StringDecorator_popIgnorePatterns(cu_StringDecorator* dec);

/**
 * Gives the last pattern that was pushed.
 *
 * @param dec      the decorator
 * @param pattern  receives the pattern, which stays the decorator's and lasts until a push after its pop
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when the stack is empty
 */
CU_EXPORT cu_ErrorCode cu_StringDecorator_topIgnorePatterns(const cu_StringDecorator* dec, const char** pattern);

/**
 * Tells how full the stack is.
 *
 * @param dec    the decorator
 * @param max    receives how many patterns the stack holds; may be null
 * @param count  receives how many there are; may be null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_StringDecorator_getIgnorePatternsInfo(const cu_StringDecorator* dec, uint32_t* max,
                                                                uint32_t* count);

/**
 * Says whether a pattern occurs in a text.
 *
 * @param dec        the decorator
 * @param text       the text
 * @param contained  receives the answer
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_StringDecorator_containsIgnorePattern(const cu_StringDecorator* dec, const char* text,
                                                                bool* contained);

/**
 * Copies a text, with the decoration in front unless a pattern occurs in it.
 *
 * @param dec     the decorator
 * @param text    the text
 * @param result  receives the copy, which the caller frees with cu_safeFreeImpl(); set only on success, and what
 *                it held before is not looked at
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_TRUNCATION_DETECTED for a result of 2
 *         GiB and above
 */
CU_EXPORT cu_ErrorCode cu_StringDecorator_applyDecIfNotIgnored(const cu_StringDecorator* dec, const char* text,
                                                               char** result);

CU_END_DECLS

#endif
