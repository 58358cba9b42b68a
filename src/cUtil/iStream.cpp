#include <cUtil/iStream.h>

#include "internal/report.h"

static_assert(offsetof(cu_IStream, context) == 0 && offsetof(cu_IStream, write) == sizeof(void*));
static_assert(offsetof(cu_IStream, read) == 2 * sizeof(void*) &&
              offsetof(cu_IStream, hasSpaceFor) == 3 * sizeof(void*));
static_assert(offsetof(cu_IStream, hasData) == 4 * sizeof(void*) &&
              offsetof(cu_IStream, flushWrite) == 5 * sizeof(void*));
static_assert(offsetof(cu_IStream, destruct) == 6 * sizeof(void*) && sizeof(cu_IStream) == 7 * sizeof(void*));

cu_ErrorCode cu_IStream_write(const cu_IStream* stream, const void* bytes, uint32_t count)
{
    CU_REQUIRE(stream != nullptr && stream->write != nullptr);
    return stream->write(stream->context, bytes, count);
}

cu_ErrorCode cu_IStream_read(const cu_IStream* stream, void* destination, uint32_t count)
{
    CU_REQUIRE(stream != nullptr && stream->read != nullptr);
    return stream->read(stream->context, destination, count);
}

cu_ErrorCode cu_IStream_hasSpaceFor(const cu_IStream* stream, uint32_t count, bool* hasSpace)
{
    CU_REQUIRE(stream != nullptr && stream->hasSpaceFor != nullptr);
    return stream->hasSpaceFor(stream->context, count, hasSpace);
}

cu_ErrorCode cu_IStream_hasData(const cu_IStream* stream, uint32_t timeoutUs, bool* hasData)
{
    CU_REQUIRE(stream != nullptr && stream->hasData != nullptr);
    return stream->hasData(stream->context, timeoutUs, hasData);
}

cu_ErrorCode cu_IStream_flushWrite(const cu_IStream* stream)
{
    CU_REQUIRE(stream != nullptr && stream->flushWrite != nullptr);
    return stream->flushWrite(stream->context);
}

cu_ErrorCode cu_IStream_destruct(const cu_IStream* stream)
{
    CU_REQUIRE(stream != nullptr && stream->destruct != nullptr);
    return stream->destruct(stream->context);
}
