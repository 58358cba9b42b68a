// The server's side of the network: requests and answers.
#pragma once

#include "history.h"
#include "protocol.h"

#include <cUtil/network/msgServer.h>

#include <chrono>
#include <cstdint>
#include <map>

namespace telemetry
{

/// Answers any number of watchers. The library's thread moves the bytes and lets none of them keep others waiting.
class Service
{
public:
    Service() = default;
    Service(const Service&) = delete;
    Service& operator=(const Service&) = delete;
    ~Service();

    /// @return whether watchers can connect; if not, the reason is told
    [[nodiscard]] bool start(uint32_t address, uint16_t port);

    /// Answers the requests that have come. @return 0, or the library's code
    [[nodiscard]] cu_ErrorCode answer(const History& history);

    uint64_t answers() const { return answers_; } ///< Given so far.

private:
    using Clock = std::chrono::steady_clock;

    cu_ErrorCode answerOne(const History& history);
    void forgetWhoIsSilent();

    cu_MSGServer* server_ = nullptr;
    Message message_;
    std::map<uint32_t, Clock::time_point> watchers_; // by their endpoints: when they asked last
    uint64_t answers_ = 0;
};

} // namespace telemetry
