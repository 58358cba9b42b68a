// What a message server and its clients exchange.
#pragma once

#include <cstdint>
#include <netinet/in.h>

namespace cu::internal
{

/// A frame's head, each word with its most significant byte first. So many bytes follow as `length` tells.
struct FrameHead {
    static constexpr uint32_t rightMagic = 0x42D53371;
    static constexpr uint32_t rightVersion = 1;

    uint32_t magic = htonl(rightMagic);
    uint32_t version = htonl(rightVersion);
    uint32_t length = 0;

    bool hasRightMagic() const { return magic == htonl(rightMagic); }
    bool hasRightVersion() const { return version == htonl(rightVersion); }
};
static_assert(sizeof(FrameHead) == 12);

/// The head of what goes through a server's pipe, where the number of the endpoint stands for magic and version.
struct RecordHead {
    uint32_t endpoint; ///< in the byte order of the machine
    uint32_t length;   ///< most significant byte first
};
static_assert(sizeof(RecordHead) == 8);

} // namespace cu::internal
