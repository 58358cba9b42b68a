#include "internal/msgEndpoint.h"

#include "internal/owned.h"
#include "internal/transfer.h"

#include <algorithm>
#include <cerrno>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace cu::internal
{

namespace
{

// Gives up sending. The shutdown lets the reading come to an end if the connection has not.
void stopSending(Endpoint* me, Direction& out)
{
    me->isUnwilling = true;
    me->out.queue.clear(out.stock);
    shutdown(me->descriptor, SHUT_RDWR);
}

} // namespace

cu_ErrorCode cu_MSGServer_Endpoint_new(Endpoint** me, cu_TCPSocket* socket, uint32_t number, cu_allocator* allocator)
{
    CU_TRY(cu_TCPSocket_setOption(socket, cu_SOCKET_OPT_NO_DELAY, 1));
    CU_TRY(cu_TCPSocket_setOption(socket, cu_SOCKET_OPT_QUICK_ACK, 1));
    Owned<Endpoint> endpoint;
    CU_TRY(endpoint.allocate(allocator));
    endpoint->socket = socket;
    endpoint->descriptor = cu_TCPSocket_getSelectable(socket)->handle;
    endpoint->alive = 1;
    endpoint->number = number;
    *me = endpoint.release();
    return 0;
}

cu_ErrorCode cu_MSGServer_Endpoint_delete(Endpoint** me)
{
    CU_TRY(cu_TCPSocket_delete(&(*me)->socket));
    CU_TRY(freeObject(me));
    return 0;
}

uint64_t takenBytes(const Endpoint* me)
{
    int onTheWay = 0;
    ioctl(me->descriptor, SIOCOUTQ, &onTheWay);
    return me->sent - static_cast<uint64_t>(onTheWay);
}

bool sendOrQueue(Endpoint* me, Direction& out, iovec* pieces, uint32_t count)
{
    if (me->isUnwilling)
        return true;
    std::size_t gone = 0;
    const bool isFirst = me->out.queue.isEmpty();
    if (isFirst) {
        const ssize_t sent = sendSome(me->descriptor, pieces, count);
        if (sent == -1 && errno != EWOULDBLOCK) {
            stopSending(me, out);
            return true;
        }
        gone = sent != -1 ? static_cast<std::size_t>(sent) : 0;
        me->sent += gone;
    }
    for (; count != 0; ++pieces, --count) {
        const std::size_t here = std::min(gone, pieces->iov_len);
        gone -= here;
        const auto rest = static_cast<uint32_t>(pieces->iov_len - here);
        if (rest != 0 && !me->out.queue.append(out.stock, static_cast<uint8_t*>(pieces->iov_base) + here, rest))
            return false;
    }
    if (isFirst && !me->out.queue.isEmpty()) {
        me->out.mark = takenBytes(me);
        me->out.since = out.tick;
    }
    return true;
}

void sendQueue(Endpoint* me, Direction& out)
{
    while (!me->out.queue.isEmpty()) {
        iovec pieces[16];
        bool all = false;
        const uint32_t count = me->out.queue.pieces(pieces, 16, &all);
        const ssize_t sent = sendSome(me->descriptor, pieces, count);
        if (sent == -1) {
            if (errno != EWOULDBLOCK)
                stopSending(me, out);
            return;
        }
        me->sent += static_cast<uint64_t>(sent);
        me->out.queue.drop(out.stock, static_cast<uint64_t>(sent));
    }
}

} // namespace cu::internal
