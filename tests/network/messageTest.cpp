#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/network/message.h>
#include <cUtil/tools/safeMalloc.h>

#include <functional>
#include <string_view>
#include <vector>

namespace
{

using namespace std::string_literals;

constexpr char file[] = "src/cUtil/network/message";

/// A message on an allocator that moves every block; at its end nothing may be left.
class Message
{
public:
    explicit Message(uint32_t capacity = 0, std::string_view content = "")
    {
        EXPECT_EQ(cu_Message_new(&me_, capacity, allocator.get()), 0U);
        if (!content.empty())
            write(content);
    }
    Message(const Message&) = delete;
    Message& operator=(const Message&) = delete;
    ~Message()
    {
        EXPECT_EQ(cu_Message_delete(&me_), 0U);
        EXPECT_EQ(me_, nullptr);
    }

    operator cu_Message*() const { return me_; }

    void write(std::string_view bytes)
    {
        EXPECT_EQ(cu_Message_write(me_, bytes.data(), static_cast<uint32_t>(bytes.size())), 0U);
    }
    void seek(uint32_t position) { EXPECT_EQ(cu_Message_seek(me_, position), 0U); }

    support::WatchfulAllocator allocator;

private:
    cu_Message* me_ = nullptr;
};

uint8_t* bytesOf(const cu_Message* message)
{
    uint8_t* data = nullptr;
    EXPECT_EQ(cu_Message_get(message, &data), 0U);
    return data;
}

std::string content(const cu_Message* message)
{
    uint32_t size = 0;
    EXPECT_EQ(cu_Message_getSize(message, &size), 0U);
    return {bytesOf(message), bytesOf(message) + size};
}

uint32_t cursor(const cu_Message* message)
{
    uint32_t position = ~0U;
    EXPECT_EQ(cu_Message_tell(message, &position), 0U);
    return position;
}

TEST(Message, growsInStatedSteps)
{
    struct {
        uint32_t capacity; // to begin with
        uint32_t written;
        std::vector<uint32_t> requests; // behind that for the object
    } const cases[] = {
        {0, 64, {64}},
        {0, 65, {64, 128}},
        {0, 1000, {64, 1024}},
        {0, 4097, {64, 8192}},
        {3000, 6001, {3000, 10096}},
        {5000, 5001, {5000, 9096}},
        {5000, 13193, {5000, 17288}},
    };
    for (const auto& c : cases) {
        Message message(c.capacity, std::string(c.written, 'x'));
        const auto& requests = message.allocator.requests();
        EXPECT_EQ(std::vector<uint32_t>(requests.begin() + 1, requests.end()), c.requests) << c.written;
    }
}

TEST(Message, readsWhatWasWrittenAndCutsOffWhatFollowsAWrite)
{
    Message message(0, "0123456789");
    EXPECT_EQ(cursor(message), 10U);
    message.seek(4);
    char byte = 0;
    EXPECT_EQ(cu_Message_peek(message, &byte, 1), 0U);
    EXPECT_EQ(byte, '4');
    EXPECT_EQ(cu_Message_read(message, &byte, 1), 0U);
    EXPECT_EQ(byte, '4');
    EXPECT_EQ(cursor(message), 5U);
    message.write("ab");
    EXPECT_EQ(content(message), "01234ab");
    EXPECT_EQ(cursor(message), 7U);
    message.seek(7);

    // Behind the end nothing can be read, and a write begins where the cursor stands.
    EXPECT_EQ(cu_Message_resize(message, 3), 0U);
    EXPECT_EQ(cursor(message), 7U);
    EXPECT_REFUSED(cu_Message_read(message, &byte, 1), "cu_Message_read", file);
    EXPECT_REFUSED(cu_Message_peek(message, &byte, 1), "cu_Message_peek", file);
    message.write("c");
    EXPECT_EQ(content(message), "01234abc");
}

TEST(Message, givesRoomBackAndTakesItAtOnce)
{
    Message message(0, std::string(1000, 'x'));
    EXPECT_EQ(cu_Message_trim(message), 0U);
    EXPECT_EQ(message.allocator.requests().back(), 1000U);
    EXPECT_EQ(cu_Message_resize(message, 10), 0U);
    EXPECT_EQ(cu_Message_trim(message), 0U);
    EXPECT_EQ(message.allocator.requests().back(), 64U);
    EXPECT_REFUSED(cu_Message_resize(message, 65), "cu_Message_resize", file);
    // The cursor lies beyond the room now.
    message.write("y");
    EXPECT_EQ(content(message).size(), 1001U);
    EXPECT_EQ(cu_Message_reserve(message, 5000), 0U);
    EXPECT_EQ(message.allocator.requests().back(), 5000U);
    message.seek(3);

    cu_Message* clone = nullptr; // with the same room and cursor
    message.allocator.refuse(1);
    EXPECT_EQ(cu_Message_clone(&clone, message), cu_ERROR_COM_MALLOC_FAILED);
    EXPECT_EQ(clone, nullptr);
    ASSERT_EQ(cu_Message_clone(&clone, message), 0U);
    EXPECT_EQ(content(clone), content(message));
    EXPECT_EQ(cursor(clone), 3U);
    for (cu_Message* each : {clone, static_cast<cu_Message*>(message)}) {
        message.allocator.refuse(1);
        EXPECT_EQ(cu_Message_reserve(each, 5000), 0U); // is there
        EXPECT_EQ(cu_Message_resize(each, 5000), 0U);
    }
    EXPECT_EQ(cu_Message_delete(&clone), 0U);
}

TEST(Message, encodesLengthsInNetworkOrder)
{
    Message message;
    Message inner(0, "inside");
    EXPECT_EQ(cu_Message_writeString(message, ""), 0U);
    EXPECT_EQ(cu_Message_writeString(message, "ab"), 0U);
    EXPECT_EQ(cu_Message_writeMessage(message, inner), 0U);
    EXPECT_EQ(cu_Message_writeVector(message, "\0xyz", 4), 0U);
    EXPECT_EQ(content(message), "\0\0\0\0"
                                "\0\0\0\2ab"
                                "\0\0\0\6inside"
                                "\0\0\0\4\0xyz"s);
    Message large;
    EXPECT_EQ(cu_Message_writeString(large, std::string(0x012345, 'z').c_str()), 0U);
    EXPECT_EQ(content(large).substr(0, 5), "\0\x01\x23\x45z"s);

    message.seek(0);
    char* text = nullptr;
    for (const char* expected : {"", "ab"}) {
        EXPECT_EQ(cu_Message_readString(message, &text), 0U);
        EXPECT_STREQ(text, expected);
    }
    cu_safeFreeImpl(text);
    cu_Message* read = nullptr;
    ASSERT_EQ(cu_Message_readMessage(message, &read), 0U);
    EXPECT_EQ(content(read), "inside");
    EXPECT_EQ(cursor(read), 0U);
    EXPECT_EQ(cursor(message), 20U);
    EXPECT_EQ(cu_Message_delete(&read), 0U);
}

TEST(Message, lengthsThatLieFailBeforeAnythingIsAllocated)
{
    for (const std::string& length : {"\0\0\0\5"s, "\xFF\xFF\xFF\xFF"s, "\xFF\xFF\xFF\xFE"s, "\x80\0\0\0"s}) {
        Message message(0, length + "four");
        message.seek(0);
        char* text = nullptr;
        EXPECT_REFUSED(cu_Message_readString(message, &text), "cu_Message_readString", file);
        EXPECT_EQ(text, nullptr);
        EXPECT_EQ(cursor(message), 4U);
        message.seek(0);
        cu_Message* inner = nullptr;
        EXPECT_REFUSED(cu_Message_readMessage(message, &inner), "cu_Message_readMessage", file);
        EXPECT_EQ(inner, nullptr);
        EXPECT_EQ(cursor(message), 4U);
    }
    Message cut(0, "\0\0\0"s);
    cut.seek(0);
    char* text = nullptr;
    EXPECT_REFUSED(cu_Message_readString(cut, &text), "cu_Message_read", file);
    EXPECT_EQ(cursor(cut), 0U);

    // Empty messages cannot be exchanged.
    Message message;
    cu_Message* inner = nullptr;
    EXPECT_REFUSED(cu_Message_writeMessage(message, Message()), "cu_Message_write", file);
    EXPECT_EQ(content(message), "\0\0\0\0"s);
    message.seek(0);
    EXPECT_REFUSED(cu_Message_readMessage(message, &inner), "cu_Message_read", file);
    EXPECT_EQ(inner, nullptr);
    EXPECT_EQ(cursor(message), 4U);
}

TEST(Message, takesItsOwnBytes)
{
    Message message(64, std::string(30, 'a') + std::string(30, 'b'));
    EXPECT_EQ(cu_Message_write(message, bytesOf(message) + 20, 20), 0U); // moves the block
    const std::string once = std::string(30, 'a') + std::string(30, 'b') + std::string(10, 'a') + std::string(10, 'b');
    EXPECT_EQ(content(message), once);
    EXPECT_EQ(cu_Message_writeMessage(message, message), 0U);
    EXPECT_EQ(content(message), once + "\0\0\0\x50"s + once);
    message.seek(10);
    EXPECT_EQ(cu_Message_writeMessage(message, message), 0U);
    EXPECT_EQ(content(message), once.substr(0, 10) + "\0\0\0\xA4"s + once + "\0\0\0\x50"s + once);
    message.seek(4);
    EXPECT_EQ(cu_Message_write(message, bytesOf(message), 8), 0U);
    EXPECT_EQ(content(message), "aaaaaaaaaaaa");
}

TEST(Message, comparesBySizeAndThenByContent)
{
    struct {
        std::string_view a;
        std::string_view b;
        int sign;
    } const cases[] = {{"zzz", "aaaa", -1}, {"aaaa", "zzz", 1}, {"abc", "abd", -1}, {"b", "a", 1}, {"x", "x", 0}};
    for (const auto& c : cases) {
        Message a(0, c.a);
        Message b(0, c.b);
        int32_t result = 99;
        EXPECT_EQ(cu_Message_compare(a, b, &result), 0U);
        EXPECT_EQ((result > 0) - (result < 0), c.sign) << c.a << " " << c.b;
    }
}

// Lengths are tested before a byte is touched, so the data need not be there.
TEST(Message, nothingWrapsNear4GiB)
{
    Message message(0, "0123");
    char byte = 0;
    EXPECT_FAILURE(cu_Message_write(message, &byte, UINT32_MAX - 3), cu_ERROR_COM_MALLOC_FAILED, "cu_Message_write",
                   file, "");
    EXPECT_FAILURE(cu_Message_writeVector(message, &byte, UINT32_MAX - 7), cu_ERROR_COM_MALLOC_FAILED,
                   "cu_Message_writeVector", file, "");
    message.seek(2);
    message.allocator.refuse(1); // for the last capacity of all
    EXPECT_FAILURE(cu_Message_write(message, &byte, UINT32_MAX - 2), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "");
    EXPECT_EQ(message.allocator.requests().back(), UINT32_MAX);
    EXPECT_EQ(content(message), "0123");
}

TEST(Message, survivesEveryFailure)
{
    EXPECT_CLEAN_FAILURES(cu_Message_new, cu_Message_delete, 10U);
    Message message(0, "0123456789");
    message.seek(5);
    const std::string much(100, 'x');
    const struct {
        const char* name;
        std::function<cu_ErrorCode()> call;
    } calls[] = {
        {"write", [&] { return cu_Message_write(message, much.data(), 100); }},
        {"writeString", [&] { return cu_Message_writeString(message, much.c_str()); }},
        {"writeVector", [&] { return cu_Message_writeVector(message, much.data(), 100); }},
        {"reserve", [&] { return cu_Message_reserve(message, 100); }},
        {"trim", [&] { return cu_Message_trim(message); }},
    };
    for (const auto& c : calls) {
        message.allocator.refuse(1);
        EXPECT_FAILURE(c.call(), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "") << c.name;
        EXPECT_NE(support::trace().find("cu_Message_"s + c.name + "  -  "), std::string::npos) << support::trace();
        EXPECT_EQ(content(message), "0123456789");
        EXPECT_EQ(cursor(message), 5U);
    }
}

TEST(Message, refusesBadArguments)
{
    Message message(0, "0123456789");
    message.seek(2);
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
    for (const uint32_t n : {0U, 9U, UINT32_MAX - 1, UINT32_MAX}) {
        EXPECT_REFUSED(cu_Message_read(message, &number, n), "cu_Message_read", file);
        EXPECT_REFUSED(cu_Message_peek(message, &number, n), "cu_Message_peek", file);
    }
    EXPECT_REFUSED(cu_Message_write(message, "x", 0), "cu_Message_write", file);
    for (const uint32_t n : {0U, UINT32_MAX})
        EXPECT_REFUSED(cu_Message_writeVector(message, "x", n), "cu_Message_writeVector", file);
    EXPECT_EQ(content(message), "0123456789");
    EXPECT_EQ(cursor(message), 2U);
}

} // namespace
