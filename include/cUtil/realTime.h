/** @file
 *  Preparing the calling process for real-time work.
 */
#ifndef CUTIL_REALTIME_H
#define CUTIL_REALTIME_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Keeps the memory of the process, that of today and all to come, out of the reach of paging, and the heap from giving
 * memory back to the system, so that getting it again costs no page faults.
 *
 * @param stackSize  not 0; Compatibility: nothing else comes of it, the pages of the stack are not touched ahead
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT, with the system's error when it refuses to lock
 *         memory (rights or limits are missing). What was set before a failure stays.
 *
 * It concerns the whole process; any thread may call it. May block while pages that are not there are fetched.
 */
CU_EXPORT cu_ErrorCode cu_configureTaskForRealTime(uint32_t stackSize);

CU_END_DECLS

#endif
