#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/tools/stringTokenizer.h>

#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/tools/stringTokenizer";

TEST(StringTokenizer, everyDelimiterEndsAToken)
{
    struct {
        std::string text;
        uint32_t delimiter;
        std::vector<std::string> tokens;
    } const cases[] = {
        {"a,,b", ',', {"a", "", "b"}},        {",", ',', {"", ""}},
        {",a,bc,", ',', {"", "a", "bc", ""}}, {"x\xE4y\xE4", 0xE4, {"x", "y", ""}},
        {"one two", ' ', {"one", "two"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.text);
        support::WatchfulAllocator allocator;
        cu_StringTokenizer* tokenizer = nullptr;
        std::string text = c.text;
        ASSERT_EQ(cu_StringTokenizer_new(&tokenizer, text.c_str(), c.delimiter, allocator.get()), 0U);
        EXPECT_EQ(allocator.requests(),
                  std::vector<uint32_t>{static_cast<uint32_t>((c.tokens.size() + 2) * sizeof(void*))});
        text.assign(text.size(), '!'); // the copy is private
        uint32_t count = 0;
        ASSERT_EQ(cu_StringTokenizer_getNumTokens(tokenizer, &count), 0U);
        ASSERT_EQ(count, c.tokens.size());
        const char* token = nullptr;
        for (uint32_t i = 0; i < count; ++i) {
            ASSERT_EQ(cu_StringTokenizer_getToken(tokenizer, i, &token), 0U);
            EXPECT_EQ(token, c.tokens[i]);
        }
        token = nullptr;
        EXPECT_REFUSED(cu_StringTokenizer_getToken(tokenizer, count, &token), "cu_StringTokenizer_getToken", file);
        EXPECT_EQ(token, nullptr);
        EXPECT_EQ(cu_StringTokenizer_delete(&tokenizer), 0U);
        EXPECT_EQ(tokenizer, nullptr);
    }
}

TEST(StringTokenizer, aTextWithoutTheDelimiterGivesNoToken)
{
    support::WatchfulAllocator allocator;
    cu_StringTokenizer* tokenizer = nullptr;
    for (const uint32_t delimiter : {static_cast<uint32_t>(','), 0U, 0x100U + 'a', UINT32_MAX}) {
        EXPECT_FAILURE(cu_StringTokenizer_new(&tokenizer, "abc\xFF", delimiter, allocator.get()),
                       cu_ERROR_NO_TOKEN_POSSIBLE, "cu_StringTokenizer_new", file, "");
        EXPECT_EQ(tokenizer, nullptr);
    }
    EXPECT_TRUE(allocator.requests().empty());
}

TEST(StringTokenizer, isMadeAsAWholeOrNotAtAll)
{
    EXPECT_CLEAN_FAILURES(cu_StringTokenizer_new, cu_StringTokenizer_delete, "a b", uint32_t{' '});
    uint32_t count = 0;
    const char* token = nullptr;
    cu_StringTokenizer* none = nullptr;
    cu_StringTokenizer* tokenizer = nullptr;
    ASSERT_EQ(cu_StringTokenizer_new(&tokenizer, "a b", ' ', nullptr), 0U);
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, tokenizer, "a b", &count, &token}), cu_StringTokenizer_new,
                         cu_StringTokenizer_getNumTokens, cu_StringTokenizer_getToken);
    EXPECT_NULLS_REFUSED(file, std::tuple{&tokenizer}, cu_StringTokenizer_delete);
    EXPECT_EQ(cu_StringTokenizer_delete(&tokenizer), 0U);
}

} // namespace
