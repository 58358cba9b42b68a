#include "support/made.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/tools/stringTokenizer.h>

#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/tools/stringTokenizer";

// Which tokens a text has is beside a split by hand in the fuzz target.
TEST(StringTokenizer, keepsACopyAndTakesBytesAsDelimitersOnly)
{
    support::WatchfulAllocator allocator;
    cu_StringTokenizer* tokenizer = nullptr;
    std::string text = "\xE4x\xE4\xE4y";
    ASSERT_EQ(cu_StringTokenizer_new(&tokenizer, text.c_str(), 0xE4, allocator.get()), 0U);
    EXPECT_EQ(allocator.requests(), std::vector<uint32_t>{6 * sizeof(void*)});
    text.assign(text.size(), '!');
    const char* token = nullptr;
    EXPECT_EQ(cu_StringTokenizer_getToken(tokenizer, 1, &token), 0U);
    EXPECT_STREQ(token, "x");
    EXPECT_REFUSED(cu_StringTokenizer_getToken(tokenizer, 4, &token), "cu_StringTokenizer_getToken", file);
    EXPECT_STREQ(token, "x");
    EXPECT_EQ(cu_StringTokenizer_delete(&tokenizer), 0U);
    for (const uint32_t delimiter : {0U, 0x100U + 'a', UINT32_MAX}) {
        EXPECT_FAILURE(cu_StringTokenizer_new(&tokenizer, "abc\xFF", delimiter, nullptr), cu_ERROR_NO_TOKEN_POSSIBLE,
                       "cu_StringTokenizer_new", file, "");
        EXPECT_EQ(tokenizer, nullptr);
    }
}

TEST(StringTokenizer, isMadeAsAWholeOrNotAtAll)
{
    EXPECT_CLEAN_FAILURES(cu_StringTokenizer_new, cu_StringTokenizer_delete, "a b", uint32_t{' '});
    uint32_t count = 0;
    const char* token = nullptr;
    cu_StringTokenizer* none = nullptr;
    support::Made<cu_StringTokenizer_new, cu_StringTokenizer_delete> made("a b", uint32_t{' '});
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, made.get(), "a b", &count, &token}), cu_StringTokenizer_new,
                         cu_StringTokenizer_getNumTokens, cu_StringTokenizer_getToken);
    EXPECT_NULLS_REFUSED(file, std::tuple{made.handle()}, cu_StringTokenizer_delete);
}

} // namespace
