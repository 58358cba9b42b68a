#include "support/allocator.h"
#include "support/inject.h"
#include "support/refusal.h"

#include <cUtil/tools/safeMalloc.h>
#include <cUtil/tools/safeStringOps.h>

#include <cerrno>
#include <cstdarg>

namespace
{

constexpr char file[] = "src/cUtil/tools/safeStringOps";
const wchar_t unprintable[] = {0xD800, 0}; // "%ls" of it fails

__attribute__((format(printf, 3, 4))) cu_ErrorCode list(char* destination, uint32_t size, const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const cu_ErrorCode code = cu_vsnprintf(destination, size, format, arguments);
    va_end(arguments);
    return code;
}

__attribute__((format(printf, 4, 5))) cu_ErrorCode dynamic(char** destination, uint32_t* size, cu_allocator* allocator,
                                                           const char* format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const cu_ErrorCode code = cu_vsnprintfDyn(destination, size, format, arguments, allocator);
    va_end(arguments);
    return code;
}

TEST(SafeStringOps, badArgumentsAreRefused)
{
    char text[8] = "kept";
    char* copy = nullptr;
    uint32_t count = 9;
    EXPECT_NULLS_REFUSED(
        file,
        (std::tuple{text, "a", uint32_t{4}, &copy, &count, static_cast<void*>(text), static_cast<const void*>(text)}),
        cu_str_copy, cu_str_cat, cu_str_clone, cu_str_count, cu_str_countAndAdd, cu_str_memcpy);
    EXPECT_REFUSED(cu_snprintf(nullptr, 5, "%d", 1), "cu_snprintf", file);
    EXPECT_REFUSED(cu_snprintf(text, 5, nullptr), "cu_snprintf", file);
    EXPECT_REFUSED(cu_snprintf(text, 0, "%d", 1), "cu_snprintf", file);
    EXPECT_REFUSED(dynamic(nullptr, nullptr, nullptr, "%d", 1), "cu_vsnprintfDyn", file);
    EXPECT_REFUSED(dynamic(&copy, nullptr, nullptr, nullptr), "cu_vsnprintfDyn", file);
    EXPECT_REFUSED(cu_snprintfDyn(nullptr, nullptr, "%d", 1), "cu_snprintfDyn", file);
    EXPECT_REFUSED(cu_snprintfDyn(&copy, nullptr, nullptr), "cu_snprintfDyn", file);
    EXPECT_REFUSED(cu_str_lenDepPrintf(nullptr, 0, "%d", 1), "cu_str_lenDepPrintf", file);
    EXPECT_REFUSED(cu_str_lenDepPrintf(text, 4, nullptr), "cu_str_lenDepPrintf", file);
    EXPECT_REFUSED(list(text, 5, nullptr), "cu_vsnprintf", file);
    EXPECT_REFUSED(list(nullptr, 5, "%d", 1), "cu_vsnprintf", file);
    EXPECT_FAILURE(list(text, 0, "%d", 12), cu_ERROR_TRUNCATION_DETECTED, "cu_vsnprintf", file,
                   "vsnprintf returned '2'. given size was '0'");
    EXPECT_STREQ(text, "kept");
    EXPECT_EQ(copy, nullptr);
    EXPECT_EQ(count, 9U);
}

TEST(SafeStringOps, copiesKeepWithinTheSizeAndTellTheWholeLengthOrTheTruncation)
{
    struct {
        uint32_t size;
        const char* copy;
        size_t joined;
        const char* join;
    } const cases[] = {{6, "xyz", 5, "abxyz"}, {5, "xyz", 5, "abxy"}, {4, "xyz", 5, "abx"},
                       {2, "x", 5, "ab"},      {1, "", 4, "ab"},      {0, "ab", 3, "ab"}};
    for (const auto& c : cases) {
        SCOPED_TRACE(c.size);
        char copy[8] = "ab";
        char join[8] = "ab";
        EXPECT_EQ(cu_strlcpy(copy, "xyz", c.size), 3U);
        EXPECT_EQ(cu_strlcat(join, "xyz", c.size), c.joined);
        EXPECT_STREQ(copy, c.copy);
        EXPECT_STREQ(join, c.join);
    }
    char text[8] = "";
    EXPECT_EQ(cu_str_copy(text, "abc", 4), 0U);
    EXPECT_FAILURE(cu_str_copy(text, "abc", 3), cu_ERROR_TRUNCATION_DETECTED, "cu_str_copy", file, "");
    EXPECT_EQ(cu_str_cat(text, "cd", 5), 0U);
    EXPECT_FAILURE(cu_str_cat(text, "e", 5), cu_ERROR_TRUNCATION_DETECTED, "cu_str_cat", file, "");
    EXPECT_STREQ(text, "abcd");
}

TEST(SafeStringOps, aCloneIsTheCallersOrNull)
{
    char* copy = nullptr;
    ASSERT_EQ(cu_str_clone(&copy, "\x80\xFF text"), 0U);
    EXPECT_STREQ(copy, "\x80\xFF text");
    cu_safeFreeImpl(copy);
    const support::Injection exhausted("strdup", ENOMEM);
    EXPECT_FAILURE(cu_str_clone(&copy, "a"), cu_ERROR_COM_MALLOC_FAILED, "cu_str_clone", file, "");
    EXPECT_EQ(copy, nullptr);
}

TEST(SafeStringOps, formattingIntoABufferTellsWhatDidNotFit)
{
    char text[8] = "";
    EXPECT_EQ(cu_snprintf(text, 5, "%d", 1234), 0U);
    EXPECT_STREQ(text, "1234");
    EXPECT_FAILURE(cu_snprintf(text, 5, "%d", 56789), cu_ERROR_TRUNCATION_DETECTED, "cu_snprintf", file,
                   "vsnprintf returned '5'. given size was '5'");
    EXPECT_STREQ(text, "5678");
    EXPECT_EQ(list(text, 5, "%d", 4321), 0U);
    EXPECT_STREQ(text, "4321");
    EXPECT_NE(cu_str_lenDepPrintf(text, 4, "%s", "abcd"), 0U);
    EXPECT_EQ(support::trace().find("cu_str_lenDepPrintf  -  "), 0U);
    EXPECT_STREQ(text, "abc");
    EXPECT_FAILURE(cu_snprintf(text, 8, "%ls", unprintable), cu_ERROR_TRUNCATION_DETECTED, "cu_snprintf", file,
                   "vsnprintf returned '4294967295'. given size was '8'");
}

TEST(SafeStringOps, aDynamicBufferDoublesUntilTheTextFits)
{
    char* text = nullptr;
    support::WatchfulAllocator allocator;
    uint32_t size = 0;
    for (const auto& [length, wanted] : {std::pair{1023U, 1024U}, {1024U, 2048U}}) {
        const std::string part(length, 'x');
        ASSERT_EQ(dynamic(&text, &size, allocator.get(), "%s", part.c_str()), 0U);
        EXPECT_EQ(text, part);
        EXPECT_EQ(size, wanted);
    }
    EXPECT_EQ(allocator.requests(), (std::vector<uint32_t>{1024, 1024, 2048}));

    // The arguments are read again at each of four attempts, of whatever kind they are.
    const std::string part(2500, 'y');
    const char* y = part.c_str();
    ASSERT_EQ(dynamic(&text, &size, allocator.get(), "%s|%d|%lld|%.2f|%s", y, -5, 1LL << 40, 0.25, y), 0U);
    EXPECT_EQ(text, part + "|-5|1099511627776|0.25|" + part);
    EXPECT_EQ(size, 8192U);

    // The block that could not grow is the last valid one.
    allocator.refuse(3);
    EXPECT_FAILURE(dynamic(&text, &size, allocator.get(), "%s", y), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "");
    EXPECT_EQ(support::trace().find("cu_vsnprintfDyn  -  "), 0U);
    EXPECT_EQ(text, part.substr(0, 2047));
    EXPECT_FAILURE(dynamic(&text, &size, allocator.get(), "a%ls", unprintable), cu_ERROR_TRUNCATION_DETECTED,
                   "cu_vsnprintfDyn", file, "vsnprintf failed with '-1'");
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(allocator.live(), 0U);

    // On the shared heap.
    ASSERT_EQ(cu_str_lenDepPrintf(&text, 0, "%02000d", 7), 0U);
    EXPECT_EQ(text, std::string(1999, '0') + "7");
    EXPECT_NE(cu_snprintfDyn(&text, &size, "%ls", unprintable), 0U);
    EXPECT_EQ(support::trace().find("cu_snprintfDyn  -  "), 0U);
    EXPECT_EQ(text, nullptr);
}

TEST(SafeStringOps, charactersCountAsBytes)
{
    struct {
        const char* text;
        uint32_t character;
        uint32_t count;
    } const cases[] = {
        {"a\x80\xE4\x80", 0x80, 2}, {"\xFF\x7F", 0xFF, 1}, {"\xFF\x7F", UINT32_MAX, 0}, {"aaa", 0x100 + 'a', 0}};
    for (const auto& c : cases) {
        uint32_t count = 9;
        uint32_t total = 100;
        EXPECT_EQ(cu_str_count(c.text, c.character, &count), 0U);
        EXPECT_EQ(cu_str_countAndAdd(c.text, c.character, &total), 0U);
        EXPECT_EQ(count, c.count) << c.text << ' ' << c.character;
        EXPECT_EQ(total, 100 + c.count);
    }
}

TEST(SafeStringOps, bytesAreCopiedOnlyWhereAllHaveRoom)
{
    const char source[] = {1, 0, 2, 0, 3};
    char text[6] = {9, 9, 9, 9, 9, 9};
    EXPECT_FAILURE(cu_str_memcpy(text, 4, source, 5), cu_ERROR_TRUNCATION_DETECTED, "cu_str_memcpy", file,
                   "Dest length='4, src length='5'");
    EXPECT_EQ(text[0], 9);
    EXPECT_EQ(cu_str_memcpy(text, 5, source, 5), 0U);
    EXPECT_EQ(memcmp(text, source, 5), 0);
    EXPECT_EQ(text[5], 9);
}

} // namespace
