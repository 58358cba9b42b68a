/** @file
 *  The whole library.
 */
#ifndef CUTIL_CUTIL_H
#define CUTIL_CUTIL_H

#include <cUtil/algorithm/map.h>
#include <cUtil/algorithm/queue.h>
#include <cUtil/algorithm/set.h>
#include <cUtil/allocator.h>
#include <cUtil/argumentArray.h>
#include <cUtil/atomicLock.h>
#include <cUtil/commandLine.h>
#include <cUtil/conditionVariable.h>
#include <cUtil/conditionWait.h>
#include <cUtil/convert.h>
#include <cUtil/errorCodes.h>
#include <cUtil/errorInfo.h>
#include <cUtil/fifo.h>
#include <cUtil/ipcSemaphore.h>
#include <cUtil/mallocAllocator.h>
#include <cUtil/mappedFile.h>
#include <cUtil/mutex.h>
#include <cUtil/pointerBuffer.h>
#include <cUtil/propertyMap.h>
#include <cUtil/ringBuffer.h>
#include <cUtil/rpcChannel.h>
#include <cUtil/rpcQueue.h>
#include <cUtil/runnable.h>
#include <cUtil/rwMutex.h>
#include <cUtil/semaphore.h>
#include <cUtil/serializer.h>
#include <cUtil/sharedLibrary.h>
#include <cUtil/sharedMemory.h>
#include <cUtil/spinLock.h>
#include <cUtil/system/group.h>
#include <cUtil/system/user.h>
#include <cUtil/thread.h>
#include <cUtil/threadLocal.h>
#include <cUtil/threadPool.h>
#include <cUtil/time/asyncClock.h>
#include <cUtil/time/calendar.h>
#include <cUtil/time/clock.h>
#include <cUtil/time/dateTime.h>
#include <cUtil/time/executionTime.h>
#include <cUtil/time/processorTime.h>
#include <cUtil/time/time.h>
#include <cUtil/time/timer.h>
#include <cUtil/tools/hexDump.h>
#include <cUtil/tools/safeMalloc.h>
#include <cUtil/tools/safeStringOps.h>
#include <cUtil/tools/string.h>
#include <cUtil/tools/stringTokenizer.h>
#include <cUtil/types.h>
#include <cUtil/variant.h>
#include <cUtil/version.h>

#endif
