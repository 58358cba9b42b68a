#include <cUtil/network/msgServer.h>

#include "internal/msgRelay.h"
#include "internal/owned.h"
#include "internal/rollback.h"
#include "internal/signalsBlocked.h"
#include "internal/socket.h"
#include "internal/transfer.h"

#include <cUtil/logger/logger.h>
#include <cUtil/network/tcpServerSocket.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <iterator>
#include <pthread.h>
#include <sys/epoll.h>

using internal::Endpoint;
using internal::KnownLink;
using internal::ReadableLink;
using internal::RecordHead;

namespace
{

constexpr char threadName[] = "cu-msg-server";
constexpr uint32_t backlogOfConnections = 10;
constexpr uint32_t connectionsAtOnce = 32;

constexpr uint64_t mostWaiting = 4 * internal::mostForOne; // bytes, for all clients together
constexpr uint64_t mostUnfinished = uint64_t{16} << 20;    // bytes of messages, from all clients together
constexpr int64_t tickLength = 10'000'000;                 // nanoseconds
constexpr int tickTimeout = 10;                            // milliseconds
constexpr uint32_t patienceOut = 25;                       // ticks
constexpr uint32_t patienceIn = 1000;                      // ticks
constexpr int64_t breathingSpace = 100'000'000; // nanoseconds without accepting, once descriptors are exhausted
constexpr int breathingTimeout = 100;           // milliseconds

constexpr uint32_t readsAtEnd = 128; // more than the system keeps

constexpr int32_t pipeBuffer = 262144; // what is in it comes before the message of whoever is next

bool isCrowded(const cu_MSGServer* me)
{
    return me->crowded != nullptr && me->crowded->out.queue.size() > internal::mostForOne;
}

// Whether the application must wait until clients have taken something.
bool isOutFull(const cu_MSGServer* me)
{
    return isCrowded(me) || me->out.stock.waiting > mostWaiting;
}

void reap(cu_MSGServer* me)
{
    while (!me->dropped.isAlone()) {
        Endpoint* endpoint = internal::endpointOf<KnownLink>(me->dropped.next);
        static_cast<KnownLink*>(endpoint)->leave();
        // A forked child may hold the connection open.
        epoll_ctl(me->epoll, EPOLL_CTL_DEL, endpoint->descriptor, nullptr);
        CU_MUST(internal::cu_MSGServer_Endpoint_delete(&endpoint));
    }
}

// Lets the listener tell of connections, or not.
void listenTo(cu_MSGServer* me, uint32_t events)
{
    epoll_event event = {};
    event.events = events;
    event.data.ptr = &me->listener;
    epoll_ctl(me->epoll, EPOLL_CTL_MOD, cu_TCPServerSocket_getSelectable(me->listener)->handle, &event);
}

// Makes an endpoint of an accepted socket; on failure the socket is deleted.
void admit(cu_MSGServer* me, cu_TCPSocket* socket)
{
    Endpoint* endpoint = nullptr;
    while (internal::findEndpoint(me, me->nextNumber) != nullptr)
        ++me->nextNumber;
    if (!me->numbers.makeRoom() ||
        internal::cu_MSGServer_Endpoint_new(&endpoint, socket, me->nextNumber, me->allocator) != 0) {
        CU_MUST(cu_TCPSocket_delete(&socket));
        return;
    }
    epoll_event event = {};
    event.events = EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET;
    event.data.ptr = endpoint;
    if (epoll_ctl(me->epoll, EPOLL_CTL_ADD, endpoint->descriptor, &event) != 0) {
        CU_MUST(internal::cu_MSGServer_Endpoint_delete(&endpoint));
        return;
    }
    me->numbers.add(endpoint->number, {&endpoint->number, endpoint});
    static_cast<KnownLink*>(endpoint)->moveToFrontOf(me->endpoints);
    ++me->nextNumber;
}

void cu_internal_handleConnection(cu_MSGServer* me)
{
    me->connectionWaits = false;
    for (uint32_t accepted = 0; accepted < connectionsAtOnce; ++accepted) {
        cu_TCPSocket* socket = nullptr;
        if (cu_TCPServerSocket_accept(me->listener, &socket) != 0) {
            const int32_t error = cu_getErrorLocation()->systemErrorCode;
            if (error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM) {
                me->pausedSince = internal::monotonicNow();
                listenTo(me, 0);
            }
            return;
        }
        admit(me, socket);
    }
}

void dropAsSlow(cu_MSGServer* me, Endpoint* endpoint)
{
    cu_Logger_formattedLog(cu_logger_LEVEL_WARNING, "Endpoint %u is too slow. Dropping client\n", endpoint->number);
    internal::dropEndpoint(me, endpoint);
}

// The slow one with most waiting, or null.
Endpoint* largestOfTheSlow(const cu_MSGServer* me, internal::Backlog Endpoint::*backlog, uint32_t tick,
                           uint32_t patience)
{
    Endpoint* largest = nullptr;
    for (internal::RingLink* link = me->endpoints.next; link != &me->endpoints; link = link->next)
        if (Endpoint* endpoint = internal::endpointOf<KnownLink>(link);
            (endpoint->*backlog).isSlow(tick, patience) &&
            (largest == nullptr || (endpoint->*backlog).queue.size() > (largest->*backlog).queue.size()))
            largest = endpoint;
    return largest;
}

void noteProgress(cu_MSGServer* me)
{
    for (internal::RingLink* link = me->endpoints.next; link != &me->endpoints; link = link->next) {
        Endpoint* endpoint = internal::endpointOf<KnownLink>(link);
        endpoint->in.note(endpoint->in.queue.size(), me->in.tick);
        if (!endpoint->out.queue.isEmpty())
            endpoint->out.note(internal::takenBytes(endpoint), me->out.tick);
    }
}

void dropTheSlow(cu_MSGServer* me)
{
    if (isCrowded(me) && me->crowded->out.isSlow(me->out.tick, patienceOut))
        dropAsSlow(me, me->crowded);
    Endpoint* slow = nullptr;
    while ((me->isApplicationGone || me->out.stock.waiting > mostWaiting) &&
           (slow = largestOfTheSlow(me, &Endpoint::out, me->out.tick, patienceOut)) != nullptr)
        dropAsSlow(me, slow);
    while (me->in.stock.waiting > mostUnfinished &&
           (slow = largestOfTheSlow(me, &Endpoint::in, me->in.tick, patienceIn)) != nullptr)
        dropAsSlow(me, slow);
}

// Whether time matters for what waits.
bool isUnderWatch(const cu_MSGServer* me)
{
    return isOutFull(me) || me->in.stock.waiting > mostUnfinished ||
           (me->isApplicationGone && me->out.stock.waiting != 0);
}

void watchTheSlow(cu_MSGServer* me)
{
    if (me->out.stock.waiting == 0 && me->in.stock.waiting == 0)
        return;
    const int64_t now = internal::monotonicNow();
    if (now - me->lastTick < tickLength)
        return;
    me->lastTick = now;
    ++me->out.tick;
    if (!me->isPipeFull) // otherwise nobody is read
        ++me->in.tick;
    noteProgress(me);
    dropTheSlow(me);
}

bool canReadPipe(const cu_MSGServer* me)
{
    return me->isPipeReadable && !me->isApplicationGone && !isOutFull(me);
}

bool canReadClients(const cu_MSGServer* me)
{
    return !me->readable.isAlone() && !me->isApplicationGone && !me->isPipeFull;
}

int timeoutOf(const cu_MSGServer* me)
{
    if (canReadPipe(me) || canReadClients(me))
        return 0;
    if (isUnderWatch(me))
        return tickTimeout;
    return me->pausedSince != 0 ? breathingTimeout : -1;
}

void take(cu_MSGServer* me, const epoll_event& event)
{
    const bool ends = (event.events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0;
    const bool canRead = ends || (event.events & EPOLLIN) != 0;
    const bool canWrite = (event.events & EPOLLOUT) != 0;
    if (event.data.ptr == &me->listener) {
        me->connectionWaits = true;
    } else if (event.data.ptr == &me->pipe) {
        me->isPipeReadable |= canRead;
        me->hasPipeEnded |= ends;
        if (canWrite && me->isPipeFull)
            me->isPipeFull = !internal::flushPipe(me);
    } else {
        auto* endpoint = static_cast<Endpoint*>(event.data.ptr);
        endpoint->hasEnded |= ends;
        // Who is in the list already keeps the place.
        if (canRead && static_cast<ReadableLink*>(endpoint)->isAlone())
            static_cast<ReadableLink*>(endpoint)->moveToEndOf(me->readable);
        if (canWrite)
            internal::sendQueue(endpoint, me->out);
        if (endpoint->isLeaving && endpoint->out.queue.isEmpty())
            internal::dropEndpoint(me, endpoint);
    }
}

// Closing a connection from which not all was read resets it, and the system gives up what it has still to send.
void discardInput(cu_MSGServer* me, int32_t descriptor)
{
    for (uint32_t reads = 0; reads < readsAtEnd; ++reads)
        if (internal::receiveSome(descriptor, me->front, internal::oneRead) <= 0)
            break;
}

void cleanUp(cu_MSGServer* me)
{
    CU_MUST(cu_TCPServerSocket_delete(&me->listener));
    while (!me->endpoints.isAlone()) {
        Endpoint* endpoint = internal::endpointOf<KnownLink>(me->endpoints.next);
        discardInput(me, endpoint->descriptor);
        internal::dropEndpoint(me, endpoint);
    }
    reap(me);
    me->numbers.clear();
    me->large.clear(me->largeStock);
    CU_MUST(cu_TCPSocket_delete(&me->pipe));
}

void* cu_internal_server(void* server)
{
    auto* me = static_cast<cu_MSGServer*>(server);
    const internal::SignalsBlocked blocked; // whatever the mask was in the thread that made this one
    pthread_setname_np(pthread_self(), threadName);
    while (!me->isApplicationGone || me->out.stock.waiting != 0) {
        epoll_event events[128];
        const int count = epoll_wait(me->epoll, events, static_cast<int>(std::size(events)), timeoutOf(me));
        if (count == -1 && errno != EINTR)
            break;
        for (int i = 0; i < count; ++i)
            take(me, events[i]);
        if (me->pausedSince != 0 && internal::monotonicNow() - me->pausedSince >= breathingSpace) {
            me->pausedSince = 0;
            listenTo(me, EPOLLIN);
        }
        if (canReadPipe(me))
            internal::cu_internal_handleFrontend(me);
        if (canReadClients(me))
            internal::cu_internal_handleBackend(me);
        if (me->connectionWaits)
            cu_internal_handleConnection(me);
        watchTheSlow(me);
        reap(me);
    }
    cleanUp(me);
    return nullptr;
}

// Takes what does not fit anywhere out of the pipe.
cu_ErrorCode discard(cu_TCPSocket* pipe, uint32_t size)
{
    uint8_t nowhere[4096];
    while (size != 0) {
        const uint32_t piece = std::min<uint32_t>(size, sizeof(nowhere));
        if (const cu_ErrorCode code = cu_TCPSocket_receive(pipe, nowhere, piece); code != 0)
            return code;
        size -= piece;
    }
    return 0;
}

cu_ErrorCode watch(int32_t epoll, int32_t descriptor, uint32_t events, void* what, internal::Place here)
{
    epoll_event event = {};
    event.events = events;
    event.data.ptr = what;
    if (epoll_ctl(epoll, EPOLL_CTL_ADD, descriptor, &event) == 0)
        return 0;
    const int error = errno;
    return internal::report(cu_ERROR_SOCKET_SELECT_FAILED, error, here, "epoll_ctl(..) failed [%d] %s", error,
                            internal::SystemErrorText(error).get());
}

cu_ErrorCode join(pthread_t thread)
{
    const int error = pthread_join(thread, nullptr);
    return error == 0 ? 0 : CU_REPORT(cu_ERROR_THREAD_JOIN_FAILED, error, nullptr);
}

} // namespace

cu_ErrorCode cu_MSGServer_new(cu_MSGServer** server, uint32_t address, uint16_t port, cu_allocator* allocator)
{
    CU_REQUIRE(server != nullptr);
    CU_REQUIRE(*server == nullptr);

    internal::Owned<cu_MSGServer> object;
    CU_TRY(object.allocate(allocator));
    cu_MSGServer* me = object.get();
    CU_TRY(cu_TCPServerSocket_new(&me->listener, port, address, backlogOfConnections, true, me->allocator));
    CU_ROLLBACK(listener, cu_TCPServerSocket_delete(&me->listener));
    const int32_t listening = cu_TCPServerSocket_getSelectable(me->listener)->handle;
    // So few would leave no place for anybody else while somebody connects again and again.
    if (fcntl(listening, F_SETFL, O_NONBLOCK) != 0 || listen(listening, SOMAXCONN) != 0)
        return CU_REPORT(cu_ERROR_SOCKET_INIT_FAILED, errno, nullptr);
    CU_TRY(cu_TCPSocket_createPipe(&me->application, &me->pipe, nullptr));
    CU_ROLLBACK(application, cu_TCPSocket_delete(&me->application));
    CU_ROLLBACK(pipe, cu_TCPSocket_delete(&me->pipe));
    CU_TRY(cu_TCPSocket_setOption(me->pipe, cu_SOCKET_OPT_SEND_BUFFER, pipeBuffer));
    CU_TRY(cu_TCPSocket_setOption(me->application, cu_SOCKET_OPT_RECEIVE_BUFFER, pipeBuffer));
    internal::Descriptor epoll(epoll_create1(EPOLL_CLOEXEC));
    if (!epoll.isOpen()) {
        const int error = errno;
        return CU_REPORT(cu_ERROR_SOCKET_SELECT_FAILED, error, "epoll_create(..) failed [%d] %s", error,
                         internal::SystemErrorText(error).get());
    }
    if (const cu_ErrorCode code = watch(epoll.get(), listening, EPOLLIN, &me->listener, CU_HERE); code != 0)
        return code;
    if (const cu_ErrorCode code = watch(epoll.get(), cu_TCPSocket_getSelectable(me->pipe)->handle,
                                        EPOLLIN | EPOLLOUT | EPOLLRDHUP | EPOLLET, &me->pipe, CU_HERE);
        code != 0)
        return code;
    me->epoll = epoll.get();
    me->nextNumber = static_cast<uint32_t>(rand()); // NOLINT(concurrency-mt-unsafe): glibc locks it
    const internal::ByteStock stock = {me->allocator, internal::dropForRoom, me};
    me->in.stock = stock;
    me->out.stock = stock;
    me->largeStock = stock;
    {
        const internal::SignalsBlocked blocked; // there is no moment in which the thread could take one
        if (const int error = pthread_create(&me->thread, nullptr, cu_internal_server, me); error != 0)
            return CU_REPORT(cu_ERROR_THREAD_CREATE_FAILED, error, nullptr);
    }
    epoll.release();
    pipe.dismiss();
    application.dismiss();
    listener.dismiss();
    *server = object.release();
    return 0;
}

cu_ErrorCode cu_MSGServer_delete(cu_MSGServer** server)
{
    CU_REQUIRE(server != nullptr);
    CU_REQUIRE(*server != nullptr);

    cu_MSGServer* me = *server;
    // The thread finds the end behind all that was sent. Closing the application's end first could reset the
    // connection, and with it lose what was sent. There is no connection any more if the thread has ended.
    shutdown(cu_TCPSocket_getSelectable(me->application)->handle, SHUT_WR);
    CU_MUST(join(me->thread));
    CU_MUST(cu_TCPSocket_delete(&me->application));
    close(me->epoll);
    CU_MUST(internal::freeObject(server));
    return 0;
}

cu_ErrorCode cu_MSGServer_receive(cu_MSGServer* server, uint32_t* endpoint, cu_Message* message)
{
    CU_REQUIRE(server != nullptr);
    CU_REQUIRE(endpoint != nullptr);
    CU_REQUIRE(message != nullptr);

    RecordHead record = {};
    const uint8_t* whole = server->ahead.next(server->application, sizeof(record));
    if (whole != nullptr)
        memcpy(&record, whole, sizeof(record));
    else
        CU_TRY(cu_TCPSocket_receive(server->application, &record, sizeof(record)));
    const uint32_t length = ntohl(record.length);
    uint8_t* bytes = nullptr;
    CU_TRY(cu_Message_seek(message, 0));
    if (const cu_ErrorCode code = cu_Message_reserve(message, length); code != 0) {
        // The next record is to be found where it begins.
        if (whole != nullptr)
            server->ahead.advance(server->application, sizeof(record));
        else
            CU_TRY(discard(server->application, length));
        return internal::passOn(code, CU_HERE);
    }
    CU_TRY(cu_Message_get(message, &bytes));
    if (whole != nullptr) {
        memcpy(bytes, whole + sizeof(record), length);
        server->ahead.advance(server->application, sizeof(record));
    } else if (length != 0) {
        CU_TRY(cu_TCPSocket_receive(server->application, bytes, length));
    }
    CU_TRY(cu_Message_resize(message, length));
    *endpoint = record.endpoint;
    return 0;
}

cu_ErrorCode cu_MSGServer_send(cu_MSGServer* server, uint32_t endpoint, const cu_Message* message)
{
    CU_REQUIRE(server != nullptr);
    CU_REQUIRE(message != nullptr);

    RecordHead record = {endpoint, 0};
    return internal::sendMessage(server->application, &record, sizeof(record), message, CU_HERE);
}

cu_Selectable* cu_MSGServer_getSelectable(cu_MSGServer* server)
{
    return server != nullptr ? cu_TCPSocket_getSelectable(server->application) : nullptr;
}
