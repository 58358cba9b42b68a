#include "support/made.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/tools/safeMalloc.h>
#include <cUtil/tools/string.h>

#include <cerrno>
#include <cstdarg>
#include <functional>
#include <optional>
#include <random>

namespace
{

constexpr char file[] = "src/cUtil/tools/string";
using Sizes = std::vector<uint32_t>;
using Copy = support::Made<cu_String_clone, cu_String_delete>;
using Shared = support::Made<cu_String_cloneStr, cu_String_delete>;

// A string on an allocator that moves every block; at its end nothing may be left.
class Text : support::Pinned
{
public:
    explicit Text(const std::string& text = "")
    {
        cu_allocator* memory = allocator.get();
        EXPECT_EQ(text.empty() ? cu_String_new(&me_, memory) : cu_String_cloneStr(&me_, text.c_str(), memory), 0U);
        asked();
    }
    ~Text() { EXPECT_EQ(cu_String_delete(&me_), 0U); }

    operator cu_String*() const { return me_; }
    std::string get() const { return cu_String_get(me_); }

    // A call succeeds: what it asks for, and the text after it.
    void expect(cu_ErrorCode code, const Sizes& sizes, const std::string& text)
    {
        EXPECT_EQ(code, 0U);
        EXPECT_EQ(asked(), sizes) << text;
        EXPECT_EQ(get(), text);
    }

    // The next request is refused: the call says 0 all the same, and the record tells.
    template <typename Call>
    void refused(Call call, const std::string& text)
    {
        allocator.refuse(1);
        cu_Error_clear(cu_getErrorLocation());
        EXPECT_EQ(call(), 0U);
        EXPECT_EQ(cu_getErrorLocation()->errorID, cu_ERROR_COM_MALLOC_FAILED);
        EXPECT_EQ(asked().size(), 1U);
        EXPECT_EQ(get(), text);
    }

    support::WatchfulAllocator allocator;

private:
    // Sizes asked for since the last call.
    Sizes asked()
    {
        const Sizes& all = allocator.requests();
        return {all.begin() + std::exchange(seen_, static_cast<std::ptrdiff_t>(all.size())), all.end()};
    }

    cu_String* me_ = nullptr;
    std::ptrdiff_t seen_ = 0;
};

std::string times(std::size_t count, char c = 'x')
{
    return std::string(count, c);
}

bool equal(const cu_String* a, const cu_String* b)
{
    bool result = false;
    EXPECT_EQ(cu_String_equals(a, b, &result), 0U);
    return result;
}

__attribute__((format(printf, 2, 3))) cu_ErrorCode list(cu_String* me, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const cu_ErrorCode code = cu_String_vaFormat(me, format, arguments);
    va_end(arguments);
    return code;
}

TEST(String, isMadeAsAWholeOrNotAtAll)
{
    const Text source("a text");
    EXPECT_CLEAN_FAILURES(cu_String_new, cu_String_delete);
    EXPECT_CLEAN_FAILURES(cu_String_clone, cu_String_delete, source);
    EXPECT_CLEAN_FAILURES(cu_String_cloneStr, cu_String_delete, "a");
}

TEST(String, badArgumentsAreRefused)
{
    const Text text("kept");
    cu_String* none = nullptr;
    cu_String* some = text;
    uint32_t count = 0;
    int32_t result = 0;
    bool same = false;
    char* copy = nullptr;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, some, "a", &count, &result, &same, &copy}), cu_String_new,
                         cu_String_clone, cu_String_cloneStr, cu_String_clear, cu_String_squeeze, cu_String_grow,
                         cu_String_assign, cu_String_assignStr, cu_String_append, cu_String_appendStr, cu_String_count,
                         cu_String_compare, cu_String_compareStr, cu_String_equals, cu_String_equalsStr,
                         cu_String_createCString, cu_String_replace);
    EXPECT_NULLS_REFUSED(file, std::tuple{&some}, cu_String_delete);
    EXPECT_REFUSED(cu_String_grow(text, 0), "cu_String_grow", file);
    EXPECT_REFUSED(cu_String_format(nullptr, "a"), "cu_String_format", file);
    EXPECT_REFUSED(cu_String_format(text, nullptr), "cu_String_format", file);
    EXPECT_REFUSED(list(nullptr, "a"), "cu_String_vaFormat", file);
    EXPECT_REFUSED(list(text, nullptr), "cu_String_vaFormat", file);
    EXPECT_EQ(cu_String_get(nullptr), nullptr);
    EXPECT_EQ(text.get(), "kept");
}

TEST(String, theCapacityFollowsItsRules)
{
    Text text;
    // Appending: exactly what is needed, once that is the capacity or more.
    text.expect(cu_String_appendStr(text, times(254).c_str()), {}, times(254));
    text.expect(cu_String_appendStr(text, "x"), {256}, times(255));
    text.expect(cu_String_appendStr(text, ""), {256}, times(255));
    text.expect(cu_String_appendStr(text, "xy"), {258}, times(256) + "y");
    // Assigning: exactly what is needed, where that is above the capacity.
    text.expect(cu_String_assignStr(text, times(257, 'a').c_str()), {}, times(257, 'a'));
    text.expect(cu_String_assignStr(text, times(258, 'b').c_str()), {259}, times(258, 'b'));
    text.expect(cu_String_assignStr(text, "short"), {}, "short");
    // Squeezing and growing.
    text.expect(cu_String_squeeze(text), {6}, "short");
    text.expect(cu_String_appendStr(text, "!"), {7}, "short!");
    text.expect(cu_String_grow(text, 7), {}, "");
    text.expect(cu_String_grow(text, 8), {8}, "");
    text.expect(cu_String_appendStr(text, "123456"), {}, "123456");
    text.expect(cu_String_clear(text), {}, "");
    text.expect(cu_String_appendStr(text, "123456"), {}, "123456");
}

TEST(String, aLongTextIsClonedWholeAndRecordsOneByteTooFew)
{
    for (const uint32_t length : {255U, 256U, 300U}) {
        Text text(times(length));
        EXPECT_EQ(text.get(), times(length));
        EXPECT_EQ(text.allocator.requests().at(1), length + 1);
        EXPECT_EQ(cu_String_format(text, "%s", times(std::max(length, 256U) - 1).c_str()), 0U) << length;
        EXPECT_NE(cu_String_format(text, "%s", times(std::max(length, 256U)).c_str()), 0U) << length;
        EXPECT_TRUE(equal(Copy(text), text));
    }
}

TEST(String, formattingSucceedsWithinTheCapacityOnly)
{
    Text text;
    const std::string part = times(300);
    text.expect(list(text, "%d|%s|%.1f", 7, "b", 0.5), {}, "7|b|0.5");
    EXPECT_FAILURE(list(text, "%d|%s|%.1f", 7, part.c_str(), 0.5), cu_ERROR_COM_INVARIANT, "cu_String_vaFormat", file,
                   "");
    text.expect(0, {307}, "7|" + part + "|0.");

    const wchar_t unprintable[] = {0xD800, 0};
    EXPECT_FAILURE(cu_String_format(text, "a%ls", unprintable), cu_ERROR_TRUNCATION_DETECTED, "cu_String_vaFormat",
                   file, "vsnprintf failed with '-1'");
    EXPECT_EQ(support::trace().find("cu_String_format  -  "), 0U);
    text.allocator.refuse(1);
    EXPECT_FAILURE(cu_String_format(text, "%s", times(400, 'w').c_str()), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test",
                   "");
    EXPECT_EQ(support::trace().find("cu_String_vaFormat  -  "), 0U);
    EXPECT_EQ(text.get(), times(305, 'w'));
}

// That no text is lost, nor anything overrun, is in the mixture of calls.
TEST(String, aStaleLengthIsWhatCountsBesideTheRealNeed)
{
    Text text;
    const Text same("hello");
    text.expect(cu_String_format(text, "hello"), {}, "hello");
    EXPECT_FALSE(equal(text, same)); // recorded lengths 0 and 5
    text.expect(cu_String_assign(text, same), {}, "hello");
    EXPECT_TRUE(equal(text, same));

    // Too short a length: the buffer grows by the real need, the recorded capacity does not.
    const std::string both = times(290, 'a') + times(200, 'b');
    text.expect(cu_String_grow(text, 300), {300}, "");
    text.expect(cu_String_format(text, "%s", times(290, 'a').c_str()), {}, times(290, 'a'));
    text.expect(cu_String_appendStr(text, times(200, 'b').c_str()), {491}, both);
    Text other;
    other.expect(cu_String_assign(other, text), {491}, both);
    other.expect(cu_String_assignStr(other, times(300).c_str()), {301}, times(300));
    text.expect(cu_String_squeeze(text), {201}, times(200, 'a'));

    // Too long a length.
    text.expect(cu_String_assignStr(text, times(300, 'c').c_str()), {301}, times(300, 'c'));
    text.expect(cu_String_format(text, "x"), {}, "x");
    text.expect(cu_String_appendStr(text, "y"), {302}, "xy");
    text.expect(cu_String_squeeze(text), {302}, "xy");
}

TEST(String, aRefusedReallocationIsNotToldButKeptInMind)
{
    Text text;
    text.refused([&] { return cu_String_appendStr(text, times(300).c_str()); }, times(255));
    EXPECT_TRUE(equal(text, Text(times(255))));
    // The record has 301, the buffer has 256.
    text.expect(cu_String_appendStr(text, "yz"), {258}, times(255) + "yz");
    text.refused([&] { return cu_String_assignStr(text, times(400, 'a').c_str()); }, times(257, 'a'));
    text.expect(cu_String_assignStr(text, times(400, 'b').c_str()), {401}, times(400, 'b'));

    // The capacity that is recorded is made true when a text needs it.
    text.refused([&] { return cu_String_grow(text, 1000); }, "");
    text.expect(cu_String_format(text, "%s", times(999, 'c').c_str()), {1000}, times(999, 'c'));
    text.expect(cu_String_assignStr(text, "abc"), {}, "abc");
    text.refused([&] { return cu_String_squeeze(text); }, "abc");
    text.expect(cu_String_appendStr(text, "d"), {5}, "abcd");
}

TEST(String, comparesCountsAndReplacesBytes)
{
    Text text("b\x80nana");
    uint32_t count = 0;
    for (const auto& [other, sign] : {std::pair{"b\x80nana", 0}, {"b\x7Fnana", 1}, {"b\xFF", -1}, {"b", 1}}) {
        int32_t results[2] = {};
        bool same = sign != 0;
        EXPECT_EQ(cu_String_compareStr(text, other, &results[0]), 0U);
        EXPECT_EQ(cu_String_compare(text, Text(other), &results[1]), 0U);
        for (const int32_t result : results)
            EXPECT_EQ((result > 0) - (result < 0), sign) << other;
        EXPECT_EQ(cu_String_equalsStr(text, other, &same), 0U);
        EXPECT_EQ(same, sign == 0);
        EXPECT_EQ(equal(text, Text(other)), sign == 0);
    }
    EXPECT_EQ(cu_String_count(text, 0x80, &count), 0U);
    EXPECT_EQ(count, 1U);

    text.expect(cu_String_replace(text, 0x80, 'a'), {}, "banana");
    text.expect(cu_String_replace(text, 0x100 + 'a', 'x'), {}, "banana");
    text.expect(cu_String_replace(text, 0, 'x'), {}, "banana");
    text.expect(cu_String_replace(text, 'n', 0xE4), {}, "ba\xE4\141\xE4\141");
    EXPECT_EQ(cu_String_replace(text, 0xE4, 0), 0U);
    EXPECT_TRUE(equal(text, Text("ba")));
    // What stands behind the end that a replacement has set is still there to be taken.
    text.expect(cu_String_appendStr(text, cu_String_get(text) + 3), {}, "baa");
    // After formatting, too, what is really there is replaced, and the end renews the length.
    EXPECT_EQ(cu_String_format(text, "a,b,c"), 0U);
    text.expect(cu_String_replace(text, ',', ';'), {}, "a;b;c");
    EXPECT_EQ(cu_String_replace(text, 'c', 0), 0U);
    EXPECT_TRUE(equal(text, Text("a;b;")));

    char* copy = nullptr;
    ASSERT_EQ(cu_String_createCString(text, &copy), 0U);
    EXPECT_STREQ(copy, "a;b;");
    cu_safeFreeImpl(copy);
    cu_Error_clear(cu_getErrorLocation());
    const support::Injection exhausted("strdup", ENOMEM);
    EXPECT_EQ(cu_String_createCString(text, &copy), cu_ERROR_COM_MALLOC_FAILED);
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(cu_getErrorLocation()->errorID, 0U);
}

// Any mixture of calls, with requests refused here and there: the text is what it must be, or the part of it that fits.
void mix(cu_String* text, std::mt19937& random, const std::function<void(bool)>& refuse)
{
    std::string model;
    for (int step = 0; step < 400; ++step) {
        SCOPED_TRACE(step);
        bool mayCut = step > 200 && random() % 3 == 0;
        refuse(mayCut);
        const std::string piece = times(random() % 300, static_cast<char>('a' + step % 26));
        const char* source = random() % 4 == 0 ? cu_String_get(text) + random() % (model.size() + 1) : piece.c_str();
        const std::string added = source;
        std::string exact;
        const auto call = random() % 7;
        if (call < 2) {
            exact = model + added;
            EXPECT_EQ(cu_String_appendStr(text, source), 0U);
        } else if (call == 2) {
            exact = added;
            EXPECT_EQ(cu_String_assignStr(text, source), 0U);
        } else if (call == 3) {
            exact = model;
            EXPECT_EQ(cu_String_squeeze(text), 0U);
            mayCut = true; // at the recorded length
        } else if (call == 4) {
            EXPECT_EQ(cu_String_grow(text, static_cast<uint32_t>(1 + random() % 1000)), 0U);
        } else if (call == 5) {
            exact = model + model;
            const Copy copy(text);
            EXPECT_EQ(cu_String_append(text, random() % 2 == 0 ? copy.get() : text), 0U);
        } else {
            exact = piece;
            mayCut = cu_String_format(text, "%s", piece.c_str()) != 0;
        }
        model = cu_String_get(text);
        ASSERT_EQ(model, mayCut ? exact.substr(0, model.size()) : exact);
    }
}

TEST(String, anyMixtureOfCallsKeepsTheText)
{
    std::mt19937 random(7);
    for (int round = 0; round < 20; ++round) {
        SCOPED_TRACE(round);
        Text text;
        mix(text, random, [&](bool now) { text.allocator.refuse(now ? 1 : 1000000); });

        // The shared heap is asked for less often, and for more.
        const Shared shared("");
        std::optional<support::Injection> injection;
        mix(shared, random, [&](bool now) {
            injection.reset();
            injection.emplace("realloc", ENOMEM, now ? 1 : 0);
        });
    }
}

TEST(String, theSharedHeapGrowsAheadOfAppendedTextsButNeedNot)
{
    const Shared text(times(1000).c_str());
    {
        const support::Injection exhausted("realloc", ENOMEM);
        EXPECT_EQ(cu_String_appendStr(text, "yz"), 0U); // exactly what is needed can be had
        EXPECT_STREQ(exhausted.fired(), "realloc");
    }
    EXPECT_EQ(cu_String_append(text, text), 0U);
    const support::Injection untouched("realloc", ENOMEM);
    EXPECT_EQ(cu_String_appendStr(text, times(500).c_str()), 0U);
    EXPECT_EQ(untouched.fired(), nullptr);
    EXPECT_EQ(cu_String_get(text), times(1000) + "yz" + times(1000) + "yz" + times(500));
}

} // namespace
