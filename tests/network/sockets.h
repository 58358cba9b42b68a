// Sockets for tests: owned ones, pairs, and what a test sees of them from outside.
#pragma once

#include "support/refusal.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/network/ipAddress.h>
#include <cUtil/network/selectable.h>
#include <cUtil/network/tcpServerSocket.h>
#include <cUtil/network/tcpSocket.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>

/// A handle that is deleted at the end of the scope.
template <typename T, cu_ErrorCode (*destroy)(T**)>
class Handle : support::Pinned
{
public:
    ~Handle()
    {
        if (handle_ != nullptr) {
            EXPECT_EQ(destroy(&handle_), 0U);
        }
    }

    T** operator&() { return &handle_; } // NOLINT(google-runtime-operator): as the constructors take it
    operator T*() const { return handle_; }

private:
    T* handle_ = nullptr;
};

using TCPSocket = Handle<cu_TCPSocket, cu_TCPSocket_delete>;
using TCPServerSocket = Handle<cu_TCPServerSocket, cu_TCPServerSocket_delete>;

using namespace std::chrono_literals;

/// How long a call takes.
template <typename Call>
std::chrono::nanoseconds timeOf(Call call)
{
    const auto began = std::chrono::steady_clock::now();
    call();
    return std::chrono::steady_clock::now() - began;
}

/// What a wait of the system lasts at least: an old kernel's tick may be cut off.
constexpr std::chrono::nanoseconds atLeast(std::chrono::nanoseconds wait)
{
    return wait - wait / 10;
}

/// Lets the process have so many descriptors, or as many as it may have; tells how many.
inline int allowDescriptors(rlim_t count)
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min(limit.rlim_max, count);
    setrlimit(RLIMIT_NOFILE, &limit);
    return static_cast<int>(limit.rlim_cur);
}

/// Address and port, in host byte order, that the system knows of one end of a connection.
struct Place {
    uint32_t address = 0;
    uint16_t port = 0;

    friend bool operator==(const Place&, const Place&) = default;
};

inline Place placeOf(const cu_Selectable* selectable)
{
    sockaddr_in address = {};
    socklen_t size = sizeof(address);
    EXPECT_EQ(getsockname(selectable->handle, reinterpret_cast<sockaddr*>(&address), &size), 0);
    return {ntohl(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

/// What the system says of an option; of a time, its seconds.
inline int32_t kernelOption(const cu_Selectable* selectable, int level, int name)
{
    int32_t value[8] = {};
    socklen_t size = sizeof(value);
    EXPECT_EQ(getsockopt(selectable->handle, level, name, value, &size), 0);
    return value[0];
}

/// A server on a port of the loopback interface that the system chooses.
struct Server {
    explicit Server(uint32_t backlog = 16, cu_allocator* allocator = nullptr)
    {
        EXPECT_EQ(cu_TCPServerSocket_new(&socket, 0, CU_IP_ADDRESS_LOCAL, backlog, true, allocator), 0U);
        port = placeOf(cu_TCPServerSocket_getSelectable(socket)).port;
    }

    TCPServerSocket socket;
    uint16_t port = 0;
};

/// Two sockets that are connected with each other.
struct Pair {
    Pair() { EXPECT_EQ(cu_TCPSocket_createPipe(&first, &second, nullptr), 0U); }

    TCPSocket first;
    TCPSocket second;
};
