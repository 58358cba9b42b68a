#include <cUtil/stringDecorator.h>

#include "internal/report.h"
#include "internal/rollback.h"

#include <cUtil/tools/safeMalloc.h>
#include <cUtil/tools/safeStringOps.h>

#include <algorithm>

namespace
{

constexpr uint32_t textSize = 1024;

using Text = char[textSize];

} // namespace

struct cu_StringDecorator {
    Text decoration;
    Text* patterns;
    uint32_t maxPatterns;
    uint32_t patternCount;
};
static_assert(offsetof(cu_StringDecorator, patterns) == textSize);
static_assert(offsetof(cu_StringDecorator, maxPatterns) == textSize + sizeof(void*));
static_assert(offsetof(cu_StringDecorator, patternCount) == textSize + sizeof(void*) + 4);

static bool containsPattern(const cu_StringDecorator* dec, const char* text)
{
    return std::any_of(dec->patterns, dec->patterns + dec->patternCount,
                       [text](const Text& pattern) { return strstr(text, pattern) != nullptr; });
}

cu_ErrorCode cu_StringDecorator_new(cu_StringDecorator** dec, uint32_t maxPatterns)
{
    CU_REQUIRE(dec != nullptr);
    CU_REQUIRE(*dec == nullptr);

    const uint64_t size = uint64_t{maxPatterns} * sizeof(Text);
    if (size > UINT32_MAX)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    void* block = nullptr;
    CU_TRY(cu_safeMalloc(&block, sizeof(cu_StringDecorator)));
    CU_ROLLBACK(freeing, cu_safeFreeImpl(block));
    auto* decorator = static_cast<cu_StringDecorator*>(block);
    void* slots = nullptr;
    if (size != 0)
        CU_TRY(cu_safeMalloc(&slots, static_cast<uint32_t>(size)));
    decorator->patterns = static_cast<Text*>(slots);
    decorator->maxPatterns = maxPatterns;
    freeing.dismiss();
    *dec = decorator;
    return 0;
}

cu_ErrorCode cu_StringDecorator_delete(cu_StringDecorator** dec)
{
    CU_REQUIRE(dec != nullptr);
    CU_REQUIRE(*dec != nullptr);

    CU_TRY(cu_safeFreeImpl((*dec)->patterns));
    CU_TRY(cu_safeFreeImpl(*dec));
    *dec = nullptr;
    return 0;
}

cu_ErrorCode cu_StringDecorator_setDec(cu_StringDecorator* dec, const char* text)
{
    CU_REQUIRE(dec != nullptr);
    CU_REQUIRE(text != nullptr);

    CU_TRY(cu_str_copy(dec->decoration, text, textSize));
    return 0;
}

cu_ErrorCode cu_StringDecorator_getDec(const cu_StringDecorator* dec, const char** text)
{
    CU_REQUIRE(dec != nullptr);
    CU_REQUIRE(text != nullptr);

    *text = dec->decoration;
    return 0;
}

cu_ErrorCode cu_StringDecorator_pushIgnorePatterns(cu_StringDecorator* dec, const char* pattern)
{
    CU_REQUIRE(dec != nullptr);
    CU_REQUIRE(pattern != nullptr);

    if (dec->patternCount >= dec->maxPatterns)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0, "Ignore pattern stack is full! Cur='%d', max='%d'",
                         static_cast<int>(dec->patternCount), static_cast<int>(dec->maxPatterns));
    CU_TRY(cu_str_copy(dec->patterns[dec->patternCount], pattern, textSize));
    ++dec->patternCount;
    return 0;
}

cu_ErrorCode cu_StringDecorator_popIgnorePatterns(cu_StringDecorator* dec)
{
    CU_REQUIRE(dec != nullptr);

    if (dec->patternCount == 0)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0, "Stack is empty!");
    --dec->patternCount;
    return 0;
}

cu_ErrorCode cu_StringDecorator_topIgnorePatterns(const cu_StringDecorator* dec, const char** pattern)
{
    CU_REQUIRE(dec != nullptr);
    CU_REQUIRE(pattern != nullptr);

    if (dec->patternCount == 0)
        return CU_REPORT(cu_ERROR_COM_INVALID_ARGUMENT, 0, "Stack is empty!");
    *pattern = dec->patterns[dec->patternCount - 1];
    return 0;
}

cu_ErrorCode cu_StringDecorator_getIgnorePatternsInfo(const cu_StringDecorator* dec, uint32_t* max, uint32_t* count)
{
    CU_REQUIRE(dec != nullptr);

    if (max != nullptr)
        *max = dec->maxPatterns;
    if (count != nullptr)
        *count = dec->patternCount;
    return 0;
}

cu_ErrorCode cu_StringDecorator_containsIgnorePattern(const cu_StringDecorator* dec, const char* text, bool* contained)
{
    CU_REQUIRE(dec != nullptr);
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(contained != nullptr);

    *contained = containsPattern(dec, text);
    return 0;
}

cu_ErrorCode cu_StringDecorator_applyDecIfNotIgnored(const cu_StringDecorator* dec, const char* text, char** result)
{
    CU_REQUIRE(dec != nullptr);
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(result != nullptr);

    char* copy = nullptr;
    CU_ROLLBACK(freeing, cu_safeFreeImpl(copy));
    if (containsPattern(dec, text))
        CU_TRY(cu_snprintfDyn(&copy, nullptr, "%s", text));
    else
        CU_TRY(cu_snprintfDyn(&copy, nullptr, "%s%s", dec->decoration, text));
    freeing.dismiss();
    *result = copy;
    return 0;
}
