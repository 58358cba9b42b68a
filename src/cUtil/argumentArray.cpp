#include <cUtil/argumentArray.h>

#include "internal/owned.h"
#include "internal/rollback.h"

struct cu_ArgumentArray {
    cu_allocator* allocator;
    uint32_t count;
    char** argv; // count + 1 of them, the last one null
};

namespace
{

cu_ErrorCode resize(cu_ArgumentArray* me, uint32_t slots)
{
    return internal::resizeArray(me->allocator, &me->argv, slots);
}

} // namespace

cu_ErrorCode cu_ArgumentArray_new(cu_ArgumentArray** array, cu_allocator* allocator)
{
    CU_REQUIRE(array != nullptr);
    CU_REQUIRE(*array == nullptr);

    internal::Owned<cu_ArgumentArray> object;
    CU_TRY(object.allocate(allocator));
    void* argv = nullptr;
    CU_TRY(cu_allocator_alloc(object->allocator, &argv, sizeof(char*)));
    object->argv = static_cast<char**>(argv);
    object->argv[0] = nullptr;
    *array = object.release();
    return 0;
}

cu_ErrorCode cu_ArgumentArray_addCString(cu_ArgumentArray* array, const char* s)
{
    CU_REQUIRE(array != nullptr);
    CU_REQUIRE(s != nullptr && *s != '\0');

    const std::size_t length = strlen(s);
    if (length >= UINT32_MAX || array->count >= UINT32_MAX / sizeof(char*) - 1)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    CU_TRY(resize(array, array->count + 2));
    void* word = nullptr;
    cu_ErrorCode code = cu_allocator_alloc(array->allocator, &word, static_cast<uint32_t>(length + 1));
    if (code != 0) {
        array->argv[array->count] = nullptr;
        // The record tells of the last failure.
        if (const cu_ErrorCode again = resize(array, array->count + 1); again != 0)
            code = again;
        CU_TRY(code);
    }
    memcpy(word, s, length + 1);
    array->argv[array->count++] = static_cast<char*>(word);
    array->argv[array->count] = nullptr;
    return 0;
}

cu_ErrorCode cu_ArgumentArray_add(cu_ArgumentArray* array, const cu_String* s)
{
    CU_REQUIRE(array != nullptr);
    CU_REQUIRE(s != nullptr);
    CU_TRY(cu_ArgumentArray_addCString(array, cu_String_get(s)));
    return 0;
}

cu_ErrorCode cu_ArgumentArray_get(const cu_ArgumentArray* array, char*** argv, uint32_t* count)
{
    CU_REQUIRE(array != nullptr);
    CU_REQUIRE(argv != nullptr);
    CU_REQUIRE(count != nullptr);
    *argv = array->argv;
    *count = array->count;
    return 0;
}

cu_ErrorCode cu_ArgumentArray_clear(cu_ArgumentArray* array)
{
    CU_REQUIRE(array != nullptr);
    CU_TRY(internal::freeTexts(array->argv, &array->count, array->allocator));
    CU_TRY(resize(array, 1));
    return 0;
}

cu_ErrorCode cu_ArgumentArray_delete(cu_ArgumentArray** array)
{
    CU_REQUIRE(array != nullptr);
    CU_REQUIRE(*array != nullptr);
    CU_TRY(internal::freeTexts((*array)->argv, &(*array)->count, (*array)->allocator));
    CU_TRY(internal::freeArray((*array)->allocator, &(*array)->argv));
    CU_TRY(internal::freeObject(array));
    return 0;
}

cu_ErrorCode cu_ArgumentArray_parse(cu_ArgumentArray* array, const char* line)
{
    CU_REQUIRE(array != nullptr);
    CU_REQUIRE(line != nullptr);

    const std::size_t length = strlen(line);
    if (length >= UINT32_MAX)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    void* block = nullptr; // no word is longer than the line
    CU_TRY(cu_allocator_alloc(array->allocator, &block, static_cast<uint32_t>(length + 1)));
    CU_ROLLBACK(release, cu_allocator_free(array->allocator, &block));

    char* const word = static_cast<char*>(block);
    char* end = word;
    char quote = '\0'; // the one that is open
    for (;; ++line) {
        const char c = *line;
        if (quote == '\0' && (c == ' ' || c == '\0')) {
            *end = '\0';
            if (end != word)
                CU_TRY(cu_ArgumentArray_addCString(array, word));
            if (c == '\0')
                return 0;
            end = word;
        } else if (quote == '\0' && (c == '"' || c == '\'')) {
            quote = c;
        } else if (c == quote) {
            quote = '\0';
        } else {
            CU_REQUIRE(c != '\0'); // within quotes
            *end++ = c;
        }
    }
}
