// What a stream of bytes says to who expects frames, and the sockets to bring it there.
#pragma once

#include "holds.h"

#include <cUtil/network/message.h>

#include <algorithm>
#include <arpa/inet.h>
#include <cstddef>
#include <cstdint>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace fuzz
{

struct Frames {
    std::vector<std::string> contents;
    bool isWrong = false; ///< a frame with another magic or version ends it, otherwise the end of the bytes
    bool isLarge = false; ///< it ends within a frame of more than a mebibyte
};

/// The bytes of a head that tell that it is wrong.
inline Frames framesOf(std::string bytes, std::size_t untilWrong)
{
    static const std::string head("\x42\xD5\x33\x71\0\0\0\1", 8);
    Frames frames;
    while (bytes.size() >= untilWrong) {
        frames.isWrong = bytes.compare(0, head.size(), head) != 0;
        if (frames.isWrong || bytes.size() < 12)
            break;
        uint32_t length = 0;
        for (std::size_t i = 8; i < 12; ++i)
            length = length << 8 | static_cast<unsigned char>(bytes[i]);
        frames.isLarge = length > 1 << 20;
        if (bytes.size() - 12 < length)
            break;
        frames.contents.push_back(bytes.substr(12, length));
        bytes.erase(0, 12 + std::size_t{length});
    }
    return frames;
}

inline std::string contentOf(const cu_Message* message)
{
    uint8_t* data = nullptr;
    uint32_t size = 0;
    HOLDS(cu_Message_get(message, &data) == 0 && cu_Message_getSize(message, &size) == 0);
    return std::string(data, data + size);
}

/// Listens on a port that the system chooses, and tells which.
inline int listenAnywhere(uint16_t& port)
{
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    HOLDS(bind(listener, generic, size) == 0 && listen(listener, 1) == 0 && getsockname(listener, generic, &size) == 0);
    port = ntohs(address.sin_port);
    return listener;
}

/// Sends in pieces until the other side goes away.
inline void sendInPieces(int descriptor, const std::string& bytes, std::size_t piece)
{
    for (std::size_t at = 0; at < bytes.size(); at += piece)
        if (send(descriptor, bytes.data() + at, std::min(piece, bytes.size() - at), MSG_NOSIGNAL) == -1)
            return;
}

} // namespace fuzz
