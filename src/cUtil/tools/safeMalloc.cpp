#include <cUtil/tools/safeMalloc.h>

#include "internal/report.h"

#include <cstdlib>

using internal::printable;

cu_ErrorCode cu_safeMalloc(void** destination, uint32_t size)
{
    if (destination == nullptr || size == 0)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0, "dest=0x%08X, size=%d", printable(destination),
                         static_cast<int>(size));

    *destination = calloc(size, 1);
    if (*destination == nullptr)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, "Unable to malloc '%d' bytes of memory.",
                         static_cast<int>(size));
    return 0;
}

cu_ErrorCode cu_safeRealloc(void** destination, uint32_t size)
{
    if (destination == nullptr)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0,
                         "dest=0x%08X, *dest=0x%08X (valid if dest is not 0!), size=%d", printable(destination),
                         printable(destination), static_cast<int>(size));

    if (size == 0) {
        // What realloc does with size 0 differs between systems.
        free(*destination);
        *destination = nullptr;
        return 0;
    }
    void* block = realloc(*destination, size);
    if (block == nullptr)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, "Unable to realloc '%d' bytes of memory.",
                         static_cast<int>(size));
    *destination = block;
    return 0;
}

cu_ErrorCode cu_safeFreeImpl(void* pointer)
{
    free(pointer);
    return 0;
}
