// A message server's end of a client's connection.
#pragma once

#include "internal/byteQueue.h"
#include "internal/frame.h"
#include "internal/ringLink.h"

#include <cUtil/network/tcpSocket.h>

#include <sys/uio.h>

namespace cu::internal
{

// What an endpoint is a member of.
struct KnownLink : RingLink {
};
struct ReadableLink : RingLink {
};

/// What waits in one direction, and since when its other side has been as slow as it is.
struct Backlog {
    static constexpr uint64_t leastProgress = 65536; ///< in the time of patience, of who is not slow

    ByteQueue queue;
    uint64_t mark = 0;  ///< how far the other side had come
    uint32_t since = 0; ///< at this tick

    /// Patience begins anew with each least progress.
    void note(uint64_t progress, uint32_t tick)
    {
        if (progress - mark < leastProgress)
            return;
        mark = progress;
        since = tick;
    }
    bool isSlow(uint32_t tick, uint32_t patience) const { return !queue.isEmpty() && tick - since >= patience; }
};

/// All backlogs of one direction. Time is counted in ticks that the server's thread has seen: while it is not given the
/// processor, nobody is slow.
struct Direction {
    ByteStock stock;
    uint32_t tick = 0;
};

} // namespace cu::internal

struct cu_MSGServer_Endpoint : cu::internal::KnownLink, cu::internal::ReadableLink {
    cu_allocator* allocator;
    cu_TCPSocket* socket;
    int32_t descriptor;
    uint32_t alive;
    uint32_t number;
    bool hasEnded;    // there is an end behind the bytes that can be read
    bool isUnwilling; // a send failed
    bool isLeaving;   // its number is nobody's any more: there is only what waits to be sent

    cu::internal::FrameHead head; // of the frame that is coming
    uint32_t headSize;            // bytes of it that have come
    uint32_t left;                // bytes of the frame that have not
    cu::internal::Backlog in;     // a record of which bytes are missing
    cu::internal::Backlog out;
    uint64_t sent;
};

namespace cu::internal
{

using Endpoint = cu_MSGServer_Endpoint;

/// Takes over a connected socket, unless it fails.
cu_ErrorCode cu_MSGServer_Endpoint_new(Endpoint** me, cu_TCPSocket* socket, uint32_t number, cu_allocator* allocator);

/// Closes the connection. Nothing may wait.
cu_ErrorCode cu_MSGServer_Endpoint_delete(Endpoint** me);

/// How many bytes the other side has got.
uint64_t takenBytes(const Endpoint* me);

/// Sends pieces, now or once those before them are gone. After a failure there is nothing more to send, but what comes
/// from the other side is still read. False: there is no memory.
bool sendOrQueue(Endpoint* me, Direction& out, iovec* pieces, uint32_t count);

/// Sends what waits, as far as the system takes it.
void sendQueue(Endpoint* me, Direction& out);

} // namespace cu::internal
