#include "internal/owned.h"

namespace cu::internal
{

void giveBack(cu_allocator* allocator, void** block)
{
    CU_MUST(cu_allocator_free(allocator, block));
}

} // namespace cu::internal
