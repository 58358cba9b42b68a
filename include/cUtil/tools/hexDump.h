/** @file
 *  Bytes as text for people: offset, hexadecimal columns, characters.
 */
#ifndef CUTIL_TOOLS_HEX_DUMP_H
#define CUTIL_TOOLS_HEX_DUMP_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Prints a range of bytes.
 *
 * Two lines of heading, then one line per 16 bytes: the offset in eight hexadecimal digits, the bytes in columns of
 * three without leading zeros, and the bytes as characters, a full stop for those outside 0x20 to 0x7E. Equal lines in
 * succession shrink to one "*". The last line always stands; it holds the rest of the bytes, none of them when the
 * length is a multiple of 16.
 *
 * @param data         the bytes; must not be null even when @p length is 0
 * @param length       how many
 * @param destination  with a size: the buffer, a `char*`; with size 0: a `char**` that receives a block of the heap of
 *                     sufficient size (null when there is none), which the caller frees with cu_safeFreeImpl()
 * @param size         bytes of the buffer; 0 asks for a block of the heap
 * @param prefix       stands at the start of each line; null: nothing
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_TRUNCATION_DETECTED when the buffer is
 *         too small: it then holds what fitted, NUL-terminated
 *
 * Does not block; other threads may call it at once.
 */
CU_EXPORT cu_ErrorCode cu_printHexDump(const void* data, uint32_t length, void* destination, uint32_t size,
                                       const char* prefix);

CU_END_DECLS

#endif
