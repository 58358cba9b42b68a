#include "network/messages.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/tools/safeMalloc.h>

#include <functional>
#include <vector>

namespace
{

using namespace std::string_literals;

constexpr char file[] = "src/cUtil/network/message";

void seek(cu_Message* message, uint32_t position)
{
    EXPECT_EQ(cu_Message_seek(message, position), 0U);
}

TEST(Message, growsInStatedSteps)
{
    // The room to begin with, the bytes written, the requests behind that for the object.
    const std::tuple<uint32_t, uint32_t, std::vector<uint32_t>> cases[] = {
        {0, 64, {64}}, {0, 1000, {64, 1024}}, {0, 4097, {64, 8192}}, {5000, 13193, {5000, 17288}}};
    for (const auto& [capacity, written, expected] : cases) {
        const Message message(std::string(written, 'x'), capacity);
        const auto& requests = message.allocator.requests();
        EXPECT_EQ(std::vector<uint32_t>(requests.begin() + 1, requests.end()), expected) << written;
    }
}

TEST(Message, aWriteCutsOffWhatFollows)
{
    Message message("0123456789");
    seek(message, 4);
    char byte = 0;
    EXPECT_EQ(cu_Message_peek(message, &byte, 1), 0U);
    EXPECT_EQ(cu_Message_read(message, &byte, 1), 0U);
    EXPECT_EQ(byte, '4');
    message.write("ab");
    EXPECT_EQ(contentOf(message), "01234ab");

    // Behind the end nothing can be read, and a write begins where the cursor stands.
    EXPECT_EQ(cu_Message_resize(message, 3), 0U);
    EXPECT_EQ(cursorOf(message), 7U);
    EXPECT_REFUSED(cu_Message_read(message, &byte, 1), "cu_Message_read", file);
    EXPECT_REFUSED(cu_Message_peek(message, &byte, 1), "cu_Message_peek", file);
    message.write("c");
    EXPECT_EQ(contentOf(message), "01234abc");
}

TEST(Message, givesRoomBackAndTakesItAtOnce)
{
    Message message(std::string(1000, 'x'));
    for (const auto& [size, room] : {std::pair{1000U, 1000U}, {10U, 64U}}) {
        EXPECT_EQ(cu_Message_resize(message, size), 0U);
        EXPECT_EQ(cu_Message_trim(message), 0U);
        EXPECT_EQ(message.allocator.requests().back(), room);
    }
    EXPECT_REFUSED(cu_Message_resize(message, 65), "cu_Message_resize", file);
    message.write("y"); // the cursor lies beyond the room now
    EXPECT_EQ(contentOf(message).size(), 1001U);
    EXPECT_EQ(cu_Message_reserve(message, 5000), 0U);
    EXPECT_EQ(message.allocator.requests().back(), 5000U);
    seek(message, 3);

    Handle<cu_Message, cu_Message_delete> clone; // with the same room and cursor
    message.allocator.refuse(1);
    EXPECT_EQ(cu_Message_clone(&clone, message), cu_ERROR_COM_MALLOC_FAILED);
    EXPECT_EQ(clone, nullptr);
    ASSERT_EQ(cu_Message_clone(&clone, message), 0U);
    EXPECT_EQ(contentOf(clone), contentOf(message));
    EXPECT_EQ(cursorOf(clone), 3U);
    message.allocator.refuse(1);
    EXPECT_EQ(cu_Message_reserve(clone, 5000), 0U); // is there
}

TEST(Message, encodesLengthsInNetworkOrder)
{
    const Message message;
    const Message inner("inside");
    EXPECT_EQ(cu_Message_writeString(message, "ab"), 0U);
    EXPECT_EQ(cu_Message_writeMessage(message, inner), 0U);
    EXPECT_EQ(cu_Message_writeVector(message, "\0xyz", 4), 0U);
    EXPECT_EQ(contentOf(message), "\0\0\0\2ab\0\0\0\6inside\0\0\0\4\0xyz"s);
    seek(message, 0);
    char* text = nullptr;
    EXPECT_EQ(cu_Message_readString(message, &text), 0U);
    EXPECT_STREQ(text, "ab");
    cu_safeFreeImpl(text);
    Handle<cu_Message, cu_Message_delete> read;
    ASSERT_EQ(cu_Message_readMessage(message, &read), 0U);
    EXPECT_EQ(contentOf(read), "inside");
    EXPECT_EQ(cursorOf(read), 0U);
}

TEST(Message, lengthsThatLieFail)
{
    char* text = nullptr;
    cu_Message* inner = nullptr;
    for (const std::string& length : {"\0\0\0\5"s, "\xFF\xFF\xFF\xFF"s}) {
        const Message message(length + "four");
        seek(message, 0);
        EXPECT_REFUSED(cu_Message_readString(message, &text), "cu_Message_readString", file);
        EXPECT_EQ(cursorOf(message), 4U);
        seek(message, 0);
        EXPECT_REFUSED(cu_Message_readMessage(message, &inner), "cu_Message_readMessage", file);
    }
    // Empty messages cannot be exchanged.
    const Message message;
    EXPECT_REFUSED(cu_Message_writeMessage(message, Message()), "cu_Message_write", file);
    EXPECT_EQ(contentOf(message), "\0\0\0\0"s);
    seek(message, 0);
    EXPECT_REFUSED(cu_Message_readMessage(message, &inner), "cu_Message_read", file);
    EXPECT_EQ(cursorOf(message), 4U);
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(inner, nullptr);
}

TEST(Message, takesItsOwnBytes)
{
    const std::string text = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWX";
    const Message message(text);
    uint8_t* data = nullptr;
    EXPECT_EQ(cu_Message_get(message, &data), 0U);
    EXPECT_EQ(cu_Message_write(message, data + 8, 20), 0U); // moves the block
    const std::string once = text + text.substr(8, 20);
    EXPECT_EQ(contentOf(message), once);
    seek(message, 10);
    EXPECT_EQ(cu_Message_writeMessage(message, message), 0U);
    EXPECT_EQ(contentOf(message), once.substr(0, 10) + "\0\0\0\x50"s + once);
}

TEST(Message, comparesBySizeAndThenByContent)
{
    for (const auto& [less, more] : {std::pair{"zzz", "aaaa"}, {"abc", "abd"}}) {
        const Message messages[] = {Message(less), Message(more)};
        for (const auto& [a, b, sign] : {std::tuple{0, 1, -1}, {1, 0, 1}, {0, 0, 0}}) {
            int32_t result = 99;
            EXPECT_EQ(cu_Message_compare(messages[a], messages[b], &result), 0U);
            EXPECT_EQ((result > 0) - (result < 0), sign) << less;
        }
    }
}

// Lengths are tested before a byte is touched, so the data need not be there.
TEST(Message, nothingWrapsNear4GiB)
{
    Message message("0123");
    char byte = 0;
    EXPECT_FAILURE(cu_Message_write(message, &byte, UINT32_MAX - 3), cu_ERROR_COM_MALLOC_FAILED, "cu_Message_write",
                   file, "");
    EXPECT_FAILURE(cu_Message_writeVector(message, &byte, UINT32_MAX - 7), cu_ERROR_COM_MALLOC_FAILED,
                   "cu_Message_writeVector", file, "");
    seek(message, 2);
    message.allocator.refuse(1); // for the last capacity of all
    EXPECT_FAILURE(cu_Message_write(message, &byte, UINT32_MAX - 2), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "");
    EXPECT_EQ(message.allocator.requests().back(), UINT32_MAX);
}

TEST(Message, survivesEveryFailure)
{
    EXPECT_CLEAN_FAILURES(cu_Message_new, cu_Message_delete, 10U);
    Message message("0123456789");
    seek(message, 5);
    const std::string much(100, 'x');
    const std::pair<const char*, std::function<cu_ErrorCode()>> calls[] = {
        {"write", [&] { return cu_Message_write(message, much.data(), 100); }},
        {"writeString", [&] { return cu_Message_writeString(message, much.c_str()); }},
        {"reserve", [&] { return cu_Message_reserve(message, 100); }},
        {"trim", [&] { return cu_Message_trim(message); }},
    };
    for (const auto& each : calls) {
        message.allocator.refuse(1);
        EXPECT_FAILURE(each.second(), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "") << each.first;
        EXPECT_NE(support::trace().find("cu_Message_"s + each.first + "  -  "), std::string::npos) << support::trace();
        EXPECT_EQ(contentOf(message), "0123456789");
        EXPECT_EQ(cursorOf(message), 5U);
    }
}

TEST(Message, refusesBadArguments)
{
    const Message message("0123456789");
    seek(message, 2);
    cu_Message* const some = message;
    cu_Message* taken = message;
    cu_Message* none = nullptr;
    uint8_t* data = nullptr;
    uint32_t number = 0;
    int32_t result = 0;
    char* text = nullptr;
    const std::tuple good{&none, some, &data, &number, &result, &text, static_cast<void*>(&number)};
    EXPECT_NULLS_REFUSED(file, good, cu_Message_new, cu_Message_clone, cu_Message_get, cu_Message_getSize,
                         cu_Message_tell, cu_Message_seek, cu_Message_read, cu_Message_peek, cu_Message_write,
                         cu_Message_trim, cu_Message_reserve, cu_Message_resize, cu_Message_writeString,
                         cu_Message_readString, cu_Message_writeMessage, cu_Message_readMessage, cu_Message_writeVector,
                         cu_Message_compare);
    EXPECT_NULLS_REFUSED(file, std::tuple{&taken}, cu_Message_delete);
    EXPECT_REFUSED(cu_Message_readMessage(message, &taken), "cu_Message_readMessage", file);
    EXPECT_REFUSED(cu_Message_seek(message, 11), "cu_Message_seek", file);
    for (const uint32_t n : {0U, 9U, UINT32_MAX - 1}) {
        EXPECT_REFUSED(cu_Message_read(message, &number, n), "cu_Message_read", file);
        EXPECT_REFUSED(cu_Message_peek(message, &number, n), "cu_Message_peek", file);
    }
    EXPECT_REFUSED(cu_Message_write(message, "x", 0), "cu_Message_write", file);
    for (const uint32_t n : {0U, UINT32_MAX})
        EXPECT_REFUSED(cu_Message_writeVector(message, "x", n), "cu_Message_writeVector", file);
}

} // namespace
