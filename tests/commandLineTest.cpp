#include "support/made.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/commandLine.h>

#include <unistd.h>

namespace
{

constexpr char file[] = "src/cUtil/commandLine.linux";

// The arguments of a program, which getopt() puts into another order.
struct Arguments {
    std::string words[7] = {"prog", "one", "-b", "x", "-b", "y", "-\xE4"};
    char* argv[8] = {};

    Arguments()
    {
        for (std::size_t at = 0; at < std::size(words); ++at)
            argv[at] = words[at].data();
    }
};

// What the words say is beside a reading of our own in the fuzz target.
TEST(CommandLine, keepsCopiesAndLeavesTheArgumentsInAnotherOrder)
{
    unsetenv("POSIXLY_CORRECT");
    Arguments arguments;
    cu_CommandLine* me = nullptr;
    ASSERT_EQ(cu_CommandLine_newFromArgs(&me, 7, arguments.argv, "ab:\xE4", nullptr), 0U);
    EXPECT_STREQ(arguments.argv[1], "-b");
    EXPECT_STREQ(arguments.argv[6], "one");
    EXPECT_EQ(opterr, 0);
    for (std::string& word : arguments.words)
        word[0] = '!';
    for (const auto& [option, given, argument] :
         {std::tuple{uint32_t{'a'}, false, ""}, {'b', true, "x"}, {0xE4, true, ""}, {0xFFFFFFE4, false, ""}}) {
        bool present = !given;
        const char* text = "before";
        EXPECT_EQ(cu_CommandLine_hasOption(me, option, &present), 0U);
        EXPECT_EQ(present, given) << option;
        EXPECT_EQ(cu_CommandLine_getOptarg(me, option, &text), 0U);
        EXPECT_STREQ(text != nullptr ? text : "", argument);
    }
    const char* text = nullptr;
    EXPECT_EQ(cu_CommandLine_getAdditionalOption(me, 0, &text), 0U);
    EXPECT_STREQ(text, "one");
    EXPECT_REFUSED(cu_CommandLine_getAdditionalOption(me, 1, &text), "cu_CommandLine_getAdditionalOption", file);
    EXPECT_EQ(cu_CommandLine_delete(&me), 0U);
}

TEST(CommandLine, isMadeAsAWholeOrNotAtAll)
{
    Arguments arguments;
    EXPECT_CLEAN_FAILURES(cu_CommandLine_newFromArgs, cu_CommandLine_delete, 7, +arguments.argv, "ab:\xE4");
    EXPECT_CLEAN_FAILURES(cu_CommandLine_newFromString, cu_CommandLine_delete, "prog -a -bx one two", "ab:");

    // A failure shows what getopt() said.
    cu_CommandLine* me = nullptr;
    support::WatchfulAllocator allocator;
    EXPECT_FAILURE(cu_CommandLine_newFromString(&me, "prog -b x one -b", "b:", allocator.get()),
                   cu_ERROR_UNKNOWN_CMDLINE_OPTION, "cu_CommandLine_newFromArgs", file, "Unknown option '?'.");
    EXPECT_FAILURE(cu_CommandLine_newFromString(&me, "prog -b x one -b", ":b:", allocator.get()),
                   cu_ERROR_MISSING_CMDLINE_OPTION, "cu_CommandLine_newFromArgs", file,
                   "Option ':' requires an argument.");
    EXPECT_EQ(me, nullptr);
}

TEST(CommandLine, refusesBadArguments)
{
    Arguments arguments;
    cu_CommandLine* none = nullptr;
    optind = 99;
    for (const int32_t argc : {0, -1}) {
        EXPECT_REFUSED(cu_CommandLine_newFromArgs(&none, argc, arguments.argv, "a", nullptr),
                       "cu_CommandLine_newFromArgs", file);
    }
    EXPECT_EQ(optind, 99);

    support::Made<cu_CommandLine_newFromString, cu_CommandLine_delete> me("prog -a", "a");
    bool present = false;
    const char* argument = nullptr;
    uint32_t count = 0;
    EXPECT_NULLS_REFUSED(
        file, (std::tuple{&none, me.get(), int32_t{2}, +arguments.argv, "a", &present, &argument, &count}),
        cu_CommandLine_newFromArgs, cu_CommandLine_newFromString, cu_CommandLine_hasOption, cu_CommandLine_getOptarg,
        cu_CommandLine_getNumAdditionalOptions, cu_CommandLine_getAdditionalOption);
    EXPECT_NULLS_REFUSED(file, std::tuple{me.handle()}, cu_CommandLine_delete);
    EXPECT_REFUSED(cu_CommandLine_hasOption(me, 0, &present), "cu_CommandLine_hasOption", file);
    EXPECT_REFUSED(cu_CommandLine_getOptarg(me, 0, &argument), "cu_CommandLine_getOptarg", file);
    EXPECT_REFUSED(cu_CommandLine_newFromString(&none, "' ", "a", nullptr), "cu_ArgumentArray_parse",
                   "src/cUtil/argumentArray");
}

} // namespace
