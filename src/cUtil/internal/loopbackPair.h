// Two descriptors that are connected with each other over the loopback interface.
#pragma once

#include "internal/socket.h"

namespace cu::internal
{

struct LoopbackPair {
    Descriptor accepted{noDescriptor};
    Descriptor connecting{noDescriptor};
    sockaddr_in acceptedAddress = {};
    sockaddr_in connectingAddress = {};

    /// Gives 0 or the number of the system's error.
    int connect();
};

} // namespace cu::internal
