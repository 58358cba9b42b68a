#include <cUtil/bufferStream.h>

#include "internal/report.h"

namespace
{

cu_ErrorCode cu_BufferStream_write(void* context, const void* bytes, uint32_t count)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(bytes != nullptr);
    bool done = false;
    CU_TRY(cu_RingBuffer_put(static_cast<cu_RingBuffer*>(context), bytes, count, &done));
    return done ? 0 : CU_REPORT(cu_ERROR_BUFFER_OVERRUN, 0, nullptr);
}

cu_ErrorCode cu_BufferStream_read(void* context, void* destination, uint32_t count)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(destination != nullptr);
    bool done = false;
    CU_TRY(cu_RingBuffer_get(static_cast<cu_RingBuffer*>(context), destination, count, &done));
    // Compatibility: the code is the one of a write.
    return done ? 0 : CU_REPORT(cu_ERROR_BUFFER_OVERRUN, 0, nullptr);
}

cu_ErrorCode cu_BufferStream_hasSpaceFor(void* context, uint32_t count, bool* hasSpace)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(hasSpace != nullptr);
    uint32_t free = 0;
    CU_TRY(cu_RingBuffer_putAvailable(static_cast<cu_RingBuffer*>(context), &free));
    *hasSpace = count < free; // Compatibility: there is no space for as many as are free.
    return 0;
}

cu_ErrorCode cu_BufferStream_hasData(void* context, uint32_t, bool* hasData)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(hasData != nullptr);
    uint32_t used = 0;
    CU_TRY(cu_RingBuffer_getAvailable(static_cast<cu_RingBuffer*>(context), &used));
    *hasData = used != 0; // Compatibility: without waiting, whatever the time-out.
    return 0;
}

cu_ErrorCode cu_BufferStream_flushWrite(void* context)
{
    CU_REQUIRE(context != nullptr);
    return 0;
}

cu_ErrorCode cu_BufferStream_destruct(void* context)
{
    CU_REQUIRE(context != nullptr);
    auto* ringBuffer = static_cast<cu_RingBuffer*>(context);
    CU_TRY(cu_RingBuffer_delete(&ringBuffer));
    return 0;
}

} // namespace

cu_ErrorCode cu_BufferStream_new(cu_IStream* stream, cu_RingBuffer* ringBuffer)
{
    CU_REQUIRE(stream != nullptr && ringBuffer != nullptr);
    *stream = {ringBuffer,
               cu_BufferStream_write,
               cu_BufferStream_read,
               cu_BufferStream_hasSpaceFor,
               cu_BufferStream_hasData,
               cu_BufferStream_flushWrite,
               cu_BufferStream_destruct};
    return 0;
}
