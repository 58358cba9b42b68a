// cutil log: what a process of the library logs over TCP, as it comes.
#include "address.h"
#include "interrupt.h"

#include <cUtil/errorCodes.h>
#include <cUtil/logger/consoleLoggingAdapter.h>
#include <cUtil/logger/tcpLoggingClient.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>

namespace cutil
{

namespace
{

constexpr char usage[] =
    "usage: cutil log watch HOST PORT [--level LEVEL]\n"
    "\n"
    "Prints what a process logs over TCP, with the time of its arrival, until the process ends or another\n"
    "viewer takes the place: there is one at a time. On a terminal levels have colours.\n"
    "\n"
    "  LEVEL  error, warning, info or debug: what is less severe is left out\n";

struct Level {
    std::string_view name;
    const char* colour;
};

constexpr Level levels[] = {{"error", "\033[31m"}, {"warning", "\033[33m"}, {"info", ""}, {"debug", "\033[2m"}};
constexpr char endOfColour[] = "\033[m";

bool isControl(unsigned char character)
{
    return character < ' ' || character == 127;
}

/// An adapter that hands on to the library's console adapter what is to be seen.
class View
{
public:
    /// @return null when there is no memory for it; the reason is told
    static cu_logger_Adapter* make(uint32_t level)
    {
        auto view = std::make_unique<View>(level);
        if (const cu_ErrorCode code = cu_logger_ConsoleLoggingAdapter_new(&view->console_, nullptr); code != 0) {
            static_cast<void>(failByRecord(code, "console"));
            return nullptr;
        }
        return &view.release()->adapter_;
    }

    explicit View(uint32_t level) : level_(level)
    {
        adapter_.context = this;
        adapter_.logMessage = show;
        adapter_.destruct = destruct;
        const char* terminal = getenv("TERM");
        isTerminal_ = isatty(STDOUT_FILENO) != 0 && terminal != nullptr && terminal != std::string_view("dumb");
    }

private:
    static cu_ErrorCode show(void* context, uint32_t level, const char* text)
    {
        auto* view = static_cast<View*>(context);
        if (level > view->level_)
            return 0;
        std::string visible = text;
        if (view->isTerminal_) { // which what another host sends must not steer
            std::replace_if(visible.begin(), visible.end(), isControl, '.');
            fputs(levels[level].colour, stdout);
        }
        const cu_ErrorCode code = cu_logger_Adapter_logMessage(view->console_, level, visible.c_str());
        if (view->isTerminal_) {
            fputs(endOfColour, stdout);
            fflush(stdout);
        }
        if (ferror(stdout) != 0)
            *runningFlag() = false; // told in the end
        return code;
    }

    static cu_ErrorCode destruct(void* context)
    {
        auto* view = static_cast<View*>(context);
        const cu_ErrorCode code = cu_logger_Adapter_destruct(&view->console_);
        if (code == 0)
            delete view;
        return code;
    }

    cu_logger_Adapter adapter_{};
    cu_logger_Adapter* console_ = nullptr;
    uint32_t level_;
    bool isTerminal_;
};

struct DeleteClient {
    void operator()(cu_logger_TCPLoggingClient* client) const { cu_logger_TCPLoggingClient_delete(&client); }
};

int watch(const Endpoint& endpoint, const char* host, uint32_t level)
{
    cu_logger_Adapter* view = View::make(level);
    if (view == nullptr)
        return failed;
    cu_logger_TCPLoggingClient* made = nullptr;
    cu_ErrorCode code = cu_logger_TCPLoggingClient_new(&made, view, endpoint.address, endpoint.port, nullptr);
    if (code != 0) {
        const int status = failByRecord(code, host);
        cu_logger_Adapter_destruct(&view);
        return status;
    }
    const std::unique_ptr<cu_logger_TCPLoggingClient, DeleteClient> client(made);
    catchInterrupts();
    code = cu_logger_TCPLoggingClient_run(client.get(), runningFlag());
    if (code == cu_ERROR_SOCKET_OTHER_SIDE_CLOSED)
        return fail("%s: the process has ended, or has another viewer", host);
    return code == 0 ? done : failByRecord(code, host);
}

constexpr Option options[] = {{"level", true}};

int run(const Arguments& arguments)
{
    if (arguments.size() != 3 || arguments[0] != std::string_view("watch"))
        return misuse(logCommand, "'watch', a host and a port are needed");
    const auto* level = std::end(levels) - 1;
    if (const char* word = arguments.valueOf('l'); word != nullptr)
        level = std::find_if(std::begin(levels), std::end(levels), [&](auto& known) { return known.name == word; });
    if (level == std::end(levels))
        return misuse(logCommand, "'%s' is no level", arguments.valueOf('l'));
    Endpoint endpoint;
    if (const int status = toEndpoint(logCommand, arguments[1], arguments[2], endpoint); status != done)
        return status;
    return watch(endpoint, arguments[1], static_cast<uint32_t>(level - levels));
}

} // namespace

constinit const Command logCommand = {"log", "shows what a process logs over TCP", usage, run, options};

} // namespace cutil
