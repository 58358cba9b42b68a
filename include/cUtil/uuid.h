/** @file
 *  Random identifiers of 128 bits, and their text of 32 hexadecimal digits.
 *
 *  All bits are random: no version and no variant is marked in them. Identifiers may lie anywhere, on the stack or in
 *  records of the caller's; those of cu_UUID_new() and cu_UUID_clone() lie on the shared heap.
 *
 *  Any thread may call the functions on identifiers of its own. None blocks.
 */
#ifndef CUTIL_UUID_H
#define CUTIL_UUID_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** Bytes of an identifier. */
#define CU_UUID_SIZE 16

/** Characters of the text of an identifier, with the terminating NUL. */
#define CU_UUID_TEXT_SIZE 33

/** An identifier. */
typedef struct cu_UUID {
    uint8_t data[CU_UUID_SIZE]; /**< In the order in which the text shows them. */
} cu_UUID;

/**
 * Gets memory for an identifier, which is yet to be set.
 *
 * @param uuid  address of a null handle; set only on success. cu_UUID_delete() ends the identifier.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_UUID_new(cu_UUID** uuid);

/**
 * Ends an identifier that cu_UUID_new() or cu_UUID_clone() made.
 *
 * @param uuid  address of the handle, which must hold an identifier; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_UUID_delete(cu_UUID** uuid);

/**
 * Makes a new identifier of random bits from /dev/urandom, some of which are read ahead for later calls; a child
 * process does not inherit these. Where the device cannot be opened the bits are those of `rand`, as the application
 * seeded it.
 *
 * @param uuid  receives the identifier
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_INVALID_FILE with the system's error code when the device can be
 *         opened but gives no bytes
 */
CU_EXPORT cu_ErrorCode cu_UUID_create(cu_UUID* uuid);

/**
 * Sets an identifier from its text.
 *
 * @param uuid  receives the identifier. After a character that is no digit it holds the bytes before that one.
 * @param text  32 hexadecimal digits of either case and nothing else
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, with a description that names the character if one is no digit
 */
CU_EXPORT cu_ErrorCode cu_UUID_fromString(cu_UUID* uuid, const char* text);

/**
 * Sets an identifier from its bytes.
 *
 * @param uuid  receives the identifier
 * @param data  the bytes
 * @param size  #CU_UUID_SIZE; any other size but 0 is a success that leaves the identifier as it was
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_UUID_fromData(cu_UUID* uuid, const void* data, uint32_t size);

/**
 * Makes a copy of an identifier.
 *
 * @param dst  address of a null handle; set only on success. cu_UUID_delete() ends the copy.
 * @param src  the identifier to copy
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_UUID_clone(cu_UUID** dst, const cu_UUID* src);

/**
 * Gives the bytes of an identifier.
 *
 * @param uuid  the identifier
 * @param data  receives the address of its #CU_UUID_SIZE bytes, which belong to it
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_UUID_getData(const cu_UUID* uuid, const uint8_t** data);

/**
 * Tells an identifier as text.
 *
 * @param uuid  the identifier
 * @param text  receives #CU_UUID_TEXT_SIZE characters: two upper-case digits for each byte, and NUL
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_UUID_toString(const cu_UUID* uuid, char* text);

/**
 * Compares two identifiers byte by byte.
 *
 * @param a       one
 * @param b       the other
 * @param result  receives 0 if they are equal, a negative number if @p a comes first, else a positive one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_UUID_compare(const cu_UUID* a, const cu_UUID* b, int32_t* result);

CU_END_DECLS

#endif
