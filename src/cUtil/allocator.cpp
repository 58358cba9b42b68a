#include <cUtil/allocator.h>

#include "internal/report.h"

#include <cstddef>

static_assert(offsetof(cu_allocator, context) == 0 && offsetof(cu_allocator, alloc) == sizeof(void*));
static_assert(offsetof(cu_allocator, realloc) == 2 * sizeof(void*) &&
              offsetof(cu_allocator, free) == 3 * sizeof(void*));
static_assert(offsetof(cu_allocator, destruct) == 4 * sizeof(void*) && sizeof(cu_allocator) == 5 * sizeof(void*));

cu_ErrorCode cu_allocator_alloc(cu_allocator* allocator, void** destination, uint32_t size)
{
    CU_REQUIRE(allocator != nullptr && allocator->alloc != nullptr);
    CU_REQUIRE(destination != nullptr);
    CU_REQUIRE(size != 0);
    return allocator->alloc(allocator->context, destination, size);
}

cu_ErrorCode cu_allocator_realloc(cu_allocator* allocator, void** destination, uint32_t size)
{
    CU_REQUIRE(allocator != nullptr && allocator->realloc != nullptr);
    CU_REQUIRE(destination != nullptr);
    return allocator->realloc(allocator->context, destination, size);
}

cu_ErrorCode cu_allocator_free(cu_allocator* allocator, void** destination)
{
    CU_REQUIRE(allocator != nullptr && allocator->free != nullptr);
    CU_REQUIRE(destination != nullptr);
    return allocator->free(allocator->context, destination);
}

cu_ErrorCode cu_allocator_destruct(cu_allocator** allocatorHandle, uint32_t argument)
{
    CU_REQUIRE(allocatorHandle != nullptr);
    cu_allocator* allocator = *allocatorHandle;
    CU_REQUIRE(allocator != nullptr && allocator->destruct != nullptr);
    CU_TRY(allocator->destruct(allocator->context, argument));
    *allocatorHandle = nullptr;
    return 0;
}
