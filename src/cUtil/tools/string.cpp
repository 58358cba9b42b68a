#include <cUtil/tools/string.h>

#include "internal/owned.h"

#include <cUtil/tools/safeStringOps.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

// The length and the capacity follow old rules, under which formatting leaves a length that is not that of the text,
// and a failed reallocation a capacity that is not there. What is true stands beside them.
struct cu_String {
    cu_allocator* allocator;
    uint32_t length;
    uint32_t capacity;
    char* buffer;        // NUL-terminated at buffer[textLength]
    uint32_t held;       // bytes that the buffer has; above length and textLength
    uint32_t textLength; // characters of the text
    bool onSharedHeap;
};

static_assert(offsetof(cu_String, allocator) == 0 && offsetof(cu_String, length) == sizeof(void*));
static_assert(offsetof(cu_String, capacity) == sizeof(void*) + 4 && offsetof(cu_String, buffer) == sizeof(void*) + 8);

namespace
{

constexpr uint32_t firstCapacity = 256;

// A text on its way into a string, with the length that the string is to record for it.
struct Source {
    const char* text;
    std::size_t textLength;
    std::size_t length;
};

Source sourceOf(const char* text)
{
    const std::size_t length = strlen(text);
    return {text, length, length};
}

Source sourceOf(const cu_String* string)
{
    return {string->buffer, string->textLength, string->length};
}

// The bytes that two lengths, of which one may be stale, ask for.
uint64_t roomFor(uint64_t length, uint64_t textLength)
{
    return std::max(length, textLength) + 1;
}

cu_ErrorCode create(cu_String** string, const Source& source, uint32_t capacity, cu_allocator* allocator)
{
    internal::Owned<cu_String> object;
    if (const cu_ErrorCode code = object.allocate(allocator); code != 0)
        return code;

    const auto held = static_cast<uint32_t>(std::max<uint64_t>(capacity, roomFor(source.length, source.textLength)));
    void* buffer = nullptr;
    if (const cu_ErrorCode code = cu_allocator_alloc(object->allocator, &buffer, held); code != 0)
        return code;
    object->length = static_cast<uint32_t>(source.length);
    object->capacity = capacity;
    object->buffer = static_cast<char*>(buffer);
    object->held = held;
    object->textLength = static_cast<uint32_t>(source.textLength);
    object->onSharedHeap = object->allocator == cu_allocator_malloc_get();
    memcpy(buffer, source.text, source.textLength);
    object->buffer[source.textLength] = '\0';
    *string = object.release();
    return 0;
}

void empty(cu_String* me)
{
    me->buffer[0] = '\0';
    me->length = me->textLength = 0;
}

// Changes the size of the buffer; the lengths keep within it.
cu_ErrorCode resize(cu_String* me, uint32_t size)
{
    if (const cu_ErrorCode code = internal::resizeArray(me->allocator, &me->buffer, size); code != 0)
        return code;
    me->held = size;
    if (me->textLength >= size) {
        me->textLength = size - 1;
        me->buffer[me->textLength] = '\0';
    }
    me->length = std::min(me->length, size - 1);
    return 0;
}

bool liesIn(const cu_String* me, const char* text)
{
    return reinterpret_cast<uintptr_t>(text) - reinterpret_cast<uintptr_t>(me->buffer) < me->held;
}

void recordLengths(cu_String* me, uint64_t textLength, uint64_t length)
{
    me->buffer[textLength] = '\0';
    me->textLength = static_cast<uint32_t>(textLength);
    me->length = static_cast<uint32_t>(std::min<uint64_t>(length, me->held - 1));
}

// False when 32 bits cannot say how long the result is; nothing has changed then.
inline bool assign(cu_String* me, Source source)
{
    const uint64_t need = source.length + uint64_t{1};
    const uint64_t room = roomFor(source.length, source.textLength);
    if (room > UINT32_MAX)
        return false;

    const bool inside = liesIn(me, source.text);
    if (inside) { // before the buffer moves or shrinks
        memmove(me->buffer, source.text, source.textLength);
        recordLengths(me, source.textLength, source.length);
    }
    if (me->capacity < need) {
        // Compatibility: the capacity is recorded whether or not the memory could be had.
        resize(me, static_cast<uint32_t>(room));
        me->capacity = static_cast<uint32_t>(need);
    } else if (me->held < room) {
        resize(me, static_cast<uint32_t>(room));
    }
    if (inside)
        return true;
    const std::size_t copied = std::min<std::size_t>(source.textLength, me->held - 1);
    memcpy(me->buffer, source.text, copied);
    recordLengths(me, copied, source.length);
    return true;
}

// Makes room for more text, and gives the text to append where it then lies. An allocator of the application is asked
// for exactly what the rules say. Nobody sees what the shared heap is asked for: there the buffer grows ahead of the
// text, so that a text of many pieces is not reallocated for each of them.
[[gnu::noinline]] const char* makeRoom(cu_String* me, uint32_t room, const char* text)
{
    const bool inside = liesIn(me, text);
    const std::size_t at = inside ? static_cast<std::size_t>(text - me->buffer) : 0;
    const uint32_t ahead = room < UINT32_MAX / 2 ? room + room / 2 : room;
    if (void* block = me->onSharedHeap ? realloc(me->buffer, ahead) : nullptr; block != nullptr) {
        me->buffer = static_cast<char*>(block);
        me->held = ahead;
    } else {
        resize(me, room);
    }
    return inside ? me->buffer + at : text;
}

// False when 32 bits cannot say how long the result is; nothing has changed then.
inline bool append(cu_String* me, Source source)
{
    const uint64_t length = me->length + uint64_t{source.length};
    const uint64_t room = roomFor(length, me->textLength + uint64_t{source.textLength});
    if (room > UINT32_MAX) [[unlikely]]
        return false;

    const bool ruled = length + 1 >= me->capacity;
    if (room > me->held || (ruled && !me->onSharedHeap))
        source.text = makeRoom(me, static_cast<uint32_t>(room), source.text);
    // Compatibility: a need that equals the capacity reallocates too, and the capacity is recorded whether or not the
    // memory could be had.
    if (ruled)
        me->capacity = static_cast<uint32_t>(length + 1);
    const std::size_t copied = std::min<std::size_t>(source.textLength, me->held - 1 - me->textLength);
    memmove(me->buffer + me->textLength, source.text, copied); // what replace() has cut off may lie just behind
    recordLengths(me, me->textLength + copied, length);
    return true;
}

[[gnu::format(printf, 3, 0)]] int formatInto(cu_String* me, uint32_t size, const char* format, va_list arguments)
{
    const int result = vsnprintf(me->buffer, size, format, arguments);
    if (result < 0)
        me->buffer[size - 1] = '\0'; // whatever a failed format leaves
    me->textLength = static_cast<uint32_t>(strlen(me->buffer));
    return result;
}

} // namespace

cu_ErrorCode cu_String_new(cu_String** string, cu_allocator* allocator)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(*string == nullptr);
    CU_TRY(create(string, {"", 0, 0}, firstCapacity, allocator));
    return 0;
}

cu_ErrorCode cu_String_clone(cu_String** string, const cu_String* source, cu_allocator* allocator)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(*string == nullptr);
    CU_REQUIRE(source != nullptr);
    CU_TRY(create(string, sourceOf(source), source->capacity, allocator));
    return 0;
}

cu_ErrorCode cu_String_cloneStr(cu_String** string, const char* text, cu_allocator* allocator)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(*string == nullptr);
    CU_REQUIRE(text != nullptr);
    const Source source = sourceOf(text);
    if (source.length >= UINT32_MAX)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    // Compatibility: the capacity of a long text is its length, one less than the buffer has.
    CU_TRY(create(string, source, std::max(firstCapacity, static_cast<uint32_t>(source.length)), allocator));
    return 0;
}

cu_ErrorCode cu_String_delete(cu_String** string)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(*string != nullptr);
    CU_TRY(internal::freeArray((*string)->allocator, &(*string)->buffer));
    CU_TRY(internal::freeObject(string));
    return 0;
}

const char* cu_String_get(const cu_String* string)
{
    return string != nullptr ? string->buffer : nullptr;
}

cu_ErrorCode cu_String_clear(cu_String* string)
{
    CU_REQUIRE(string != nullptr);
    empty(string);
    return 0;
}

cu_ErrorCode cu_String_squeeze(cu_String* string)
{
    CU_REQUIRE(string != nullptr);
    const uint32_t capacity = string->length + 1;
    // Compatibility: the capacity is recorded whether or not the memory could be had.
    resize(string, capacity);
    string->capacity = capacity;
    return 0;
}

cu_ErrorCode cu_String_grow(cu_String* string, uint32_t capacity)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(capacity != 0);
    // Compatibility: growing empties the string, and the capacity is recorded whether or not the memory could be had.
    if (capacity > string->capacity) {
        resize(string, capacity);
        string->capacity = capacity;
    }
    empty(string);
    return 0;
}

cu_ErrorCode cu_String_assign(cu_String* string, const cu_String* source)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(source != nullptr);
    return assign(string, sourceOf(source)) ? 0 : CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
}

cu_ErrorCode cu_String_assignStr(cu_String* string, const char* text)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(text != nullptr);
    return assign(string, sourceOf(text)) ? 0 : CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
}

cu_ErrorCode cu_String_append(cu_String* string, const cu_String* source)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(source != nullptr);
    return append(string, sourceOf(source)) ? 0 : CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
}

cu_ErrorCode cu_String_appendStr(cu_String* string, const char* text)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(text != nullptr);
    return append(string, sourceOf(text)) ? 0 : CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
}

cu_ErrorCode cu_String_format(cu_String* string, const char* format, ...)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(format != nullptr);
    va_list arguments;
    va_start(arguments, format);
    const cu_ErrorCode code = cu_String_vaFormat(string, format, arguments);
    va_end(arguments);
    CU_TRY(code);
    return 0;
}

cu_ErrorCode cu_String_vaFormat(cu_String* string, const char* format, va_list arguments)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(format != nullptr);

    // Compatibility: the length stays that of the text before.
    va_list attempt;
    va_copy(attempt, arguments);
    int result = formatInto(string, std::min(string->capacity, string->held), format, attempt);
    va_end(attempt);
    if (result < 0)
        return CU_REPORT(cu_ERROR_TRUNCATION_DETECTED, 0, "vsnprintf failed with '%d'", result);
    const auto length = static_cast<uint32_t>(result);
    if (length < string->capacity && length < string->held)
        return 0;

    // Compatibility: the second attempt gets one byte less than the text needs, so that its last character is lost and
    // the call fails. Not so where the text is within the capacity as recorded, which a failed reallocation left
    // behind.
    const uint32_t size = length < string->capacity ? length + 1 : length;
    CU_TRY(resize(string, length + 1));
    string->capacity = std::max(string->capacity, length);
    result = formatInto(string, size, format, arguments);
    if (result < 0)
        return CU_REPORT(cu_ERROR_TRUNCATION_DETECTED, 0, "vsnprintf failed with '%d'", result);
    if (static_cast<uint32_t>(result) < size)
        return 0;
    return CU_REPORT(cu_ERROR_COM_INVARIANT, 0, nullptr);
}

cu_ErrorCode cu_String_count(const cu_String* string, uint32_t character, uint32_t* count)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(count != nullptr);
    CU_TRY(cu_str_count(string->buffer, character, count));
    return 0;
}

cu_ErrorCode cu_String_compare(const cu_String* a, const cu_String* b, int32_t* result)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    CU_REQUIRE(result != nullptr);
    *result = strcmp(a->buffer, b->buffer);
    return 0;
}

cu_ErrorCode cu_String_compareStr(const cu_String* a, const char* text, int32_t* result)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(result != nullptr);
    *result = strcmp(a->buffer, text);
    return 0;
}

cu_ErrorCode cu_String_equals(const cu_String* a, const cu_String* b, bool* equal)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    CU_REQUIRE(equal != nullptr);
    // Compatibility: equal texts of different recorded lengths are not equal.
    *equal = a->length == b->length && strcmp(a->buffer, b->buffer) == 0;
    return 0;
}

cu_ErrorCode cu_String_equalsStr(const cu_String* a, const char* text, bool* equal)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(text != nullptr);
    CU_REQUIRE(equal != nullptr);
    *equal = strcmp(a->buffer, text) == 0;
    return 0;
}

cu_ErrorCode cu_String_createCString(const cu_String* string, char** copy)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(copy != nullptr);
    *copy = strdup(string->buffer);
    // Compatibility: this failure is not reported.
    return *copy != nullptr ? 0 : cu_ERROR_COM_MALLOC_FAILED;
}

cu_ErrorCode cu_String_replace(cu_String* string, uint32_t from, uint32_t to)
{
    CU_REQUIRE(string != nullptr);
    const char replacement = static_cast<char>(to);
    for (uint32_t at = 0; at < string->textLength; ++at) {
        if (static_cast<unsigned char>(string->buffer[at]) == from)
            string->buffer[at] = replacement;
    }
    if (replacement == '\0')
        string->length = string->textLength = static_cast<uint32_t>(strlen(string->buffer));
    return 0;
}
