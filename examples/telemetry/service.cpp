#include "service.h"

#include "messages.h"

#include <cUtil/logger/logger.h>

#include <cinttypes>

namespace telemetry
{

namespace
{

using namespace std::chrono_literals;

constexpr int mostAtOnce = 100;  // answers between two looks for records
constexpr auto longSilence = 3s; // of a watcher that has gone

} // namespace

Service::~Service()
{
    if (server_ == nullptr)
        return;
    if (const cu_ErrorCode code = cu_MSGServer_delete(&server_); code != 0)
        static_cast<void>(failByRecord(code, "ending the service"));
}

bool Service::start(uint32_t address, uint16_t port)
{
    cu_ErrorCode code = makeMessage(message_);
    if (code == 0)
        code = cu_MSGServer_new(&server_, address, port, nullptr);
    if (code != 0)
        static_cast<void>(failByRecord(code, "starting the service"));
    return code == 0;
}

cu_ErrorCode Service::answer(const History& history)
{
    bool waits = true;
    cu_ErrorCode code = 0;
    for (int i = 0; i < mostAtOnce && waits && code == 0; ++i) {
        constexpr uint32_t soon = 1; // microsecond; 0 would be without limit
        code = cu_Selectable_waitReadReady(cu_MSGServer_getSelectable(server_), soon, &waits);
        if (code == 0 && waits)
            code = answerOne(history);
    }
    forgetWhoIsSilent();
    return code;
}

cu_ErrorCode Service::answerOne(const History& history)
{
    uint32_t endpoint = 0;
    uint32_t seconds = 0;
    cu_ErrorCode code = cu_MSGServer_receive(server_, &endpoint, message_.get());
    if (code != 0)
        return code;
    if (readRequest(message_, seconds) != 0) {
        cu_Logger_formattedLog(cu_logger_LEVEL_WARNING, "endpoint %" PRIu32 " sent something that is no request",
                               endpoint);
        return 0;
    }
    if (watchers_.insert_or_assign(endpoint, Clock::now()).second)
        cu_Logger_formattedLog(cu_logger_LEVEL_INFO, "watcher %" PRIu32 " has come, %zu there", endpoint,
                               watchers_.size());
    Properties told = history.tell(seconds);
    told.set("watchers", cu_Variant_set_uint64, watchers_.size());
    code = writeAnswer(message_, told);
    if (code == 0)
        code = cu_MSGServer_send(server_, endpoint, message_.get());
    answers_ += code == 0 ? 1 : 0;
    return code;
}

// The library tells nobody that a connection has ended.
void Service::forgetWhoIsSilent()
{
    const Clock::time_point now = Clock::now();
    std::erase_if(watchers_, [&](const auto& watcher) {
        const bool gone = now - watcher.second > longSilence;
        if (gone)
            cu_Logger_formattedLog(cu_logger_LEVEL_INFO, "watcher %" PRIu32 " has gone", watcher.first);
        return gone;
    });
}

} // namespace telemetry
