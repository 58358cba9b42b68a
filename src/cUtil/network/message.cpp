#include <cUtil/network/message.h>

#include "internal/owned.h"
#include "internal/rollback.h"

#include <cUtil/tools/safeMalloc.h>

#include <algorithm>
#include <bit>

struct cu_Message {
    cu_allocator* allocator;
    uint32_t size;
    uint32_t position;
    uint32_t capacity;
    uint8_t* data;
};

namespace
{

constexpr uint32_t leastCapacity = 64;
constexpr uint32_t growthStep = 4096; // doubled below it
constexpr uint32_t lengthSize = 4;

cu_ErrorCode setCapacity(cu_Message* me, uint32_t capacity)
{
    const cu_ErrorCode code = internal::resizeArray(me->allocator, &me->data, capacity);
    if (code == 0)
        me->capacity = capacity;
    return code;
}

// Makes room for so many bytes from the cursor on; `in` goes along when it lies in the message.
cu_ErrorCode makeRoom(cu_Message* me, uint64_t bytes, const uint8_t** in, internal::Place here)
{
    const uint64_t needed = me->position + bytes;
    if (needed <= me->capacity) [[likely]]
        return 0;
    if (needed > UINT32_MAX)
        return internal::report(cu_ERROR_COM_MALLOC_FAILED, 0, here, nullptr);
    uint64_t capacity = me->capacity;
    while (capacity < needed && capacity < growthStep)
        capacity *= 2;
    if (capacity < needed)
        capacity += (needed - capacity + growthStep - 1) / growthStep * growthStep;
    const auto offset = reinterpret_cast<uintptr_t>(*in) - reinterpret_cast<uintptr_t>(me->data);
    const bool isOwn = offset < me->capacity;
    CU_TRY_AT(here, setCapacity(me, static_cast<uint32_t>(std::min<uint64_t>(capacity, UINT32_MAX))));
    if (isOwn)
        *in = me->data + offset;
    return 0;
}

void endAt(cu_Message* me, uint32_t position)
{
    me->position = position;
    me->size = position;
}

// Puts a length and as many bytes, which may be the message's own: they go where they belong before the length does.
cu_ErrorCode writeCounted(cu_Message* me, const void* bytes, uint32_t n, internal::Place here)
{
    const auto* in = static_cast<const uint8_t*>(bytes);
    if (const cu_ErrorCode code = makeRoom(me, uint64_t{lengthSize} + n, &in, here); code != 0)
        return code;
    uint8_t* out = me->data + me->position;
    memmove(out + lengthSize, in, n);
    const uint32_t length = __builtin_bswap32(n);
    static_assert(std::endian::native == std::endian::little && sizeof(length) == lengthSize);
    memcpy(out, &length, sizeof(length));
    endAt(me, me->position + lengthSize + n);
    return 0;
}

// Reads a length, which must not exceed what follows it.
cu_ErrorCode readLength(cu_Message* me, uint32_t* length, internal::Place here)
{
    CU_TRY_AT(here, cu_Message_read(me, length, sizeof(*length)));
    *length = __builtin_bswap32(*length);
    return *length <= me->size - me->position ? 0 : internal::reportInvalidArgument(here);
}

bool holds(const cu_Message* me, uint32_t n)
{
    return n != 0 && me->position <= me->size && n <= me->size - me->position;
}

} // namespace

cu_ErrorCode cu_Message_new(cu_Message** msg, uint32_t capacity, cu_allocator* allocator)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(*msg == nullptr);

    internal::Owned<cu_Message> message;
    CU_TRY(message.allocate(allocator));
    void* data = nullptr;
    message->capacity = capacity != 0 ? capacity : leastCapacity;
    CU_TRY(cu_allocator_alloc(message->allocator, &data, message->capacity));
    message->data = static_cast<uint8_t*>(data);
    *msg = message.release();
    return 0;
}

cu_ErrorCode cu_Message_clone(cu_Message** dst, const cu_Message* src)
{
    CU_REQUIRE(dst != nullptr);
    CU_REQUIRE(*dst == nullptr);
    CU_REQUIRE(src != nullptr);

    CU_TRY(cu_Message_new(dst, src->capacity, src->allocator));
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): there is a message now
    memcpy((*dst)->data, src->data, src->size);
    (*dst)->size = src->size;
    (*dst)->position = src->position;
    return 0;
}

cu_ErrorCode cu_Message_delete(cu_Message** msg)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(*msg != nullptr);

    CU_MUST(internal::freeArray((*msg)->allocator, &(*msg)->data));
    CU_MUST(internal::freeObject(msg));
    return 0;
}

cu_ErrorCode cu_Message_get(const cu_Message* msg, uint8_t** data)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(data != nullptr);
    *data = msg->data;
    return 0;
}

cu_ErrorCode cu_Message_getSize(const cu_Message* msg, uint32_t* size)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(size != nullptr);
    *size = msg->size;
    return 0;
}

cu_ErrorCode cu_Message_tell(const cu_Message* msg, uint32_t* position)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(position != nullptr);
    *position = msg->position;
    return 0;
}

cu_ErrorCode cu_Message_seek(cu_Message* msg, uint32_t position)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(position <= msg->size);
    msg->position = position;
    return 0;
}

cu_ErrorCode cu_Message_read(cu_Message* msg, void* out, uint32_t n)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(holds(msg, n));
    memcpy(out, msg->data + msg->position, n);
    msg->position += n;
    return 0;
}

cu_ErrorCode cu_Message_peek(const cu_Message* msg, void* out, uint32_t n)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(out != nullptr);
    CU_REQUIRE(holds(msg, n));
    memcpy(out, msg->data + msg->position, n);
    return 0;
}

cu_ErrorCode cu_Message_write(cu_Message* msg, const void* in, uint32_t n)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(in != nullptr);
    CU_REQUIRE(n != 0);

    const auto* bytes = static_cast<const uint8_t*>(in);
    if (const cu_ErrorCode code = makeRoom(msg, n, &bytes, CU_HERE); code != 0)
        return code;
    memmove(msg->data + msg->position, bytes, n);
    // Compatibility: what followed the cursor is cut off.
    endAt(msg, msg->position + n);
    return 0;
}

cu_ErrorCode cu_Message_trim(cu_Message* msg)
{
    CU_REQUIRE(msg != nullptr);
    CU_TRY(setCapacity(msg, std::max(msg->size, leastCapacity)));
    return 0;
}

cu_ErrorCode cu_Message_reserve(cu_Message* msg, uint32_t n)
{
    CU_REQUIRE(msg != nullptr);
    if (msg->capacity < n)
        CU_TRY(setCapacity(msg, n));
    return 0;
}

cu_ErrorCode cu_Message_resize(cu_Message* msg, uint32_t n)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(n <= msg->capacity);
    msg->size = n;
    return 0;
}

cu_ErrorCode cu_Message_writeString(cu_Message* msg, const char* s)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(s != nullptr);
    const std::size_t length = strlen(s);
    CU_REQUIRE(length < UINT32_MAX);
    return writeCounted(msg, s, static_cast<uint32_t>(length), CU_HERE);
}

cu_ErrorCode cu_Message_readString(cu_Message* msg, char** s)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(s != nullptr);

    uint32_t length = 0;
    if (const cu_ErrorCode code = readLength(msg, &length, CU_HERE); code != 0)
        return code;
    CU_REQUIRE(length < UINT32_MAX);
    void* text = *s;
    CU_TRY(cu_safeRealloc(&text, length + 1));
    *s = static_cast<char*>(text);
    if (length != 0)
        CU_TRY(cu_Message_read(msg, text, length));
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): there is a text now
    (*s)[length] = '\0';
    return 0;
}

cu_ErrorCode cu_Message_writeMessage(cu_Message* msg, const cu_Message* inner)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(inner != nullptr);
    const uint32_t length = inner->size;
    CU_REQUIRE(length < UINT32_MAX);
    if (const cu_ErrorCode code = writeCounted(msg, inner->data, length, CU_HERE); code != 0)
        return code;
    // Compatibility: an empty message fails, behind its length.
    if (length == 0)
        CU_TRY(cu_Message_write(msg, inner->data, length));
    return 0;
}

cu_ErrorCode cu_Message_readMessage(cu_Message* msg, cu_Message** inner)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(inner != nullptr);
    CU_REQUIRE(*inner == nullptr);

    uint32_t length = 0;
    if (const cu_ErrorCode code = readLength(msg, &length, CU_HERE); code != 0)
        return code;
    cu_Message* nested = nullptr;
    CU_TRY(cu_Message_new(&nested, length, nullptr));
    CU_ROLLBACK(made, cu_Message_delete(&nested));
    // Compatibility: an empty one fails.
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): there is a message now
    CU_TRY(cu_Message_read(msg, nested->data, length));
    CU_TRY(cu_Message_resize(nested, length));
    made.dismiss();
    *inner = nested;
    return 0;
}

cu_ErrorCode cu_Message_writeVector(cu_Message* msg, const void* bytes, uint32_t n)
{
    CU_REQUIRE(msg != nullptr);
    CU_REQUIRE(bytes != nullptr);
    CU_REQUIRE(n != 0);
    CU_REQUIRE(n < UINT32_MAX);
    return writeCounted(msg, bytes, n, CU_HERE);
}

cu_ErrorCode cu_Message_compare(const cu_Message* a, const cu_Message* b, int32_t* result)
{
    CU_REQUIRE(a != nullptr);
    CU_REQUIRE(b != nullptr);
    CU_REQUIRE(result != nullptr);
    if (a->size != b->size)
        *result = a->size < b->size ? -1 : 1;
    else
        *result = memcmp(a->data, b->data, a->size);
    return 0;
}
