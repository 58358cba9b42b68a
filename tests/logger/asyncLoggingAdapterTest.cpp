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
            if (text == "hold") {
                isHeld = true;
                isHeld.wait(true);
            }
        };
    }
    void TearDown() override
    {
        if (adapter != nullptr)
            end();
    }

    void start(uint32_t size = 4096, cu_allocator* with = nullptr)
    {
        ASSERT_EQ(cu_logger_AsyncLoggingAdapter_new(&adapter, wrapped.get(), size, with), 0U);
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
        log(0, "hold");
        ASSERT_TRUE(support::comesTrue([this] { return isHeld.load(); }));
        wrapped.take();
    }

    void letGo()
    {
        isHeld = false;
        isHeld.notify_all();
    }

    /// Ends it while the thread is still held.
    void endHeld()
    {
        std::thread opener([this] {
            std::this_thread::sleep_for(std::chrono::milliseconds(30));
            letGo();
        });
        end();
        opener.join();
    }

    static cu_allocator* choose(void* context)
    {
        const auto* me = static_cast<AsyncLogging*>(context);
        return gettid() == getpid() ? me->ofMainThread : me->ofAdapterThread;
    }
    static cu_ErrorCode alloc(void* context, void** block, uint32_t size)
    {
        return cu_allocator_alloc(choose(context), block, size);
    }
    static cu_ErrorCode free(void* context, void** block) { return cu_allocator_free(choose(context), block); }

    Recorder wrapped;
    cu_logger_Adapter* adapter = nullptr;
    std::atomic<bool> isHeld = false;
    cu_allocator* ofMainThread = cu_allocator_malloc_get();
    cu_allocator* ofAdapterThread = cu_allocator_malloc_get();
    cu_allocator allocator = {this, alloc, nullptr, free, nullptr};
};

TEST_F(AsyncLogging, constructorLeavesNothingBehind)
{
    support::sweep<cu_logger_Adapter>(
        "cu_logger_AsyncLoggingAdapter_new",
        [&](cu_logger_Adapter** handle, cu_allocator* watched) {
            ofMainThread = watched;
            wrapped.ended = false;
            const cu_ErrorCode code = cu_logger_AsyncLoggingAdapter_new(handle, wrapped.get(), 4096, &allocator);
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
    EXPECT_EQ(none, nullptr);
    start();
    support::expectRefusals(adapter, "cu_logger_AsyncLoggingAdapter_", file);
}

TEST_F(AsyncLogging, whatFitsIsKeptAndWhatDoesNotIsDroppedWhole)
{
    start();
    hold();
    log(1, std::string(3000, 'a'));
    log(2, std::string(2000, 'b'));
    log(3, std::string(1078, 'c')); // one byte of the 4096 stays free
    log(3, std::string(1077, 'd'));
    log(0, ""); // 9 bytes are not there any more
    endHeld();  // passes on what is queued
    EXPECT_THAT(wrapped.lines(), ElementsAre("1 " + std::string(3000, 'a'), "3 " + std::string(1077, 'd')));
}

TEST_F(AsyncLogging, anAdapterThatFailsEndsThePassingOnButNotTheCallers)
{
    start();
    hold();
    log(1, "never");
    wrapped.answer = 5;
    endHeld();
    EXPECT_THAT(wrapped.lines(), SizeIs(0));
}

TEST_F(AsyncLogging, withoutMemoryForItsBufferNothingIsPassedOnAndItEnds)
{
    support::WatchfulAllocator refusing(1);
    ofAdapterThread = refusing.get();
    start(4096, &allocator);
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
