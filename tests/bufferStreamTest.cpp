#include "support/record.h"

#include <cUtil/bufferStream.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

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
TEST(IStream, callsTheOperationOfTheTableAndRefusesOneThatIsMissing)
{
    static std::string called;
    static void* const context = &called;
    static bool flag = false;
    static uint8_t bytes[4];
    called.clear();
    const auto note = [](const void* given, const std::string& what, cu_ErrorCode code) {
        EXPECT_EQ(given, context);
        called += what;
        return code;
    };
    static const auto take = note;
    const cu_IStream whole = {context,
                              [](void* me, const void* from, uint32_t count) {
                                  EXPECT_EQ(from, bytes);
                                  return take(me, "w" + std::to_string(count), 11);
                              },
                              [](void* me, void* to, uint32_t count) {
                                  EXPECT_EQ(to, bytes);
                                  return take(me, "r" + std::to_string(count), 12);
                              },
                              [](void* me, uint32_t count, bool* has) {
                                  EXPECT_EQ(has, &flag);
                                  return take(me, "s" + std::to_string(count), 13);
                              },
                              [](void* me, uint32_t timeoutUs, bool* has) {
                                  EXPECT_EQ(has, &flag);
                                  return take(me, "d" + std::to_string(timeoutUs), 14);
                              },
                              [](void* me) { return take(me, "f", 15); },
                              [](void* me) { return take(me, "x", 16); }};
    using Call = std::function<cu_ErrorCode(const cu_IStream*)>;
    const struct {
        const char* function;
        Call call;
        std::function<void(cu_IStream&)> lose;
    } table[] = {{"cu_IStream_write", [](auto* stream) { return cu_IStream_write(stream, bytes, 4); },
                  [](auto& stream) { stream.write = nullptr; }},
                 {"cu_IStream_read", [](auto* stream) { return cu_IStream_read(stream, bytes, 3); },
                  [](auto& stream) { stream.read = nullptr; }},
                 {"cu_IStream_hasSpaceFor", [](auto* stream) { return cu_IStream_hasSpaceFor(stream, 2, &flag); },
                  [](auto& stream) { stream.hasSpaceFor = nullptr; }},
                 {"cu_IStream_hasData", [](auto* stream) { return cu_IStream_hasData(stream, 1, &flag); },
                  [](auto& stream) { stream.hasData = nullptr; }},
                 {"cu_IStream_flushWrite", cu_IStream_flushWrite, [](auto& stream) { stream.flushWrite = nullptr; }},
                 {"cu_IStream_destruct", cu_IStream_destruct, [](auto& stream) { stream.destruct = nullptr; }}};
    cu_ErrorCode code = 11;
    for (const auto& row : table) {
        EXPECT_EQ(row.call(&whole), code++);
        cu_IStream part = whole;
        row.lose(part);
        EXPECT_REFUSED(row.call(&part), row.function, dispatchFile);
        EXPECT_REFUSED(row.call(nullptr), row.function, dispatchFile);
    }
    EXPECT_EQ(called, "w4r3s2d1fx");
}

} // namespace
