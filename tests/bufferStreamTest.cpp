#include "support/record.h"

#include <cUtil/bufferStream.h>

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>

namespace
{

constexpr char dispatchFile[] = "src/cUtil/iStream";
constexpr char file[] = "src/cUtil/bufferStream";

class BufferStream : public testing::Test
{
protected:
    void SetUp() override
    {
        cu_RingBuffer* ring = nullptr;
        ASSERT_EQ(cu_RingBuffer_new(&ring, 16, false, false, nullptr), 0U);
        ASSERT_EQ(cu_RingBuffer_putAvailable(ring, &free), 0U);
        ASSERT_EQ(cu_BufferStream_new(&stream, ring), 0U);
        EXPECT_EQ(stream.context, ring);
    }
    void TearDown() override { EXPECT_EQ(cu_IStream_destruct(&stream), 0U); }

    cu_IStream stream = {};
    uint32_t free = 0;
    char got[16] = {};
    bool answer = false;
};

TEST_F(BufferStream, givesBackWhatItTookAndNeverAPart)
{
    const std::string bytes(free, 'x');
    EXPECT_EQ(cu_IStream_write(&stream, "abc", 3), 0U);
    EXPECT_FAILURE(cu_IStream_write(&stream, bytes.data(), free), cu_ERROR_BUFFER_OVERRUN, "cu_BufferStream_write",
                   file, "");
    EXPECT_FAILURE(cu_IStream_read(&stream, got, 4), cu_ERROR_BUFFER_OVERRUN, "cu_BufferStream_read", file, "");
    EXPECT_EQ(cu_IStream_read(&stream, got, 3), 0U);
    EXPECT_EQ(std::string(got, 3), "abc");
    EXPECT_EQ(cu_IStream_flushWrite(&stream), 0U);
}

TEST_F(BufferStream, hasSpaceForLessThanIsFreeAndDataWhenThereIsSome)
{
    EXPECT_EQ(cu_IStream_hasSpaceFor(&stream, free - 1, &answer), 0U);
    EXPECT_TRUE(answer);
    EXPECT_EQ(cu_IStream_hasSpaceFor(&stream, free, &answer), 0U);
    EXPECT_FALSE(answer);
    answer = true;
    EXPECT_EQ(cu_IStream_hasData(&stream, 0, &answer), 0U); // 0 is no wait without limit here
    EXPECT_FALSE(answer);
    EXPECT_EQ(cu_IStream_write(&stream, "a", 1), 0U);
    EXPECT_EQ(cu_IStream_hasData(&stream, UINT32_MAX, &answer), 0U);
    EXPECT_TRUE(answer);
    EXPECT_EQ(cu_IStream_hasSpaceFor(&stream, free - 1, &answer), 0U);
    EXPECT_FALSE(answer);
}

TEST_F(BufferStream, refusesNullsInItsOwnName)
{
    EXPECT_REFUSED(cu_BufferStream_new(nullptr, static_cast<cu_RingBuffer*>(stream.context)), "cu_BufferStream_new",
                   file);
    EXPECT_REFUSED(cu_BufferStream_new(&stream, nullptr), "cu_BufferStream_new", file);
    EXPECT_REFUSED(cu_IStream_write(&stream, nullptr, 1), "cu_BufferStream_write", file);
    EXPECT_REFUSED(cu_IStream_read(&stream, nullptr, 1), "cu_BufferStream_read", file);
    EXPECT_REFUSED(cu_IStream_hasSpaceFor(&stream, 1, nullptr), "cu_BufferStream_hasSpaceFor", file);
    EXPECT_REFUSED(cu_IStream_hasData(&stream, 1, nullptr), "cu_BufferStream_hasData", file);
    EXPECT_EQ(cu_IStream_write(&stream, "a", 0), cu_ERROR_COM_INVALID_ARGUMENT);
    EXPECT_NE(support::trace().find("cu_BufferStream_write"), std::string::npos) << "passed on with a point";
    cu_IStream none = stream;
    none.context = nullptr;
    EXPECT_REFUSED(cu_IStream_flushWrite(&none), "cu_BufferStream_flushWrite", file);
    EXPECT_REFUSED(cu_IStream_destruct(&none), "cu_BufferStream_destruct", file);
}

// A table of the application's: each operation is called with its context and arguments, and its result comes back.
std::ostringstream called;

template <cu_ErrorCode result, typename... Arguments>
cu_ErrorCode note(void* context, Arguments... arguments)
{
    called << result << ' ' << context;
    ((called << ' ' << arguments), ...);
    called << '\n';
    return result;
}

TEST(IStream, callsTheOperationOfTheTableAndRefusesOneThatIsMissing)
{
    int context = 0;
    char bytes[4];
    bool has = false;
    const cu_IStream whole = {&context,
                              note<11, const void*, uint32_t>,
                              note<12, void*, uint32_t>,
                              note<13, uint32_t, bool*>,
                              note<14, uint32_t, bool*>,
                              note<15>,
                              note<16>};
    const cu_IStream empty = {&context, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr};
    const std::pair<std::string, std::function<cu_ErrorCode(const cu_IStream*)>> table[] = {
        {"cu_IStream_write", [&](auto* stream) { return cu_IStream_write(stream, bytes, 4); }},
        {"cu_IStream_read", [&](auto* stream) { return cu_IStream_read(stream, bytes, 3); }},
        {"cu_IStream_hasSpaceFor", [&](auto* stream) { return cu_IStream_hasSpaceFor(stream, 2, &has); }},
        {"cu_IStream_hasData", [&](auto* stream) { return cu_IStream_hasData(stream, 1, &has); }},
        {"cu_IStream_flushWrite", cu_IStream_flushWrite},
        {"cu_IStream_destruct", cu_IStream_destruct}};
    cu_ErrorCode code = 11;
    for (const auto& [function, call] : table) {
        EXPECT_EQ(call(&whole), code++);
        for (const cu_IStream* bad : {static_cast<const cu_IStream*>(nullptr), &empty})
            EXPECT_EQ(support::failureOf([bad, &call = call] { return call(bad); }),
                      (support::Failure{cu_ERROR_COM_INVALID_ARGUMENT, function, dispatchFile, ""}));
    }
    std::ostringstream expected;
    expected << "11 " << &context << ' ' << static_cast<void*>(bytes) << " 4\n12 " << &context << ' '
             << static_cast<void*>(bytes) << " 3\n13 " << &context << " 2 " << &has << "\n14 " << &context << " 1 "
             << &has << "\n15 " << &context << "\n16 " << &context << '\n';
    EXPECT_EQ(called.str(), expected.str());
}

} // namespace
