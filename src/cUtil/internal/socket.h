// What the families of sockets do in the same way.
#pragma once

#include "internal/report.h"

#include <cUtil/network/selectable.h>

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>

namespace cu::internal
{

constexpr int32_t noDescriptor = -1;

/// A descriptor that is closed unless it is released to its owner.
class Descriptor
{
public:
    explicit Descriptor(int32_t descriptor) : descriptor_(descriptor) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (isOpen())
            close(descriptor_);
    }

    bool isOpen() const { return descriptor_ != noDescriptor; }
    int32_t get() const { return descriptor_; }
    void take(int32_t descriptor) { descriptor_ = descriptor; } ///< while it is not open
    int32_t release() { return std::exchange(descriptor_, noDescriptor); }

private:
    int32_t descriptor_;
};

/// An address and a port, both in host byte order, as the system takes them.
inline sockaddr_in socketAddress(uint32_t address, uint16_t port)
{
    sockaddr_in result = {};
    result.sin_family = AF_INET;
    result.sin_addr.s_addr = htonl(address);
    result.sin_port = htons(port);
    return result;
}

/// The pointer that the system calls want.
inline sockaddr* generic(sockaddr_in* address)
{
    return static_cast<sockaddr*>(static_cast<void*>(address));
}

/// Nanoseconds of the monotonic clock.
int64_t monotonicNow();

constexpr int64_t noDeadline = INT64_MAX;

/// Waits until one of the events, a hang-up or an error comes to one of the descriptors; signals neither end nor
/// prolong it. The deadline is a point on the monotonic clock. Gives the number of ready ones, 0 once the deadline has
/// passed, or -1 and errno.
int waitForEvents(pollfd* descriptors, uint32_t count, int64_t deadline);

/// SO_REUSEADDR and bind(), with the failures that all bound sockets have in common.
cu_ErrorCode bindTo(int32_t descriptor, uint32_t address, uint16_t port, bool reuseAddress, Place here);

/// Closes the descriptor of a socket that is being deleted.
cu_ErrorCode closeSocket(cu_Selectable* selectable, Place here);

} // namespace cu::internal
