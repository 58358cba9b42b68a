/** @file
 *  Allocators: a small table of operations through which objects get and return their memory.
 *
 *  Every object takes the allocator of its choice at creation (null means the shared one of mallocAllocator.h) and
 *  returns its memory through the same allocator.
 */
#ifndef CUTIL_ALLOCATOR_H
#define CUTIL_ALLOCATOR_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** An allocator. Applications may fill one of their own; an operation that is null is refused when it is called. */
typedef struct cu_allocator {
    /** The allocator's own state, first argument of every operation. */
    void* context;
    /** Stores the address of a fresh block of @p size bytes in `*destination`. The library does not rely on its
     *  contents. */
    cu_ErrorCode (*alloc)(void* context, void** destination, uint32_t size);
    /** Changes the size of the block at `*destination`, which may be null, and keeps its contents. On failure the old
     *  block stays valid. */
    cu_ErrorCode (*realloc)(void* context, void** destination, uint32_t size);
    /** Releases the block at `*destination` and sets the pointer to null. */
    cu_ErrorCode (*free)(void* context, void** destination);
    /** Releases the allocator's own resources; @p argument is passed through from cu_allocator_destruct(). */
    cu_ErrorCode (*destruct)(void* context, uint32_t argument);
} cu_allocator;

/**
 * Gets a block.
 *
 * @param allocator    the allocator; it must have the operation
 * @param destination  receives the address of the block
 * @param size         bytes, not 0
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 *
 * As thread-safe and as blocking as the allocator.
 */
CU_EXPORT cu_ErrorCode cu_allocator_alloc(cu_allocator* allocator, void** destination, uint32_t size);

/**
 * Changes the size of a block.
 *
 * @param allocator    the allocator; it must have the operation
 * @param destination  holds the block (or null) and receives its new address; on failure it keeps the old one
 * @param size         bytes; 0 is passed on
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 *
 * As thread-safe and as blocking as the allocator.
 */
CU_EXPORT cu_ErrorCode cu_allocator_realloc(cu_allocator* allocator, void** destination, uint32_t size);

/**
 * Releases a block.
 *
 * @param allocator    the allocator that the block came from; it must have the operation
 * @param destination  holds the block; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 *
 * As thread-safe and as blocking as the allocator.
 */
CU_EXPORT cu_ErrorCode cu_allocator_free(cu_allocator* allocator, void** destination);

/**
 * Ends an allocator.
 *
 * @param allocatorHandle  holds the allocator; null afterwards, unchanged on failure
 * @param argument         passed through to the allocator's operation
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 *
 * The blocks that it gave out must have been returned, unless the allocator says otherwise. No other thread may use it
 * any more.
 */
CU_EXPORT cu_ErrorCode cu_allocator_destruct(cu_allocator** allocatorHandle, uint32_t argument);

CU_END_DECLS

#endif
