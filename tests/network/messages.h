// Messages, servers and clients for tests.
#pragma once

#include "network/sockets.h"

#include <cUtil/errorCodes.h>
#include <cUtil/network/message.h>
#include <cUtil/network/msgClient.h>
#include <cUtil/network/msgServer.h>

#include <gtest/gtest.h>

#include <poll.h>

#include <optional>
#include <string>
#include <string_view>
#include <unistd.h>

using MSGClient = Handle<cu_MSGClient, cu_MSGClient_delete>;
using MSGServer = Handle<cu_MSGServer, cu_MSGServer_delete>;

/// A message with a content.
class Message
{
public:
    explicit Message(std::string_view content = "")
    {
        EXPECT_EQ(cu_Message_new(&me_, static_cast<uint32_t>(content.size()), nullptr), 0U);
        if (!content.empty()) {
            EXPECT_EQ(cu_Message_write(me_, content.data(), static_cast<uint32_t>(content.size())), 0U);
        }
    }

    cu_Message** operator&() { return &me_; } // NOLINT(google-runtime-operator): as the constructors take it
    operator cu_Message*() const { return me_; }

    std::string content() const
    {
        uint8_t* data = nullptr;
        uint32_t size = 0;
        EXPECT_EQ(cu_Message_get(me_, &data), 0U);
        EXPECT_EQ(cu_Message_getSize(me_, &size), 0U);
        return std::string(data, data + size);
    }

private:
    Handle<cu_Message, cu_Message_delete> me_;
};

inline std::string bigEndian(uint32_t number)
{
    std::string bytes;
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>(number >> shift);
    return bytes;
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
class Raw
{
public:
    Raw() : descriptor_(socket(AF_INET, SOCK_STREAM, 0)) {}
    explicit Raw(uint16_t port) : Raw() { connectTo(port); }
    Raw(const Raw&) = delete;
    Raw& operator=(const Raw&) = delete;
    ~Raw() { close(); }

    int descriptor() const { return descriptor_; }

    void connectTo(uint16_t port) const
    {
        sockaddr_in to = {};
        to.sin_family = AF_INET;
        to.sin_addr.s_addr = htonl(CU_IP_ADDRESS_LOCAL);
        to.sin_port = htons(port);
        EXPECT_EQ(connect(descriptor_, reinterpret_cast<sockaddr*>(&to), sizeof(to)), 0);
    }

    void close()
    {
        if (descriptor_ != -1)
            ::close(std::exchange(descriptor_, -1));
    }

    /// Sends, unless the other side is gone; tells how much, which with `flags` may be less than all.
    std::size_t send(std::string_view bytes, int flags = 0)
    {
        const ssize_t sent = ::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL | flags);
        return sent > 0 ? static_cast<std::size_t>(sent) : 0;
    }

    /// So many bytes, or fewer if the connection ends before.
    std::string receive(std::size_t size)
    {
        std::string bytes(size, '\0');
        const ssize_t got = recv(descriptor_, bytes.data(), size, MSG_WAITALL);
        bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return bytes;
    }

    bool isClosed() { return receive(1).empty(); }

private:
    int descriptor_;
};
