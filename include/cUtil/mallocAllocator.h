/** @file
 *  The allocator over the checked heap calls of tools/safeMalloc.h, shared or as instances. Either gives zero-filled
 *  blocks, and any number of threads may use it at once. Nothing blocks beyond the lock of the heap.
 */
#ifndef CUTIL_MALLOC_ALLOCATOR_H
#define CUTIL_MALLOC_ALLOCATOR_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Makes a heap allocator of the caller's own.
 *
 * @param allocatorHandle  receives the allocator; must hold null. End it with cu_allocator_destruct().
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_allocator_malloc_init(cu_allocator** allocatorHandle);

/**
 * Gives the shared heap allocator, the one that a null allocator argument means.
 *
 * @return the allocator, never null. It belongs to the library and lasts as long as the process; destructing it merely
 *         sets the caller's pointer to null. Any thread may use it at any time.
 */
CU_EXPORT cu_allocator* cu_allocator_malloc_get(void);

CU_END_DECLS

#endif
