// What watchers and the server say to each other, as payloads of messages:
//
//   request  how many seconds of history are wanted
//   answer   the number of properties; of each its name (length, characters) and its value
//   value    its type and then: 64 bits; or, of a list, the number of elements and each of them as a value
//
// Numbers, types and lengths have 32 bits; what is longer than a byte comes with its most significant byte first.
#pragma once

#include "properties.h"

#include <cUtil/network/message.h>

#include <cstdint>
#include <memory>

namespace telemetry
{

struct DeleteMessage {
    void operator()(cu_Message* message) const { cu_Message_delete(&message); }
};
using Message = std::unique_ptr<cu_Message, DeleteMessage>;

/// Makes an empty message. @return 0, or the library's code
[[nodiscard]] cu_ErrorCode makeMessage(Message& message);

/// Each makes @p message hold nothing else. @return 0, or the library's code
/// @{
[[nodiscard]] cu_ErrorCode writeRequest(const Message& message, uint32_t seconds);
[[nodiscard]] cu_ErrorCode writeAnswer(const Message& message, const Properties& properties);
/// @}

/// Each trusts nothing that has come. @return 0, or the library's code, also for what is no request, or no answer
/// @{
[[nodiscard]] cu_ErrorCode readRequest(const Message& message, uint32_t& seconds);
[[nodiscard]] cu_ErrorCode readAnswer(const Message& message, Properties& properties);
/// @}

} // namespace telemetry
