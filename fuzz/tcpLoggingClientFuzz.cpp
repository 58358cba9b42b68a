// The TCP logging client beside a reading by hand of the same bytes: the lines that it hands on, how it ends, and that
// it never takes more memory than twice of what has come.
#include "holds.h"

#include <cUtil/errorCodes.h>
#include <cUtil/logger/tcpLoggingClient.h>
#include <cUtil/mallocAllocator.h>

#include <algorithm>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace
{

using Lines = std::vector<std::pair<uint32_t, std::string>>;

constexpr uint32_t firstBuffer = 4096;

Lines handedOn;
uint32_t largestRequest;

uint32_t numberAt(const std::string& bytes, std::size_t at)
{
    uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i)
        value = value << 8U | static_cast<unsigned char>(bytes[at + i]);
    return value;
}

// What the stream holds, until it ends or is wrong.
cu_ErrorCode readByHand(const std::string& bytes, Lines& lines)
{
    constexpr std::size_t headSize = 8;
    for (std::size_t at = 0; bytes.size() - at >= headSize;) {
        const uint32_t level = numberAt(bytes, at);
        const uint32_t length = numberAt(bytes, at + 4);
        at += headSize;
        if (length > bytes.size() - at)
            break;
        if (length == 0 || bytes[at + length - 1] != '\0')
            return cu_ERROR_COM_INVARIANT;
        lines.emplace_back(level, bytes.c_str() + at);
        at += length;
    }
    return cu_ERROR_SOCKET_OTHER_SIDE_CLOSED;
}

cu_ErrorCode keepLine(void*, uint32_t level, const char* text)
{
    handedOn.emplace_back(level, text);
    return 0;
}

sockaddr* generic(sockaddr_in& address)
{
    return static_cast<sockaddr*>(static_cast<void*>(&address));
}

struct Listener {
    int descriptor = socket(AF_INET, SOCK_STREAM, 0);
    uint16_t port = 0;

    Listener()
    {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        HOLDS(bind(descriptor, generic(address), size) == 0 && listen(descriptor, 1) == 0);
        HOLDS(getsockname(descriptor, generic(address), &size) == 0);
        port = ntohs(address.sin_port);
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static const Listener listener;
    cu_allocator allocator = *cu_allocator_malloc_get();
    allocator.realloc = [](void* context, void** destination, uint32_t wanted) {
        largestRequest = std::max(largestRequest, wanted);
        return cu_allocator_malloc_get()->realloc(context, destination, wanted);
    };
    cu_logger_Adapter adapter = {};
    adapter.logMessage = keepLine;
    adapter.destruct = [](void*) { return cu_ErrorCode{0}; };
    handedOn.clear();
    largestRequest = 0;

    cu_logger_TCPLoggingClient* client = nullptr;
    HOLDS(cu_logger_TCPLoggingClient_new(&client, &adapter, INADDR_LOOPBACK, listener.port, &allocator) == 0);
    const int sender = accept(listener.descriptor, nullptr, nullptr);
    const std::string bytes(data, data + size);
    HOLDS(send(sender, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size()));
    shutdown(sender, SHUT_WR);

    Lines expected;
    bool running = true;
    HOLDS(cu_logger_TCPLoggingClient_run(client, &running) == readByHand(bytes, expected));
    HOLDS(handedOn == expected);
    HOLDS(largestRequest <= std::max<std::size_t>(firstBuffer, 2 * size));

    // Without a trace in the system, which would run out of ports.
    const linger none = {1, 0};
    setsockopt(sender, SOL_SOCKET, SO_LINGER, &none, sizeof(none));
    close(sender);
    HOLDS(cu_logger_TCPLoggingClient_delete(&client) == 0);
    return 0;
}
