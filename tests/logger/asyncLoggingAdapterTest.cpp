#include "logger/recorder.h"
#include "support/process.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/logger/asyncLoggingAdapter.h>
#include <cUtil/mallocAllocator.h>

#include <atomic>
#include <thread>

namespace
{

using support::Recorder;
using testing::ElementsAre;
using testing::SizeIs;

/// An adapter in front of a recorder that can be held up.
class AsyncLogging : public testing::Test
{
protected:
    void SetUp() override
    {
        wrapped.act = [this](uint32_t, const std::string& text) {
            if (text != "hold")
                return;
            isHeld = true;
            holds.wait(true);
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
        ASSERT_TRUE(support::comesTrue([this] { return isHeld.load(); }));
        wrapped.take();
    }

    void letGo()
    {
        holds = false;
        holds.notify_all();
    }

    Recorder wrapped;
    cu_logger_Adapter* adapter = nullptr;
    std::atomic<bool> holds = false;
    std::atomic<bool> isHeld = false;
};

/// One allocator for this thread, and one for the adapter's own.
class SplitAllocator
{
public:
    SplitAllocator(cu_allocator* here, cu_allocator* there) : here_(here), there_(there) {}
    cu_allocator* get() { return &table_; }

private:
    static cu_allocator* choose(void* context)
    {
        auto* me = static_cast<SplitAllocator*>(context);
        return std::this_thread::get_id() == me->owner_ ? me->here_ : me->there_;
    }
    static cu_ErrorCode alloc(void* context, void** block, uint32_t size)
    {
        return cu_allocator_alloc(choose(context), block, size);
    }
    static cu_ErrorCode free(void* context, void** block) { return cu_allocator_free(choose(context), block); }

    cu_allocator* here_;
    cu_allocator* there_;
    std::thread::id owner_ = std::this_thread::get_id();
    cu_allocator table_ = {this, alloc, nullptr, free, nullptr};
};

TEST_F(AsyncLogging, constructorLeavesNothingBehind)
{
    std::optional<SplitAllocator> allocator;
    support::sweep<cu_logger_Adapter>(
        "cu_logger_AsyncLoggingAdapter_new",
        [&](cu_logger_Adapter** handle, cu_allocator* watched) {
            allocator.emplace(watched, cu_allocator_malloc_get());
            wrapped.ended = false;
            const cu_ErrorCode code = cu_logger_AsyncLoggingAdapter_new(handle, wrapped.get(), 4096, allocator->get());
            EXPECT_FALSE(wrapped.ended);
            return code;
        },
        cu_logger_Adapter_destruct, {"sem_trywait", "pthread_mutex_trylock", "clock_gettime", "sysconf"},
        "pthread_mutex_unlock");
}

TEST_F(AsyncLogging, badArgumentsAreRefused)
{
    constexpr char file[] = "src/cUtil/logger/asyncLoggingAdapter";
    cu_logger_Adapter* none = nullptr;
    EXPECT_NULLS_REFUSED(file, std::tuple(&none, wrapped.get(), 4096U), cu_logger_AsyncLoggingAdapter_new);
    EXPECT_REFUSED(cu_logger_AsyncLoggingAdapter_new(&none, wrapped.get(), 5000, nullptr),
                   "cu_logger_AsyncLoggingAdapter_new", file);
    for (const uint32_t size : {0U, 12288U, 0xFFFFF000U})
        EXPECT_REFUSED(cu_logger_AsyncLoggingAdapter_new(&none, wrapped.get(), size, nullptr), "cu_RingBuffer_new",
                       "src/cUtil/ringBuffer");
    EXPECT_EQ(none, nullptr);
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
    start();
    hold();
    for (int n = 0; n < 100; ++n)
        log(3, "");
    std::thread opener([this] {
        std::this_thread::sleep_for(std::chrono::milliseconds(30));
        EXPECT_THAT(wrapped.lines(), SizeIs(0));
        letGo();
    });
    end();
    opener.join();
    EXPECT_THAT(wrapped.lines(), SizeIs(100));
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
}

TEST_F(AsyncLogging, withoutMemoryForItsBufferNothingIsPassedOnAndItEnds)
{
    support::WatchfulAllocator refusing(1);
    SplitAllocator allocator(cu_allocator_malloc_get(), refusing.get());
    start(4096, allocator.get());
    log(0, "lost");
    end();
    EXPECT_THAT(wrapped.lines(), SizeIs(0));
}

TEST_F(AsyncLogging, linesOfEachThreadKeepTheirOrder)
{
    constexpr unsigned threads = 4;
    const int lines = support::scaled(20000);
    // Some, the first one just, are longer than the buffer of the adapter's thread is at first.
    const auto text = [](int n) {
        return std::string(n % 500 == 0 ? 4091U + static_cast<unsigned>(n) / 10 : 0, 'x') + std::to_string(n);
    };
    start(1 << 22); // all of them
    std::vector<std::thread> loggers;
    for (unsigned thread = 0; thread < threads; ++thread)
        loggers.emplace_back([&, thread] {
            for (int n = 0; n < lines; ++n)
                log(thread, text(n));
        });
    for (std::thread& logger : loggers)
        logger.join();
    end();
    int next[threads] = {};
    for (const std::string& line : wrapped.lines())
        ASSERT_EQ(line.substr(2), text(next[line[0] - '0']++));
    EXPECT_THAT(next, testing::Each(lines));
}

TEST_F(AsyncLogging, theWrappedAdapterMayLogByTheLogger)
{
    const Recorder listener("listener");
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
    EXPECT_THAT(outcome.out, testing::HasSubstr("!   Function: 'cu_logger_AsyncLoggingAdapter_destruct'"));
}

} // namespace
