#include <cUtil/realTime.h>

#include "internal/report.h"

#include <cerrno>
#include <malloc.h>
#include <sys/mman.h>

cu_ErrorCode cu_configureTaskForRealTime(uint32_t stackSize)
{
    // Compatibility: the size is checked, but the stack is not touched ahead.
    CU_REQUIRE(stackSize != 0);

    if (mlockall(MCL_CURRENT | MCL_FUTURE) != 0) {
        const int error = errno;
        return CU_REPORT(cu_ERROR_COM_INVARIANT, error, "mlockall(..) failed: [%d] %s", error,
                         internal::SystemErrorText(error).get());
    }
    if (mallopt(M_TRIM_THRESHOLD, -1) == 0 || mallopt(M_MMAP_MAX, 0) == 0)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, "mallopt(..) failed");
    return 0;
}
