#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/argumentArray.h>

#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/argumentArray";

using Words = std::vector<std::string>;

/// An array on an allocator that moves every block; at its end nothing may be left.
class Arguments
{
public:
    Arguments() { EXPECT_EQ(cu_ArgumentArray_new(&me_, allocator.get()), 0U); }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;
    ~Arguments()
    {
        EXPECT_EQ(cu_ArgumentArray_delete(&me_), 0U);
        EXPECT_EQ(me_, nullptr);
    }

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
TEST(ArgumentArray, addsTheWordsOfALineToItsOwn)
{
    Arguments array;
    ASSERT_EQ(cu_ArgumentArray_addCString(array, "first"), 0U);
    EXPECT_EQ(cu_ArgumentArray_parse(array, " a'b'\"c d\"e  \"\" f"), 0U);
    EXPECT_REFUSED(cu_ArgumentArray_parse(array, "one two \"three four"), "cu_ArgumentArray_parse", file);
    EXPECT_EQ(array.words(), (Words{"first", "abc de", "f", "one", "two"}));
}

TEST(ArgumentArray, ownsCopiesOfItsWords)
{
    Arguments array;
    cu_String* string = nullptr;
    ASSERT_EQ(cu_String_cloneStr(&string, "two words", nullptr), 0U);
    std::string text = "\"quoted\"";
    EXPECT_EQ(cu_ArgumentArray_addCString(array, text.c_str()), 0U);
    EXPECT_EQ(cu_ArgumentArray_add(array, string), 0U);
    text.assign(text.size(), '!');
    EXPECT_EQ(cu_String_clear(string), 0U);
    EXPECT_EQ(array.words(), (Words{"\"quoted\"", "two words"}));

    EXPECT_REFUSED(cu_ArgumentArray_addCString(array, ""), "cu_ArgumentArray_addCString", file);
    EXPECT_REFUSED(cu_ArgumentArray_add(array, string), "cu_ArgumentArray_addCString", file);
    EXPECT_EQ(support::trace().find("cu_ArgumentArray_add  -  "), 0U);
    EXPECT_EQ(array.words().size(), 2U);
    EXPECT_EQ(cu_String_delete(&string), 0U);

    EXPECT_EQ(cu_ArgumentArray_clear(array), 0U);
    EXPECT_EQ(array.words(), Words{});
    EXPECT_EQ(array.allocator.requests().back(), sizeof(char*));
    EXPECT_EQ(array.allocator.live(), 2U);
    EXPECT_EQ(cu_ArgumentArray_parse(array, "again"), 0U);
    EXPECT_EQ(array.words(), Words{"again"});
}

TEST(ArgumentArray, withoutMemoryItIsMadeOrChangedAsAWholeOrNotAtAll)
{
    EXPECT_CLEAN_FAILURES(cu_ArgumentArray_new, cu_ArgumentArray_delete);

    for (const unsigned refused : {1U, 2U}) { // the vector, the copy
        Arguments array;
        ASSERT_EQ(cu_ArgumentArray_addCString(array, "one"), 0U);
        array.allocator.refuse(refused);
        EXPECT_FAILURE(cu_ArgumentArray_addCString(array, "four"), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "");
        EXPECT_EQ(support::trace().find("cu_ArgumentArray_addCString  -  "), 0U);
        EXPECT_EQ(array.words(), Words{"one"});
        EXPECT_EQ(array.allocator.requests().back(), refused == 1 ? 3 * sizeof(char*) : 2 * sizeof(char*));
        EXPECT_EQ(cu_ArgumentArray_addCString(array, "five"), 0U);
        EXPECT_EQ(array.words(), (Words{"one", "five"}));
    }

    for (unsigned refused = 1; refused <= 5; ++refused) { // the word in hand; vector and copy of each of the two
        Arguments array;
        array.allocator.refuse(refused);
        EXPECT_FAILURE(cu_ArgumentArray_parse(array, "one 'two'"), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "");
        EXPECT_NE(support::trace().find("cu_ArgumentArray_parse  -  "), std::string::npos);
        EXPECT_EQ(array.words(), Words(refused > 3 ? 1 : 0, "one"));
    }
}

TEST(ArgumentArray, refusesBadArguments)
{
    Arguments array;
    cu_ArgumentArray* made = array;
    cu_ArgumentArray* none = nullptr;
    cu_String* string = nullptr;
    ASSERT_EQ(cu_String_new(&string, nullptr), 0U);
    char** argv = nullptr;
    uint32_t count = 7;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, made, string, "a", &argv, &count}), cu_ArgumentArray_new,
                         cu_ArgumentArray_addCString, cu_ArgumentArray_add, cu_ArgumentArray_get,
                         cu_ArgumentArray_clear, cu_ArgumentArray_parse);
    EXPECT_NULLS_REFUSED(file, std::tuple{&made}, cu_ArgumentArray_delete);
    EXPECT_EQ(argv, nullptr);
    EXPECT_EQ(count, 7U);
    EXPECT_EQ(cu_String_delete(&string), 0U);
}

} // namespace
