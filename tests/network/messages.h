// Messages, servers and clients for tests.
#pragma once

#include "network/sockets.h"
#include "support/allocator.h"

#include <cUtil/errorCodes.h>
#include <cUtil/network/message.h>
#include <cUtil/network/msgClient.h>
#include <cUtil/network/msgServer.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <unistd.h>

using MSGClient = Handle<cu_MSGClient, cu_MSGClient_delete>;
using MSGServer = Handle<cu_MSGServer, cu_MSGServer_delete>;

/// A message on an allocator that moves every block; at its end nothing may be left.
class Message
{
public:
    explicit Message(std::string_view content = "", uint32_t capacity = 0)
    {
        EXPECT_EQ(cu_Message_new(&me_, capacity, allocator.get()), 0U);
        if (!content.empty())
            write(content);
    }

    operator cu_Message*() const { return me_; }

    void write(std::string_view bytes)
    {
        EXPECT_EQ(cu_Message_write(me_, bytes.data(), static_cast<uint32_t>(bytes.size())), 0U);
    }

    support::WatchfulAllocator allocator;

private:
    Handle<cu_Message, cu_Message_delete> me_;
};

inline std::string contentOf(const cu_Message* message)
{
    uint8_t* data = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(cu_Message_get(message, &data), 0U);
    EXPECT_EQ(cu_Message_getSize(message, &size), 0U);
    return {reinterpret_cast<const char*>(data), size};
}

inline uint32_t cursorOf(const cu_Message* message)
{
    uint32_t position = ~0U;
    EXPECT_EQ(cu_Message_tell(message, &position), 0U);
    return position;
}

inline std::string bigEndian(uint32_t number)
{
    number = htonl(number);
    return {reinterpret_cast<const char*>(&number), sizeof(number)};
}

/// What stands in front of a message on the wire.
inline std::string headOf(uint32_t length, uint32_t version = 1, uint32_t magic = 0x42D53371)
{
    return bigEndian(magic) + bigEndian(version) + bigEndian(length);
}

inline std::string frameOf(std::string_view content)
{
    return headOf(static_cast<uint32_t>(content.size())).append(content);
}

/// A connection that sends and receives bytes as it likes.
class Raw : support::Pinned
{
public:
    explicit Raw(uint16_t port)
    {
        sockaddr_in to = {};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(CU_IP_ADDRESS_LOCAL);
        to.sin_port = htons(port);
        EXPECT_EQ(connect(descriptor, reinterpret_cast<sockaddr*>(&to), sizeof(to)), 0);
    }
    ~Raw() { close(descriptor); }

    /// Sends, unless the other side is gone; tells how much, which with `flags` may be less than all.
    std::size_t send(std::string_view bytes, int flags = 0) const
    {
        return static_cast<std::size_t>(
            std::max<ssize_t>(::send(descriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL | flags), 0));
    }

    /// Sends the same again and again until the other side has not taken it for a while; tells how often it did.
    int fill(std::string_view bytes) const
    {
        const timeval limit = {0, 300'000};
        setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
        int sent = 0;
        while (send(bytes) == bytes.size())
            ++sent;
        return sent;
    }

    /// So many bytes, or fewer if the connection ends before.
    std::string receive(std::size_t size) const
    {
        std::string bytes(size, '\0');
        const ssize_t got = recv(descriptor, bytes.data(), size, MSG_WAITALL);
        return bytes.substr(0, static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
    }

    const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
};
