// cutil log: what a process of the library logs over TCP, as it comes.
#include "address.h"
#include "colour.h"
#include "interrupt.h"
#include "json.h"

#include <cUtil/errorCodes.h>
#include <cUtil/logger/consoleLoggingAdapter.h>
#include <cUtil/logger/tcpLoggingClient.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <unistd.h>

namespace cutil
{

namespace
{

constexpr char help[] =
    "Prints what a process logs by its cu_logger_TCPLoggingAdapter, with the time of its arrival, until it is\n"
    "interrupted, the process ends or another viewer takes the place: a process has one at a time, the newest.\n"
    "On a terminal control characters are shown as full stops.\n";

struct Level {
    std::string_view name;
    const char* colour;
};

constexpr Level levels[] = {{"error", red}, {"warning", yellow}, {"info", ""}, {"debug", faint}};

bool isControl(unsigned char character)
{
    return character < ' ' || character == 127;
}

/// The present time, as RFC 3339 has it.
std::string now()
{
    timespec time{};
    tm parts{};
    char text[64];
    clock_gettime(CLOCK_REALTIME, &time);
    gmtime_r(&time.tv_sec, &parts);
    const std::size_t length = strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &parts);
    snprintf(text + length, sizeof(text) - length, ".%03ldZ", time.tv_nsec / 1'000'000);
    return text;
}

/// What is to be seen, and how.
struct Wishes {
    uint32_t level;
    bool json;
    bool coloured;
};

/// An adapter that hands on to the library's console adapter what is to be seen.
class View
{
public:
    /// @return null when there is no memory for it; the reason is told
    static cu_logger_Adapter* make(const Wishes& wishes)
    {
        auto view = std::make_unique<View>(wishes);
        if (const cu_ErrorCode code = cu_logger_ConsoleLoggingAdapter_new(&view->console_, nullptr); code != 0) {
            static_cast<void>(failByRecord(code, "console"));
            return nullptr;
        }
        return &view.release()->adapter_;
    }

    explicit View(const Wishes& wishes) : wishes_(wishes)
    {
        adapter_.context = this;
        adapter_.logMessage = show;
        adapter_.destruct = destruct;
    }

private:
    static cu_ErrorCode show(void* context, uint32_t level, const char* text)
    {
        auto* view = static_cast<View*>(context);
        if (level > view->wishes_.level)
            return 0;
        cu_ErrorCode code = 0;
        if (view->wishes_.json)
            Json().add("time", now()).add("level", levels[level].name).add("text", text).print();
        else
            code = view->showLine(level, text);
        if (ferror(stdout) != 0)
            *runningFlag() = false; // told in the end
        return code;
    }

    cu_ErrorCode showLine(uint32_t level, std::string text) const
    {
        if (isatty(STDOUT_FILENO) != 0) // which what another host sends must not steer
            std::replace_if(text.begin(), text.end(), isControl, '.');
        fputs(wishes_.coloured ? levels[level].colour : "", stdout);
        const cu_ErrorCode code = cu_logger_Adapter_logMessage(console_, level, text.c_str());
        fputs(wishes_.coloured ? plain : "", stdout);
        fflush(stdout);
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
    Wishes wishes_;
};

struct DeleteClient {
    void operator()(cu_logger_TCPLoggingClient* client) const { cu_logger_TCPLoggingClient_delete(&client); }
};

int watch(const Arguments& arguments)
{
    const char* host = arguments[0];
    const char* word = arguments.valueOf('l');
    const auto* level = std::end(levels) - 1;
    if (word != nullptr)
        level = std::find_if(std::begin(levels), std::end(levels), [&](auto& known) { return known.name == word; });
    if (level == std::end(levels))
        return misuse(logCommand, "'%s' is no level", word);
    Wishes wishes{static_cast<uint32_t>(level - levels), arguments.has('j'), false};
    Endpoint endpoint;
    int status = readColour(logCommand, arguments, wishes.coloured);
    if (status == done)
        status = toEndpoint(logCommand, host, arguments[1], endpoint);
    if (status != done)
        return status;
    cu_logger_Adapter* view = View::make(wishes);
    if (view == nullptr)
        return failed;
    cu_logger_TCPLoggingClient* made = nullptr;
    cu_ErrorCode code = cu_logger_TCPLoggingClient_new(&made, view, endpoint.address, endpoint.port, nullptr);
    if (code != 0) {
        status = failByRecord(code, host);
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

constexpr Option options[] = {
    {'l', "level", "LEVEL", "error, warning, info or debug: what is less severe is left out"},
    {'j', "json", nullptr, "prints JSON, one object to a line, with the time in UTC"},
    colorOption,
};
constexpr Form forms[] = {{"watch HOST PORT", "ljC", watch}};

} // namespace

std::vector<std::string> levelNames()
{
    std::vector<std::string> names;
    for (const Level& level : levels)
        names.emplace_back(level.name);
    return names;
}

constinit const Command logCommand = {"log", "shows what a process logs over TCP", help, forms, options};

} // namespace cutil
