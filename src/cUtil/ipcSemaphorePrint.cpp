// A bare semaphore's bytes in the log, which stands above the semaphores.

#include <cUtil/ipcSemaphore.h>

#include "internal/report.h"

#include <cUtil/logger/logger.h>

cu_ErrorCode cu_ipcSem_print(const sem_t* sem)
{
    CU_REQUIRE(sem != nullptr);

    // Others may be changing them.
    const auto byte = [bytes = static_cast<const unsigned char*>(static_cast<const void*>(sem))](int at) {
        return static_cast<unsigned>(__atomic_load_n(bytes + at, __ATOMIC_RELAXED));
    };
    CU_TRY(cu_Logger_formattedLog(cu_logger_LEVEL_INFO, "sem(%p): %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x %x",
                                  static_cast<const void*>(sem), byte(0), byte(1), byte(2), byte(3), byte(4), byte(5),
                                  byte(6), byte(7), byte(8), byte(9), byte(10), byte(11), byte(12), byte(13), byte(14),
                                  byte(15)));
    return 0;
}
