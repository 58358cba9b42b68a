#include <cUtil/network/tcpSocket.h>

#include "internal/loopbackPair.h"
#include "internal/owned.h"
#include "internal/rollback.h"
#include "internal/socket.h"
#include "internal/timeArithmetic.h"

#include <cUtil/time/time.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <netinet/tcp.h>
#include <sys/time.h>

struct cu_TCPSocket {
    cu_allocator* allocator;
    cu_Selectable selectable;
    uint32_t address;
    uint16_t port;
};

namespace
{

constexpr int64_t nanoSecondsPerMilliSecond = 1'000'000;
constexpr timespec memoryPause = {0, 5'000'000};

timeval timevalOf(uint32_t milliSeconds)
{
    return {static_cast<time_t>(milliSeconds / 1000), static_cast<suseconds_t>(milliSeconds % 1000 * cu_USEC_PER_MSEC)};
}

bool setTimeout(int32_t descriptor, int option, uint32_t milliSeconds)
{
    const timeval timeout = timevalOf(milliSeconds);
    return setsockopt(descriptor, SOL_SOCKET, option, &timeout, sizeof(timeout)) == 0;
}

bool setTimeouts(int32_t descriptor, uint32_t milliSeconds)
{
    return setTimeout(descriptor, SO_SNDTIMEO, milliSeconds) && setTimeout(descriptor, SO_RCVTIMEO, milliSeconds);
}

// Connects, after a signal for what is left of the time-out. Tells whether it went well, otherwise errno.
bool connectInTime(int32_t descriptor, sockaddr_in address, uint32_t timeoutMs)
{
    if (timeoutMs != 0 && !setTimeouts(descriptor, timeoutMs))
        return false;
    const int64_t deadline =
        timeoutMs != 0 ? internal::monotonicNow() + timeoutMs * nanoSecondsPerMilliSecond : internal::noDeadline;
    while (connect(descriptor, internal::generic(&address), sizeof(address)) != 0) {
        if (errno != EINTR)
            return false;
        // The connection is being made all the same; the next connect() tells how that ended.
        pollfd decided = {descriptor, POLLOUT, 0};
        const int count = internal::waitForEvents(&decided, 1, deadline);
        if (count == 0)
            errno = EINPROGRESS; // as the system says it, without a signal
        if (count <= 0)
            return false;
    }
    return timeoutMs == 0 || setTimeouts(descriptor, 0);
}

// When a transfer that began at a point in time ends according to the descriptor's SO_RCVTIMEO or SO_SNDTIMEO.
int64_t deadlineOf(int32_t descriptor, int option, int64_t began)
{
    timeval timeout = {};
    socklen_t size = sizeof(timeout);
    if (getsockopt(descriptor, SOL_SOCKET, option, &timeout, &size) != 0 ||
        (timeout.tv_sec == 0 && timeout.tv_usec == 0))
        return internal::noDeadline;
    return began + int64_t{timeout.tv_sec} * internal::nanoSecondsPerSecond + int64_t{timeout.tv_usec} * 1000;
}

// After a signal: waits until a transfer can go on. Gives the number of ready descriptors, 0 when no time is left, or
// -1.
int waitForRest(int32_t descriptor, short events, int64_t deadline)
{
    pollfd wanted = {descriptor, events, 0};
    return internal::waitForEvents(&wanted, 1, deadline);
}

// Receives or peeks; the code tells that nothing came in time.
cu_ErrorCode receive(const cu_TCPSocket* me, void* buffer, uint32_t length, int flags, cu_ErrorCode late,
                     internal::Place here)
{
    const int32_t descriptor = me->selectable.handle;
    auto* to = static_cast<uint8_t*>(buffer);
    while (length != 0) {
        const int64_t began = internal::monotonicNow();
        const ssize_t got = recv(descriptor, to, length, flags | MSG_NOSIGNAL);
        if (got == 0)
            return internal::report(cu_ERROR_SOCKET_OTHER_SIDE_CLOSED, 0, here, nullptr);
        if (got > 0) {
            to += got;
            length -= static_cast<uint32_t>(got);
            continue;
        }
        const int error = errno;
        if (error == EINTR && waitForRest(descriptor, POLLIN, deadlineOf(descriptor, SO_RCVTIMEO, began)) != 0)
            continue;
        if (error == EINTR || error == EWOULDBLOCK)
            return internal::report(late, EWOULDBLOCK, here, nullptr);
        return internal::reportErrno(cu_ERROR_SOCKET_RECEIVE_FAILED, error, here);
    }
    return 0;
}

// Whether it was a signal that cut a send short: the socket blocks, and its time was not up.
bool isCutBySignal(int32_t descriptor, int64_t deadline)
{
    const int flags = fcntl(descriptor, F_GETFL);
    return flags != -1 && (flags & O_NONBLOCK) == 0 && internal::monotonicNow() < deadline;
}

// Goes on with a send that a signal ended, in the time that is left.
cu_ErrorCode sendRest(int32_t descriptor, const uint8_t* from, uint32_t length, int flags, int64_t deadline,
                      internal::Place here)
{
    int ready = 0;
    while ((ready = waitForRest(descriptor, POLLOUT, deadline)) > 0) {
        const ssize_t sent = send(descriptor, from, length, flags | MSG_DONTWAIT);
        if (sent == int64_t{length})
            return 0;
        if (sent == -1 && errno != EINTR && errno != EWOULDBLOCK)
            return internal::report(cu_ERROR_SOCKET_IO_TIMEOUT, 0, here, nullptr);
        if (sent > 0) {
            from += sent;
            length -= static_cast<uint32_t>(sent);
        } else {
            // The socket would take it, but the system is short of memory, perhaps for long.
            clock_nanosleep(CLOCK_MONOTONIC, 0, &memoryPause, nullptr);
        }
    }
    return internal::report(cu_ERROR_SOCKET_IO_TIMEOUT, ready == 0 ? EWOULDBLOCK : 0, here, nullptr);
}

enum class Kind {
    unknown,
    boolean,
    bytes,
    milliSeconds,
    nonBlocking,
};

struct Option {
    Kind kind;
    int level = 0;
    int name = 0;
    const char* inSetText = nullptr; // how the texts of the failures call it
    const char* inGetText = nullptr;
};

Option optionOf(uint32_t type)
{
    switch (type) {
    case cu_SOCKET_OPT_NO_DELAY:
        return {Kind::boolean, IPPROTO_TCP, TCP_NODELAY, "the send no delay", "socket option"};
    case cu_SOCKET_OPT_NON_BLOCKING:
        return {Kind::nonBlocking};
    case cu_SOCKET_OPT_SEND_BUFFER:
        return {Kind::bytes, SOL_SOCKET, SO_SNDBUF, "the send buffer size", "send buffer size"};
    case cu_SOCKET_OPT_RECEIVE_BUFFER:
        return {Kind::bytes, SOL_SOCKET, SO_RCVBUF, "the receive buffer size", "receive buffer size"};
    case cu_SOCKET_OPT_SEND_TIMEOUT:
        return {Kind::milliSeconds, SOL_SOCKET, SO_SNDTIMEO, "the send timeout", "send timeout"};
    case cu_SOCKET_OPT_RECEIVE_TIMEOUT:
        return {Kind::milliSeconds, SOL_SOCKET, SO_RCVTIMEO, "the receive timeout", "receive timeout"};
    case cu_SOCKET_OPT_KEEP_ALIVE:
        return {Kind::boolean, SOL_SOCKET, SO_KEEPALIVE, "keep alive", "keep alive"};
    case cu_SOCKET_OPT_QUICK_ACK:
        return {Kind::boolean, IPPROTO_TCP, TCP_QUICKACK, "quick ack", "quick ack"};
    default:
        return {Kind::unknown};
    }
}

cu_ErrorCode reportFlagsUnread(int error, internal::Place here)
{
    return internal::report(cu_ERROR_SOCKET_SOCKET_OPT_FAILED, error, here,
                            "Failed to get file descriptor flags.Errno[%d]='%s'", error,
                            internal::SystemErrorText(error).get());
}

cu_ErrorCode setNonBlocking(int32_t descriptor, bool nonBlocking, internal::Place here)
{
    const int old = fcntl(descriptor, F_GETFL);
    if (old == -1)
        return reportFlagsUnread(errno, here);
    const int flags = nonBlocking ? old | O_NONBLOCK : old & ~O_NONBLOCK;
    if (fcntl(descriptor, F_SETFL, flags) == 0)
        return 0;
    const int error = errno;
    return internal::report(cu_ERROR_SOCKET_SOCKET_OPT_FAILED, error, here,
                            "Failed to set file descriptor flags to 0x%X.Errno[%d]='%s'", static_cast<unsigned>(flags),
                            error, internal::SystemErrorText(error).get());
}

// Wraps one end of a pair.
cu_ErrorCode wrapEnd(cu_TCPSocket** socket, internal::Descriptor& descriptor, const sockaddr_in& peer,
                     cu_allocator* allocator)
{
    const cu_ErrorCode code =
        cu_TCPSocket_fromAccept(socket, descriptor.get(), ntohl(peer.sin_addr.s_addr), ntohs(peer.sin_port), allocator);
    if (code != 0)
        return code;
    descriptor.release();
    return cu_TCPSocket_setOption(*socket, cu_SOCKET_OPT_NO_DELAY, 1);
}

} // namespace

cu_ErrorCode cu_TCPSocket_new(cu_TCPSocket** socket, uint32_t address, uint16_t port, uint32_t connectTimeoutMs,
                              cu_allocator* allocator)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(*socket == nullptr);

    internal::Owned<cu_TCPSocket> object;
    CU_TRY(object.allocate(allocator));
    object->address = address;
    object->port = port;
    internal::Descriptor descriptor(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!descriptor.isOpen()) {
        const int error = errno;
        return CU_REPORT(cu_ERROR_SOCKET_INIT_FAILED, error, "error: %s", internal::SystemErrorText(error).get());
    }
    if (!connectInTime(descriptor.get(), internal::socketAddress(address, port), connectTimeoutMs)) {
        const int error = errno;
        return CU_REPORT(cu_ERROR_SOCKET_CONNECT_FAILED, error, "error: %s", internal::SystemErrorText(error).get());
    }
    object->selectable.handle = descriptor.release();
    *socket = object.release();
    return 0;
}

cu_ErrorCode cu_TCPSocket_fromAccept(cu_TCPSocket** socket, int32_t descriptor, uint32_t address, uint16_t port,
                                     cu_allocator* allocator)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(*socket == nullptr);

    internal::Owned<cu_TCPSocket> object;
    CU_TRY(object.allocate(allocator));
    object->selectable.handle = descriptor;
    object->address = address;
    object->port = port;
    *socket = object.release();
    return 0;
}

cu_ErrorCode cu_TCPSocket_createPipe(cu_TCPSocket** first, cu_TCPSocket** second, cu_allocator* allocator)
{
    CU_REQUIRE(first != nullptr);
    CU_REQUIRE(*first == nullptr);
    CU_REQUIRE(second != nullptr);
    CU_REQUIRE(*second == nullptr);

    internal::LoopbackPair pair;
    if (const int error = pair.connect(); error != 0)
        return CU_REPORT(cu_ERROR_SOCKET_INIT_FAILED, error, nullptr);

    cu_TCPSocket* ends[2] = {};
    CU_ROLLBACK(firstEnd, ends[0] != nullptr ? cu_TCPSocket_delete(&ends[0]) : 0);
    CU_ROLLBACK(secondEnd, ends[1] != nullptr ? cu_TCPSocket_delete(&ends[1]) : 0);
    CU_TRY(wrapEnd(&ends[0], pair.accepted, pair.connectingAddress, allocator));
    CU_TRY(wrapEnd(&ends[1], pair.connecting, pair.acceptedAddress, allocator));
    firstEnd.dismiss();
    secondEnd.dismiss();
    *first = ends[0];
    *second = ends[1];
    return 0;
}

cu_ErrorCode cu_TCPSocket_delete(cu_TCPSocket** socket)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(*socket != nullptr);
    if (const cu_ErrorCode code = internal::closeSocket(&(*socket)->selectable, CU_HERE); code != 0)
        return code;
    CU_TRY(internal::freeObject(socket));
    return 0;
}

cu_ErrorCode cu_TCPSocket_shutdown(cu_TCPSocket* socket, uint32_t how)
{
    static_assert(int{CU_SHUTDOWN_READ} == int{SHUT_RD} && int{CU_SHUTDOWN_WRITE} == int{SHUT_WR} &&
                  int{CU_SHUTDOWN_BOTH} == int{SHUT_RDWR});
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(how <= CU_SHUTDOWN_BOTH);
    if (shutdown(socket->selectable.handle, static_cast<int>(how)) == 0)
        return 0;
    const int error = errno;
    return CU_REPORT(cu_ERROR_SOCKET_SHUTDOWN_FAILED, error, "Failed to shutdown the socket how=%d.Errno[%d]='%s'",
                     static_cast<int>(how), error, internal::SystemErrorText(error).get());
}

cu_ErrorCode cu_TCPSocket_getAddress(const cu_TCPSocket* socket, uint32_t* address)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(address != nullptr);
    *address = socket->address;
    return 0;
}

cu_ErrorCode cu_TCPSocket_getPort(const cu_TCPSocket* socket, uint16_t* port)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(port != nullptr);
    *port = socket->port;
    return 0;
}

cu_ErrorCode cu_TCPSocket_setOption(cu_TCPSocket* socket, uint32_t type, int32_t value)
{
    CU_REQUIRE(socket != nullptr);
    const int32_t descriptor = socket->selectable.handle;
    const Option option = optionOf(type);
    timeval timeout = {};
    const void* data = &value;
    socklen_t size = sizeof(value);
    switch (option.kind) {
    case Kind::unknown:
        return CU_REPORT(cu_ERROR_SOCKET_SOCKET_OPT_FAILED, 0, "Invalid option type '%d'.", static_cast<int>(type));
    case Kind::nonBlocking:
        return setNonBlocking(descriptor, value != 0, CU_HERE);
    case Kind::boolean:
        value = value != 0 ? 1 : 0;
        break;
    case Kind::bytes:
        CU_REQUIRE(value >= 0);
        break;
    case Kind::milliSeconds:
        CU_REQUIRE(value >= 0);
        timeout = timevalOf(static_cast<uint32_t>(value));
        data = &timeout;
        size = sizeof(timeout);
        break;
    }
    if (setsockopt(descriptor, option.level, option.name, data, size) == 0)
        return 0;
    const int error = errno;
    if (option.kind == Kind::milliSeconds)
        return CU_REPORT(cu_ERROR_SOCKET_SOCKET_OPT_FAILED, error,
                         "Failed to set %s to '%d' ms (s=%d, us=%d).Errno[%d]='%s'", option.inSetText, value,
                         static_cast<int>(timeout.tv_sec), static_cast<int>(timeout.tv_usec), error,
                         internal::SystemErrorText(error).get());
    return CU_REPORT(cu_ERROR_SOCKET_SOCKET_OPT_FAILED, error, "Failed to set %s to '%d'.Errno[%d]='%s'",
                     option.inSetText, value, error, internal::SystemErrorText(error).get());
}

cu_ErrorCode cu_TCPSocket_getOption(const cu_TCPSocket* socket, uint32_t type, int32_t* value)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(value != nullptr);
    const int32_t descriptor = socket->selectable.handle;
    const Option option = optionOf(type);
    if (option.kind == Kind::unknown)
        return CU_REPORT(cu_ERROR_SOCKET_SOCKET_OPT_FAILED, 0, "Invalid option type '%d'.", static_cast<int>(type));
    if (option.kind == Kind::nonBlocking) {
        const int flags = fcntl(descriptor, F_GETFL);
        if (flags == -1)
            return reportFlagsUnread(errno, CU_HERE);
        *value = (flags & O_NONBLOCK) != 0 ? 1 : 0;
        return 0;
    }
    union {
        int32_t number;
        timeval time;
    } read = {};
    const socklen_t expected = option.kind == Kind::milliSeconds ? sizeof(read.time) : sizeof(read.number);
    socklen_t size = sizeof(read);
    if (getsockopt(descriptor, option.level, option.name, &read, &size) != 0) {
        const int error = errno;
        return CU_REPORT(cu_ERROR_SOCKET_SOCKET_OPT_FAILED, error, "Failed to read %s!Errno[%d]='%s'", option.inGetText,
                         error, internal::SystemErrorText(error).get());
    }
    if (size != expected)
        return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
    if (option.kind == Kind::milliSeconds)
        *value = static_cast<int32_t>(
            std::min<int64_t>(int64_t{read.time.tv_sec} * 1000 + read.time.tv_usec / 1000, INT32_MAX));
    else
        *value = option.kind == Kind::boolean ? (read.number != 0 ? 1 : 0) : read.number;
    return 0;
}

cu_ErrorCode cu_TCPSocket_receive(cu_TCPSocket* socket, void* buffer, uint32_t length)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(buffer != nullptr);
    CU_REQUIRE(length != 0);
    return receive(socket, buffer, length, 0, cu_ERROR_SOCKET_IO_TIMEOUT, CU_HERE);
}

cu_ErrorCode cu_TCPSocket_peek(cu_TCPSocket* socket, void* buffer, uint32_t length)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(buffer != nullptr);
    CU_REQUIRE(length != 0);
    // Compatibility: a further look begins anew, and the code for "nothing there" differs from that of receiving.
    return receive(socket, buffer, length, MSG_PEEK, cu_ERROR_SOCKET_WOULD_BLOCK, CU_HERE);
}

cu_ErrorCode cu_TCPSocket_send(cu_TCPSocket* socket, const void* buffer, uint32_t length, bool more)
{
    CU_REQUIRE(socket != nullptr);
    CU_REQUIRE(buffer != nullptr);

    const int32_t descriptor = socket->selectable.handle;
    const int flags = MSG_NOSIGNAL | (more ? MSG_MORE : 0);
    const int64_t began = internal::monotonicNow();
    const ssize_t sent = send(descriptor, buffer, length, flags);
    if (sent == int64_t{length}) [[likely]]
        return 0;
    const int error = sent == -1 ? errno : 0;
    if (error == EWOULDBLOCK)
        return CU_REPORT(cu_ERROR_SOCKET_IO_TIMEOUT, error, nullptr);
    const int64_t deadline = deadlineOf(descriptor, SO_SNDTIMEO, began);
    if (error == EINTR)
        return sendRest(descriptor, static_cast<const uint8_t*>(buffer), length, flags, deadline, CU_HERE);
    if (error == 0 && isCutBySignal(descriptor, deadline))
        return sendRest(descriptor, static_cast<const uint8_t*>(buffer) + sent, length - static_cast<uint32_t>(sent),
                        flags, deadline, CU_HERE);
    // Compatibility: whatever else keeps bytes from being sent is reported as a time-out, without a cause.
    return CU_REPORT(cu_ERROR_SOCKET_IO_TIMEOUT, 0, nullptr);
}

cu_Selectable* cu_TCPSocket_getSelectable(cu_TCPSocket* socket)
{
    return socket != nullptr ? &socket->selectable : nullptr;
}
