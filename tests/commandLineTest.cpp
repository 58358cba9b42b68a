#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/argumentArray.h>
#include <cUtil/commandLine.h>

#include <unistd.h>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/commandLine.linux";

using Words = std::vector<std::string>;

/// The arguments of a program: the words of a text.
class Arguments
{
public:
    explicit Arguments(const char* text)
    {
        EXPECT_EQ(cu_ArgumentArray_new(&words_, nullptr), 0U);
        EXPECT_EQ(cu_ArgumentArray_parse(words_, text), 0U);
        EXPECT_EQ(cu_ArgumentArray_get(words_, &argv, &count_), 0U);
    }
    Arguments(const Arguments&) = delete;
    Arguments& operator=(const Arguments&) = delete;
    ~Arguments() { EXPECT_EQ(cu_ArgumentArray_delete(&words_), 0U); }

    int32_t argc() const { return static_cast<int32_t>(count_); }
    Words words() const { return Words(argv, argv + count_); }

    char** argv = nullptr;

private:
    cu_ArgumentArray* words_ = nullptr;
    uint32_t count_ = 0;
};

// What the words say is beside a reading of our own in the fuzz target.
TEST(CommandLine, keepsCopiesAndLeavesTheArgumentsInAnotherOrder)
{
    unsetenv("POSIXLY_CORRECT");
    const Arguments arguments("prog one -b x two -b y -\xE4");
    cu_CommandLine* me = nullptr;
    ASSERT_EQ(cu_CommandLine_newFromArgs(&me, arguments.argc(), arguments.argv, "ab:\xE4", nullptr), 0U);
    EXPECT_EQ(arguments.words(), (Words{"prog", "-b", "x", "-b", "y", "-\xE4", "one", "two"}));
    EXPECT_EQ(opterr, 0);
    for (int32_t i = 0; i < arguments.argc(); ++i)
        arguments.argv[i][0] = '!';
    for (const auto& [option, given, argument] :
         {std::tuple{uint32_t{'a'}, false, ""}, {'b', true, "x"}, {0xE4, true, ""}, {0xFFFFFFE4, false, ""}}) {
        bool present = !given;
        const char* text = "before";
        EXPECT_EQ(cu_CommandLine_hasOption(me, option, &present), 0U);
        EXPECT_EQ(present, given) << option;
        EXPECT_EQ(cu_CommandLine_getOptarg(me, option, &text), 0U);
        EXPECT_STREQ(text != nullptr ? text : "", argument);
    }
    uint32_t count = 0;
    const char* text = nullptr;
    EXPECT_EQ(cu_CommandLine_getNumAdditionalOptions(me, &count), 0U);
    EXPECT_EQ(count, 2U);
    EXPECT_EQ(cu_CommandLine_getAdditionalOption(me, 1, &text), 0U);
    EXPECT_STREQ(text, "two");
    EXPECT_REFUSED(cu_CommandLine_getAdditionalOption(me, 2, &text), "cu_CommandLine_getAdditionalOption", file);
    EXPECT_EQ(cu_CommandLine_delete(&me), 0U);
}

TEST(CommandLine, aFailureShowsWhatGetoptSaid)
{
    struct {
        const char* optionString;
        cu_ErrorCode code;
        const char* description;
    } const cases[] = {{"b:", cu_ERROR_UNKNOWN_CMDLINE_OPTION, "Unknown option '?'."},
                       {":b:", cu_ERROR_MISSING_CMDLINE_OPTION, "Option ':' requires an argument."}};
    for (const auto& c : cases) {
        cu_CommandLine* me = nullptr;
        support::WatchfulAllocator allocator;
        EXPECT_FAILURE(cu_CommandLine_newFromString(&me, "prog -b x one -b", c.optionString, allocator.get()), c.code,
                       "cu_CommandLine_newFromArgs", file, c.description);
        EXPECT_EQ(support::trace().find("cu_CommandLine_newFromString  -  "), 0U);
        EXPECT_EQ(me, nullptr);
    }
}

TEST(CommandLine, isMadeAsAWholeOrNotAtAll)
{
    const char* text = "prog -a -bx one two";
    const Arguments arguments(text);
    EXPECT_CLEAN_FAILURES(cu_CommandLine_newFromArgs, cu_CommandLine_delete, arguments.argc(), arguments.argv, "ab:");
    EXPECT_CLEAN_FAILURES(cu_CommandLine_newFromString, cu_CommandLine_delete, text, "ab:");
}

TEST(CommandLine, refusesBadArguments)
{
    const Arguments arguments("prog -a");
    cu_CommandLine* none = nullptr;
    cu_CommandLine* me = nullptr;
    optind = 99;
    for (const int32_t argc : {0, -1}) {
        EXPECT_REFUSED(cu_CommandLine_newFromArgs(&none, argc, arguments.argv, "a", nullptr),
                       "cu_CommandLine_newFromArgs", file);
    }
    EXPECT_EQ(optind, 99);
    ASSERT_EQ(cu_CommandLine_newFromArgs(&me, 2, arguments.argv, "a", nullptr), 0U);

    bool present = false;
    const char* argument = nullptr;
    uint32_t count = 0;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, me, int32_t{2}, arguments.argv, "a", &present, &argument, &count}),
                         cu_CommandLine_newFromArgs, cu_CommandLine_newFromString, cu_CommandLine_hasOption,
                         cu_CommandLine_getOptarg, cu_CommandLine_getNumAdditionalOptions,
                         cu_CommandLine_getAdditionalOption);
    EXPECT_NULLS_REFUSED(file, std::tuple{&me}, cu_CommandLine_delete);
    EXPECT_REFUSED(cu_CommandLine_hasOption(me, 0, &present), "cu_CommandLine_hasOption", file);
    EXPECT_REFUSED(cu_CommandLine_getOptarg(me, 0, &argument), "cu_CommandLine_getOptarg", file);
    EXPECT_REFUSED(cu_CommandLine_newFromString(&none, "' ", "a", nullptr), "cu_ArgumentArray_parse",
                   "src/cUtil/argumentArray");
    EXPECT_REFUSED(cu_CommandLine_newFromString(&none, " ", "a", nullptr), "cu_CommandLine_newFromArgs", file);
    EXPECT_EQ(cu_CommandLine_delete(&me), 0U);
}

} // namespace
