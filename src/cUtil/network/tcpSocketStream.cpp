#include <cUtil/network/tcpSocketStream.h>

#include "internal/report.h"

namespace
{

cu_ErrorCode cu_TCPSocketStream_write(void* context, const void* bytes, uint32_t count)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(bytes != nullptr);
    CU_TRY(cu_TCPSocket_send(static_cast<cu_TCPSocket*>(context), bytes, count, false));
    return 0;
}

cu_ErrorCode cu_TCPSocketStream_read(void* context, void* destination, uint32_t count)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(destination != nullptr);
    CU_TRY(cu_TCPSocket_receive(static_cast<cu_TCPSocket*>(context), destination, count));
    return 0;
}

cu_ErrorCode cu_TCPSocketStream_hasSpaceFor(void* context, uint32_t, bool* hasSpace)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(hasSpace != nullptr);
    *hasSpace = true;
    return 0;
}

cu_ErrorCode cu_TCPSocketStream_hasData(void* context, uint32_t timeoutUs, bool* hasData)
{
    CU_REQUIRE(context != nullptr);
    CU_REQUIRE(hasData != nullptr);
    const cu_Selectable* selectable = cu_TCPSocket_getSelectable(static_cast<cu_TCPSocket*>(context));
    CU_TRY(cu_Selectable_waitReadReady(selectable, timeoutUs, hasData));
    return 0;
}

cu_ErrorCode cu_TCPSocketStream_flushWrite(void* context)
{
    CU_REQUIRE(context != nullptr);
    return 0;
}

cu_ErrorCode cu_TCPSocketStream_destruct(void* context)
{
    CU_REQUIRE(context != nullptr);
    auto* socket = static_cast<cu_TCPSocket*>(context);
    CU_TRY(cu_TCPSocket_delete(&socket));
    return 0;
}

} // namespace

cu_ErrorCode cu_TCPSocketStream_new(cu_IStream* stream, cu_TCPSocket* socket)
{
    CU_REQUIRE(stream != nullptr && socket != nullptr);
    *stream = {socket,
               cu_TCPSocketStream_write,
               cu_TCPSocketStream_read,
               cu_TCPSocketStream_hasSpaceFor,
               cu_TCPSocketStream_hasData,
               cu_TCPSocketStream_flushWrite,
               cu_TCPSocketStream_destruct};
    return 0;
}
