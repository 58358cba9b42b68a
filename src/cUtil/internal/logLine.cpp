#include "internal/logLine.h"

#include "internal/rollback.h"

#include <cUtil/time/dateTime.h>
#include <cUtil/time/time.h>

#include <stdio_ext.h>

namespace cu::internal
{

namespace
{

// Breaking the time down costs more than all the rest of a line.
cu_ErrorCode renewStamp(StreamAdapter* me, time_t second)
{
    cu_DateTime now = {};
    // If the next second has begun meanwhile it is told to whoever comes with the old one, and rightly so.
    if (const cu_ErrorCode code = cu_DateTime_current(&now); code != 0)
        return code;
    const int length = snprintf(me->stamp, sizeof(me->stamp), "[%02u.%02u.%02u %u:%02u:%02u] ", now.day, now.month,
                                now.year, now.hour, now.minute, now.second);
    me->stampLength = static_cast<uint32_t>(length);
    me->stampedSecond = second;
    return 0;
}

void put(const char* text, std::size_t length, FILE* stream)
{
    fwrite_unlocked(text, 1, length, stream);
}

} // namespace

const char* logLevelName(uint32_t level)
{
    static constexpr char names[highestLogLevel + 1][8] = {"Error", "Warning", "Info", "Debug"};
    return names[level];
}

cu_ErrorCode writeLogLine(StreamAdapter* me, uint32_t level, const char* text, bool flush, Place place)
{
    const char* name = logLevelName(level);
    const std::size_t nameLength = strlen(name);
    const std::size_t length = strlen(text);
    cu_TimeValue now = {};
    CU_TRY_AT(place, cu_getTime(&now, CLOCK_REALTIME));
    CU_TRY_AT(place, cu_Mutex_lock(me->mutex));
    CU_ROLLBACK(unlock, cu_Mutex_unlock(me->mutex));
    if (now.tv_sec != me->stampedSecond || me->stampLength == 0)
        CU_TRY_AT(place, renewStamp(me, now.tv_sec));

    // Lines leave the buffer whole: what a process that dies leaves behind ends with a line, and those of several
    // processes do not mix in one file. Only a line that is longer than the buffer goes out in pieces.
    const std::size_t size = me->stampLength + nameLength + 2 + length + 1;
    flockfile(me->stream);
    if (__fpending(me->stream) + size > __fbufsize(me->stream))
        fflush_unlocked(me->stream);
    put(me->stamp, me->stampLength, me->stream);
    put(name, nameLength, me->stream);
    put(": ", 2, me->stream);
    put(text, length, me->stream);
    put("\n", 1, me->stream);
    if (flush || size > __fbufsize(me->stream))
        fflush_unlocked(me->stream);
    funlockfile(me->stream);

    unlock.dismiss();
    CU_TRY_AT(place, cu_Mutex_unlock(me->mutex));
    return 0;
}

} // namespace cu::internal
