// This program again, as a child process.
#pragma once

#include "processorTime.h"

#include <cUtil/process.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace telemetry
{

/// How a child has ended.
struct Ending {
    bool inOrder;     ///< With status 0, or by the request to end.
    std::string text; ///< Such as "ended with status 1".
};

/// Runs one command of this program, once or again and again. The child is not there any more when this ends.
class Child
{
public:
    /// @param role   what messages call it
    /// @param words  the command with its options
    Child(const char* role, std::vector<std::string> words) : role_(role), words_(std::move(words)) {}

    const char* role() const { return role_; }
    uint32_t starts() const { return starts_; }

    /// @return whether it runs; if not, the reason is told
    [[nodiscard]] bool start();
    bool isRunning() const;

    /// How it ended, once it has; nothing while it runs, or when this was told already.
    std::optional<Ending> collect();

    void askToEnd();
    void stop(); ///< Kills it, unless it has ended already, and notes what it has used.

    /// Of all the runs that have ended.
    const ProcessorTime& processorTime() const { return used_; }

private:
    struct DeleteProcess {
        void operator()(cu_Process* process) const;
    };

    bool prepare();
    int number() const;

    const char* role_;
    std::vector<std::string> words_;
    std::unique_ptr<cu_Process, DeleteProcess> process_;
    uint32_t starts_ = 0;
    bool askedToEnd_ = false;
    ProcessorTime used_;
};

} // namespace telemetry
