// The head of a log record on the wire; the text with its NUL follows.
#pragma once

#include <arpa/inet.h>

#include <cstdint>

namespace cu::internal
{

struct LogRecordHead {
    uint32_t level;  // most significant byte first, like the next
    uint32_t length; // of the text with its NUL
};
static_assert(sizeof(LogRecordHead) == 8);

} // namespace cu::internal
