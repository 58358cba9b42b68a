#include "support/made.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/argumentArray.h>

#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/argumentArray";

using Words = std::vector<std::string>;

class Arguments : support::Pinned
{
public:
    Arguments() { EXPECT_EQ(cu_ArgumentArray_new(&me_, allocator.get()), 0U); }
    ~Arguments() { EXPECT_EQ(cu_ArgumentArray_delete(&me_), 0U); }

    operator cu_ArgumentArray*() const { return me_; }

    /// What stands in the array, which must end with NULL.
    Words words() const
    {
        char** argv = nullptr;
        uint32_t count = 0;
        EXPECT_EQ(cu_ArgumentArray_get(me_, &argv, &count), 0U);
        EXPECT_EQ(argv[count], nullptr);
        return Words(argv, argv + count);
    }

    support::WatchfulAllocator allocator;

private:
    cu_ArgumentArray* me_ = nullptr;
};

// What else a line says is beside a reading of our own in the fuzz target.
TEST(ArgumentArray, ownsCopiesOfItsWords)
{
    Arguments array;
    support::Made<cu_String_cloneStr, cu_String_delete> string("two words");
    std::string text = "\"quoted\"";
    EXPECT_EQ(cu_ArgumentArray_addCString(array, text.c_str()), 0U);
    EXPECT_EQ(cu_ArgumentArray_add(array, string), 0U);
    text.assign(text.size(), '!');
    EXPECT_EQ(cu_String_clear(string), 0U);
    EXPECT_REFUSED(cu_ArgumentArray_add(array, string), "cu_ArgumentArray_addCString", file);
    EXPECT_EQ(support::trace().find("cu_ArgumentArray_add  -  "), 0U);
    EXPECT_REFUSED(cu_ArgumentArray_parse(array, "a'b'  c \"d e"), "cu_ArgumentArray_parse", file);
    EXPECT_EQ(array.words(), (Words{"\"quoted\"", "two words", "ab", "c"}));

    EXPECT_EQ(cu_ArgumentArray_clear(array), 0U);
    EXPECT_EQ(array.words(), Words{});
    EXPECT_EQ(array.allocator.requests().back(), sizeof(char*));
    EXPECT_EQ(array.allocator.live(), 2U);
}

TEST(ArgumentArray, withoutMemoryItIsMadeOrChangedAsAWholeOrNotAtAll)
{
    EXPECT_CLEAN_FAILURES(cu_ArgumentArray_new, cu_ArgumentArray_delete);

    for (unsigned refused = 1; refused <= 5; ++refused) { // the word in hand; vector and copy of each of the two
        Arguments array;
        array.allocator.refuse(refused);
        EXPECT_FAILURE(cu_ArgumentArray_parse(array, "one 'two'"), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "");
        EXPECT_NE(support::trace().find("cu_ArgumentArray_parse  -  "), std::string::npos);
        EXPECT_EQ(array.words(), Words(refused > 3 ? 1 : 0, "one"));
        // Without the copy the vector is as short as it was.
        EXPECT_EQ(array.allocator.requests().back() == 2 * sizeof(char*), refused == 2 || refused == 5);
    }
}

TEST(ArgumentArray, refusesBadArguments)
{
    support::Made<cu_ArgumentArray_new, cu_ArgumentArray_delete> made;
    const support::Made<cu_String_new, cu_String_delete> string;
    cu_ArgumentArray* none = nullptr;
    char** argv = nullptr;
    uint32_t count = 7;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, made.get(), string.get(), "a", &argv, &count}), cu_ArgumentArray_new,
                         cu_ArgumentArray_addCString, cu_ArgumentArray_add, cu_ArgumentArray_get,
                         cu_ArgumentArray_clear, cu_ArgumentArray_parse);
    EXPECT_NULLS_REFUSED(file, std::tuple{made.handle()}, cu_ArgumentArray_delete);
}

} // namespace
