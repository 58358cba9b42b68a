#include "internal/socket.h"

#include "internal/timeArithmetic.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <utility>

int64_t cu::internal::monotonicNow()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * nanoSecondsPerSecond + now.tv_nsec;
}

int cu::internal::waitForEvents(pollfd* descriptors, uint32_t count, int64_t deadline)
{
    for (;;) {
        timespec left = {};
        if (deadline != noDeadline) {
            const int64_t nanoSeconds = std::max<int64_t>(deadline - monotonicNow(), 0);
            left.tv_sec = static_cast<time_t>(nanoSeconds / nanoSecondsPerSecond);
            left.tv_nsec = static_cast<decltype(left.tv_nsec)>(nanoSeconds % nanoSecondsPerSecond);
        }
        const int ready = ppoll(descriptors, count, deadline != noDeadline ? &left : nullptr, nullptr);
        if (ready >= 0 || errno != EINTR)
            return ready;
    }
}

cu_ErrorCode cu::internal::bindTo(int32_t descriptor, uint32_t address, uint16_t port, bool reuseAddress, Place here)
{
    const int reuse = reuseAddress ? 1 : 0;
    if (setsockopt(descriptor, SOL_SOCKET, SO_REUSEADDR, &reuse, sizeof(reuse)) != 0)
        return report(cu_ERROR_SOCKET_SOCKET_OPT_FAILED, errno, here, nullptr);
    sockaddr_in own = socketAddress(address, port);
    if (bind(descriptor, generic(&own), sizeof(own)) == 0)
        return 0;
    if (errno == EADDRINUSE)
        return report(cu_ERROR_SOCKET_PORT_ALREADY_BOUND, errno, here, "when binding port %hu to address 0x%.8x", port,
                      address);
    return report(cu_ERROR_SOCKET_INIT_FAILED, errno, here, nullptr);
}

cu_ErrorCode cu::internal::closeSocket(cu_Selectable* selectable, Place here)
{
    // The system gives the descriptor up even if it fails, and may have given it to another thread by the next attempt.
    const int32_t descriptor = std::exchange(selectable->handle, noDescriptor);
    if (descriptor != noDescriptor && close(descriptor) != 0)
        return report(cu_ERROR_SOCKET_CLOSE_FAILED, errno, here, nullptr);
    return 0;
}
