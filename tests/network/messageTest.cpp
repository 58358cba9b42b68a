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

std::string content(const cu_Message* message)
{
    uint8_t* data = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(cu_Message_get(message, &data), 0U);
    EXPECT_EQ(cu_Message_getSize(message, &size), 0U);
    return std::string(data, data + size);
}

uint32_t cursor(const cu_Message* message)
{
    uint32_t position = ~0U;
    EXPECT_EQ(cu_Message_tell(message, &position), 0U);
    return position;
}

uint8_t* bytesOf(cu_Message* message)
{
    uint8_t* data = nullptr;
    EXPECT_EQ(cu_Message_get(message, &data), 0U);
    return data;
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
        {100, 101, {100, 200}},
        {0, 4096, {64, 4096}},
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
    const std::size_t requests = message.allocator.requests().size();
    EXPECT_EQ(cu_Message_reserve(message, 5000), 0U);
    EXPECT_EQ(message.allocator.requests().size(), requests);
    EXPECT_EQ(cu_Message_resize(message, 5000), 0U);
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
    for (const std::string& bytes : {"\0\0\0\5four"s,
                                     "\xFF\xFF\xFF\xFF"
                                     "four"s,
                                     "\xFF\xFF\xFF\xFE"
                                     "four"s,
                                     "\x80\0\0\0four"s}) {
        Message message(0, bytes);
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
    Message message(0, "\0\0\0"s);
    message.seek(0);
    char* text = nullptr;
    EXPECT_REFUSED(cu_Message_readString(message, &text), "cu_Message_read", file);
    EXPECT_EQ(cursor(message), 0U);
}

TEST(Message, emptyMessagesCannotBeExchanged)
{
    Message message;
    Message empty;
    EXPECT_REFUSED(cu_Message_writeMessage(message, empty), "cu_Message_write", file);
    EXPECT_EQ(content(message), "\0\0\0\0"s);
    message.seek(0);
    cu_Message* inner = nullptr;
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

TEST(Message, aCloneHasTheSameCursorAndRoom)
{
    Message message(100, "0123456789");
    message.seek(3);
    cu_Message* clone = nullptr;
    ASSERT_EQ(cu_Message_clone(&clone, message), 0U);
    EXPECT_EQ(content(clone), "0123456789");
    EXPECT_EQ(cursor(clone), 3U);
    EXPECT_EQ(cu_Message_resize(clone, 100), 0U);
    EXPECT_EQ(cu_Message_delete(&clone), 0U);
    EXPECT_EQ(content(message), "0123456789");
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
    EXPECT_REFUSED(cu_Message_read(message, &byte, UINT32_MAX), "cu_Message_read", file);
    EXPECT_REFUSED(cu_Message_peek(message, &byte, UINT32_MAX - 1), "cu_Message_peek", file);
    message.allocator.refuse(1); // for the last capacity of all
    EXPECT_FAILURE(cu_Message_write(message, &byte, UINT32_MAX - 2), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "");
    EXPECT_EQ(message.allocator.requests().back(), UINT32_MAX);
    EXPECT_EQ(content(message), "0123");
}

TEST(Message, survivesEveryFailure)
{
    support::sweep<cu_Message>(
        "cu_Message_new", [](cu_Message** me, cu_allocator* allocator) { return cu_Message_new(me, 10, allocator); },
        cu_Message_delete);

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
    cu_Message* clone = nullptr;
    for (const unsigned nth : {1U, 2U}) {
        message.allocator.refuse(nth);
        EXPECT_EQ(cu_Message_clone(&clone, message), cu_ERROR_COM_MALLOC_FAILED);
        EXPECT_EQ(clone, nullptr);
    }
}

TEST(Message, refusesBadArguments)
{
    Message message(0, "0123456789");
    cu_Message* const none = nullptr;
    cu_Message* empty = nullptr;
    cu_Message* taken = message;
    uint8_t* data = nullptr;
    uint32_t number = 0;
    int32_t result = 0;
    char* text = nullptr;
    message.seek(2);
    const struct {
        const char* name;
        std::function<cu_ErrorCode()> call;
    } calls[] = {
        {"new", [&] { return cu_Message_new(nullptr, 0, nullptr); }},
        {"new", [&] { return cu_Message_new(&taken, 0, nullptr); }},
        {"clone", [&] { return cu_Message_clone(nullptr, message); }},
        {"clone", [&] { return cu_Message_clone(&taken, message); }},
        {"clone", [&] { return cu_Message_clone(&empty, none); }},
        {"delete", [&] { return cu_Message_delete(nullptr); }},
        {"delete", [&] { return cu_Message_delete(&empty); }},
        {"get", [&] { return cu_Message_get(none, &data); }},
        {"get", [&] { return cu_Message_get(message, nullptr); }},
        {"getSize", [&] { return cu_Message_getSize(none, &number); }},
        {"getSize", [&] { return cu_Message_getSize(message, nullptr); }},
        {"tell", [&] { return cu_Message_tell(none, &number); }},
        {"tell", [&] { return cu_Message_tell(message, nullptr); }},
        {"seek", [&] { return cu_Message_seek(none, 0); }},
        {"seek", [&] { return cu_Message_seek(message, 11); }},
        {"read", [&] { return cu_Message_read(none, &number, 1); }},
        {"read", [&] { return cu_Message_read(message, nullptr, 1); }},
        {"read", [&] { return cu_Message_read(message, &number, 0); }},
        {"read", [&] { return cu_Message_read(message, &number, 9); }},
        {"peek", [&] { return cu_Message_peek(none, &number, 1); }},
        {"peek", [&] { return cu_Message_peek(message, nullptr, 1); }},
        {"peek", [&] { return cu_Message_peek(message, &number, 0); }},
        {"peek", [&] { return cu_Message_peek(message, &number, 9); }},
        {"write", [&] { return cu_Message_write(none, "x", 1); }},
        {"write", [&] { return cu_Message_write(message, nullptr, 1); }},
        {"write", [&] { return cu_Message_write(message, "x", 0); }},
        {"trim", [&] { return cu_Message_trim(none); }},
        {"reserve", [&] { return cu_Message_reserve(none, 1); }},
        {"resize", [&] { return cu_Message_resize(none, 1); }},
        {"writeString", [&] { return cu_Message_writeString(none, ""); }},
        {"writeString", [&] { return cu_Message_writeString(message, nullptr); }},
        {"readString", [&] { return cu_Message_readString(none, &text); }},
        {"readString", [&] { return cu_Message_readString(message, nullptr); }},
        {"writeMessage", [&] { return cu_Message_writeMessage(none, message); }},
        {"writeMessage", [&] { return cu_Message_writeMessage(message, nullptr); }},
        {"readMessage", [&] { return cu_Message_readMessage(none, &empty); }},
        {"readMessage", [&] { return cu_Message_readMessage(message, nullptr); }},
        {"readMessage", [&] { return cu_Message_readMessage(message, &taken); }},
        {"writeVector", [&] { return cu_Message_writeVector(none, "x", 1); }},
        {"writeVector", [&] { return cu_Message_writeVector(message, nullptr, 1); }},
        {"writeVector", [&] { return cu_Message_writeVector(message, "x", 0); }},
        {"writeVector", [&] { return cu_Message_writeVector(message, "x", UINT32_MAX); }},
        {"compare", [&] { return cu_Message_compare(none, message, &result); }},
        {"compare", [&] { return cu_Message_compare(message, none, &result); }},
        {"compare", [&] { return cu_Message_compare(message, message, nullptr); }},
    };
    for (const auto& c : calls)
        EXPECT_REFUSED(c.call(), "cu_Message_"s + c.name, file);
    EXPECT_EQ(content(message), "0123456789");
    EXPECT_EQ(cursor(message), 2U);
}

} // namespace
