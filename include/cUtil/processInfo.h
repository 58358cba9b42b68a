/** @file
 *  What the system tells about a process.
 */
#ifndef CUTIL_PROCESSINFO_H
#define CUTIL_PROCESSINFO_H

#include <cUtil/time/time.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Tells how much processor time a process has used, children not included, in steps of the system's clock tick
 * (usually 10 ms).
 *
 * @param pid         the process's id
 * @param userTime    receives the time spent in its own code; unchanged on failure
 * @param systemTime  receives the time the system has spent on its behalf; unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also with the system's error when there is no such process;
 *         cu_ERROR_COM_INVARIANT when what the system tells makes no sense
 *
 * Any thread may call it. Does not block.
 */
CU_EXPORT cu_ErrorCode cu_ProcessInfo_getCPUTimes(int32_t pid, cu_TimeValue* userTime, cu_TimeValue* systemTime);

CU_END_DECLS

#endif
