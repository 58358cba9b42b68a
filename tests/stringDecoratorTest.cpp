#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/stringDecorator.h>
#include <cUtil/tools/safeMalloc.h>

namespace
{

constexpr char file[] = "src/cUtil/stringDecorator";

class Decorator : support::Pinned
{
public:
    explicit Decorator(uint32_t capacity) { EXPECT_EQ(cu_StringDecorator_new(&me, capacity), 0U); }
    ~Decorator() { EXPECT_EQ(cu_StringDecorator_delete(&me), 0U); }

    std::string apply(const std::string& text) const
    {
        char* result = nullptr;
        EXPECT_EQ(cu_StringDecorator_applyDecIfNotIgnored(me, text.c_str(), &result), 0U);
        std::string copy = result != nullptr ? result : "";
        cu_safeFreeImpl(result);
        return copy;
    }
    cu_ErrorCode push(const std::string& pattern) const
    {
        return cu_StringDecorator_pushIgnorePatterns(me, pattern.c_str());
    }
    // The topmost pattern; how many there are, of how many.
    std::string state() const
    {
        const char* top = "none";
        uint32_t count = ~0U;
        uint32_t max = ~0U;
        EXPECT_EQ(cu_StringDecorator_getIgnorePatternsInfo(me, nullptr, nullptr), 0U);
        EXPECT_EQ(cu_StringDecorator_getIgnorePatternsInfo(me, &max, &count), 0U);
        EXPECT_EQ(cu_StringDecorator_topIgnorePatterns(me, &top) == 0, count != 0);
        return std::string(top) + ' ' + std::to_string(count) + '/' + std::to_string(max);
    }

    cu_StringDecorator* me = nullptr;
};

TEST(StringDecorator, decoratesWhatContainsNoPatternOfTheStack)
{
    const Decorator decorator(2);
    EXPECT_EQ(decorator.apply("text"), "text"); // no decoration yet
    ASSERT_EQ(cu_StringDecorator_setDec(decorator.me, "%s> "), 0U);
    struct {
        const char* push; // null: pop
        const char* state;
        const char* text;
        bool ignored;
    } const steps[] = {
        {"error", "error 1/2", "no errors", true}, {"%d", "%d 2/2", "no errors", true},
        {nullptr, "error 1/2", "50%d", false},     {"", " 2/2", "anything", true},
        {nullptr, "error 1/2", "x", false},        {nullptr, "none 0/2", "error", false},
    };
    for (const auto& step : steps) {
        SCOPED_TRACE(step.text);
        EXPECT_EQ(step.push != nullptr ? decorator.push(step.push) : cu_StringDecorator_popIgnorePatterns(decorator.me),
                  0U);
        EXPECT_EQ(decorator.state(), step.state);
        bool contained = !step.ignored;
        EXPECT_EQ(cu_StringDecorator_containsIgnorePattern(decorator.me, step.text, &contained), 0U);
        EXPECT_EQ(contained, step.ignored);
        EXPECT_EQ(decorator.apply(step.text), (step.ignored ? "" : "%s> ") + std::string(step.text));
    }
    const std::string longText(100'000, 'l');
    EXPECT_EQ(decorator.apply(longText), "%s> " + longText);
}

TEST(StringDecorator, textsHave1023CharactersAtMostAndTheStackItsCapacity)
{
    const Decorator decorator(1);
    const std::string tooLong(1024, 't');
    const std::string fits = tooLong.substr(1);
    EXPECT_FAILURE(cu_StringDecorator_setDec(decorator.me, tooLong.c_str()), cu_ERROR_TRUNCATION_DETECTED,
                   "cu_str_copy", "src/cUtil/tools/safeStringOps", "");
    EXPECT_EQ(support::trace().find("cu_StringDecorator_setDec  -  src/cUtil/stringDecorator:"), 0U);
    const char* decoration = nullptr;
    EXPECT_EQ(cu_StringDecorator_getDec(decorator.me, &decoration), 0U);
    EXPECT_EQ(decoration, fits);

    EXPECT_EQ(decorator.push(tooLong), cu_ERROR_TRUNCATION_DETECTED);
    EXPECT_EQ(support::trace().find("cu_StringDecorator_pushIgnorePatterns  -  src/cUtil/stringDecorator:"), 0U);
    EXPECT_EQ(decorator.apply(tooLong), fits + tooLong); // the failed pattern is none
    EXPECT_FAILURE(cu_StringDecorator_popIgnorePatterns(decorator.me), cu_ERROR_COM_INVALID_ARGUMENT,
                   "cu_StringDecorator_popIgnorePatterns", file, "Stack is empty!");
    EXPECT_FAILURE(cu_StringDecorator_topIgnorePatterns(decorator.me, &decoration), cu_ERROR_COM_INVALID_ARGUMENT,
                   "cu_StringDecorator_topIgnorePatterns", file, "Stack is empty!");
    EXPECT_EQ(decorator.push(fits), 0U);
    EXPECT_FAILURE(decorator.push("x"), cu_ERROR_COM_INVALID_ARGUMENT, "cu_StringDecorator_pushIgnorePatterns", file,
                   "Ignore pattern stack is full! Cur='1', max='1'");
    EXPECT_EQ(decorator.state(), fits + " 1/1");
}

TEST(StringDecorator, isMadeAsAWholeOrNotAtAll)
{
    support::sweep<cu_StringDecorator>(
        "cu_StringDecorator_new", [](auto handle, auto) { return cu_StringDecorator_new(handle, 3); },
        cu_StringDecorator_delete);
    for (const uint32_t capacity : {0x400000U, 0x400001U}) {
        cu_StringDecorator* me = nullptr;
        EXPECT_FAILURE(cu_StringDecorator_new(&me, capacity), cu_ERROR_COM_MALLOC_FAILED, "cu_StringDecorator_new",
                       file, "");
    }
    EXPECT_NE(Decorator(0).push("x"), 0U);
    const Decorator decorator(1);
    char before[] = "before";
    char* result = before;
    for (const unsigned nth : {1U, 2U}) { // the second one enlarges the copy
        const support::Injection failing("realloc", ENOMEM, nth);
        EXPECT_EQ(cu_StringDecorator_applyDecIfNotIgnored(decorator.me, std::string(2000, 'l').c_str(), &result),
                  cu_ERROR_COM_MALLOC_FAILED);
        EXPECT_EQ(result, before);
    }
}

TEST(StringDecorator, refusesNullArguments)
{
    const Decorator decorator(1);
    cu_StringDecorator* me = decorator.me;
    cu_StringDecorator* none = nullptr;
    const char* text = nullptr;
    char* result = nullptr;
    bool contained = true;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, me, "", &text, &result, &contained}), cu_StringDecorator_new,
                         cu_StringDecorator_setDec, cu_StringDecorator_getDec, cu_StringDecorator_pushIgnorePatterns,
                         cu_StringDecorator_popIgnorePatterns, cu_StringDecorator_topIgnorePatterns,
                         cu_StringDecorator_getIgnorePatternsInfo, cu_StringDecorator_containsIgnorePattern,
                         cu_StringDecorator_applyDecIfNotIgnored);
    EXPECT_NULLS_REFUSED(file, std::tuple{&me}, cu_StringDecorator_delete);
    EXPECT_EQ(text, nullptr);
}

} // namespace
