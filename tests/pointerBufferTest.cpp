#include "internal/pointerBufferLayout.h"
#include "support/deadline.h"
#include "support/made.h"
#include "support/refusal.h"
#include "support/scale.h"
#include "support/signalStorm.h"
#include "support/sweep.h"

#include <cUtil/pointerBuffer.h>

#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/pointerBuffer";

void* pointer(uintptr_t number)
{
    return reinterpret_cast<void*>(number);
}

uintptr_t number(const void* value)
{
    return reinterpret_cast<uintptr_t>(value);
}

/// A queue whose counters may start anywhere.
class Buffer
{
public:
    explicit Buffer(uint32_t capacity, uint32_t start = 0) : me_(capacity)
    {
        me_->readCounter = me_->writeCounter = start;
        for (uint32_t place = 0; place < capacity; ++place)
            me_->slots[(start + place) & (capacity - 1)].turn = 2 * (start + place);
    }

    cu_PointerBuffer* get() const { return me_; }
    cu_PointerBuffer** handle() { return me_.handle(); }

    bool tryPut(uintptr_t value) const
    {
        bool put = true;
        EXPECT_EQ(cu_PointerBuffer_tryPut(me_, pointer(value), &put), 0U);
        return put;
    }

    uintptr_t tryGet() const
    {
        void* value = nullptr;
        bool got = true;
        EXPECT_EQ(cu_PointerBuffer_tryGet(me_, &value, &got), 0U);
        return got ? number(value) : 0;
    }

private:
    support::Made<cu_PointerBuffer_new, cu_PointerBuffer_delete> me_;
};

TEST(PointerBuffer, constructorLeavesNothingBehindAndRefusesBadArguments)
{
    EXPECT_CLEAN_FAILURES(cu_PointerBuffer_new, cu_PointerBuffer_delete, 4U);
    const Buffer buffer(2);
    cu_PointerBuffer* none = nullptr;
    cu_PointerBuffer* some = buffer.get();
    void* value = nullptr;
    bool done = false;
    const cu_TimeValue deadline = {};
    void* const nothing = nullptr; // may be put
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, some, nothing, &value, &deadline, &done}), cu_PointerBuffer_new,
                         cu_PointerBuffer_get, cu_PointerBuffer_tryGet, cu_PointerBuffer_timedGet, cu_PointerBuffer_put,
                         cu_PointerBuffer_tryPut, cu_PointerBuffer_timedPut);
    EXPECT_NULLS_REFUSED(file, std::tuple{&some}, cu_PointerBuffer_delete);
    EXPECT_REFUSED(cu_PointerBuffer_new(&none, 0, nullptr), "cu_PointerBuffer_new", file);
    EXPECT_REFUSED(cu_PointerBuffer_new(&none, 12, nullptr), "cu_PointerBuffer_new", file);
    EXPECT_FAILURE(cu_PointerBuffer_new(&none, 1U << 31, nullptr), cu_ERROR_COM_MALLOC_FAILED, "cu_PointerBuffer_new",
                   file, "");
}

TEST(PointerBuffer, keepsOrderAcrossTheWrapOfItsCounters)
{
    for (const uint32_t capacity : {1U, 2U, 16U}) {
        const Buffer buffer(capacity, UINT32_MAX - 40);
        uintptr_t given = 0;
        uintptr_t taken = 0;
        while (taken < 100) {
            while (buffer.tryPut(given + 1))
                ++given;
            EXPECT_EQ(given - taken, capacity);
            for (uint32_t one = 0; one < (capacity + 1) / 2; ++one)
                EXPECT_EQ(buffer.tryGet(), ++taken);
        }
        while (taken < given)
            EXPECT_EQ(buffer.tryGet(), ++taken);
        EXPECT_EQ(buffer.tryGet(), 0U);
    }
}

TEST(PointerBuffer, deadlinesPassWithoutAnError)
{
    const Buffer buffer(1);
    const support::SignalStorm storm;
    void* value = nullptr;
    bool done = true;
    cu_TimeValue deadline = support::fromNow(20);
    EXPECT_EQ(cu_PointerBuffer_timedGet(buffer.get(), &value, &deadline, &done), 0U);
    EXPECT_FALSE(done);
    EXPECT_EQ(cu_PointerBuffer_timedPut(buffer.get(), nullptr, &deadline, &done), 0U);
    EXPECT_TRUE(done);
    deadline = support::fromNow(20);
    EXPECT_EQ(cu_PointerBuffer_timedPut(buffer.get(), nullptr, &deadline, &done), 0U);
    EXPECT_FALSE(done);
    EXPECT_TRUE(support::hasPassed(deadline));
    EXPECT_EQ(cu_PointerBuffer_timedGet(buffer.get(), &(value = &value), &deadline, &done), 0U);
    EXPECT_TRUE(done);
    EXPECT_EQ(value, nullptr);
}

TEST(PointerBuffer, whatFailsMovesNothingAndIsPassedOn)
{
    Buffer buffer(1);
    const cu_TimeValue invalid = {0, 1'000'000'000};
    bool done = false;
    void* value = nullptr;
    const auto fails = [](const std::string& name, const auto& call) {
        EXPECT_EQ(support::failureOf(call).code, cu_ERROR_SEM_LOCK_FAILED);
        EXPECT_EQ(cu_getErrorLocation()->systemErrorCode, EINVAL);
        EXPECT_EQ(support::trace().find(name + "  -  src/cUtil/pointerBuffer:"), 0U) << support::trace();
    };
    fails("cu_PointerBuffer_timedPut",
          [&] { return cu_PointerBuffer_timedPut(buffer.get(), pointer(1), &invalid, &done); });
    EXPECT_EQ(buffer.tryGet(), 0U);
    {
        // The value comes, and its wake is still under way, when the sleep fails.
        const support::Interlude interlude([me = buffer.get()] {
            if (!me->notEmpty.isQuiet() && me->writeCounter == me->readCounter) {
                me->slots[0].value = pointer(1);
                me->slots[0].turn = 2 * me->writeCounter++ + 1;
            }
        });
        const support::Injection injection("sem_wait", EINVAL);
        fails("cu_PointerBuffer_get", [&] { return cu_PointerBuffer_get(buffer.get(), &value); });
    }
    EXPECT_EQ(buffer.tryGet(), 1U);
    EXPECT_TRUE(buffer.tryPut(1));
    fails("cu_PointerBuffer_timedGet",
          [&] { return cu_PointerBuffer_timedGet(buffer.get(), &value, &invalid, &done); });
    EXPECT_EQ(buffer.tryGet(), 1U);
    for (int gate = 0; gate < 2; ++gate) {
        const support::Injection injection("sem_destroy", EBUSY, gate == 0 ? 2 : 1); // the other one is gone by then
        EXPECT_EQ(cu_PointerBuffer_delete(buffer.handle()), cu_ERROR_SEM_FREE_FAILED);
    }
}

// A thread that has drawn its place and is interrupted before it goes on is not overtaken.
TEST(PointerBuffer, aPlaceThatIsDrawnButNotFilledIsNotRead)
{
    const Buffer buffer(4, UINT32_MAX);
    ++buffer.get()->writeCounter;
    EXPECT_TRUE(buffer.tryPut(2));
    EXPECT_EQ(buffer.tryGet(), 0U);
    std::thread reader([&] {
        void* value = nullptr;
        EXPECT_EQ(cu_PointerBuffer_get(buffer.get(), &value), 0U);
        EXPECT_EQ(number(value), 1U);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    auto& drawn = buffer.get()->slots[3];
    drawn.value = pointer(1);
    drawn.turn.store(2 * UINT32_MAX + 1, std::memory_order_release);
    reader.join();
    EXPECT_EQ(buffer.tryGet(), 2U);
}

TEST(PointerBuffer, everyValueIsTakenExactlyOnce)
{
    constexpr unsigned producers = 8;
    const uint32_t each = sizeof(void*) == 4
                              ? static_cast<uint32_t>(support::scaled(125'000))
                              : (support::stepsAreSlow ? 31'250 : 125'000); // slow ones: a million in all
    const uint32_t total = producers * each;
    for (const auto& [capacity, consumers] : {std::pair(1U, 8U), {2, 8}, {1024, 8}, {64, 1}}) {
        SCOPED_TRACE(capacity);
        const Buffer buffer(capacity, UINT32_MAX - total / 2);
        std::vector<std::atomic<uint8_t>> takes(total);
        const auto put = [&](uintptr_t value) { EXPECT_EQ(cu_PointerBuffer_put(buffer.get(), pointer(value)), 0U); };
        const auto produce = [&](unsigned producer) {
            for (uint32_t count = 0; count < each; ++count)
                put(producer * each + count + 1);
        };
        const auto consume = [&] {
            std::vector<uintptr_t> last(producers);
            for (void* value = nullptr;;) {
                EXPECT_EQ(cu_PointerBuffer_get(buffer.get(), &value), 0U);
                if (value == nullptr)
                    return;
                const uintptr_t index = number(value) - 1;
                ASSERT_LT(index, total);
                ++takes[index];
                // One producer's values come in their order, also when others take some of them.
                EXPECT_LE(std::exchange(last[index / each], index), index);
            }
        };
        std::vector<std::jthread> readers;
        while (readers.size() < consumers)
            readers.emplace_back(consume);
        for (std::vector<std::jthread> writers; writers.size() < producers;)
            writers.emplace_back(produce, static_cast<unsigned>(writers.size()));
        for (unsigned reader = 0; reader < readers.size(); ++reader)
            put(0);
        readers.clear();
        for (const auto& count : takes)
            ASSERT_EQ(count, 1);
        EXPECT_EQ(buffer.tryGet(), 0U);
    }
}

} // namespace
