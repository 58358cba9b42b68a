// Lines of the log on a stream: "[day.month.year hour:minute:second] Level: text".
#pragma once

#include "internal/report.h"

#include <cUtil/allocator.h>
#include <cUtil/logger/adapter.h>
#include <cUtil/mutex.h>

#include <cstdio>

namespace cu::internal
{

inline constexpr uint32_t highestLogLevel = cu_logger_LEVEL_DEBUG;

const char* logLevelName(uint32_t level);

/// The private state of an adapter that writes to a stream.
struct StreamAdapter {
    cu_logger_Adapter* adapter;
    cu_allocator* allocator;
    cu_Mutex* mutex;
    FILE* stream;
    // Under the mutex: the time of the last line as text, good for as long as its second lasts.
    time_t stampedSecond;
    uint32_t stampLength;
    char stamp[52];
};

/// Writes a line of a level that there is; a part of the function at `place`.
cu_ErrorCode writeLogLine(StreamAdapter* me, uint32_t level, const char* text, bool flush, Place place);

} // namespace cu::internal
