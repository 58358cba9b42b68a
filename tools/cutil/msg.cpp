// cutil msg: both ends of the library's message service.
#include "address.h"
#include "input.h"
#include "interrupt.h"
#include "json.h"

#include <cUtil/network/msgClient.h>
#include <cUtil/network/msgServer.h>
#include <cUtil/tools/hexDump.h>
#include <cUtil/tools/safeMalloc.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string_view>
#include <sys/socket.h>

namespace cutil
{

namespace
{

constexpr char help[] =
    "  serve  takes messages from any number of clients and prints them, until it is interrupted: the number of\n"
    "         the client's endpoint, the bytes as 'cutil hexdump' shows them. It listens at the interface HOST,\n"
    "         127.0.0.1 unless told.\n"
    "  send   sends each FILE as a message or, without one, each line of the standard input, without its line\n"
    "         feed. It ends when the other side has read everything.\n"
    "\n"
    "The protocol is that of the library's cu_MSGServer and cu_MSGClient.\n";

struct DeleteMessage {
    void operator()(cu_Message* message) const { cu_Message_delete(&message); }
};
using Message = std::unique_ptr<cu_Message, DeleteMessage>;

struct DeleteServer {
    void operator()(cu_MSGServer* server) const { cu_MSGServer_delete(&server); }
};
using Server = std::unique_ptr<cu_MSGServer, DeleteServer>;

struct DeleteClient {
    void operator()(cu_MSGClient* client) const { cu_MSGClient_delete(&client); }
};
using Client = std::unique_ptr<cu_MSGClient, DeleteClient>;

cu_ErrorCode make(Message& message)
{
    cu_Message* made = nullptr;
    const cu_ErrorCode code = cu_Message_new(&made, 0, nullptr);
    message.reset(made);
    return code;
}

/// The bytes of a message.
cu_ErrorCode look(const Message& message, unsigned char*& bytes, uint32_t& size)
{
    const cu_ErrorCode code = cu_Message_get(message.get(), &bytes);
    return code == 0 ? cu_Message_getSize(message.get(), &size) : code;
}

/// What a message is made of, in both ways: not all bytes are a text.
Json& addBytes(Json& json, const unsigned char* bytes, uint32_t size)
{
    std::string digits;
    for (uint32_t i = 0; i < size; ++i) {
        digits += "0123456789abcdef"[bytes[i] >> 4];
        digits += "0123456789abcdef"[bytes[i] & 15];
    }
    const char* characters = static_cast<const char*>(static_cast<const void*>(bytes));
    return json.add("size", size).add("hex", digits).add("text", std::string_view(characters, size));
}

cu_ErrorCode print(uint32_t client, const Message& message, bool asJson)
{
    unsigned char* bytes = nullptr;
    uint32_t size = 0;
    char* lines = nullptr;
    cu_ErrorCode code = look(message, bytes, size);
    if (code == 0 && asJson) {
        Json json;
        addBytes(json.add("client", client), bytes, size).print();
        return 0;
    }
    if (code == 0)
        code = cu_printHexDump(bytes, size, &lines, 0, nullptr);
    if (code != 0)
        return code;
    printf("client %u, %u bytes:\n%s\n", client, size, lines);
    fflush(stdout);
    return cu_safeFreeImpl(lines);
}

int serve(const Arguments& arguments)
{
    Endpoint endpoint;
    const bool hasHost = arguments.size() == 2;
    const char* host = hasHost ? arguments[0] : "127.0.0.1";
    if (const int status = toEndpoint(msgCommand, host, arguments[hasHost ? 1 : 0], endpoint); status != done)
        return status;
    cu_MSGServer* made = nullptr;
    Message message;
    cu_ErrorCode code = cu_MSGServer_new(&made, endpoint.address, endpoint.port, nullptr);
    const Server server(made);
    if (code == 0)
        code = make(message);
    catchInterrupts();
    while (code == 0 && !isInterrupted() && ferror(stdout) == 0) {
        constexpr uint32_t period = 100'000; // microseconds until an interruption is noticed
        bool waits = false;
        uint32_t client = 0;
        code = cu_Selectable_waitReadReady(cu_MSGServer_getSelectable(server.get()), period, &waits);
        if (code != 0 || !waits)
            continue;
        code = cu_MSGServer_receive(server.get(), &client, message.get());
        if (code == 0)
            code = arguments.has('e') ? cu_MSGServer_send(server.get(), client, message.get())
                                      : print(client, message, arguments.has('j'));
    }
    return code == 0 ? done : failByRecord(code, "serving");
}

/// Sends messages and, where it is wanted, waits for their answers.
class Sender
{
public:
    explicit Sender(const Arguments& arguments) : wantsAnswers_(arguments.has('a')), asJson_(arguments.has('j')) {}

    cu_ErrorCode connect(const Endpoint& endpoint)
    {
        cu_MSGClient* made = nullptr;
        const cu_ErrorCode code = cu_MSGClient_new(&made, endpoint.address, endpoint.port, nullptr);
        client_.reset(made);
        return code == 0 ? make(message_) : code;
    }

    cu_ErrorCode clear() const
    {
        const cu_ErrorCode code = cu_Message_seek(message_.get(), 0);
        return code == 0 ? cu_Message_resize(message_.get(), 0) : code;
    }

    cu_ErrorCode add(const void* bytes, std::size_t size) const
    {
        return size == 0 ? 0 : cu_Message_write(message_.get(), bytes, static_cast<uint32_t>(size));
    }

    cu_ErrorCode send() const
    {
        unsigned char* bytes = nullptr;
        uint32_t size = 0;
        cu_ErrorCode code = cu_MSGClient_send(client_.get(), message_.get());
        if (code != 0 || !wantsAnswers_)
            return code;
        code = cu_MSGClient_receive(client_.get(), message_.get());
        if (code == 0)
            code = look(message_, bytes, size);
        if (code == 0 && asJson_) {
            Json json;
            addBytes(json, bytes, size).print();
        } else if (code == 0) {
            fwrite(bytes, 1, size, stdout);
        }
        return code;
    }

    /// Whether an answer to a line is to be a line.
    bool endsLines() const { return wantsAnswers_ && !asJson_; }

    /// Waits until the other side has read everything and has hung up: who closes while answers are on their way can
    /// make it lose what it has not read.
    void end() const
    {
        const int socket = cu_Selectable_getHandle(cu_MSGClient_getSelectable(client_.get()));
        std::array<char, 4096> rest;
        shutdown(socket, SHUT_WR);
        ssize_t count = 0;
        while ((count = recv(socket, rest.data(), rest.size(), 0)) > 0 || (count == -1 && errno == EINTR)) {
        }
    }

private:
    bool wantsAnswers_;
    bool asJson_;
    Client client_;
    Message message_;
};

int sendFile(const Sender& sender, const char* path)
{
    Input input(path);
    std::array<char, 65536> block;
    ssize_t count = 0;
    cu_ErrorCode code = sender.clear();
    while (code == 0 && (count = input.read(block.data(), block.size())) > 0)
        code = sender.add(block.data(), static_cast<std::size_t>(count));
    if (count == -1)
        return fail("%s: %s", input.name(), strerror(errno));
    if (code == 0)
        code = sender.send();
    return code == 0 ? done : failByRecord(code, input.name());
}

int sendLines(const Sender& sender)
{
    char* line = nullptr;
    std::size_t room = 0;
    ssize_t count = 0;
    cu_ErrorCode code = 0;
    while (code == 0 && (count = getline(&line, &room, stdin)) != -1) {
        const bool ends = count != 0 && line[count - 1] == '\n';
        code = sender.clear();
        if (code == 0)
            code = sender.add(line, static_cast<std::size_t>(ends ? count - 1 : count));
        if (code == 0)
            code = sender.send();
        if (code == 0 && sender.endsLines()) {
            putchar('\n');
            fflush(stdout);
        }
    }
    const int error = errno;
    free(line);
    if (code != 0)
        return failByRecord(code, "sending");
    return ferror(stdin) == 0 ? done : fail("standard input: %s", strerror(error));
}

int send(const Arguments& arguments)
{
    Endpoint endpoint;
    int status = toEndpoint(msgCommand, arguments[0], arguments[1], endpoint);
    if (status != done)
        return status;
    Sender sender(arguments);
    if (const cu_ErrorCode code = sender.connect(endpoint); code != 0)
        return failByRecord(code, arguments[0]);
    if (arguments.size() == 2)
        status = sendLines(sender);
    for (uint32_t i = 2; i < arguments.size() && status == done; ++i)
        status = sendFile(sender, arguments[i]);
    if (status == done)
        sender.end();
    return status;
}

constexpr Option options[] = {
    {'e', "echo", nullptr, "sends each message back instead of printing it"},
    {'a', "answers", nullptr,
     "waits for an answer to each message and writes its bytes to the standard output, a\n"
     "line feed behind the answer to a line"},
    {'j', "json", nullptr, "prints JSON, one object to a line, with the bytes as a text and in hexadecimal"},
};
constexpr Form forms[] = {{"serve [HOST] PORT", "ej", serve}, {"send HOST PORT [FILE...]", "aj", send}};

} // namespace

constinit const Command msgCommand = {"msg", "serves and sends framed messages over TCP", help, forms, options};

} // namespace cutil
