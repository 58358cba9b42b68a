#include "internal/loopbackPair.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/ioctl.h>

namespace
{

// Tells whether it went well, otherwise errno. The system chooses the port.
bool listenOnLoopback(int32_t descriptor, sockaddr_in* address)
{
    *address = internal::socketAddress(INADDR_LOOPBACK, 0);
    socklen_t size = sizeof(*address);
    return fcntl(descriptor, F_SETFL, O_NONBLOCK) == 0 &&
           bind(descriptor, internal::generic(address), sizeof(*address)) == 0 &&
           getsockname(descriptor, internal::generic(address), &size) == 0 && listen(descriptor, 1) == 0;
}

// The same, and tells from where it connects.
bool beginToConnect(int32_t descriptor, sockaddr_in listener, sockaddr_in* own)
{
    socklen_t size = sizeof(*own);
    return (connect(descriptor, internal::generic(&listener), sizeof(listener)) == 0 || errno == EINPROGRESS ||
            errno == EINTR) &&
           getsockname(descriptor, internal::generic(own), &size) == 0;
}

// Whether a connection has not failed. Tells as the others do.
bool isSound(int32_t descriptor)
{
    int failure = 0;
    socklen_t size = sizeof(failure);
    if (getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &failure, &size) != 0)
        return false;
    errno = failure;
    return failure == 0;
}

// Waits until a connection that was begun stands, and lets the descriptor block from then on. Tells as the others do.
bool endToConnect(int32_t descriptor)
{
    pollfd writable = {descriptor, POLLOUT, 0};
    int nonBlocking = 0;
    return internal::waitForEvents(&writable, 1, internal::noDeadline) != -1 && isSound(descriptor) &&
           ioctl(descriptor, FIONBIO, &nonBlocking) == 0;
}

// Accepts the connection that comes from the other end, unless that fails; whoever else came first is sent away.
int32_t acceptFrom(int32_t listener, int32_t otherEnd, const sockaddr_in& wanted)
{
    for (;;) {
        pollfd either[] = {{listener, POLLIN, 0}, {otherEnd, 0, 0}};
        if (internal::waitForEvents(either, 2, internal::noDeadline) == -1 ||
            (either[1].revents != 0 && !isSound(otherEnd)))
            return internal::noDescriptor;
        sockaddr_in peer = {};
        socklen_t size = sizeof(peer);
        const int32_t descriptor = accept4(listener, internal::generic(&peer), &size, SOCK_CLOEXEC);
        if (descriptor == internal::noDescriptor) {
            if (errno == EINTR || errno == ECONNABORTED || errno == EWOULDBLOCK)
                continue;
            return internal::noDescriptor;
        }
        if (peer.sin_port == wanted.sin_port && peer.sin_addr.s_addr == wanted.sin_addr.s_addr)
            return descriptor;
        close(descriptor);
    }
}

} // namespace

int cu::internal::LoopbackPair::connect()
{
    const Descriptor listener(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!listener.isOpen() || !listenOnLoopback(listener.get(), &acceptedAddress))
        return errno;
    connecting.take(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    if (!connecting.isOpen() || !beginToConnect(connecting.get(), acceptedAddress, &connectingAddress))
        return errno;
    accepted.take(acceptFrom(listener.get(), connecting.get(), connectingAddress));
    return accepted.isOpen() && endToConnect(connecting.get()) ? 0 : errno;
}
