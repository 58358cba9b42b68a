#include "sockets.h"

#include "support/record.h"
#include "support/refusal.h"

#include <cUtil/network/tcpSocketStream.h>

#include <string>

namespace
{

constexpr char file[] = "src/cUtil/network/tcpSocketStream";

TEST(TCPSocketStream, movesBytesOverTheSocketThatItOwns)
{
    Pair pair;
    cu_TCPSocket* owned = nullptr;
    std::swap(owned, *&pair.second);
    cu_IStream stream = {};
    ASSERT_EQ(cu_TCPSocketStream_new(&stream, owned), 0U);

    bool answer = true;
    EXPECT_GE(timeOf([&] { EXPECT_EQ(cu_IStream_hasData(&stream, 30'000, &answer), 0U); }), 30ms);
    EXPECT_FALSE(answer);
    EXPECT_EQ(cu_IStream_hasSpaceFor(&stream, UINT32_MAX, &answer), 0U);
    EXPECT_TRUE(std::exchange(answer, false));
    char got[4] = {};
    EXPECT_EQ(cu_TCPSocket_send(pair.first, "in", 2, false), 0U);
    EXPECT_EQ(cu_IStream_hasData(&stream, 0, &answer), 0U);
    EXPECT_TRUE(answer);
    EXPECT_EQ(cu_IStream_read(&stream, got, 2), 0U);
    EXPECT_STREQ(got, "in");
    EXPECT_EQ(cu_IStream_write(&stream, "out", 3), 0U);
    EXPECT_EQ(cu_IStream_flushWrite(&stream), 0U);
    EXPECT_EQ(cu_TCPSocket_receive(pair.first, got, 3), 0U);
    EXPECT_STREQ(got, "out");
    EXPECT_EQ(cu_IStream_destruct(&stream), 0U);
    EXPECT_EQ(cu_TCPSocket_receive(pair.first, got, 1), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED);
}

TEST(TCPSocketStream, refusesNullsInItsOwnNameAndPassesFailuresOn)
{
    Pair pair;
    cu_IStream stream = {};
    EXPECT_NULLS_REFUSED(file, std::tuple(&stream, static_cast<cu_TCPSocket*>(pair.first)), cu_TCPSocketStream_new);
    ASSERT_EQ(cu_TCPSocketStream_new(&stream, pair.first), 0U);
    EXPECT_REFUSED(cu_IStream_write(&stream, nullptr, 1), "cu_TCPSocketStream_write", file);
    EXPECT_REFUSED(cu_IStream_read(&stream, nullptr, 1), "cu_TCPSocketStream_read", file);
    EXPECT_REFUSED(cu_IStream_hasSpaceFor(&stream, 1, nullptr), "cu_TCPSocketStream_hasSpaceFor", file);
    EXPECT_REFUSED(cu_IStream_hasData(&stream, 1, nullptr), "cu_TCPSocketStream_hasData", file);
    ASSERT_EQ(cu_TCPSocket_delete(&pair.second), 0U);
    char byte = 0;
    EXPECT_EQ(cu_IStream_read(&stream, &byte, 1), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED);
    EXPECT_NE(support::trace().find("cu_TCPSocketStream_read"), std::string::npos);
    cu_IStream none = stream;
    none.context = nullptr;
    EXPECT_REFUSED(cu_IStream_flushWrite(&none), "cu_TCPSocketStream_flushWrite", file);
    EXPECT_REFUSED(cu_IStream_destruct(&none), "cu_TCPSocketStream_destruct", file);
}

} // namespace
