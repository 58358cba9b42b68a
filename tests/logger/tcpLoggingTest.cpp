#include "logger/recorder.h"
#include "support/process.h"
#include "support/sweep.h"

#include <cUtil/logger/tcpLoggingAdapter.h>
#include <cUtil/logger/tcpLoggingClient.h>
#include <cUtil/thread.h>

#include <arpa/inet.h>
#include <sys/socket.h>

#include <atomic>
#include <csignal>
#include <string_view>
#include <thread>

namespace
{

using support::comesTrue;
using support::Recorder;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using namespace std::chrono_literals;
using namespace std::string_literals;

constexpr char adapterFile[] = "src/cUtil/logger/tcpLoggingAdapter";
constexpr char clientFile[] = "src/cUtil/logger/tcpLoggingClient";
constexpr uint32_t local = 0x7F000001;

/// A plain socket of the test's, listening or connected.
class Peer
{
public:
    explicit Peer(int descriptor = socket(AF_INET, SOCK_STREAM, 0)) : descriptor_(descriptor) {}
    Peer(Peer&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
    Peer& operator=(Peer&&) = delete;
    ~Peer() { close(); }

    static Peer listening()
    {
        Peer peer;
        const int yes = 1;
        setsockopt(peer.descriptor_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
        sockaddr_in address = {AF_INET, 0, {htonl(local)}, {}};
        EXPECT_EQ(bind(peer.descriptor_, generic(&address), sizeof(address)), 0);
        EXPECT_EQ(listen(peer.descriptor_, 100), 0);
        return peer;
    }

    static Peer connected(uint16_t port)
    {
        Peer peer;
        sockaddr_in address = {AF_INET, htons(port), {htonl(local)}, {}};
        EXPECT_EQ(connect(peer.descriptor_, generic(&address), sizeof(address)), 0);
        return peer;
    }

    Peer accepted() const { return Peer(accept(descriptor_, nullptr, nullptr)); }

    uint16_t port() const
    {
        sockaddr_in address = {};
        socklen_t size = sizeof(address);
        getsockname(descriptor_, generic(&address), &size);
        return ntohs(address.sin_port);
    }

    void send(std::string_view bytes) const
    {
        EXPECT_EQ(::send(descriptor_, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
    }

    /// So many bytes, or fewer if the other side ends first.
    std::string receive(std::size_t size) const
    {
        std::string bytes(size, '\0');
        std::size_t got = 0;
        for (ssize_t piece = 1; got < size && piece > 0; got += static_cast<std::size_t>(std::max<ssize_t>(piece, 0)))
            piece = recv(descriptor_, bytes.data() + got, size - got, 0);
        bytes.resize(got);
        return bytes;
    }

    void close() { ::close(std::exchange(descriptor_, -1)); }

private:
    static sockaddr* generic(sockaddr_in* address) { return static_cast<sockaddr*>(static_cast<void*>(address)); }

    int descriptor_;
};

std::string bigEndian(uint32_t value)
{
    value = htonl(value);
    return std::string(static_cast<const char*>(static_cast<const void*>(&value)), 4);
}

std::string record(uint32_t level, const std::string& text)
{
    return bigEndian(level) + bigEndian(static_cast<uint32_t>(text.size() + 1)) + text + '\0';
}

class TCPLogging : public testing::Test
{
protected:
    void start() { ASSERT_EQ(cu_logger_TCPLoggingAdapter_new(&adapter, local, port, nullptr), 0U); }
    void TearDown() override
    {
        if (adapter != nullptr) {
            EXPECT_EQ(cu_logger_Adapter_destruct(&adapter), 0U);
        }
    }

    void log(uint32_t level, const std::string& text) const
    {
        EXPECT_EQ(cu_logger_Adapter_logMessage(adapter, level, text.c_str()), 0U);
    }

    /// Logs until the viewer that has just connected gets something; then it is the only one.
    void expectViewed(const Peer& viewer) const
    {
        std::atomic<bool> isSeen = false;
        std::thread reader([&] {
            EXPECT_EQ(viewer.receive(10), record(9, "?"));
            isSeen = true;
        });
        EXPECT_TRUE(comesTrue([&] {
            if (!isSeen)
                log(9, "?");
            return isSeen.load();
        }));
        reader.join();
        log(9, "!");
        while (viewer.receive(10) == record(9, "?")) {
        }
    }

    const uint16_t port = Peer::listening().port();
    cu_logger_Adapter* adapter = nullptr;
};

TEST_F(TCPLogging, constructorsLeaveNothingBehind)
{
    const std::initializer_list<std::string> inVain = {"sem_trywait", "pthread_mutex_trylock", "clock_gettime",
                                                       "sysconf"};
    support::sweep<cu_logger_Adapter>(
        "cu_logger_TCPLoggingAdapter_new",
        [&](auto** handle, auto* allocator) { return cu_logger_TCPLoggingAdapter_new(handle, local, port, allocator); },
        cu_logger_Adapter_destruct, inVain, "pthread_mutex_unlock");

    const Peer server = Peer::listening();
    Recorder lines;
    support::sweep<cu_logger_TCPLoggingClient>(
        "cu_logger_TCPLoggingClient_new",
        [&](auto** handle, auto* allocator) {
            lines.ended = false;
            return cu_logger_TCPLoggingClient_new(handle, lines.get(), local, server.port(), allocator);
        },
        cu_logger_TCPLoggingClient_delete, inVain);
}

TEST_F(TCPLogging, badArgumentsAreRefused)
{
    start();
    Recorder lines;
    cu_logger_Adapter* none = nullptr;
    cu_logger_TCPLoggingClient* client = nullptr;
    constexpr char newAdapter[] = "cu_logger_TCPLoggingAdapter_new";
    constexpr char newClient[] = "cu_logger_TCPLoggingClient_new";
    constexpr char logMessage[] = "cu_logger_TCPLoggingAdapter_logMessage";
    EXPECT_REFUSED(cu_logger_TCPLoggingAdapter_new(nullptr, local, port, nullptr), newAdapter, adapterFile);
    EXPECT_REFUSED(cu_logger_TCPLoggingAdapter_new(&adapter, local, port, nullptr), newAdapter, adapterFile);
    EXPECT_REFUSED(adapter->logMessage(nullptr, 0, ""), logMessage, adapterFile);
    EXPECT_REFUSED(adapter->logMessage(adapter->context, 0, nullptr), logMessage, adapterFile);
    EXPECT_REFUSED(adapter->destruct(nullptr), "cu_logger_TCPLoggingAdapter_destruct", adapterFile);
    EXPECT_EQ(cu_logger_TCPLoggingAdapter_new(&none, local, port, nullptr), cu_ERROR_SOCKET_PORT_ALREADY_BOUND);
    EXPECT_EQ(none, nullptr);

    EXPECT_REFUSED(cu_logger_TCPLoggingClient_new(nullptr, lines.get(), local, port, nullptr), newClient, clientFile);
    EXPECT_REFUSED(cu_logger_TCPLoggingClient_new(&client, nullptr, local, port, nullptr), newClient, clientFile);
    EXPECT_REFUSED(cu_logger_TCPLoggingClient_delete(nullptr), "cu_logger_TCPLoggingClient_delete", clientFile);
    EXPECT_REFUSED(cu_logger_TCPLoggingClient_delete(&client), "cu_logger_TCPLoggingClient_delete", clientFile);
    EXPECT_EQ(cu_logger_TCPLoggingClient_getRunnable(nullptr), nullptr);
    ASSERT_EQ(cu_logger_TCPLoggingClient_new(&client, lines.get(), local, port, nullptr), 0U);
    EXPECT_REFUSED(cu_logger_TCPLoggingClient_new(&client, lines.get(), local, port, nullptr), newClient, clientFile);
    bool running = true;
    EXPECT_REFUSED(cu_logger_TCPLoggingClient_run(nullptr, &running), "cu_logger_TCPLoggingClient_run", clientFile);
    EXPECT_REFUSED(cu_logger_TCPLoggingClient_run(client, nullptr), "cu_logger_TCPLoggingClient_run", clientFile);
    EXPECT_EQ(cu_logger_TCPLoggingClient_delete(&client), 0U); // nothing is pending
    EXPECT_TRUE(lines.ended);
}

TEST_F(TCPLogging, theViewerGetsRecords)
{
    start();
    log(1, "nobody sees it");
    const Peer viewer = Peer::connected(port);
    expectViewed(viewer);
    log(2, "abc");
    EXPECT_EQ(viewer.receive(12), "\0\0\0\2\0\0\0\4abc\0"s);
    log(0xFFFFFFFE, "");
    EXPECT_EQ(viewer.receive(9), "\xFF\xFF\xFF\xFE\0\0\0\1\0"s);
    for (const std::size_t length : {1014U, 1015U, 1016U, 1017U, 17400U, 200000U}) {
        const std::string text(length, 'x');
        std::thread logger([&] { log(1, text); });
        EXPECT_EQ(viewer.receive(length + 9), record(1, text)) << length;
        logger.join();
    }
}

TEST_F(TCPLogging, theNewestViewerReplacesTheOlderOne)
{
    start();
    const Peer first = Peer::connected(port);
    expectViewed(first);
    const Peer second = Peer::connected(port);
    expectViewed(second);
    while (first.receive(10).size() == 10) { // what it got before it was cut off
    }
    log(0, "x");
    EXPECT_EQ(second.receive(10), record(0, "x"));
    EXPECT_EQ(cu_logger_Adapter_destruct(&adapter), 0U);
    EXPECT_EQ(second.receive(1), "");
}

TEST_F(TCPLogging, aKilledViewerIsForgotten)
{
    start();
    for (int round = 0; round < 3; ++round) {
        support::Shared<std::atomic<bool>> isViewing;
        support::Process process([&] {
            const Peer viewer = Peer::connected(port);
            *isViewing = viewer.receive(10) == record(9, "?");
            return pause();
        });
        ASSERT_TRUE(comesTrue([&] {
            log(9, "?");
            return isViewing->load();
        }));
        process.kill();
        for (int n = 0; n < 100; ++n)
            log(1, std::string(1000, 'x'));
    }
    const Peer viewer = Peer::connected(port);
    expectViewed(viewer);
}

TEST_F(TCPLogging, aViewerThatDoesNotReadHoldsUpNobodyForLong)
{
    start();
    ASSERT_EQ(cu_Logger_addAdapter("tcp", adapter, 3), 0U);
    const std::string text(100000, 'x');
    std::atomic<bool> isOver = false;
    const Peer deaf = Peer::connected(port);
    expectViewed(deaf);
    std::thread logger([&] {
        while (!isOver)
            EXPECT_EQ(cu_Logger_log(1, text.c_str()), 0U);
    });
    std::this_thread::sleep_for(50ms);
    const Peer newer = Peer::connected(port);
    EXPECT_EQ(newer.receive(text.size()).size(), text.size());
    std::this_thread::sleep_for(50ms); // held up again
    adapter = nullptr;
    EXPECT_EQ(cu_Logger_removeAdapter("tcp"), 0U);
    isOver = true;
    logger.join();
}

/// A client and the other end of its connection.
class TCPViewer : public testing::Test
{
protected:
    explicit TCPViewer(cu_allocator* allocator = nullptr)
    {
        EXPECT_EQ(cu_logger_TCPLoggingClient_new(&client, lines.get(), local, server.port(), allocator), 0U);
        sender = std::make_unique<Peer>(server.accepted());
    }
    void TearDown() override
    {
        if (client != nullptr)
            end();
    }

    void end()
    {
        EXPECT_EQ(cu_logger_TCPLoggingClient_delete(&client), 0U);
        EXPECT_EQ(client, nullptr);
        EXPECT_TRUE(lines.ended);
    }

    support::Failure read()
    {
        bool running = true;
        return support::failureOf([&] { return cu_logger_TCPLoggingClient_run(client, &running); });
    }

    const Peer server = Peer::listening();
    Recorder lines;
    cu_logger_TCPLoggingClient* client = nullptr;
    std::unique_ptr<Peer> sender;
};

TEST_F(TCPViewer, handsEveryLineOnUntilTheOtherSideCloses)
{
    std::vector<std::string> expected;
    for (const std::size_t length : {3U, 0U, 4095U, 4096U, 4999U, 60000U, 5U}) {
        expected.push_back("3 " + std::string(length, 'x'));
        sender->send(record(3, std::string(length, 'x')));
    }
    sender->close();
    EXPECT_EQ(read(), (support::Failure{cu_ERROR_SOCKET_OTHER_SIDE_CLOSED, "cu_TCPSocket_receive",
                                        "src/cUtil/network/tcpSocket.linux", ""}));
    EXPECT_THAT(support::trace(), testing::HasSubstr("cu_logger_TCPLoggingClient_read  -  "));
    EXPECT_EQ(lines.lines(), expected);
}

TEST_F(TCPViewer, whatTheAdapterFailsWithEndsTheReading)
{
    lines.answer = 42;
    sender->send(record(4, "a") + record(0, "b"));
    EXPECT_EQ(read(), (support::Failure{42, "logMessage", "recorder", "a"}));
    EXPECT_THAT(lines.lines(), ElementsAre("4 a"));
}

TEST_F(TCPViewer, runsInAThreadAndStopsInTheMiddleOfARecord)
{
    cu_Thread* thread = nullptr;
    uintptr_t result = 1;
    ASSERT_EQ(cu_Thread_new(&thread, nullptr), 0U);
    ASSERT_EQ(cu_Thread_start(thread, cu_logger_TCPLoggingClient_getRunnable(client)), 0U);
    const std::string whole = record(1, "byte by byte");
    for (const char byte : whole)
        sender->send(std::string(1, byte));
    EXPECT_TRUE(comesTrue([&] { return !lines.lines().empty(); }));
    EXPECT_THAT(lines.lines(), ElementsAre("1 byte by byte"));
    sender->send(whole.substr(0, 15));
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(cu_Thread_stop(thread, false), 0U);
    EXPECT_EQ(cu_Thread_join(thread, &result), 0U);
    EXPECT_EQ(result, 0U);
    EXPECT_EQ(cu_Thread_delete(&thread), 0U);
    EXPECT_THAT(lines.lines(), SizeIs(1));
}

TEST_F(TCPViewer, deletingEndsTheReading)
{
    std::atomic<bool> isReading = false;
    lines.act = [&](uint32_t, const std::string&) { isReading = true; };
    sender->send(record(1, "x"));
    std::thread reader([this] { EXPECT_EQ(read().code, cu_ERROR_SOCKET_OTHER_SIDE_CLOSED); });
    ASSERT_TRUE(comesTrue([&] { return isReading.load(); }));
    std::this_thread::sleep_for(10ms);
    end();
    reader.join();
}

TEST(TCPHostile, badRecordsEndTheReadingAndTakeNoMemoryAhead)
{
    struct Case {
        const char* name;
        std::string bytes;
        cu_ErrorCode code;
        std::vector<std::string> lines;
    };
    constexpr cu_ErrorCode closed = cu_ERROR_SOCKET_OTHER_SIDE_CLOSED;
    constexpr cu_ErrorCode bad = cu_ERROR_COM_INVARIANT;
    const Case cases[] = {
        {"no text", bigEndian(1) + bigEndian(0) + record(1, "x"), bad, {}},
        {"largest", record(1, "x") + bigEndian(1) + bigEndian(~0U) + std::string(9000, 'y'), closed, {"1 x"}},
        {"huge", bigEndian(1) + bigEndian(1U << 31U) + std::string(20000, 'y'), closed, {}},
        {"no NUL", bigEndian(1) + bigEndian(3) + "abcd\0"s, bad, {}},
        {"no NUL in the whole buffer", bigEndian(1) + bigEndian(4096) + std::string(4096, 'z') + '\0', bad, {}},
        {"a NUL inside", bigEndian(7) + bigEndian(6) + "ab\0cd\0"s, closed, {"7 ab"}},
        {"half a head", bigEndian(1) + "\0"s, closed, {}},
    };
    for (const Case& one : cases) {
        SCOPED_TRACE(one.name);
        const Peer server = Peer::listening();
        Recorder lines;
        support::WatchfulAllocator allocator;
        cu_logger_TCPLoggingClient* client = nullptr;
        ASSERT_EQ(cu_logger_TCPLoggingClient_new(&client, lines.get(), local, server.port(), allocator.get()), 0U);
        server.accepted().send(one.bytes);
        bool running = true;
        EXPECT_EQ(cu_logger_TCPLoggingClient_run(client, &running), one.code);
        EXPECT_EQ(lines.lines(), one.lines);
        for (const uint32_t request : allocator.requests())
            EXPECT_LE(request, std::max<std::size_t>(4096, 2 * one.bytes.size()));
        EXPECT_EQ(cu_logger_TCPLoggingClient_delete(&client), 0U);
    }
}

} // namespace
