// Adapters for tests.
#pragma once

#include "support/pinned.h"
#include "support/refusal.h"

#include <cUtil/logger/logger.h>

#include <gtest/gtest.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace support
{

/// An adapter of the application's that keeps its lines as "level text". It outlives its own end as an adapter, so that
/// a test sees what came before; where its scope ends, it is no longer added.
class Recorder : Pinned
{
public:
    explicit Recorder(const char* name = nullptr, uint32_t level = 3)
    {
        EXPECT_TRUE(name == nullptr || cu_Logger_addAdapter(name, get(), level) == 0);
    }
    ~Recorder()
    {
        lastAnswer = 0;
        lastAct = nullptr;
        EXPECT_TRUE(adapter_.name == nullptr || cu_Logger_removeAdapter(std::string(adapter_.name).c_str()) == 0);
    }

    cu_logger_Adapter* get() { return &adapter_; }

    std::vector<std::string> lines() const
    {
        const std::lock_guard guard(mutex_);
        return lines_;
    }

    std::vector<std::string> take()
    {
        const std::lock_guard guard(mutex_);
        return std::exchange(lines_, {});
    }

    cu_ErrorCode answer = 0;                               ///< to each line, with a report
    cu_ErrorCode lastAnswer = 0;                           ///< to its end
    bool ended = false;                                    ///< no line may come any more
    std::function<void(uint32_t, const std::string&)> act; ///< at each line, in the logging thread
    std::function<void()> lastAct;                         ///< at its end

private:
    static cu_ErrorCode report(cu_ErrorCode code, const char* function, const char* text)
    {
        if (code != 0)
            cu_Error_report(cu_getErrorLocation(), code, 0, function, 1, "recorder", "%s", text);
        return code;
    }

    static cu_ErrorCode logMessage(void* context, uint32_t level, const char* text)
    {
        auto* me = static_cast<Recorder*>(context);
        EXPECT_FALSE(me->ended) << text;
        {
            const std::lock_guard guard(me->mutex_);
            me->lines_.push_back(std::to_string(level) + " " + text);
        }
        if (me->act)
            me->act(level, text);
        return report(me->answer, "logMessage", text);
    }

    static cu_ErrorCode destruct(void* context)
    {
        auto* me = static_cast<Recorder*>(context);
        EXPECT_FALSE(me->ended);
        me->ended = me->lastAnswer == 0;
        if (me->lastAct)
            me->lastAct();
        return report(me->lastAnswer, "destruct", "");
    }

    cu_logger_Adapter adapter_ = {nullptr, this, 0, nullptr, logMessage, destruct};
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};

/// The adapter's functions refuse what is null, by names that begin alike.
inline void expectRefusals(const cu_logger_Adapter* adapter, const std::string& prefix, const char* file)
{
    expectNullsRefused(prefix + "logMessage", file, std::tuple(adapter->context, "text"), adapter->logMessage);
    expectNullsRefused(prefix + "destruct", file, std::tuple(adapter->context), adapter->destruct);
}

} // namespace support
