// The watcher: asks the server again and again, and shows what it tells.
#include "begin.h"
#include "commands.h"
#include "history.h"
#include "messages.h"
#include "protocol.h"
#include "table.h"

#include <cUtil/errorCodes.h>
#include <cUtil/network/msgClient.h>

#include <chrono>
#include <memory>
#include <sys/socket.h>
#include <sys/time.h>
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

/// A server that hangs in the middle of an answer is not waited for for ever. The client has no call for it, but the
/// receiving of the library keeps to what is set for the socket.
void limitSilence(const Client& client)
{
    const timeval limit{2, 0};
    setsockopt(cu_Selectable_getHandle(cu_MSGClient_getSelectable(client.get())), SOL_SOCKET, SO_RCVTIMEO, &limit,
               sizeof(limit));
}

cu_ErrorCode connect(uint32_t address, uint16_t port, Client& client)
{
    const auto end = Clock::now() + patience;
    for (;;) {
        cu_MSGClient* made = nullptr;
        const cu_ErrorCode code = cu_MSGClient_new(&made, address, port, nullptr);
        client.reset(made);
        if (code == 0)
            limitSilence(client);
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

enum class Outcome { answered, serverEnded, failed };

/// @return how it went; if it failed, the reason is told, unless the process is to end
Outcome ask(const Client& client, const Message& message, Properties& answer)
{
    cu_ErrorCode code = writeRequest(message, historySeconds);
    if (code == 0)
        code = cu_MSGClient_send(client.get(), message.get());
    if (code == cu_ERROR_SOCKET_IO_TIMEOUT) // whatever kept it from being sent
        return Outcome::serverEnded;
    bool came = false;
    if (code == 0)
        code = waitForAnswer(client, came);
    if (code == 0 && came)
        code = cu_MSGClient_receive(client.get(), message.get());
    if (stopRequested())
        return Outcome::failed;
    if (code == cu_ERROR_SOCKET_OTHER_SIDE_CLOSED || code == cu_ERROR_SOCKET_RECEIVE_FAILED)
        return Outcome::serverEnded;
    if (code == cu_ERROR_SOCKET_IO_TIMEOUT)
        say("the server hangs in the middle of an answer");
    else if (code != 0)
        static_cast<void>(failByRecord(code, "asking the server"));
    else if (!came)
        say("the server does not answer");
    else if (readAnswer(message, answer) != 0)
        say("the server's answer makes no sense");
    else
        return Outcome::answered;
    return Outcome::failed;
}

} // namespace

int watch(const Options& options)
{
    uint32_t address = 0;
    if (!begin(options, address))
        return failed;
    Message message;
    if (const cu_ErrorCode code = makeMessage(message); code != 0)
        return failByRecord(code, "preparing the watcher");

    Client client;
    Table table;
    double shown = 0;
    const auto end = Clock::now() + std::chrono::seconds(options.seconds);
    while (!stopRequested() && (options.seconds == 0 || Clock::now() < end)) {
        if (client == nullptr) {
            const cu_ErrorCode code = connect(address, options.port, client);
            if (code != 0)
                return stopRequested() ? done : failByRecord(code, "connecting to the server");
        }
        Properties answer;
        const Outcome outcome = ask(client, message, answer);
        if (outcome == Outcome::failed)
            return stopRequested() ? done : failed;
        if (outcome == Outcome::serverEnded) {
            say("the server has ended: connecting again");
            client.reset();
            continue;
        }
        // A server that has just begun has no record yet.
        if (const double records = answer.number("records"); records != 0 && records != shown) {
            table.print(answer);
            shown = records;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(askPeriod));
    }
    return done;
}

} // namespace telemetry
