#include "network/messages.h"
#include "support/process.h"
#include "support/record.h"
#include "support/refusal.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/logger/logger.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <mutex>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr char file[] = "src/cUtil/network/msgServer";
constexpr std::size_t mebibyte = 1 << 20;

/// Counts what it gives to any thread, and can refuse what is large.
class CountingAllocator
{
public:
    ~CountingAllocator() { EXPECT_EQ(bytes, 0U) << "not given back"; }

    cu_allocator* get() { return &table_; }

    std::atomic<std::size_t> bytes = 0;
    std::atomic<std::size_t> peak = 0;
    std::atomic<std::size_t> limit = SIZE_MAX;

private:
    static cu_ErrorCode alloc(void* context, void** block, uint32_t size)
    {
        auto* me = static_cast<CountingAllocator*>(context);
        if (me->bytes + size > me->limit)
            return cu_ERROR_COM_MALLOC_FAILED;
        const std::size_t now = me->bytes += size;
        std::size_t before = me->peak;
        while (now > before && !me->peak.compare_exchange_weak(before, now)) {
        }
        auto* memory = static_cast<std::max_align_t*>(malloc(size + sizeof(std::max_align_t)));
        *reinterpret_cast<uint32_t*>(memory) = size;
        *block = memory + 1;
        return 0;
    }

    static cu_ErrorCode free(void* context, void** block)
    {
        auto* memory = static_cast<std::max_align_t*>(*block) - 1;
        static_cast<CountingAllocator*>(context)->bytes -= *reinterpret_cast<uint32_t*>(memory);
        ::free(memory);
        *block = nullptr;
        return 0;
    }

    cu_allocator table_ = {this, alloc, nullptr, free, nullptr};
};

/// What is logged while it lives.
class Log
{
public:
    Log() { EXPECT_EQ(cu_Logger_addAdapter("test", &adapter_, cu_logger_LEVEL_DEBUG), 0U); }
    Log(const Log&) = delete;
    Log& operator=(const Log&) = delete;
    ~Log() { EXPECT_EQ(cu_Logger_removeAdapter("test"), 0U); }

    unsigned count(const std::string& line)
    {
        const std::lock_guard lock(mutex_);
        return static_cast<unsigned>(std::ranges::count(lines_, line));
    }

    bool comes(const std::string& line)
    {
        return support::comesTrue([&] { return count(line) != 0; });
    }

    bool isEmpty()
    {
        const std::lock_guard lock(mutex_);
        return lines_.empty();
    }

private:
    static cu_ErrorCode take(void* context, uint32_t level, const char* text)
    {
        auto* me = static_cast<Log*>(context);
        const std::lock_guard lock(me->mutex_);
        me->lines_.push_back(std::to_string(level) + " " + text);
        return 0;
    }

    std::mutex mutex_;
    std::vector<std::string> lines_;
    cu_logger_Adapter adapter_ = {nullptr, this, 0, nullptr, take, [](void*) -> cu_ErrorCode { return 0; }};
};

/// A server on a port that was free.
class TestServer
{
public:
    explicit TestServer(cu_allocator* allocator = nullptr)
    {
        cu_ErrorCode code = cu_ERROR_SOCKET_PORT_ALREADY_BOUND;
        while (code == cu_ERROR_SOCKET_PORT_ALREADY_BOUND) {
            port = Server().port;
            srand(77);
            first = static_cast<uint32_t>(rand());
            srand(77);
            code = cu_MSGServer_new(&handle, CU_IP_ADDRESS_LOCAL, port, allocator);
        }
        EXPECT_EQ(code, 0U);
    }

    /// Sends back what comes, in a thread.
    void echo()
    {
        echo_ = std::jthread([this](const std::stop_token& stop) {
            Message message;
            uint32_t endpoint = 0;
            while (!stop.stop_requested()) {
                bool ready = false;
                EXPECT_EQ(cu_Selectable_waitReadReady(cu_MSGServer_getSelectable(handle), 10'000, &ready), 0U);
                if (ready) {
                    ASSERT_EQ(cu_MSGServer_receive(handle, &endpoint, message), 0U);
                    ASSERT_EQ(cu_MSGServer_send(handle, endpoint, message), 0U);
                }
            }
        });
    }

    void send(uint32_t endpoint, std::string_view content) const
    {
        EXPECT_EQ(cu_MSGServer_send(handle, endpoint, Message(content)), 0U);
    }

    std::string receive(uint32_t* endpoint) const
    {
        Message message;
        EXPECT_EQ(cu_MSGServer_receive(handle, endpoint, message), 0U);
        return contentOf(message);
    }

    MSGServer handle;
    uint16_t port = 0;
    uint32_t first = 0; ///< the number of the first connection

private:
    std::jthread echo_; // ends before the server does
};

/// A client, and the endpoint that the server knows it by if it was asked.
class Client
{
public:
    explicit Client(const TestServer& server)
    {
        EXPECT_EQ(cu_MSGClient_new(&handle, CU_IP_ADDRESS_LOCAL, server.port, nullptr), 0U);
    }

    void introduce(const TestServer& server)
    {
        send("hello");
        EXPECT_EQ(server.receive(&endpoint), "hello");
    }

    void send(std::string_view content) const { EXPECT_EQ(cu_MSGClient_send(handle, Message(content)), 0U); }

    std::string receive() const
    {
        Message message;
        EXPECT_EQ(cu_MSGClient_receive(handle, message), 0U);
        return contentOf(message);
    }

    /// Whether a server that echoes does so.
    bool isAnswered(int times = 100) const
    {
        for (int i = 0; i < times; ++i) {
            const std::string question = "question " + std::to_string(i);
            send(question);
            if (receive() != question)
                return false;
        }
        return true;
    }

    MSGClient handle;
    uint32_t endpoint = 0;
};

TEST(MSGServer, framesAreAsStatedHoweverTheyComeInPieces)
{
    const TestServer server;
    const std::string large(200'000, 'z');
    const std::string frames = frameOf("abc") + frameOf("") + frameOf("defgh") + frameOf("");
    for (const std::size_t piece : {1U, 3U, 5U, 11U, 13U, 100U}) {
        Raw raw(server.port);
        for (std::size_t at = 0; at < frames.size(); at += piece) {
            raw.send(frames.substr(at, piece));
            std::this_thread::sleep_for(100us);
        }
        uint32_t endpoint = 0;
        for (const char* content : {"abc", "", "defgh", ""})
            EXPECT_EQ(server.receive(&endpoint), content) << piece;
        for (const char* content : {"abc", ""})
            server.send(endpoint, content);
        EXPECT_EQ(raw.receive(27), "\x42\xD5\x33\x71\0\0\0\1\0\0\0\3abc\x42\xD5\x33\x71\0\0\0\1\0\0\0\0"s);
        raw.send(frameOf(large) + frameOf("behind"));
        EXPECT_TRUE(server.receive(&endpoint) == large);
        EXPECT_EQ(server.receive(&endpoint), "behind");
        server.send(endpoint, large);
        EXPECT_TRUE(raw.receive(12 + large.size()) == frameOf(large));
    }
}

// While more has come than has been received, and not longer.
void expectReadable(const cu_Selectable* selectable, std::initializer_list<const char*> contents,
                    const std::function<std::string()>& receive)
{
    bool ready = false;
    std::this_thread::sleep_for(20ms); // so that they are seen together
    for (const char* content : contents) {
        EXPECT_EQ(cu_Selectable_waitReadReady(selectable, 20'000'000, &ready), 0U);
        EXPECT_TRUE(ready);
        EXPECT_EQ(receive(), content);
    }
    EXPECT_EQ(cu_Selectable_waitReadReady(selectable, 1, &ready), 0U);
    EXPECT_FALSE(ready);
}

TEST(MSGServer, bothSidesAreReadableAsLongAsAMessageWaits)
{
    const TestServer server;
    Client client(server);
    client.introduce(server);
    for (const char* content : {"one", "two", "three"}) {
        client.send(content);
        server.send(client.endpoint, content);
    }
    uint32_t endpoint = 0;
    expectReadable(cu_MSGServer_getSelectable(server.handle), {"one", "two", "three"},
                   [&] { return server.receive(&endpoint); });
    expectReadable(cu_MSGClient_getSelectable(client.handle), {"one", "two", "three"},
                   [&] { return client.receive(); });
}

TEST(MSGServer, numbersConnectionsInTheOrderInWhichTheyCome)
{
    const TestServer server;
    for (uint32_t n = 0; n < 100; ++n) {
        Client client(server);
        client.introduce(server);
        EXPECT_EQ(client.endpoint, server.first + n);
        server.send(client.endpoint, "welcome");
        EXPECT_EQ(client.receive(), "welcome");
    }
}

TEST(MSGServer, dropsWhatIsSentToNobody)
{
    Log log;
    const TestServer server;
    Client client(server);
    client.introduce(server);
    server.send(0, "lost");
    server.send(0, std::string(mebibyte, 'x'));
    server.send(client.endpoint, "found");
    EXPECT_EQ(client.receive(), "found");
    EXPECT_EQ(log.count("1 msgServer: no pipe 0! discarding message..\n"), 2U);
}

TEST(MSGServer, dropsClientsThatSpeakAnotherProtocol)
{
    const struct {
        std::string bytes;
        std::string what;
    } cases[] = {
        {"GET / HTTP", "magic"},
        {headOf(3, 1, 0x7133D542), "magic"},
        {headOf(3, 2).substr(0, 8), "version"},
        {headOf(3, 0x01000000) + "abc", "version"},
        {frameOf("") + headOf(3, 0), "version"},
    };
    for (const auto& c : cases) {
        Log log;
        TestServer server;
        server.echo();
        Raw raw(server.port);
        raw.send(c.bytes);
        EXPECT_TRUE(log.comes("1 Invalid protocol " + c.what + " on enpoint " + std::to_string(server.first) +
                              ". Dropping client\n"))
            << c.bytes;
        raw.receive(13);
        EXPECT_TRUE(raw.receive(1).empty());
        Raw(server.port).send(headOf(3, 2).substr(0, 7)); // too early to tell
        EXPECT_TRUE(Client(server).isAnswered());
        EXPECT_EQ(log.count("1 Invalid protocol version on enpoint " + std::to_string(server.first + 1) +
                            ". Dropping client\n"),
                  0U);
    }
}

TEST(MSGServer, noClientHarmsOthers)
{
    CountingAllocator allocator;
    {
        TestServer server(allocator.get());
        server.echo();
        const Client before(server);
        EXPECT_TRUE(before.isAnswered(10));
        std::vector<std::unique_ptr<Raw>> hostile;
        const auto connect = [&](std::string_view bytes) {
            hostile.push_back(std::make_unique<Raw>(server.port));
            hostile.back()->send(bytes);
        };
        connect(frameOf("half a frame").substr(0, 15));
        connect(headOf(4).substr(0, 5));
        connect(headOf(UINT32_MAX) + "much to come");
        connect(headOf(UINT32_MAX - 3) + "much to come");
        // In another process, as one may not have so many descriptors.
        const int silentOnes = std::min(support::scaled(10'000), allowDescriptors(11'000) - 1000);
        const support::Shared<std::atomic<int>> connected;
        const support::Process silent([&] {
            std::vector<std::unique_ptr<Raw>> connections;
            for (; *connected < silentOnes; ++*connected)
                connections.push_back(std::make_unique<Raw>(server.port));
            return pause();
        });
        EXPECT_TRUE(support::comesTrue([&] { return *connected == silentOnes; }));
        std::jthread trickle([&](const std::stop_token& stop) {
            Raw raw(server.port);
            const std::string bytes = frameOf(std::string(1000, 'x'));
            for (std::size_t i = 0; !stop.stop_requested(); i = (i + 1) % bytes.size()) {
                raw.send(bytes.substr(i, 1));
                std::this_thread::sleep_for(1ms);
            }
        });
        std::jthread visitor([&](const std::stop_token& stop) {
            for (unsigned visit = 0; !stop.stop_requested(); ++visit) {
                Raw raw(server.port);
                const linger none = {1, 0}; // most go by a reset, which leaves their ports free
                if (visit % 16 != 0)
                    setsockopt(raw.descriptor, SOL_SOCKET, SO_LINGER, &none, sizeof(none));
                std::this_thread::sleep_for(1ms);
            }
        });
        // An emulated processor has enough to do with less.
        constexpr auto pause = support::scaled(200) == 200 ? 100us : 20'000us;
        std::jthread deaf([&](const std::stop_token& stop) {
            const std::string frame = frameOf(std::string(50'000, 'x'));
            while (!stop.stop_requested()) {
                Raw raw(server.port);
                while (!stop.stop_requested() && raw.send(frame, MSG_DONTWAIT) != 0)
                    std::this_thread::sleep_for(pause);
            }
        });
        for (int i = 0; i < 20; ++i)
            EXPECT_TRUE(Client(server).isAnswered(support::scaled(20)));
        EXPECT_TRUE(before.isAnswered(support::scaled(200)));
    }
    EXPECT_LT(allocator.peak, 26 * mebibyte);
}

TEST(MSGServer, holdsSilentClientsInLittleMemory)
{
    CountingAllocator allocator;
    {
        TestServer server(allocator.get());
        server.echo();
        const std::size_t before = allocator.bytes;
        std::vector<std::unique_ptr<Client>> clients;
        for (int i = 0; i < 200; ++i) {
            clients.push_back(std::make_unique<Client>(server));
            EXPECT_TRUE(clients.back()->isAnswered(1));
        }
        EXPECT_LT(allocator.bytes - before, clients.size() * 512);
        clients.resize(100);
        EXPECT_TRUE(support::comesTrue([&] { return allocator.bytes - before < clients.size() * 512; }));
        EXPECT_TRUE(clients.front()->isAnswered());
    }
}

TEST(MSGServer, dropsWhoDoesNotTakeItsData)
{
    Log log;
    CountingAllocator allocator;
    {
        const TestServer server(allocator.get());
        Client deaf(server);
        Client slow(server);
        Client honest(server);
        deaf.introduce(server);
        slow.introduce(server);
        honest.introduce(server);
        const std::string block(100'000, 'x');
        server.send(slow.endpoint, std::string(8 * mebibyte, 'y'));
        // More than the system takes for a connection, and than the server takes for it.
        for (int i = 0; i < 400; ++i) {
            server.send(deaf.endpoint, block);
            if (i % 10 == 0) {
                server.send(honest.endpoint, "news");
                EXPECT_EQ(honest.receive(), "news");
            }
        }
        EXPECT_TRUE(log.comes("1 Endpoint " + std::to_string(deaf.endpoint) + " is too slow. Dropping client\n"));
        // Who has less waiting is left in peace.
        EXPECT_EQ(log.count("1 Endpoint " + std::to_string(slow.endpoint) + " is too slow. Dropping client\n"), 0U);
        EXPECT_EQ(slow.receive().size(), 8 * mebibyte);
    }
    EXPECT_LT(allocator.peak, 26 * mebibyte);
}

TEST(MSGServer, bulkIsNoHarm)
{
    const TestServer server;
    Client client(server);
    client.introduce(server);
    const std::size_t size = 3 * mebibyte;
    const int count = support::scaled(15);
    std::jthread reader([&] {
        for (int i = 0; i < count; ++i)
            EXPECT_TRUE(client.receive() == std::string(size, static_cast<char>('a' + i % 26)));
    });
    for (int i = 0; i < count; ++i)
        server.send(client.endpoint, std::string(size, static_cast<char>('a' + i % 26)));
    reader.join();

    // Larger than what may wait.
    std::string large(20 * mebibyte, 'q');
    for (std::size_t i = 0; i < large.size(); i += 4096)
        large[i] = static_cast<char>(i >> 12);
    std::jthread answer([&] {
        uint32_t endpoint = 0;
        const std::string received = server.receive(&endpoint);
        EXPECT_TRUE(received == large);
        server.send(endpoint, received);
    });
    client.send(large);
    EXPECT_TRUE(client.receive() == large);
}

TEST(MSGServer, anApplicationThatOnlySendsIsNotBlocked)
{
    const TestServer server;
    Client client(server);
    Client loud(server);
    client.introduce(server);
    // Nobody receives, so in the end nobody reads what this one sends.
    const std::string frame = frameOf(std::string(100'000, 'x'));
    Raw raw(server.port);
    timeval limit = {0, 300'000};
    setsockopt(raw.descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
    std::size_t sent = 0;
    for (std::size_t size = frame.size(); size == frame.size(); sent += size)
        size = raw.send(frame);
    for (int i = 0; i < 1000; ++i) {
        server.send(client.endpoint, "news");
        EXPECT_EQ(client.receive(), "news");
    }
    // Nothing is lost.
    loud.send("last");
    uint32_t endpoint = 0;
    std::size_t received = 0;
    while (received + frame.size() <= sent) {
        const std::string content = server.receive(&endpoint);
        received += content == "last" ? 0 : content.size() + 12;
    }
    EXPECT_EQ(received, sent / frame.size() * frame.size());
}

TEST(MSGServer, whatWasSentBeforeALeaveArrives)
{
    const TestServer server;
    Client client(server);
    client.introduce(server);
    // As many as the system sends without an acknowledgement: all have come when the connection is reset.
    for (int i = 0; i < 8; ++i)
        client.send("fire and forget");
    EXPECT_EQ(cu_MSGClient_delete(&client.handle), 0U);
    server.send(client.endpoint, "this resets the connection");
    uint32_t endpoint = 0;
    for (int i = 0; i < 8; ++i)
        EXPECT_EQ(server.receive(&endpoint), "fire and forget");
}

TEST(MSGServer, whatWasSentBeforeTheEndArrives)
{
    auto server = std::make_unique<TestServer>();
    Client client(*server);
    client.introduce(*server);
    std::jthread reader([&] {
        for (int i = 0; i < 300; ++i)
            EXPECT_EQ(client.receive().size(), 40'000U);
        EXPECT_EQ(cu_MSGClient_receive(client.handle, Message()), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED);
    });
    for (int i = 0; i < 300; ++i)
        server->send(client.endpoint, std::string(40'000, 'x'));
    server.reset();
}

TEST(MSGServer, endsInEveryState)
{
    enum class State { idle, unread, half, full, deaf, flood };
    const std::string frame = frameOf(std::string(100'000, 'x'));
    for (const State state : {State::idle, State::unread, State::half, State::full, State::deaf, State::flood}) {
        SCOPED_TRACE(static_cast<int>(state));
        CountingAllocator allocator;
        auto server = std::make_unique<TestServer>(allocator.get());
        Client client(*server);
        client.introduce(*server);
        Raw raw(server->port);
        std::jthread flood;
        if (state == State::unread)
            client.send("unread");
        else if (state == State::half)
            raw.send(frame.substr(0, 70'000));
        else if (state == State::full)
            while (raw.send(frame, MSG_DONTWAIT) != 0)
                std::this_thread::sleep_for(100us);
        else if (state == State::deaf)
            for (int i = 0; i < 100; ++i)
                server->send(client.endpoint, std::string(100'000, 'x'));
        else if (state == State::flood) {
            server->echo();
            flood = std::jthread([&] {
                while (raw.send(frame) != 0) {
                }
            });
            EXPECT_EQ(raw.receive(12), headOf(100'000));
        }
        server.reset();
        if (state != State::deaf) {
            EXPECT_NE(cu_MSGClient_receive(client.handle, Message()), 0U);
        }
    }
}

TEST(MSGServer, twoInOneProcess)
{
    TestServer servers[2];
    const Client clients[] = {Client(servers[0]), Client(servers[1])};
    for (TestServer& server : servers)
        server.echo();
    for (const Client& client : clients)
        EXPECT_TRUE(client.isAnswered());
    cu_MSGServer* third = nullptr;
    EXPECT_EQ(cu_MSGServer_new(&third, CU_IP_ADDRESS_LOCAL, servers[0].port, nullptr),
              cu_ERROR_SOCKET_PORT_ALREADY_BOUND);
    EXPECT_EQ(third, nullptr);
}

TEST(MSGServer, usesDescriptorsOfAnyNumber)
{
    rlimit limit = {};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = std::min<rlim_t>(limit.rlim_max, 2000);
    if (limit.rlim_cur < 1200 || setrlimit(RLIMIT_NOFILE, &limit) != 0)
        GTEST_SKIP() << "this process may not have so many";
    std::vector<int> others{dup(0)};
    while (others.back() < 1100)
        others.push_back(dup(0));
    {
        TestServer server;
        server.echo();
        EXPECT_TRUE(Client(server).isAnswered());
    }
    std::ranges::for_each(others, close);
}

TEST(MSGServer, waitsForDescriptorsWhileThereAreNone)
{
    TestServer server;
    server.echo();
    const Client client(server);
    EXPECT_TRUE(client.isAnswered());
    rlimit before = {};
    getrlimit(RLIMIT_NOFILE, &before);
    const int next = dup(0);
    close(next);
    const rlimit none = {static_cast<rlim_t>(next + 1), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const Raw waiting(server.port);
    waiting.send(frameOf("still here"));
    EXPECT_TRUE(client.isAnswered());
    const std::clock_t start = std::clock();
    std::this_thread::sleep_for(500ms);
    EXPECT_LT(std::clock() - start, CLOCKS_PER_SEC / 4) << "the thread spins";
    EXPECT_TRUE(client.isAnswered());
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(waiting.receive(22), frameOf("still here"));
}

TEST(MSGServer, aMessageWithoutMemoryIsLostAlone)
{
    Log log;
    CountingAllocator allocator;
    {
        const TestServer server(allocator.get());
        Client client(server);
        Client greedy(server);
        client.introduce(server);
        greedy.introduce(server);
        allocator.limit = allocator.bytes + mebibyte;
        Raw raw(server.port);
        raw.send(frameOf(std::string(3 * mebibyte, 'x')));
        EXPECT_TRUE(raw.receive(1).empty());
        for (int i = 0; i < 100; ++i)
            server.send(greedy.endpoint, std::string(100'000, 'x'));
        for (const uint32_t endpoint : {greedy.endpoint, server.first + 2})
            EXPECT_TRUE(log.comes("1 No memory for what endpoint " + std::to_string(endpoint) +
                                  " exchanges. Dropping client\n"));
        client.send(std::string(10'000, 'y'));
        client.send("after it");

        support::WatchfulAllocator refusing(3);
        Handle<cu_Message, cu_Message_delete> message;
        ASSERT_EQ(cu_Message_new(&message, 0, refusing.get()), 0U);
        uint32_t endpoint = 0;
        EXPECT_FAILURE(cu_MSGServer_receive(server.handle, &endpoint, message), cu_ERROR_COM_MALLOC_FAILED, "refusal",
                       "test", "");
        EXPECT_EQ(endpoint, 0U);
        EXPECT_EQ(server.receive(&endpoint), "after it");
        EXPECT_EQ(endpoint, client.endpoint);
    }
}

TEST(MSGServer, itsThreadTakesNoSignals)
{
    const TestServer server;
    Client client(server);
    client.introduce(server);
    std::vector<std::string> masks;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::string line;
        bool isServer = false;
        for (std::ifstream status(task.path() / "status"); std::getline(status, line);) {
            isServer |= line == "Name:\tcu-msg-server";
            if (isServer && line.starts_with("SigBlk:"))
                masks.push_back(line.substr(8));
        }
    }
    ASSERT_EQ(masks.size(), 1U);
    // An emulator wants the signals of faults for itself.
    for (const int signal : {SIGHUP, SIGINT, SIGQUIT, SIGUSR1, SIGUSR2, SIGPIPE, SIGALRM, SIGTERM, SIGCHLD, SIGIO})
        EXPECT_NE(std::stoull(masks[0], nullptr, 16) & 1ULL << (signal - 1), 0U) << signal;
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

TEST(MSGServer, refusesNulls)
{
    const TestServer server;
    const Message message;
    cu_MSGServer* me = server.handle;
    cu_MSGServer* none = nullptr;
    uint32_t endpoint = 0;
    EXPECT_NULLS_REFUSED(file, (std::tuple(me, &none, static_cast<cu_Message*>(message), &endpoint)), cu_MSGServer_new,
                         cu_MSGServer_receive, cu_MSGServer_send);
    EXPECT_NULLS_REFUSED(file, std::tuple(&me), cu_MSGServer_delete);
    EXPECT_EQ(cu_MSGServer_getSelectable(nullptr), nullptr);
}

} // namespace
