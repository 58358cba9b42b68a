#include "internal/readAhead.h"

#include <cstring>
#include <netinet/in.h>
#include <sys/socket.h>

namespace cu::internal
{

uint32_t ReadAhead::wholeSize(uint32_t headSize) const
{
    const uint32_t size = end_ - begin_;
    if (size < headSize)
        return 0;
    uint32_t length = 0;
    memcpy(&length, bytes_ + begin_ + headSize - sizeof(length), sizeof(length));
    length = ntohl(length);
    return length <= size - headSize ? headSize + length : 0;
}

const uint8_t* ReadAhead::next(cu_TCPSocket* socket, uint32_t headSize)
{
    if (end_ == 0) {
        const ssize_t got = recv(cu_TCPSocket_getSelectable(socket)->handle, bytes_, sizeof(bytes_), MSG_PEEK);
        end_ = got > 0 ? static_cast<uint32_t>(got) : 0;
        if (wholeSize(headSize) == 0)
            end_ = 0;
    }
    return end_ != 0 ? bytes_ + begin_ : nullptr;
}

void ReadAhead::advance(cu_TCPSocket* socket, uint32_t headSize)
{
    begin_ += wholeSize(headSize);
    if (wholeSize(headSize) != 0)
        return;
    // What has been looked at is there: nothing is copied, and nothing can fail.
    recv(cu_TCPSocket_getSelectable(socket)->handle, bytes_, begin_, MSG_TRUNC);
    begin_ = 0;
    end_ = 0;
}

} // namespace cu::internal
