// The watcher: asks the server again and again, and shows what it tells.
#include "commands.h"
#include "history.h"
#include "messages.h"
#include "protocol.h"
#include "table.h"

#include <cUtil/errorCodes.h>
#include <cUtil/network/ipAddress.h>
#include <cUtil/network/msgClient.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <thread>

namespace telemetry
{

namespace
{

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto patience = 5s; // with a server that is not there yet, or does not answer
constexpr auto connectPeriod = 50ms;
constexpr uint32_t askPeriod = 250'000; // microseconds

struct DeleteClient {
    void operator()(cu_MSGClient* client) const
    {
        if (const cu_ErrorCode code = cu_MSGClient_delete(&client); code != 0)
            static_cast<void>(failByRecord(code, "disconnecting"));
    }
};
using Client = std::unique_ptr<cu_MSGClient, DeleteClient>;

cu_ErrorCode connect(uint32_t address, uint16_t port, Client& client)
{
    const auto end = Clock::now() + patience;
    for (;;) {
        cu_MSGClient* made = nullptr;
        const cu_ErrorCode code = cu_MSGClient_new(&made, address, port, nullptr);
        client.reset(made);
        if (code != cu_ERROR_SOCKET_CONNECT_FAILED || stopRequested() || Clock::now() > end)
            return code;
        std::this_thread::sleep_for(connectPeriod);
    }
}

/// Waits for something to receive, for a while, or until the process is to end.
cu_ErrorCode waitForAnswer(const Client& client, bool& came)
{
    const auto end = Clock::now() + patience;
    cu_ErrorCode code = 0;
    came = false;
    while (code == 0 && !came && !stopRequested() && Clock::now() < end)
        code = cu_Selectable_waitReadReady(cu_MSGClient_getSelectable(client.get()), askPeriod, &came);
    return code;
}

/// Whether a failure is how the end of the other side shows.
bool tellsOfAnEnd(cu_ErrorCode code)
{
    return code == cu_ERROR_SOCKET_OTHER_SIDE_CLOSED || code == cu_ERROR_SOCKET_RECEIVE_FAILED ||
           code == cu_ERROR_SOCKET_IO_TIMEOUT;
}

/// @return whether there is an answer; if not, the reason is told, unless the process is to end
bool ask(const Client& client, const Message& message, Properties& answer)
{
    bool came = false;
    cu_ErrorCode code = writeRequest(message, historySeconds);
    if (code == 0)
        code = cu_MSGClient_send(client.get(), message.get());
    if (code == 0)
        code = waitForAnswer(client, came);
    if (code == 0 && came)
        code = cu_MSGClient_receive(client.get(), message.get());
    if (stopRequested())
        return false;
    bool makesSense = false;
    if (tellsOfAnEnd(code))
        say("the server has ended");
    else if (code != 0)
        static_cast<void>(failByRecord(code, "asking the server"));
    else if (!came)
        say("the server does not answer");
    else if (makesSense = readAnswer(message, answer) == 0; !makesSense)
        say("the server's answer makes no sense");
    return makesSense;
}

} // namespace

int watch(const Options& options)
{
    catchStopSignals();
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // lines arrive as they are made, into a pipe, too
    uint32_t address = 0;
    if (const cu_ErrorCode code = cu_IPAddress_lookup(options.host.c_str(), &address); code != 0)
        return failByRecord(code, options.host.c_str());
    Client client;
    Message message;
    cu_ErrorCode code = connect(address, options.port, client);
    if (code == 0)
        code = makeMessage(message);
    if (code != 0)
        return stopRequested() ? done : failByRecord(code, "connecting to the server");

    Table table;
    double shown = 0;
    const auto end = Clock::now() + std::chrono::seconds(options.seconds);
    while (!stopRequested() && (options.seconds == 0 || Clock::now() < end)) {
        Properties answer;
        if (!ask(client, message, answer))
            return stopRequested() ? done : failed;
        if (const double records = answer.number("records"); records != shown) {
            table.print(answer);
            shown = records;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(askPeriod));
    }
    return done;
}

} // namespace telemetry
