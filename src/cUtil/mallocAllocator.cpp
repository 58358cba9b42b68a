#include <cUtil/mallocAllocator.h>

#include "internal/report.h"

#include <cUtil/tools/safeMalloc.h>

namespace
{

cu_ErrorCode allocate(void*, void** destination, uint32_t size)
{
    return cu_safeMalloc(destination, size);
}

cu_ErrorCode reallocate(void*, void** destination, uint32_t size)
{
    return cu_safeRealloc(destination, size);
}

cu_ErrorCode release(void*, void** destination)
{
    cu_safeFreeImpl(*destination);
    *destination = nullptr;
    return 0;
}

cu_ErrorCode keepShared(void*, uint32_t)
{
    return 0;
}

cu_ErrorCode freeInstance(void* context, uint32_t)
{
    return cu_safeFreeImpl(context);
}

constinit cu_allocator shared = {nullptr, allocate, reallocate, release, keepShared};

} // namespace

cu_ErrorCode cu_allocator_malloc_init(cu_allocator** allocatorHandle)
{
    CU_REQUIRE(allocatorHandle != nullptr);
    CU_REQUIRE(*allocatorHandle == nullptr);

    void* block = nullptr;
    CU_TRY(cu_safeMalloc(&block, sizeof(cu_allocator)));
    auto* allocator = static_cast<cu_allocator*>(block);
    *allocator = {allocator, allocate, reallocate, release, freeInstance};
    *allocatorHandle = allocator;
    return 0;
}

cu_allocator* cu_allocator_malloc_get(void)
{
    return &shared;
}
