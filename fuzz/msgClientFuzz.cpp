// A client of a server that says anything. The first byte of the input tells in pieces of which size the rest comes.
#include "frames.h"

#include <cUtil/errorCodes.h>
#include <cUtil/mallocAllocator.h>
#include <cUtil/network/msgClient.h>

#include <algorithm>

namespace
{

// Refuses the large messages that a few bytes can announce.
cu_allocator limitedAllocator()
{
    cu_allocator limited = *cu_allocator_malloc_get();
    limited.realloc = [](void* context, void** block, uint32_t size) -> cu_ErrorCode {
        return size <= 1 << 20 ? cu_allocator_malloc_get()->realloc(context, block, size) : cu_ERROR_COM_MALLOC_FAILED;
    };
    return limited;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static uint16_t port = 0;
    static const int listener = fuzz::listenAnywhere(port);
    static cu_allocator limited = limitedAllocator();
    if (size == 0)
        return 0;
    cu_MSGClient* client = nullptr;
    HOLDS(cu_MSGClient_new(&client, INADDR_LOOPBACK, port, nullptr) == 0);
    const int peer = accept(listener, nullptr, nullptr);
    const std::string bytes(data + 1, data + std::min<std::size_t>(size, 10'000));
    fuzz::sendInPieces(peer, bytes, data[0] + std::size_t{1});
    shutdown(peer, SHUT_WR);

    const fuzz::Frames frames = fuzz::framesOf(bytes, 12);
    cu_Message* message = nullptr;
    HOLDS(cu_Message_new(&message, 0, &limited) == 0);
    for (const std::string& content : frames.contents)
        HOLDS(cu_MSGClient_receive(client, message) == 0 && fuzz::contentOf(message) == content);
    HOLDS(cu_MSGClient_receive(client, message) == (frames.isWrong   ? cu_ERROR_COM_INVARIANT
                                                    : frames.isLarge ? cu_ERROR_COM_MALLOC_FAILED
                                                                     : cu_ERROR_SOCKET_OTHER_SIDE_CLOSED));
    HOLDS(cu_Message_delete(&message) == 0);
    HOLDS(cu_MSGClient_delete(&client) == 0);
    close(peer);
    return 0;
}
