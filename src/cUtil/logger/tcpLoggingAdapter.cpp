#include <cUtil/logger/tcpLoggingAdapter.h>

#include "internal/logRecord.h"
#include "internal/newAdapter.h"
#include "internal/rollback.h"
#include "internal/socket.h"

#include <cUtil/mutex.h>
#include <cUtil/network/tcpServerSocket.h>
#include <cUtil/network/tcpSocket.h>
#include <cUtil/runnable.h>
#include <cUtil/thread.h>
#include <cUtil/time/time.h>

#include <algorithm>
#include <sys/socket.h>

namespace
{

constexpr uint32_t backlog = 1;
constexpr uint32_t flagPeriod = 200; // milliseconds between two looks at the running flag

// A viewer that takes so long for a line holds up the application no longer; twice that when the last piece waits.
constexpr int32_t patience = 400; // milliseconds
constexpr std::size_t pieceSize = 16384;
constexpr std::size_t firstTextSize = 1016; // that goes in one piece with the head

struct TCPAdapter {
    cu_logger_Adapter* adapter;
    cu_allocator* allocator;
    cu_TCPServerSocket* server;
    cu_Thread* thread;
    cu_Runnable* runnable;
    cu_Mutex* mutex;
    cu_TCPSocket* viewer; // under the mutex
};

// The connection may be in any state, and a failure's record is to stay.
void cutOff(cu_TCPSocket** viewer)
{
    shutdown(cu_Selectable_getHandle(cu_TCPSocket_getSelectable(*viewer)), SHUT_RDWR);
    CU_MUST(cu_TCPSocket_delete(viewer));
}

cu_ErrorCode sendRecord(cu_TCPSocket* viewer, uint32_t level, const char* text, std::size_t size)
{
    struct {
        internal::LogRecordHead head;
        char text[firstTextSize];
    } first;
    first.head = {htonl(level), htonl(static_cast<uint32_t>(size))};
    const int64_t deadline = internal::monotonicNow() + int64_t{patience} * 1'000'000;
    std::size_t sent = std::min(size, sizeof(first.text));
    memcpy(first.text, text, sent);
    cu_ErrorCode code =
        cu_TCPSocket_send(viewer, &first, static_cast<uint32_t>(sizeof(first.head) + sent), sent < size);
    while (code == 0 && sent < size) {
        if (internal::monotonicNow() >= deadline)
            return cu_ERROR_SOCKET_IO_TIMEOUT;
        const std::size_t piece = std::min(size - sent, pieceSize);
        code = cu_TCPSocket_send(viewer, text + sent, static_cast<uint32_t>(piece), sent + piece < size);
        sent += piece;
    }
    return code;
}

cu_ErrorCode cu_logger_TCPLoggingAdapter_logMessage(void* context, uint32_t level, const char* text)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(text != nullptr);

    auto* me = static_cast<TCPAdapter*>(context);
    const std::size_t size = strlen(text) + 1;
    cu_ErrorCode code = cu_Mutex_lock(me->mutex);
    if (code != 0) {
        internal::passOn(code, CU_HERE);
        return 0;
    }
    if (me->viewer != nullptr) {
        code = sendRecord(me->viewer, level, text, size);
        if (code != 0) {
            internal::passOn(code, CU_HERE);
            cutOff(&me->viewer);
        }
    }
    CU_MUST(cu_Mutex_unlock(me->mutex));
    return 0;
}

// Makes the next connection the viewer, if one comes within the flag period.
cu_ErrorCode awaitViewer(TCPAdapter* me)
{
    cu_TCPSocket* viewer = nullptr;
    cu_ErrorCode code = cu_TCPServerSocket_timedAccept(me->server, flagPeriod * cu_USEC_PER_MSEC, &viewer);
    if (code != 0 || viewer == nullptr)
        return code;
    code = cu_TCPSocket_setOption(viewer, cu_SOCKET_OPT_SEND_TIMEOUT, patience);
    if (code == 0)
        code = cu_Mutex_lock(me->mutex);
    if (code == 0) {
        std::swap(viewer, me->viewer);
        CU_MUST(cu_Mutex_unlock(me->mutex));
    }
    if (viewer != nullptr)
        cutOff(&viewer);
    return code;
}

// A connection that cannot be taken, for want of descriptors for instance, is tried again after a while.
cu_ErrorCode cu_logger_TCPLoggingAdapter_connect(TCPAdapter* me, const void* running)
{
    constexpr cu_TimeValue pause = {0, 200'000'000};
    while (cu_Thread_isRunning(running))
        if (const cu_ErrorCode code = awaitViewer(me); code != 0) {
            internal::passOn(code, CU_HERE);
            CU_TRY(cu_sleepRelative(&pause, CLOCK_MONOTONIC));
        }
    return 0;
}

uintptr_t connect(void* running, void* adapter)
{
    return cu_logger_TCPLoggingAdapter_connect(static_cast<TCPAdapter*>(adapter), running);
}

cu_ErrorCode cu_logger_TCPLoggingAdapter_destruct(void* context)
{
    CU_REQUIRE(context != nullptr);

    auto* me = static_cast<TCPAdapter*>(context);
    CU_MUST(cu_Thread_stop(me->thread, true));
    CU_MUST(cu_Runnable_delete(&me->runnable));
    CU_MUST(cu_Thread_delete(&me->thread));
    CU_MUST(cu_Mutex_delete(&me->mutex));
    CU_MUST(cu_TCPServerSocket_delete(&me->server));
    if (me->viewer != nullptr)
        cutOff(&me->viewer);
    CU_MUST(internal::freeAdapter(me));
    return 0;
}

} // namespace

cu_ErrorCode cu_logger_TCPLoggingAdapter_new(cu_logger_Adapter** adapter, uint32_t address, uint16_t port,
                                             cu_allocator* allocator)
{
    CU_REQUIRE(adapter != nullptr);
    CU_REQUIRE(*adapter == nullptr);

    internal::NewAdapter<TCPAdapter> made;
    CU_TRY(made.allocate(allocator));
    CU_TRY(cu_TCPServerSocket_new(&made->server, port, address, backlog, true, made->allocator));
    CU_ROLLBACK(server, cu_TCPServerSocket_delete(&made->server));
    CU_TRY(cu_Thread_new(&made->thread, made->allocator));
    CU_ROLLBACK(thread, cu_Thread_delete(&made->thread));
    CU_TRY(cu_Runnable_new(&made->runnable, connect, made.get(), made->allocator));
    CU_ROLLBACK(runnable, cu_Runnable_delete(&made->runnable));
    CU_TRY(cu_Mutex_new(&made->mutex, false, made->allocator));
    CU_ROLLBACK(mutex, cu_Mutex_delete(&made->mutex));
    CU_TRY(cu_Thread_start(made->thread, made->runnable));

    mutex.dismiss();
    runnable.dismiss();
    thread.dismiss();
    server.dismiss();
    *adapter = made.release(cu_logger_TCPLoggingAdapter_logMessage, cu_logger_TCPLoggingAdapter_destruct);
    return 0;
}
