/** @file
 *  The system heap with zero-filled blocks and reported failures.
 *
 *  As thread-safe as that heap: any thread may call any function, and release what another one got. Nothing blocks
 *  beyond the lock of the heap.
 */
#ifndef CUTIL_TOOLS_SAFE_MALLOC_H
#define CUTIL_TOOLS_SAFE_MALLOC_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Gets a zero-filled block from the heap.
 *
 * @param destination  receives the address; null when memory is exhausted, unchanged when an argument is bad
 * @param size         bytes, not 0
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED. The caller releases the block with
 *         cu_safeFreeImpl().
 */
CU_EXPORT cu_ErrorCode cu_safeMalloc(void** destination, uint32_t size);

/**
 * Changes the size of a block from the heap. Bytes that are added are not zeroed.
 *
 * @param destination  holds the block (or null) and receives its new address; on failure it keeps the old, still valid
 *                     block
 * @param size         bytes; 0 releases the block and sets `*destination` to null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_safeRealloc(void** destination, uint32_t size);

/**
 * Releases a block from the heap.
 *
 * @param pointer  the block; null is allowed. The caller's variable is not changed.
 * @return 0
 */
CU_EXPORT cu_ErrorCode cu_safeFreeImpl(void* pointer);

CU_END_DECLS

#endif
