/** @file
 *  The MD5 digest of a block of bytes (RFC 1321). It tells accidental changes, not forgeries: blocks of equal digest
 * can be made on purpose.
 */
#ifndef CUTIL_MD5_H
#define CUTIL_MD5_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** Bytes of a digest. */
#define CU_MD5_DIGEST_SIZE 16

/**
 * Digests a block of bytes, without a copy of it and without memory from the heap.
 *
 * @param data    the block
 * @param length  its bytes, not 0: an empty block cannot be digested
 * @param digest  receives the #CU_MD5_DIGEST_SIZE bytes of the digest
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 *
 * Any thread may call it. It does not block.
 */
CU_EXPORT cu_ErrorCode cu_checksum_md5(const void* data, uint32_t length, uint8_t* digest);

CU_END_DECLS

#endif
