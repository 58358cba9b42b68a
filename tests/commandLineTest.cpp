#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/argumentArray.h>
#include <cUtil/commandLine.h>

#include <map>
#include <optional>
#include <unistd.h>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/commandLine.linux";

using Words = std::vector<std::string>;
using Options = std::map<uint32_t, std::optional<std::string>>;

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

Options optionsOf(const cu_CommandLine* me)
{
    Options options;
    for (uint32_t option = 1; option < 512; ++option) {
        bool present = false;
        const char* argument = nullptr;
        EXPECT_EQ(cu_CommandLine_hasOption(me, option, &present), 0U);
        EXPECT_EQ(cu_CommandLine_getOptarg(me, option, &argument), 0U);
        EXPECT_TRUE(present || argument == nullptr);
        if (present)
            options[option] = argument != nullptr ? std::optional<std::string>(argument) : std::nullopt;
    }
    return options;
}

Words additionalOf(const cu_CommandLine* me)
{
    uint32_t count = 0;
    EXPECT_EQ(cu_CommandLine_getNumAdditionalOptions(me, &count), 0U);
    Words additional;
    const char* argument = nullptr;
    for (uint32_t index = 0; index < count; ++index) {
        EXPECT_EQ(cu_CommandLine_getAdditionalOption(me, index, &argument), 0U);
        additional.emplace_back(argument);
    }
    EXPECT_REFUSED(cu_CommandLine_getAdditionalOption(me, count, &argument), "cu_CommandLine_getAdditionalOption",
                   file);
    return additional;
}

/// What becomes of a text: options and additional arguments, or a failure.
struct Case {
    const char* text;
    const char* optionString;
    Options options;
    Words additional;
    cu_ErrorCode code = 0;
    const char* description = "";
};

constexpr cu_ErrorCode unknown = cu_ERROR_UNKNOWN_CMDLINE_OPTION;
constexpr cu_ErrorCode missing = cu_ERROR_MISSING_CMDLINE_OPTION;

const Case cases[] = {
    {"prog one -a two -b x three", "ab:", {{'a', {}}, {'b', "x"}}, {"one", "two", "three"}},
    {"prog -ab x -cby", "ab:c", {{'a', {}}, {'b', "x"}, {'c', {}}}, {}},
    {"prog -b -- -- -a", "ab:", {{'b', "--"}}, {"-a"}},
    {"prog -ab 'two words' ' '", "ab:", {{'a', {}}, {'b', "two words"}}, {" "}},
    {"prog -o -ox y", "o::", {{'o', {}}}, {"y"}},
    {"prog -a one -b", "+ab:", {{'a', {}}}, {"one", "-b"}},
    {"prog one -a two -- three", "-a", {{1, "one"}, {'a', {}}}, {"three"}},
    {"prog -\xE4", "\xE4", {{0xE4, {}}}, {}},
    {"prog -az one -a", "a", {}, {}, unknown, "Unknown option '?'."},
    {"prog -b", "b:", {}, {}, unknown, "Unknown option '?'."},
    {"prog -b x one -b", ":b:", {}, {}, missing, "Option ':' requires an argument."},
};

// Each case follows others in the same process, some of which end within a word.
TEST(CommandLine, tellsOptionsFromOtherArguments)
{
    unsetenv("POSIXLY_CORRECT");
    for (const Case& c : cases) {
        const Arguments arguments(c.text);
        for (const bool fromString : {false, true}) {
            SCOPED_TRACE(std::string(c.text) + (fromString ? ", a text, by " : ", words, by ") + c.optionString);
            support::WatchfulAllocator allocator;
            cu_CommandLine* me = nullptr;
            const auto failure = support::failureOf([&] {
                return fromString ? cu_CommandLine_newFromString(&me, c.text, c.optionString, allocator.get())
                                  : cu_CommandLine_newFromArgs(&me, arguments.argc(), arguments.argv, c.optionString,
                                                               allocator.get());
            });
            if (c.code != 0) {
                EXPECT_EQ(failure, (support::Failure{c.code, "cu_CommandLine_newFromArgs", file, c.description}));
                EXPECT_EQ(support::trace().find("cu_CommandLine_newFromString  -  ") == 0, fromString);
                EXPECT_EQ(me, nullptr);
                continue;
            }
            ASSERT_EQ(failure.code, 0U);
            EXPECT_EQ(optionsOf(me), c.options);
            EXPECT_EQ(additionalOf(me), c.additional);
            EXPECT_EQ(cu_CommandLine_delete(&me), 0U);
            EXPECT_EQ(me, nullptr);
        }
    }
}

TEST(CommandLine, keepsCopiesAndLeavesTheArgumentsInAnotherOrder)
{
    unsetenv("POSIXLY_CORRECT");
    const Arguments arguments("prog one -b x two -a");
    cu_CommandLine* me = nullptr;
    ASSERT_EQ(cu_CommandLine_newFromArgs(&me, arguments.argc(), arguments.argv, "ab:", nullptr), 0U);
    EXPECT_EQ(arguments.words(), (Words{"prog", "-b", "x", "-a", "one", "two"}));
    EXPECT_EQ(opterr, 0);
    for (int32_t i = 0; i < arguments.argc(); ++i)
        arguments.argv[i][0] = '!';
    EXPECT_EQ(optionsOf(me), (Options{{'a', {}}, {'b', "x"}}));
    EXPECT_EQ(additionalOf(me), (Words{"one", "two"}));
    EXPECT_EQ(cu_CommandLine_delete(&me), 0U);
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
