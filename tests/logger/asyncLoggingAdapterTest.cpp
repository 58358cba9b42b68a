#include "logger/recorder.h"
#include "support/process.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/logger/asyncLoggingAdapter.h>
#include <cUtil/mallocAllocator.h>

#include <atomic>
#include <condition_variable>
#include <thread>

namespace
{

using support::Recorder;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::SizeIs;

constexpr char file[] = "src/cUtil/logger/asyncLoggingAdapter";

/// An adapter in front of a recorder that can be held up.
class AsyncLogging : public testing::Test
{
protected:
    void SetUp() override
    {
        wrapped.act = [this](uint32_t, const std::string&) {
            std::unique_lock lock(mutex);
            isHeld = true;
            changed.wait(lock, [this] { return !holds; });
        };
    }
    void TearDown() override
    {
        if (adapter != nullptr)
            end();
    }

    void start(uint32_t size = 4096, cu_allocator* allocator = nullptr)
    {
        ASSERT_EQ(cu_logger_AsyncLoggingAdapter_new(&adapter, wrapped.get(), size, allocator), 0U);
    }

    void end()
    {
        EXPECT_EQ(cu_logger_Adapter_destruct(&adapter), 0U);
        EXPECT_EQ(adapter, nullptr);
        EXPECT_TRUE(wrapped.ended);
    }

    void log(uint32_t level, const std::string& text)
    {
        EXPECT_EQ(cu_logger_Adapter_logMessage(adapter, level, text.c_str()), 0U);
    }

    /// The thread is busy with a line, and the buffer empty.
    void hold()
    {
        isHeld = false;
        holds = true;
        log(0, "hold");
        ASSERT_TRUE(support::comesTrue([this] { return std::lock_guard(mutex), isHeld; }));
        wrapped.take();
    }

    void letGo()
    {
        const std::lock_guard guard(mutex);
        holds = false;
        changed.notify_all();
    }

    Recorder wrapped;
    cu_logger_Adapter* adapter = nullptr;
    std::mutex mutex;
    std::condition_variable changed;
    bool holds = false;
    bool isHeld = false;
};

TEST_F(AsyncLogging, constructorLeavesNothingBehind)
{
    // Requests of the adapter's own thread go to the heap; they come when they come.
    static const std::thread::id owner = std::this_thread::get_id();
    static cu_allocator* watched;
    static constexpr auto choose = [] {
        return std::this_thread::get_id() == owner ? watched : cu_allocator_malloc_get();
    };
    cu_allocator divided = {
        nullptr, [](void*, void** block, uint32_t size) { return cu_allocator_alloc(choose(), block, size); }, nullptr,
        [](void*, void** block) { return cu_allocator_free(choose(), block); }, nullptr};
    support::sweep<cu_logger_Adapter>(
        "cu_logger_AsyncLoggingAdapter_new",
        [&](cu_logger_Adapter** handle, cu_allocator* allocator) {
            watched = allocator;
            wrapped.ended = false;
            return cu_logger_AsyncLoggingAdapter_new(handle, wrapped.get(), 4096, &divided);
        },
        cu_logger_Adapter_destruct, {"sem_trywait", "pthread_mutex_trylock", "clock_gettime", "sysconf"},
        "pthread_mutex_unlock");
}

TEST_F(AsyncLogging, badArgumentsAreRefused)
{
    constexpr char create[] = "cu_logger_AsyncLoggingAdapter_new";
    cu_logger_Adapter* none = nullptr;
    cu_logger_Adapter* taken = wrapped.get();
    EXPECT_REFUSED(cu_logger_AsyncLoggingAdapter_new(nullptr, wrapped.get(), 4096, nullptr), create, file);
    EXPECT_REFUSED(cu_logger_AsyncLoggingAdapter_new(&taken, wrapped.get(), 4096, nullptr), create, file);
    EXPECT_REFUSED(cu_logger_AsyncLoggingAdapter_new(&none, nullptr, 4096, nullptr), create, file);
    EXPECT_REFUSED(cu_logger_AsyncLoggingAdapter_new(&none, wrapped.get(), 5000, nullptr), create, file);
    for (const uint32_t size : {0U, 12288U, 0xFFFFF000U}) {
        EXPECT_REFUSED(cu_logger_AsyncLoggingAdapter_new(&none, wrapped.get(), size, nullptr), "cu_RingBuffer_new",
                       "src/cUtil/ringBuffer");
        EXPECT_EQ(none, nullptr);
    }
    start();
    support::expectRefusals(adapter, "cu_logger_AsyncLoggingAdapter_", file);
}

TEST_F(AsyncLogging, whatFitsIsKeptAndWhatDoesNotIsDroppedWhole)
{
    start();
    hold();
    log(7, std::string(4087, 'x')); // one byte of the 4096 stays free
    log(7, std::string(4086, 'y'));
    log(0, "");
    letGo();
    ASSERT_TRUE(support::comesTrue([this] { return !wrapped.lines().empty(); }));
    EXPECT_THAT(wrapped.lines(), ElementsAre("7 " + std::string(4086, 'y')));
    hold();
    log(1, std::string(3000, 'a'));
    log(2, std::string(2000, 'b'));
    log(3, std::string(1077, 'c'));
    log(0, ""); // 9 bytes are not there any more
    letGo();
    end();
    EXPECT_THAT(wrapped.lines(), ElementsAre("1 " + std::string(3000, 'a'), "3 " + std::string(1077, 'c')));
}

TEST_F(AsyncLogging, endingPassesOnWhatIsQueued)
{
    start(65536);
    hold();
    std::vector<std::string> expected;
    for (const std::size_t length : {4091U, 4092U, 20000U, 1U, 30000U}) { // longer than the thread's buffer at first
        log(3, std::string(length, 'x'));
        expected.push_back("3 " + std::string(length, 'x'));
    }
    std::thread opener([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_THAT(wrapped.lines(), SizeIs(0));
        letGo();
    });
    end();
    opener.join();
    EXPECT_EQ(wrapped.lines(), expected);
}

TEST_F(AsyncLogging, anAdapterThatFailsEndsThePassingOnButNotTheCallers)
{
    start();
    hold();
    for (int n = 0; n < 10; ++n)
        log(1, "never");
    wrapped.answer = 5;
    letGo();
    end(); // with lines left
    EXPECT_THAT(wrapped.lines(), SizeIs(0));

    // So does a lack of memory for its buffer.
    static const std::thread::id owner = std::this_thread::get_id();
    cu_allocator refusing = *cu_allocator_malloc_get();
    refusing.alloc = [](void* context, void** block, uint32_t size) {
        const bool isOwner = std::this_thread::get_id() == owner;
        return isOwner ? cu_allocator_malloc_get()->alloc(context, block, size) : cu_ErrorCode{9};
    };
    wrapped.ended = false;
    start(4096, &refusing);
    log(0, "lost");
    end();
    EXPECT_THAT(wrapped.lines(), SizeIs(0));
}

TEST_F(AsyncLogging, linesOfEachThreadKeepTheirOrder)
{
    constexpr unsigned threads = 4;
    const int lines = support::scaled(20000);
    start(1 << 22); // all of them
    std::vector<std::thread> loggers;
    for (unsigned thread = 0; thread < threads; ++thread)
        loggers.emplace_back([&, thread] {
            for (int n = 0; n < lines; ++n)
                log(thread, std::to_string(n));
        });
    for (std::thread& logger : loggers)
        logger.join();
    end();
    int next[threads] = {};
    for (const std::string& line : wrapped.lines()) {
        int& expected = next[line[0] - '0'];
        ASSERT_EQ(line.substr(2), std::to_string(expected));
        ++expected;
    }
    EXPECT_THAT(next, testing::Each(lines));
}

TEST_F(AsyncLogging, theWrappedAdapterMayLogByTheLogger)
{
    Recorder listener;
    listener.add("listener", 3);
    start();
    wrapped.act = [](uint32_t level, const std::string&) {
        if (level == 0) {
            EXPECT_EQ(cu_Logger_log(3, "from the thread"), 0U);
        }
    };
    ASSERT_EQ(cu_Logger_addAdapter("async", adapter, 0), 0U);
    for (int n = 0; n < 50; ++n)
        EXPECT_EQ(cu_Logger_log(0, "x"), 0U);
    EXPECT_EQ(cu_Logger_removeAdapter("async"), 0U); // while its thread still logs
    adapter = nullptr;
    EXPECT_THAT(wrapped.lines(), SizeIs(50));
    EXPECT_THAT(listener.lines(), SizeIs(100));
}

TEST_F(AsyncLogging, whatFailsAtTheEndIsFatal)
{
    const support::Outcome outcome = support::outcomeOf([this] {
        start();
        wrapped.lastAnswer = 5;
        cu_logger_Adapter_destruct(&adapter);
    });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_THAT(outcome.out, HasSubstr("!   Function: 'cu_logger_AsyncLoggingAdapter_destruct'"));
}

} // namespace
