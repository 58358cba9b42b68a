/* A program of someone who has only the installed library: a failure comes through with its name and its place. */
#include <cUtil/cUtil.h>
#include <cUtil/version.h>

#include <stdio.h>
#include <string.h>

int main(void)
{
    void* block = NULL;
    const cu_ErrorCode refused = cu_safeMalloc(&block, 0);
    const cu_Error* record = cu_getErrorLocation();

    if (strcmp(cu_GetErrorName(refused), "cu_ERROR_COM_INVALID_ARGUMENT") != 0 ||
        cu_Error_getError(record) != refused || strcmp(cu_Error_getFunctionName(record), "cu_safeMalloc") != 0)
        return 1;
    if (cu_safeMalloc(&block, 16) != 0 || cu_safeFreeImpl(block) != 0)
        return 2;
    printf("%s\n", CU_VERSION_STRING);
    return 0;
}
