// Messages that have come whole are read together.
#pragma once

#include <cUtil/network/tcpSocket.h>

#include <cstdint>

namespace cu::internal
{

/// Looks at what has come and hands it out message by message. From the system it is taken once no whole message is
/// left of it, so that the socket is readable as long as there is one. A message ends behind so many bytes as the last
/// word of its head tells, the most significant byte first.
class ReadAhead
{
public:
    /// Waits for bytes. Gives a whole message, or null: then there is nothing that the system does not have, and the
    /// caller reads on from there.
    const uint8_t* next(cu_TCPSocket* socket, uint32_t headSize);

    /// Goes on behind the message that next() gave, which is overwritten some time.
    void advance(cu_TCPSocket* socket, uint32_t headSize);

private:
    uint32_t wholeSize(uint32_t headSize) const; // 0: there is none

    uint32_t begin_ = 0;
    uint32_t end_ = 0;
    uint8_t bytes_[16384];
};

} // namespace cu::internal
