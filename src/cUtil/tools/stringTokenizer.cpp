#include <cUtil/tools/stringTokenizer.h>

#include "internal/owned.h"

#include <cUtil/tools/safeMalloc.h>
#include <cUtil/tools/safeStringOps.h>

// The tokens follow in the same block; the first one starts the private copy of the text.
struct cu_StringTokenizer {
    cu_allocator* allocator;
    uint32_t count;

    char** tokens() { return reinterpret_cast<char**>(this + 1); }
    char* const* tokens() const { return reinterpret_cast<char* const*>(this + 1); }
};

namespace
{

constexpr uint64_t wordSize = sizeof(void*);
static_assert(sizeof(cu_StringTokenizer) == 2 * wordSize);

} // namespace

cu_ErrorCode cu_StringTokenizer_new(cu_StringTokenizer** tokenizer, const char* text, uint32_t delimiter,
                                    cu_allocator* allocator)
{
    CU_REQUIRE(tokenizer != nullptr);
    CU_REQUIRE(*tokenizer == nullptr);
    CU_REQUIRE(text != nullptr);

    uint32_t delimiters = 0;
    CU_TRY(cu_str_count(text, delimiter, &delimiters));
    // Compatibility: a text without the delimiter is an error, not one token.
    if (delimiters == 0)
        return CU_REPORT(cu_ERROR_NO_TOKEN_POSSIBLE, 0, nullptr);

    const uint64_t size = (uint64_t{delimiters} + 3) * wordSize;
    if (size > UINT32_MAX)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    internal::Owned<cu_StringTokenizer> object;
    CU_TRY(object.allocateBytes(allocator, static_cast<uint32_t>(size)));
    new (object.get()) cu_StringTokenizer{internal::allocatorOrShared(allocator), delimiters + 1};

    char* at = nullptr;
    CU_TRY(cu_str_clone(&at, text));
    char** tokens = object->tokens();
    tokens[0] = at;
    for (uint32_t i = 1; i <= delimiters; ++i) {
        at = strchr(at, static_cast<int>(delimiter));
        *at++ = '\0';
        tokens[i] = at;
    }
    *tokenizer = object.release();
    return 0;
}

cu_ErrorCode cu_StringTokenizer_getNumTokens(const cu_StringTokenizer* tokenizer, uint32_t* count)
{
    CU_REQUIRE(tokenizer != nullptr);
    CU_REQUIRE(count != nullptr);
    *count = tokenizer->count;
    return 0;
}

cu_ErrorCode cu_StringTokenizer_getToken(const cu_StringTokenizer* tokenizer, uint32_t index, const char** token)
{
    CU_REQUIRE(tokenizer != nullptr);
    // Compatibility: the result is checked before the index, although it follows it.
    CU_REQUIRE(token != nullptr);
    CU_REQUIRE(index < tokenizer->count);
    *token = tokenizer->tokens()[index];
    return 0;
}

cu_ErrorCode cu_StringTokenizer_delete(cu_StringTokenizer** tokenizer)
{
    CU_REQUIRE(tokenizer != nullptr);
    CU_REQUIRE(*tokenizer != nullptr);
    char* copy = (*tokenizer)->tokens()[0];
    CU_TRY(internal::freeObject(tokenizer));
    return cu_safeFreeImpl(copy);
}
