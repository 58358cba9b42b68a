#include "network/sockets.h"

#include <cUtil/bufferStream.h>
#include <cUtil/network/tcpSocketStream.h>

namespace
{

TEST(IStream, refusesAnOperationThatIsMissing)
{
    constexpr char file[] = "src/cUtil/iStream";
    const cu_IStream empty = {};
    char byte = 0;
    bool has = false;
    for (const cu_IStream* bad : {static_cast<const cu_IStream*>(nullptr), &empty}) {
        EXPECT_REFUSED(cu_IStream_write(bad, &byte, 1), "cu_IStream_write", file);
        EXPECT_REFUSED(cu_IStream_read(bad, &byte, 1), "cu_IStream_read", file);
        EXPECT_REFUSED(cu_IStream_hasSpaceFor(bad, 1, &has), "cu_IStream_hasSpaceFor", file);
        EXPECT_REFUSED(cu_IStream_hasData(bad, 1, &has), "cu_IStream_hasData", file);
        EXPECT_REFUSED(cu_IStream_flushWrite(bad), "cu_IStream_flushWrite", file);
        EXPECT_REFUSED(cu_IStream_destruct(bad), "cu_IStream_destruct", file);
    }
}

// A stream refuses nulls in its own name.
void expectRefusals(const cu_IStream& stream, const std::string& family, const char* file)
{
    EXPECT_REFUSED(cu_IStream_write(&stream, nullptr, 1), family + "_write", file);
    EXPECT_REFUSED(cu_IStream_read(&stream, nullptr, 1), family + "_read", file);
    EXPECT_REFUSED(cu_IStream_hasSpaceFor(&stream, 1, nullptr), family + "_hasSpaceFor", file);
    EXPECT_REFUSED(cu_IStream_hasData(&stream, 1, nullptr), family + "_hasData", file);
    cu_IStream none = stream;
    none.context = nullptr;
    EXPECT_REFUSED(cu_IStream_flushWrite(&none), family + "_flushWrite", file);
    EXPECT_REFUSED(cu_IStream_destruct(&none), family + "_destruct", file);
}

bool hasSpaceFor(const cu_IStream& stream, uint32_t count)
{
    bool answer = count == 0;
    EXPECT_EQ(cu_IStream_hasSpaceFor(&stream, count, &answer), 0U);
    return answer;
}

bool hasData(const cu_IStream& stream, uint32_t timeoutUs)
{
    bool answer = timeoutUs != 0;
    EXPECT_EQ(cu_IStream_hasData(&stream, timeoutUs, &answer), 0U);
    return answer;
}

TEST(BufferStream, movesWholesOnlyAndHasSpaceForLessThanIsFree)
{
    constexpr char file[] = "src/cUtil/bufferStream";
    cu_RingBuffer* ring = nullptr;
    cu_IStream stream = {};
    uint32_t free = 0;
    ASSERT_EQ(cu_RingBuffer_new(&ring, 16, false, false, nullptr), 0U);
    ASSERT_EQ(cu_RingBuffer_putAvailable(ring, &free), 0U);
    EXPECT_NULLS_REFUSED(file, std::tuple(&stream, ring), cu_BufferStream_new);
    ASSERT_EQ(cu_BufferStream_new(&stream, ring), 0U);
    expectRefusals(stream, "cu_BufferStream", file);
    EXPECT_EQ(cu_IStream_write(&stream, "a", 0), cu_ERROR_COM_INVALID_ARGUMENT);
    EXPECT_NE(support::trace().find("cu_BufferStream_write"), std::string::npos) << "passed on with a point";

    EXPECT_TRUE(hasSpaceFor(stream, free - 1));
    EXPECT_FALSE(hasSpaceFor(stream, free));
    EXPECT_FALSE(hasData(stream, UINT32_MAX)) << "after a wait";
    EXPECT_EQ(cu_IStream_write(&stream, "abc", 3), 0U);
    EXPECT_TRUE(hasData(stream, 0));
    EXPECT_FALSE(hasSpaceFor(stream, free - 1));
    const std::string bytes(free, 'x');
    char got[4] = {};
    constexpr cu_ErrorCode overrun = cu_ERROR_BUFFER_OVERRUN;
    EXPECT_FAILURE(cu_IStream_write(&stream, bytes.data(), free), overrun, "cu_BufferStream_write", file, "");
    EXPECT_FAILURE(cu_IStream_read(&stream, got, 4), overrun, "cu_BufferStream_read", file, "");
    EXPECT_EQ(cu_IStream_flushWrite(&stream), 0U);
    EXPECT_EQ(cu_IStream_read(&stream, got, 3), 0U);
    EXPECT_STREQ(got, "abc");
    EXPECT_EQ(cu_IStream_destruct(&stream), 0U);
}

TEST(TCPSocketStream, movesBytesOverTheSocketThatItOwns)
{
    constexpr char file[] = "src/cUtil/network/tcpSocketStream";
    Pair pair;
    cu_TCPSocket* owned = std::exchange(*&pair.second, nullptr);
    cu_IStream stream = {};
    EXPECT_NULLS_REFUSED(file, std::tuple(&stream, owned), cu_TCPSocketStream_new);
    ASSERT_EQ(cu_TCPSocketStream_new(&stream, owned), 0U);
    expectRefusals(stream, "cu_TCPSocketStream", file);

    EXPECT_GE(timeOf([&] { EXPECT_FALSE(hasData(stream, 30'000)); }), 30ms);
    EXPECT_TRUE(hasSpaceFor(stream, UINT32_MAX));
    char got[4] = {};
    EXPECT_EQ(cu_TCPSocket_send(pair.first, "in", 2, false), 0U);
    EXPECT_TRUE(hasData(stream, 0));
    EXPECT_EQ(cu_IStream_read(&stream, got, 2), 0U);
    EXPECT_STREQ(got, "in");
    EXPECT_EQ(cu_IStream_write(&stream, "out", 3), 0U);
    EXPECT_EQ(cu_IStream_flushWrite(&stream), 0U);
    EXPECT_EQ(cu_TCPSocket_receive(pair.first, got, 3), 0U);
    EXPECT_STREQ(got, "out");
    EXPECT_EQ(cu_TCPSocket_shutdown(pair.first, CU_SHUTDOWN_WRITE), 0U);
    EXPECT_EQ(cu_IStream_read(&stream, got, 1), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED);
    EXPECT_NE(support::trace().find("cu_TCPSocketStream_read"), std::string::npos);
    EXPECT_EQ(cu_IStream_destruct(&stream), 0U);
    EXPECT_EQ(cu_TCPSocket_receive(pair.first, got, 1), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED);
}

} // namespace
