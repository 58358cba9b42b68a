#include <cUtil/logger/tcpLoggingClient.h>

#include "internal/logRecord.h"
#include "internal/owned.h"
#include "internal/rollback.h"

#include <cUtil/network/tcpSocket.h>
#include <cUtil/thread.h>
#include <cUtil/time/time.h>

#include <algorithm>
#include <sys/ioctl.h>
#include <sys/socket.h>

struct cu_logger_TCPLoggingClient {
    cu_allocator* allocator;
    cu_TCPSocket* socket;
    cu_Runnable* runnable;
    cu_logger_Adapter* adapter;
};

namespace
{

constexpr uint32_t connectTimeout = 100; // milliseconds
constexpr uint32_t flagPeriod = 100;     // milliseconds between two looks at the running flag
constexpr uint32_t firstTextSize = 4096;

// What the loop reads with: the flag, and a buffer for texts.
struct Reader {
    const cu_logger_TCPLoggingClient* client;
    const void* running;
    void* buffer;
    uint32_t size;
};

// Receives so many bytes, unless the flag is cleared first: `isComplete` tells. Asks for what has come only, so that
// whoever stops in the middle of a record keeps nobody waiting.
cu_ErrorCode receive(const Reader& me, void* to, uint32_t length, bool* isComplete)
{
    cu_TCPSocket* socket = me.client->socket;
    const cu_Selectable* selectable = cu_TCPSocket_getSelectable(socket);
    auto* end = static_cast<unsigned char*>(to);
    while (length != 0 && cu_Thread_isRunning(me.running)) {
        bool isReady = false;
        if (const cu_ErrorCode code = cu_Selectable_waitReadReady(selectable, flagPeriod * cu_USEC_PER_MSEC, &isReady);
            code != 0)
            return code;
        if (!isReady)
            continue;
        int available = 0;
        ioctl(cu_Selectable_getHandle(selectable), FIONREAD, &available);
        // Ready with nothing: the connection has ended, and a single byte brings the reason.
        const uint32_t piece = std::min(static_cast<uint32_t>(std::max(available, 1)), length);
        if (const cu_ErrorCode code = cu_TCPSocket_receive(socket, end, piece); code != 0)
            return code;
        end += piece;
        length -= piece;
    }
    *isComplete = length == 0;
    return 0;
}

// Receives a text. The buffer grows up to its length, but never to more than twice of what has come.
cu_ErrorCode receiveText(Reader& me, uint32_t length, bool* isComplete)
{
    *isComplete = true;
    uint32_t received = 0;
    while (received < length && *isComplete) {
        if (received == me.size) {
            const auto size = static_cast<uint32_t>(std::min<uint64_t>(length, uint64_t{2} * me.size));
            if (const cu_ErrorCode code = cu_allocator_realloc(me.client->allocator, &me.buffer, size); code != 0)
                return code;
            me.size = size;
        }
        const uint32_t piece = std::min(length, me.size) - received;
        if (const cu_ErrorCode code = receive(me, static_cast<unsigned char*>(me.buffer) + received, piece, isComplete);
            code != 0)
            return code;
        received += piece;
    }
    return 0;
}

cu_ErrorCode cu_logger_TCPLoggingClient_read(const cu_logger_TCPLoggingClient* client, const void* running)
{
    Reader me = {client, running, nullptr, firstTextSize};
    CU_TRY(cu_allocator_alloc(client->allocator, &me.buffer, me.size));
    CU_ROLLBACK(release, cu_allocator_free(client->allocator, &me.buffer));

    for (;;) {
        internal::LogRecordHead head = {};
        bool isComplete = false;
        CU_TRY(receive(me, &head, sizeof(head), &isComplete));
        const uint32_t length = ntohl(head.length);
        if (isComplete)
            CU_TRY(receiveText(me, length, &isComplete));
        if (!isComplete)
            return 0;
        const char* text = static_cast<const char*>(me.buffer);
        if (length == 0 || text[length - 1] != '\0')
            return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
        CU_TRY(cu_logger_Adapter_logMessage(client->adapter, ntohl(head.level), text));
    }
}

uintptr_t read(void* running, void* client)
{
    return cu_logger_TCPLoggingClient_read(static_cast<const cu_logger_TCPLoggingClient*>(client), running);
}

} // namespace

cu_ErrorCode cu_logger_TCPLoggingClient_new(cu_logger_TCPLoggingClient** client, cu_logger_Adapter* adapter,
                                            uint32_t address, uint16_t port, cu_allocator* allocator)
{
    CU_REQUIRE(client != nullptr);
    CU_REQUIRE(*client == nullptr);
    CU_REQUIRE(adapter != nullptr);

    internal::Owned<cu_logger_TCPLoggingClient> object;
    CU_TRY(object.allocate(allocator));
    object->adapter = adapter;
    CU_TRY(cu_TCPSocket_new(&object->socket, address, port, connectTimeout, object->allocator));
    CU_ROLLBACK(socket, cu_TCPSocket_delete(&object->socket));
    CU_TRY(cu_Runnable_new(&object->runnable, read, object.get(), object->allocator));
    socket.dismiss();
    *client = object.release();
    return 0;
}

cu_ErrorCode cu_logger_TCPLoggingClient_delete(cu_logger_TCPLoggingClient** client)
{
    CU_REQUIRE(client != nullptr);
    CU_REQUIRE(*client != nullptr);

    cu_logger_TCPLoggingClient* me = *client;
    // First, so that whoever reads comes to an end. The connection may have ended already.
    shutdown(cu_Selectable_getHandle(cu_TCPSocket_getSelectable(me->socket)), SHUT_RDWR);
    CU_MUST(cu_Runnable_delete(&me->runnable));
    CU_MUST(cu_TCPSocket_delete(&me->socket));
    CU_MUST(cu_logger_Adapter_destruct(&me->adapter));
    CU_MUST(internal::freeObject(client));
    return 0;
}

cu_ErrorCode cu_logger_TCPLoggingClient_run(cu_logger_TCPLoggingClient* client, bool* running)
{
    CU_REQUIRE(client != nullptr);
    CU_REQUIRE(running != nullptr);

    CU_TRY(cu_Runnable_lock(client->runnable));
    uintptr_t result = 0;
    CU_TRY(cu_Runnable_execute(client->runnable, running, &result));
    return static_cast<cu_ErrorCode>(result);
}

cu_Runnable* cu_logger_TCPLoggingClient_getRunnable(cu_logger_TCPLoggingClient* client)
{
    return client != nullptr ? client->runnable : nullptr;
}
