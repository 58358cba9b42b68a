#include "internal/msgRelay.h"

#include "internal/transfer.h"

#include <cUtil/logger/logger.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

namespace cu::internal
{

namespace
{

constexpr uint32_t readsAtOnce = 128; // of clients, before answers have their turn

void dropForMemory(cu_MSGServer* me, Endpoint* endpoint)
{
    cu_Logger_formattedLog(cu_logger_LEVEL_WARNING, "No memory for what endpoint %u exchanges. Dropping client\n",
                           endpoint->number);
    dropEndpoint(me, endpoint);
}

// Frames to one endpoint that follow each other go out by one system call.
class Run
{
public:
    explicit Run(cu_MSGServer* server) : server_(server), to_(server->target) {}

    void beginFrame(Endpoint* to, uint32_t length)
    {
        if (to != to_ || frames_ == most)
            flush();
        to_ = to;
        FrameHead& head = heads_[frames_++];
        head = FrameHead();
        head.length = length;
        add(&head, sizeof(head));
    }

    void add(void* bytes, uint32_t size) { pieces_[count_++] = {bytes, size}; }

    void flush()
    {
        if (to_ != nullptr && to_->alive && count_ != 0) {
            if (!sendOrQueue(to_, server_->out, pieces_, count_))
                dropForMemory(server_, to_);
            else if (to_->out.queue.size() > mostForOne)
                server_->crowded = to_;
        }
        frames_ = 0;
        count_ = 0;
    }

private:
    static constexpr uint32_t most = 128;

    cu_MSGServer* server_;
    Endpoint* to_;
    uint32_t frames_ = 0;
    uint32_t count_ = 0;
    FrameHead heads_[most];
    iovec pieces_[2 * most + 1];
};

// Takes so many bytes of a frame's head as there are; false: the endpoint is dropped.
bool takeHead(cu_MSGServer* me, Endpoint* endpoint, const uint8_t*& at, uint32_t& rest)
{
    // What is wrong is found without waiting for more.
    constexpr uint32_t untilLength = offsetof(FrameHead, length);
    const uint32_t until = endpoint->headSize < untilLength ? untilLength : sizeof(FrameHead);
    const uint32_t size = std::min(until - endpoint->headSize, rest);
    memcpy(reinterpret_cast<uint8_t*>(&endpoint->head) + endpoint->headSize, at, size);
    endpoint->headSize += size;
    at += size;
    rest -= size;
    // Compatibility: the slip in these texts and their line breaks.
    if (endpoint->headSize == untilLength && !endpoint->head.hasRightMagic()) {
        cu_Logger_formattedLog(cu_logger_LEVEL_WARNING, "Invalid protocol magic on enpoint %u. Dropping client\n",
                               endpoint->number);
        dropEndpoint(me, endpoint);
        return false;
    }
    if (endpoint->headSize == untilLength && !endpoint->head.hasRightVersion()) {
        cu_Logger_formattedLog(cu_logger_LEVEL_WARNING, "Invalid protocol version on enpoint %u. Dropping client\n",
                               endpoint->number);
        dropEndpoint(me, endpoint);
        return false;
    }
    endpoint->left = ntohl(endpoint->head.length);
    return true;
}

// Nothing more is read from the other side, and nothing more is taken for it.
void withdraw(cu_MSGServer* me, Endpoint* endpoint)
{
    if (!endpoint->isLeaving)
        me->numbers.take(&endpoint->number);
    endpoint->isLeaving = true;
    static_cast<ReadableLink*>(endpoint)->leave();
    endpoint->in.queue.clear(me->in.stock);
}

// Adds bytes to the record that is coming; once it is whole, it goes to the application. False: there is no memory.
bool takePart(cu_MSGServer* me, Endpoint* endpoint, const uint8_t* bytes, uint32_t size)
{
    ByteQueue& queue = endpoint->in.queue;
    if (queue.isEmpty()) {
        const RecordHead record = {endpoint->number, endpoint->head.length};
        if (!queue.append(me->in.stock, &record, sizeof(record)))
            return false;
        endpoint->in.mark = 0;
        endpoint->in.since = me->in.tick;
    }
    if (!queue.append(me->in.stock, bytes, size))
        return false;
    if (size == endpoint->left)
        me->large.take(me->largeStock, queue, me->in.stock);
    return true;
}

// Makes records of the frames that lie in `back`, behind the records that are there.
void takeFrames(cu_MSGServer* me, Endpoint* endpoint, const uint8_t* at, uint32_t rest)
{
    while (rest != 0) {
        if (endpoint->headSize < sizeof(FrameHead)) {
            if (!takeHead(me, endpoint, at, rest))
                return;
            if (endpoint->headSize < sizeof(FrameHead))
                continue;
        }
        const uint32_t size = std::min(endpoint->left, rest);
        if (size == endpoint->left && endpoint->in.queue.isEmpty()) {
            // The record is shorter than the frame was, or begins where room was left for its head.
            const RecordHead record = {endpoint->number, endpoint->head.length};
            memmove(me->back + me->backEnd + sizeof(record), at, size);
            memcpy(me->back + me->backEnd, &record, sizeof(record));
            me->backEnd += static_cast<uint32_t>(sizeof(record)) + size;
        } else if (size != 0 && !takePart(me, endpoint, at, size)) {
            dropForMemory(me, endpoint);
            return;
        }
        at += size;
        rest -= size;
        endpoint->left -= size;
        if (endpoint->left == 0)
            endpoint->headSize = 0;
    }
}

} // namespace

Endpoint* findEndpoint(const cu_MSGServer* me, uint32_t number)
{
    const KnownEndpoint* known = me->numbers.find(number, &number);
    return known != nullptr ? known->endpoint : nullptr;
}

void dropEndpoint(cu_MSGServer* me, Endpoint* endpoint)
{
    withdraw(me, endpoint);
    endpoint->alive = false;
    static_cast<KnownLink*>(endpoint)->moveToFrontOf(me->dropped);
    endpoint->out.queue.clear(me->out.stock);
    if (me->target == endpoint)
        me->target = nullptr;
    if (me->crowded == endpoint)
        me->crowded = nullptr;
}

bool dropForRoom(void* server, const ByteQueue& asker)
{
    auto* me = static_cast<cu_MSGServer*>(server);
    const auto waiting = [](const Endpoint* endpoint) {
        return endpoint->in.queue.size() + endpoint->out.queue.size();
    };
    Endpoint* most = nullptr;
    for (RingLink* link = me->endpoints.next; link != &me->endpoints; link = link->next)
        if (Endpoint* endpoint = endpointOf<KnownLink>(link); most == nullptr || waiting(endpoint) > waiting(most))
            most = endpoint;
    if (most == nullptr || waiting(most) == 0 || &most->in.queue == &asker || &most->out.queue == &asker)
        return false;
    dropForMemory(me, most);
    return true;
}

void cu_internal_handleFrontend(cu_MSGServer* me)
{
    const ssize_t got = receiveSome(cu_TCPSocket_getSelectable(me->pipe)->handle, me->front, oneRead);
    if (got <= 0) {
        me->isApplicationGone = got == 0 || errno != EWOULDBLOCK;
        me->isPipeReadable = false;
        return;
    }
    me->isPipeReadable = got == oneRead || me->hasPipeEnded;

    Run run(me);
    uint8_t* at = me->front;
    auto rest = static_cast<uint32_t>(got);
    while (rest != 0) {
        if (me->headSize < sizeof(me->head)) {
            const uint32_t size = std::min<uint32_t>(sizeof(me->head) - me->headSize, rest);
            memcpy(reinterpret_cast<uint8_t*>(&me->head) + me->headSize, at, size);
            me->headSize += size;
            at += size;
            rest -= size;
            if (me->headSize < sizeof(me->head))
                break;
            me->left = ntohl(me->head.length);
            me->target = findEndpoint(me, me->head.endpoint);
            if (me->target == nullptr)
                cu_Logger_formattedLog(cu_logger_LEVEL_WARNING, "msgServer: no pipe %u! discarding message..\n",
                                       me->head.endpoint);
            run.beginFrame(me->target, me->head.length);
        }
        const uint32_t size = std::min(me->left, rest);
        if (size != 0)
            run.add(at, size);
        at += size;
        rest -= size;
        me->left -= size;
        if (me->left == 0)
            me->headSize = 0;
    }
    run.flush();
}

bool flushPipe(cu_MSGServer* me)
{
    for (;;) {
        iovec pieces[16];
        bool all = false;
        uint32_t count = me->large.pieces(pieces, 15, &all);
        if (all && me->backBegin != me->backEnd)
            pieces[count++] = {me->back + me->backBegin, me->backEnd - me->backBegin};
        if (count == 0)
            break;
        const ssize_t result = sendSome(cu_TCPSocket_getSelectable(me->pipe)->handle, pieces, count);
        if (result == -1 && errno == EWOULDBLOCK) {
            me->isPipeFull = true;
            return false;
        }
        if (result == -1) {
            // The application is about to leave.
            me->large.clear(me->largeStock);
            break;
        }
        const auto sent = static_cast<uint64_t>(result);
        const uint64_t sentLarge = std::min(sent, me->large.size());
        me->large.drop(me->largeStock, sentLarge);
        me->backBegin += static_cast<uint32_t>(sent - sentLarge);
    }
    me->backBegin = 0;
    me->backEnd = 0;
    return true;
}

void cu_internal_handleBackend(cu_MSGServer* me)
{
    if (me->isPipeFull || me->readable.isAlone())
        return;
    const RingLink* const last = me->readable.previous;
    const RingLink* link = nullptr;
    uint32_t reads = 0;
    do {
        if (sizeof(me->back) - me->backEnd < sizeof(RecordHead) + oneRead && !flushPipe(me))
            return;
        link = me->readable.next;
        Endpoint* endpoint = endpointOf<ReadableLink>(me->readable.next);
        uint8_t* at = me->back + me->backEnd + sizeof(RecordHead);
        const ssize_t got = receiveSome(endpoint->descriptor, at, oneRead);
        if (got > 0) {
            // Less than was asked for is all that there is; if more has come since, there is another event.
            if (got < ssize_t{oneRead} && !endpoint->hasEnded)
                static_cast<ReadableLink*>(endpoint)->leave();
            else
                static_cast<ReadableLink*>(endpoint)->moveToEndOf(me->readable);
            takeFrames(me, endpoint, at, static_cast<uint32_t>(got));
        } else if (got == -1 && errno == EWOULDBLOCK) {
            static_cast<ReadableLink*>(endpoint)->leave();
        } else if (got == 0 && !endpoint->out.queue.isEmpty()) {
            withdraw(me, endpoint); // what waits is still sent
        } else {
            dropEndpoint(me, endpoint);
        }
    } while (link != last && ++reads < readsAtOnce && !me->readable.isAlone()); // the last may have been dropped
    flushPipe(me);
}

} // namespace cu::internal
