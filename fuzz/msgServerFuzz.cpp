// A server whose clients say anything. The first byte of the input tells in pieces of which size the rest comes.
#include "frames.h"

#include <cUtil/network/msgClient.h>
#include <cUtil/network/msgServer.h>

#include <algorithm>

namespace
{

struct Server {
    Server()
    {
        do {
            close(fuzz::listenAnywhere(port));
        } while (cu_MSGServer_new(&handle, INADDR_LOOPBACK, port, nullptr) != 0);
        HOLDS(cu_MSGClient_new(&witness, INADDR_LOOPBACK, port, nullptr) == 0);
        HOLDS(cu_Message_new(&message, 0, nullptr) == 0);
        HOLDS(cu_MSGClient_send(witness, message) == 0);
        HOLDS(cu_MSGServer_receive(handle, &witnessEndpoint, message) == 0);
    }

    int connect() const
    {
        const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(port);
        HOLDS(::connect(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0);
        return descriptor;
    }

    // What came from others until the witness has its say.
    std::vector<std::string> received()
    {
        std::vector<std::string> contents;
        HOLDS(cu_Message_resize(message, 0) == 0);
        HOLDS(cu_MSGClient_send(witness, message) == 0);
        for (;;) {
            uint32_t endpoint = 0;
            HOLDS(cu_MSGServer_receive(handle, &endpoint, message) == 0);
            if (endpoint == witnessEndpoint)
                return contents;
            contents.push_back(fuzz::contentOf(message));
        }
    }

    uint16_t port = 0;
    cu_MSGServer* handle = nullptr;
    cu_MSGClient* witness = nullptr;
    uint32_t witnessEndpoint = 0;
    cu_Message* message = nullptr;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, std::size_t size)
{
    static Server server;
    if (size == 0)
        return 0;
    const int client = server.connect();
    const std::string bytes(data + 1, data + std::min<std::size_t>(size, 10'000));
    fuzz::sendInPieces(client, bytes, data[0] + std::size_t{1});
    shutdown(client, SHUT_WR);
    char nothing = 0;
    HOLDS(recv(client, &nothing, 1, 0) <= 0); // it has been dropped, and what it sent was passed on
    close(client);
    HOLDS(server.received() == fuzz::framesOf(bytes, 8).contents);
    return 0;
}
