#include "logger/recorder.h"
#include "network/messages.h"
#include "support/process.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <atomic>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <list>
#include <malloc.h>

namespace
{

using namespace std::string_literals;

constexpr char file[] = "src/cUtil/network/msgServer";
constexpr char clientFile[] = "src/cUtil/network/msgClient";
constexpr std::size_t mebibyte = 1 << 20;

/// Counts what it gives to one thread at a time, and can refuse what is large.
struct CountingAllocator {
    ~CountingAllocator() { EXPECT_EQ(bytes, 0U) << "not given back"; }

    static cu_ErrorCode alloc(void* context, void** block, uint32_t size)
    {
        auto* me = static_cast<CountingAllocator*>(context);
        if (me->bytes + size > me->limit)
            return cu_ERROR_COM_MALLOC_FAILED;
        *block = malloc(size);
        me->bytes += malloc_usable_size(*block);
        me->peak = std::max<std::size_t>(me->peak, me->bytes);
        return 0;
    }

    static cu_ErrorCode free(void* context, void** block)
    {
        static_cast<CountingAllocator*>(context)->bytes -= malloc_usable_size(*block);
        ::free(std::exchange(*block, nullptr));
        return 0;
    }

    cu_allocator table = {this, alloc, nullptr, free, nullptr};
    std::atomic<std::size_t> bytes = 0;
    std::atomic<std::size_t> peak = 0;
    std::atomic<std::size_t> limit = SIZE_MAX;
};

/// A server on a port that was free.
struct TestServer {
    TestServer()
    {
        cu_ErrorCode code = cu_ERROR_SOCKET_PORT_ALREADY_BOUND;
        while (code == cu_ERROR_SOCKET_PORT_ALREADY_BOUND) {
            port = Server().port;
            code = cu_MSGServer_new(&handle, CU_IP_ADDRESS_LOCAL, port, &allocator.table);
        }
        EXPECT_EQ(code, 0U);
    }

    void send(uint32_t endpoint, std::string_view content) const
    {
        EXPECT_EQ(cu_MSGServer_send(handle, endpoint, Message(content)), 0U);
    }

    std::string receive()
    {
        const Message message;
        EXPECT_EQ(cu_MSGServer_receive(handle, &from, message), 0U);
        return contentOf(message);
    }

    CountingAllocator allocator;
    MSGServer handle;
    uint16_t port = 0;
    uint32_t from = 0; ///< the endpoint of what was received
};

/// Sends back what comes.
struct EchoServer : TestServer {
    std::jthread thread{[this](const std::stop_token& stop) {
        const Message message;
        while (!stop.stop_requested()) {
            bool ready = false;
            EXPECT_EQ(cu_Selectable_waitReadReady(cu_MSGServer_getSelectable(handle), 10'000, &ready), 0U);
            if (ready) {
                EXPECT_EQ(cu_MSGServer_receive(handle, &from, message), 0U);
                EXPECT_EQ(cu_MSGServer_send(handle, from, message), 0U);
            }
        }
    }};
};

struct Client {
    explicit Client(uint16_t port) { EXPECT_EQ(cu_MSGClient_new(&handle, CU_IP_ADDRESS_LOCAL, port, nullptr), 0U); }
    /// One that introduces itself.
    explicit Client(TestServer& server) : Client(server.port)
    {
        send("hello");
        EXPECT_EQ(server.receive(), "hello");
        endpoint = server.from;
    }

    void send(std::string_view content) const { EXPECT_EQ(cu_MSGClient_send(handle, Message(content)), 0U); }

    std::string receive() const
    {
        const Message message;
        EXPECT_EQ(cu_MSGClient_receive(handle, message), 0U);
        return contentOf(message);
    }

    bool isAnswered(int times = 100) const
    {
        std::string question;
        do
            send(question = std::to_string(times));
        while (receive() == question && --times != 0);
        return times == 0;
    }

    MSGClient handle;
    uint32_t endpoint = 0;
};

TEST(MSGServer, framesAreAsStatedHoweverTheyComeInPieces)
{
    srand(77);
    auto number = static_cast<uint32_t>(rand()); // of the first connection
    srand(77);
    TestServer server;
    const EchoServer other; // in one process
    const std::string large(200'000, 'z');
    const std::string small = "\x42\xD5\x33\x71\0\0\0\1\0\0\0\3abc"s + frameOf("") + frameOf("defgh");
    const std::string all = small + frameOf(large) + frameOf("behind");
    for (const std::size_t piece : {1U, 5U, 13U}) {
        const Raw raw(server.port);
        for (std::size_t at = 0; at < small.size(); at += piece) {
            raw.send(small.substr(at, piece));
            std::this_thread::sleep_for(100us);
        }
        raw.send(all.substr(small.size()));
        for (const std::string& content : {"abc"s, ""s, "defgh"s, large, "behind"s}) {
            EXPECT_TRUE(server.receive() == content) << piece;
            EXPECT_EQ(server.from, number);
            server.send(number, content);
        }
        EXPECT_TRUE(raw.receive(all.size()) == all);
        EXPECT_TRUE(Client(other.port).isAnswered());
        ++number;
    }
}

TEST(MSGServer, logsWhatItDrops)
{
    for (const auto& [bytes, what] : {std::pair{"GET / HTTP"s, "magic"s}, {headOf(3, 2).substr(0, 8), "version"s}}) {
        const support::Recorder log("test");
        TestServer server;
        const Raw raw(server.port);
        raw.send(frameOf("") + bytes);
        EXPECT_EQ(server.receive(), "");
        const std::string number = std::to_string(server.from);
        EXPECT_EQ(raw.receive(1), "");
        const Client client(server);
        server.send(0, "lost");
        server.send(0, std::string(mebibyte, 'x'));
        server.send(client.endpoint, "found");
        EXPECT_EQ(client.receive(), "found");
        const std::string nobody = "1 msgServer: no pipe 0! discarding message..\n";
        EXPECT_EQ(log.lines(),
                  (std::vector{"1 Invalid protocol " + what + " on enpoint " + number + ". Dropping client\n", nobody,
                               nobody}));
    }
}

TEST(MSGServer, noClientHarmsOthers)
{
    EchoServer server;
    const Client before(server.port);
    EXPECT_TRUE(before.isAnswered());
    const int silentOnes = std::min(support::scaled(10'000), allowDescriptors(11'000) - 1000);
    // In another process, as one may not have so many descriptors.
    const support::Shared<std::atomic<int>> connected;
    support::Process silent([&] {
        std::list<Raw> connections;
        for (; *connected < silentOnes; ++*connected)
            connections.emplace_back(server.port);
        return pause();
    });
    EXPECT_TRUE(support::comesTrue([&] { return *connected == silentOnes; }));
    EXPECT_TRUE(Client(server.port).isAnswered());
    EXPECT_LT(server.allocator.bytes, mebibyte + static_cast<std::size_t>(silentOnes) * 512);
    {
        std::list<Raw> hostile;
        for (const std::string& bytes :
             {frameOf("half").substr(0, 15), headOf(4).substr(0, 5), headOf(UINT32_MAX) + "x"})
            hostile.emplace_back(server.port).send(bytes);
        const auto again = [](auto act) {
            return std::jthread([act](const std::stop_token& stop) mutable {
                while (!stop.stop_requested())
                    act();
            });
        };
        const std::string frame = frameOf(std::string(50'000, 'x'));
        const std::jthread trickle = again([&] {
            hostile.back().send("x");
            std::this_thread::sleep_for(1ms);
        });
        const std::jthread visitor = again([&, visit = 0U]() mutable {
            const Raw raw(server.port);
            const linger how = {++visit % 16 != 0 ? 1 : 0, 0}; // most go by a reset, which leaves their ports free
            setsockopt(raw.descriptor, SOL_SOCKET, SO_LINGER, &how, sizeof(how));
            std::this_thread::sleep_for(1ms);
        });
        const std::jthread deaf = again([&] {
            const Raw raw(server.port);
            while (raw.send(frame, MSG_DONTWAIT) != 0) // an emulated processor has enough to do with less
                std::this_thread::sleep_for(support::stepsAreSlow ? 20ms : 100us);
        });
        for (int i = 0; i < 20; ++i)
            EXPECT_TRUE(Client(server.port).isAnswered(support::scaled(20)));
        EXPECT_TRUE(before.isAnswered(support::scaled(200)));
    }
    silent.kill();
    EXPECT_TRUE(support::comesTrue([&] { return server.allocator.bytes < mebibyte; }));
    EXPECT_LT(server.allocator.peak, 26 * mebibyte);
}

TEST(MSGServer, dropsWhoDoesNotTakeItsData)
{
    const support::Recorder log("test");
    TestServer server;
    const Client deaf(server);
    const Client honest(server);
    const Client slow[] = {Client(server), Client(server)};
    for (const Client& one : slow)
        server.send(one.endpoint, std::string(12 * mebibyte, 'y'));
    // More than the system takes for a connection, and than the server takes for it.
    for (int i = 0; i < 40; ++i) {
        server.send(deaf.endpoint, std::string(mebibyte, 'x'));
        server.send(honest.endpoint, "news");
        EXPECT_EQ(honest.receive(), "news");
    }
    EXPECT_EQ(log.lines()[0], "1 Endpoint " + std::to_string(deaf.endpoint) + " is too slow. Dropping client\n");
    for (const Client& one : slow) // who have less waiting are left in peace
        EXPECT_EQ(one.receive().size(), 12 * mebibyte);
    EXPECT_LT(server.allocator.peak, 44 * mebibyte);
}

TEST(MSGServer, moreThanMayWaitIsNoHarm)
{
    TestServer server;
    const Client client(server);
    std::string large(20 * mebibyte, 'q');
    for (std::size_t i = 0; i < large.size(); i += 4096)
        large[i] = static_cast<char>(i >> 12);
    const std::jthread answer([&] {
        const std::string received = server.receive();
        for (int i = 0; i < 2; ++i)
            server.send(client.endpoint, received);
    });
    client.send(large);
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(client.receive() == large);
}

TEST(MSGServer, anApplicationThatOnlySendsIsNotBlocked)
{
    TestServer server;
    const Client client(server);
    // Nobody receives, so in the end nobody reads what this one sends.
    const Raw raw(server.port);
    const int sent = raw.fill(frameOf(std::string(100'000, 'x')));
    for (int i = 0; i < 1000; ++i) {
        server.send(client.endpoint, "news");
        EXPECT_EQ(client.receive(), "news");
    }
    // Nothing is lost.
    client.send("last");
    for (int left = sent + 1; left != 0; --left) {
        const std::size_t size = server.receive().size();
        EXPECT_EQ(size, server.from == client.endpoint ? 4U : 100'000U);
    }
}

TEST(MSGServer, whatWasSentBeforeALeaveArrives)
{
    TestServer server;
    Client client(server);
    // As many as the system sends without an acknowledgement: all have come when the connection is reset.
    for (int i = 0; i < 8; ++i)
        client.send("fire and forget");
    EXPECT_EQ(cu_MSGClient_delete(&client.handle), 0U);
    server.send(client.endpoint, "this resets the connection");
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(server.receive(), "fire and forget");
}

TEST(MSGServer, whoEndsItsDirectionStillGetsWhatWaits)
{
    const support::Recorder log("test");
    TestServer server;
    const Raw client(server.port);
    client.send(frameOf("hello"));
    EXPECT_EQ(server.receive(), "hello");
    const std::string answer = frameOf(std::string(12 * mebibyte, 'x'));
    server.send(server.from, answer.substr(12));
    shutdown(client.descriptor, SHUT_WR);
    do
        server.send(server.from, "too late");
    while (log.lines().empty());
    EXPECT_EQ(log.lines()[0], "1 msgServer: no pipe " + std::to_string(server.from) + "! discarding message..\n");
    EXPECT_TRUE(client.receive(answer.size()) == answer);
    while (!client.receive(20).empty())
        continue;
    EXPECT_LT(server.allocator.bytes, mebibyte);
}

TEST(MSGServer, whatWasSentBeforeTheEndArrivesWhateverIsUnderWay)
{
    const std::string frame = frameOf(std::string(100'000, 'x'));
    for (const bool isDeaf : {false, true}) {
        TestServer server;
        const Client client(server);
        const Raw half(server.port);
        const Raw full(server.port);
        std::jthread reader;
        if (!isDeaf)
            reader = std::jthread([&] {
                for (int i = 0; i < 300; ++i, std::this_thread::sleep_for(200us)) // so that much waits at the end
                    EXPECT_EQ(client.receive().size(), 40'000U);
                EXPECT_EQ(cu_MSGClient_receive(client.handle, Message()), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED);
            });
        half.send(frame.substr(0, 70'000));
        full.fill(frame);
        client.send("unread"); // for ever, as nobody receives
        for (int i = 0; i < 300; ++i)
            server.send(client.endpoint, std::string(40'000, 'x'));
        EXPECT_EQ(cu_MSGServer_delete(&server.handle), 0U);
    }
}

TEST(MSGServer, waitsForDescriptorsWhileThereAreNone)
{
    const EchoServer server;
    const Client client(server.port);
    EXPECT_TRUE(client.isAnswered());
    const int next = dup(0);
    close(next);
    allowDescriptors(static_cast<rlim_t>(next + 1));
    const Raw waiting(server.port);
    waiting.send(frameOf("still here"));
    EXPECT_TRUE(client.isAnswered());
    const std::clock_t start = std::clock();
    std::this_thread::sleep_for(500ms);
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 4) << "the thread spins";
    EXPECT_TRUE(client.isAnswered());
    allowDescriptors(11'000);
    EXPECT_EQ(waiting.receive(22), frameOf("still here"));
}

TEST(MSGServer, aMessageWithoutMemoryIsLostAlone)
{
    const support::Recorder log("test");
    TestServer server;
    const Client client(server);
    const Client greedy(server);
    const Client large(server);
    const Client hoarder(server);
    server.send(hoarder.endpoint, std::string(15 * mebibyte, 'x'));
    server.send(client.endpoint, "behind it");
    EXPECT_EQ(client.receive(), "behind it");
    server.allocator.limit = server.allocator.bytes + mebibyte;
    client.send(std::string(3 * mebibyte, 'y')); // the hoarder makes room
    EXPECT_EQ(server.receive().size(), 3 * mebibyte);
    server.allocator.limit = server.allocator.bytes + mebibyte;
    cu_MSGClient_send(large.handle, Message(std::string(3 * mebibyte, 'x'))); // fails
    server.send(greedy.endpoint, std::string(10 * mebibyte, 'x'));
    for (const Client* each : {&hoarder, &large, &greedy}) {
        const std::string line =
            "1 No memory for what endpoint " + std::to_string(each->endpoint) + " exchanges. Dropping client\n";
        EXPECT_TRUE(support::comesTrue([&] { return std::ranges::count(log.lines(), line) == 1; }));
    }
    for (const std::size_t size : {10'000U, 100'000U}) {
        client.send(std::string(size, 'y'));
        client.send("after it");
        Message message;
        message.allocator.refuse(1);
        uint32_t endpoint = 0;
        EXPECT_FAILURE(cu_MSGServer_receive(server.handle, &endpoint, message), cu_ERROR_COM_MALLOC_FAILED, "refusal",
                       "test", "");
        EXPECT_EQ(endpoint, 0U);
        EXPECT_EQ(server.receive(), "after it");
        EXPECT_EQ(server.from, client.endpoint);
    }
}

TEST(MSGServer, itsThreadTakesNoSignals)
{
    TestServer server;
    const Client client(server);
    unsigned long long mask = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream lines(task.path() / "status");
        const std::string status(std::istreambuf_iterator<char>(lines), {});
        if (status.starts_with("Name:\tcu-msg-server\n"))
            mask = std::stoull(status.substr(status.find("SigBlk:") + 8), nullptr, 16);
    }
    // An emulator wants the signals of faults for itself.
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGUSR1, SIGUSR2, SIGPIPE, SIGALRM, SIGTERM, SIGCHLD, SIGIO})
        EXPECT_NE(mask & 1ULL << (signal - 1), 0U) << signal;
}

TEST(MSGServer, survivesEveryFailure)
{
    const auto create = [](cu_MSGServer** me, cu_allocator* allocator) {
        return cu_MSGServer_new(me, CU_IP_ADDRESS_LOCAL, 0, allocator);
    };
    support::sweep<cu_MSGServer>("cu_MSGServer_new", create, cu_MSGServer_delete, {}, "close");
    cu_MSGServer* server = nullptr;
    const support::Injection injection("pthread_create", EAGAIN);
    EXPECT_SYSTEM_FAILURE(create(&server, nullptr), cu_ERROR_THREAD_CREATE_FAILED, EAGAIN, "cu_MSGServer_new", file,
                          "");
}

TEST(MSGServer, refusesNullsAsAClientDoes)
{
    TestServer server;
    const Client client(server);
    const Message message;
    cu_MSGServer* me = server.handle;
    cu_MSGServer* noServer = nullptr;
    cu_MSGClient* other = client.handle;
    cu_MSGClient* noClient = nullptr;
    const std::tuple good(me, &noServer, other, &noClient, static_cast<cu_Message*>(message), &server.from);
    EXPECT_NULLS_REFUSED(file, good, cu_MSGServer_new, cu_MSGServer_receive, cu_MSGServer_send);
    EXPECT_NULLS_REFUSED(file, std::tuple(&me), cu_MSGServer_delete);
    EXPECT_NULLS_REFUSED(clientFile, good, cu_MSGClient_new, cu_MSGClient_send, cu_MSGClient_receive);
    EXPECT_NULLS_REFUSED(clientFile, std::tuple(&other), cu_MSGClient_delete);
    EXPECT_EQ(cu_MSGServer_getSelectable(nullptr), nullptr);
    EXPECT_EQ(cu_MSGClient_getSelectable(nullptr), nullptr);
}

} // namespace
