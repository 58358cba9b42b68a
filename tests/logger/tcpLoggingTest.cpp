#include "logger/recorder.h"
#include "network/messages.h"
#include "support/process.h"
#include "support/sweep.h"

#include <cUtil/logger/tcpLoggingAdapter.h>
#include <cUtil/logger/tcpLoggingClient.h>
#include <cUtil/thread.h>

#include <atomic>
#include <poll.h>

namespace
{

using support::comesTrue;
using support::Recorder;
using testing::ElementsAre;
using namespace std::string_literals;

std::string record(uint32_t level, const std::string& text)
{
    return bigEndian(level) + bigEndian(static_cast<uint32_t>(text.size() + 1)) + text + '\0';
}

class TCPLogging : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(cu_logger_TCPLoggingAdapter_new(&adapter, CU_IP_ADDRESS_LOCAL, port, nullptr), 0U);
        ASSERT_EQ(cu_Logger_addAdapter("tcp", adapter, ~0U), 0U);
    }
    void TearDown() override { EXPECT_EQ(cu_Logger_removeAllAdapters(), 0U); }

    static void log(uint32_t level, const std::string& text) { EXPECT_EQ(cu_Logger_log(level, text.c_str()), 0U); }

    /// Logs until a new viewer gets something; then it is the only one.
    static void view(Raw& viewer)
    {
        pollfd seen = {viewer.descriptor, POLLIN, 0};
        ASSERT_TRUE(comesTrue([&] {
            log(9, "?");
            return poll(&seen, 1, 1) == 1;
        }));
        log(9, "!");
        while (viewer.receive(10) == record(9, "?")) {
        }
    }

    const uint16_t port = Server().port;
    cu_logger_Adapter* adapter = nullptr;
};

TEST_F(TCPLogging, constructorsLeaveNothingBehind)
{
    const auto inVain = {"sem_trywait"s, "pthread_mutex_trylock"s, "clock_gettime"s, "sysconf"s};
    const uint16_t other = Server().port;
    support::sweep<cu_logger_Adapter>(
        "cu_logger_TCPLoggingAdapter_new",
        [&](auto** handle, auto* allocator) {
            return cu_logger_TCPLoggingAdapter_new(handle, CU_IP_ADDRESS_LOCAL, other, allocator);
        },
        cu_logger_Adapter_destruct, inVain, "pthread_mutex_unlock");
    const Server server(100);
    Recorder lines;
    support::sweep<cu_logger_TCPLoggingClient>(
        "cu_logger_TCPLoggingClient_new",
        [&](auto** handle, auto* allocator) {
            lines.ended = false;
            return cu_logger_TCPLoggingClient_new(handle, lines.get(), CU_IP_ADDRESS_LOCAL, server.port, allocator);
        },
        cu_logger_TCPLoggingClient_delete, inVain);
}

TEST_F(TCPLogging, badArgumentsAreRefused)
{
    constexpr char adapterFile[] = "src/cUtil/logger/tcpLoggingAdapter";
    constexpr char clientFile[] = "src/cUtil/logger/tcpLoggingClient";
    Recorder lines;
    bool running = true;
    cu_logger_Adapter* none = nullptr;
    cu_logger_TCPLoggingClient* client = nullptr;
    EXPECT_NULLS_REFUSED(adapterFile, std::tuple(&none), cu_logger_TCPLoggingAdapter_new);
    support::expectRefusals(adapter, "cu_logger_TCPLoggingAdapter_", adapterFile);
    EXPECT_NULLS_REFUSED(clientFile, std::tuple(&client, lines.get()), cu_logger_TCPLoggingClient_new);
    EXPECT_EQ(cu_logger_TCPLoggingClient_getRunnable(nullptr), nullptr);
    ASSERT_EQ(cu_logger_TCPLoggingClient_new(&client, lines.get(), CU_IP_ADDRESS_LOCAL, port, nullptr), 0U);
    EXPECT_NULLS_REFUSED(clientFile, std::tuple(&client, client, &running), cu_logger_TCPLoggingClient_delete,
                         cu_logger_TCPLoggingClient_run);
    EXPECT_EQ(cu_logger_TCPLoggingClient_delete(&client), 0U); // nothing is pending
    EXPECT_TRUE(lines.ended);
}

TEST_F(TCPLogging, theNewestViewerGetsRecords)
{
    log(1, "nobody sees it");
    Raw first(port);
    view(first);
    log(0xFFFFFFFE, "abc");
    EXPECT_EQ(first.receive(12), "\xFF\xFF\xFF\xFE\0\0\0\4abc\0"s);
    Raw second(port);
    view(second);
    first.receive(100000); // what it got before it was cut off
    for (const std::size_t length : {1015U, 1016U, 17400U, 200000U}) {
        const std::string text(length, 'x');
        std::thread logger([&] { log(1, text); });
        EXPECT_EQ(second.receive(length + 9), record(1, text)) << length;
        logger.join();
    }
    EXPECT_EQ(cu_Logger_removeAdapter("tcp"), 0U);
    EXPECT_EQ(second.receive(1), "");
}

TEST_F(TCPLogging, aViewerThatHasGoneIsForgotten)
{
    for (int round = 0; round < 3; ++round) {
        {
            Raw viewer(port);
            view(viewer);
        }
        for (int n = 0; n < 100; ++n)
            log(1, std::string(1000, 'x'));
        cu_Error_clear(cu_getErrorLocation());
        log(1, "nobody sees it");
        EXPECT_EQ(cu_getErrorLocation()->errorID, 0U); // nothing was sent
    }
}

TEST_F(TCPLogging, aViewerThatDoesNotReadHoldsUpNobodyForLong)
{
    const std::string text(100000, 'x');
    std::atomic<bool> isOver = false;
    Raw deaf(port);
    view(deaf);
    std::thread logger([&] {
        while (!isOver)
            log(1, text);
    });
    std::this_thread::sleep_for(50ms);
    Raw newer(port);
    EXPECT_EQ(newer.receive(text.size()).size(), text.size());
    std::this_thread::sleep_for(50ms); // held up again
    EXPECT_EQ(cu_Logger_removeAdapter("tcp"), 0U);
    isOver = true;
    logger.join();
}

/// A client, and what is on the other end of its connection.
class TCPViewer : public testing::Test
{
protected:
    void connect()
    {
        const Server server;
        ASSERT_EQ(
            cu_logger_TCPLoggingClient_new(&client, lines.get(), CU_IP_ADDRESS_LOCAL, server.port, allocator.get()),
            0U);
        ASSERT_EQ(cu_TCPServerSocket_accept(server.socket, &sender), 0U);
    }

    void send(const std::string& bytes) const
    {
        EXPECT_EQ(cu_TCPSocket_send(sender, bytes.data(), static_cast<uint32_t>(bytes.size()), false), 0U);
    }

    void disconnect()
    {
        EXPECT_EQ(cu_logger_TCPLoggingClient_delete(&client), 0U);
        EXPECT_TRUE(std::exchange(lines.ended, false));
    }

    cu_ErrorCode read() const
    {
        bool running = true;
        return cu_logger_TCPLoggingClient_run(client, &running);
    }

    support::WatchfulAllocator allocator;
    Recorder lines;
    cu_logger_TCPLoggingClient* client = nullptr;
    TCPSocket sender;
};

// What is wrong on the way is the fuzz target's.
TEST_F(TCPViewer, handsOnWhatIsGoodAndTakesNoMemoryAhead)
{
    const std::string text(4999, 'x');
    const struct {
        std::string bytes;
        cu_ErrorCode code;
        std::vector<std::string> lines;
        std::vector<uint32_t> requests;
    } cases[] = {
        {record(3, "a") + record(7, "") + record(0, text) + record(0, "b"),
         cu_ERROR_SOCKET_OTHER_SIDE_CLOSED,
         {"3 a", "7 ", "0 " + text, "0 b"},
         {4096, 5000}},
        {record(1, "a") + record(1, "fail") + record(1, "b"), 42, {"1 a", "1 fail"}, {4096}},
        {bigEndian(1) + bigEndian(4096) + std::string(4096, 'z') + '\0', cu_ERROR_COM_INVARIANT, {}, {4096}},
        {record(1, "x") + bigEndian(1) + bigEndian(~0U) + text + text,
         cu_ERROR_SOCKET_OTHER_SIDE_CLOSED,
         {"1 x"},
         {4096, 8192, 16384}},
    };
    lines.act = [this](uint32_t, const std::string& line) { lines.answer = line == "fail" ? 42 : 0; };
    for (const auto& one : cases) {
        connect();
        const auto before = static_cast<ptrdiff_t>(allocator.requests().size());
        send(one.bytes);
        EXPECT_EQ(cu_TCPSocket_delete(&sender), 0U);
        EXPECT_EQ(read(), one.code);
        EXPECT_EQ(cu_getErrorLocation()->errorID, one.code);
        EXPECT_EQ(lines.take(), one.lines);
        EXPECT_EQ(std::vector(allocator.requests().begin() + before, allocator.requests().end()), one.requests);
        disconnect();
    }
}

TEST_F(TCPViewer, stopsInTheMiddleOfARecord)
{
    cu_Thread* thread = nullptr;
    uintptr_t result = 1;
    connect();
    ASSERT_EQ(cu_Thread_new(&thread, nullptr), 0U);
    ASSERT_EQ(cu_Thread_start(thread, cu_logger_TCPLoggingClient_getRunnable(client)), 0U);
    const std::string whole = record(1, "byte by byte");
    for (const char byte : whole + whole.substr(0, 15))
        send(std::string(1, byte));
    EXPECT_TRUE(comesTrue([&] { return !lines.lines().empty(); }));
    std::this_thread::sleep_for(20ms);
    EXPECT_EQ(cu_Thread_stop(thread, false), 0U);
    EXPECT_EQ(cu_Thread_join(thread, &result), 0U);
    EXPECT_EQ(result, 0U);
    EXPECT_EQ(cu_Thread_delete(&thread), 0U);
    EXPECT_THAT(lines.lines(), ElementsAre("1 byte by byte"));
    disconnect();
}

TEST_F(TCPViewer, deletingEndsTheReading)
{
    connect();
    send(record(1, "x"));
    std::thread reader([this] { EXPECT_EQ(read(), cu_ERROR_SOCKET_OTHER_SIDE_CLOSED); });
    EXPECT_TRUE(comesTrue([&] { return !lines.lines().empty(); })); // so that it has begun
    disconnect();
    reader.join();
}

} // namespace
