#include "internal/pointerBufferLayout.h"

#include "internal/owned.h"
#include "internal/report.h"
#include "internal/rollback.h"
#include "internal/spin.h"

#include <bit>
#include <sched.h>
#include <type_traits>

namespace
{

using internal::Gate;
using internal::Slot;

// How somebody waits for a thread that has drawn a slot and was interrupted before it got further: it lets others run,
// and if that does not help, naps, because the other one may be of lower priority.
constexpr int yields = 16;
constexpr timespec nap = {0, 50'000};

// One end of the queue: the counter that its users draw from, the parity that a place's turn then has, where they wait
// and whom they wake.
struct End {
    std::atomic<uint32_t> cu_PointerBuffer::*counter;
    Gate cu_PointerBuffer::*waiting;
    Gate cu_PointerBuffer::*opposite;
    bool isReader;

    // Whether there is something to draw. Looks at the counters, not at a slot: it may be drawn already by a thread
    // that has not got further. The counter that the others move is read first, so that what they do meanwhile makes
    // this false rather than true; they look for sleepers after they have moved it.
    bool mayDraw(const cu_PointerBuffer* me) const
    {
        if (isReader) {
            const uint32_t written = me->writeCounter.load(std::memory_order_seq_cst);
            return static_cast<int32_t>(written - me->readCounter.load(std::memory_order_seq_cst)) > 0;
        }
        const uint32_t read = me->readCounter.load(std::memory_order_seq_cst);
        return me->writeCounter.load(std::memory_order_seq_cst) - read < me->capacity;
    }
};

constexpr End producing = {&cu_PointerBuffer::writeCounter, &cu_PointerBuffer::notFull, &cu_PointerBuffer::notEmpty,
                           false};
constexpr End consuming = {&cu_PointerBuffer::readCounter, &cu_PointerBuffer::notEmpty, &cu_PointerBuffer::notFull,
                           true};

// What a put takes, and where a get leaves it.
template <const End& end>
using Item = std::conditional_t<end.isReader, void**, void*>;

// Moves one value, if the next slot's turn has come.
template <const End& end>
[[gnu::always_inline]] inline bool move(cu_PointerBuffer* me, Item<end> item)
{
    std::atomic<uint32_t>& counter = me->*end.counter;
    uint32_t number = counter.load(std::memory_order_relaxed);
    for (;;) {
        Slot& slot = me->slots[number & (me->capacity - 1)];
        const uint32_t wanted = 2 * number + (end.isReader ? 1 : 0);
        if (slot.turn.load(std::memory_order_acquire) != wanted) {
            const uint32_t now = counter.load(std::memory_order_relaxed);
            if (now == number)
                return false;
            number = now;
            // Sequentially consistent for the gates: see mayDraw().
        } else if (counter.compare_exchange_weak(number, number + 1, std::memory_order_seq_cst,
                                                 std::memory_order_relaxed)) {
            if constexpr (end.isReader) {
                *item = slot.value;
                slot.turn.store(wanted - 1 + 2 * me->capacity, std::memory_order_release);
            } else {
                slot.value = item;
                slot.turn.store(wanted + 1, std::memory_order_release);
            }
            return true;
        }
    }
}

// Sleeps until there is something to draw, and draws. Null deadline: without limit.
template <const End& end>
cu_ErrorCode sleepAndMove(cu_PointerBuffer* me, Item<end> item, const cu_TimeValue* deadline, bool* moved)
{
    Gate& gate = me->*end.waiting;
    bool inTime = true;
    cu_ErrorCode code = 0;
    int pauses = 0;
    gate.announce();
    while (!*moved && inTime && code == 0) {
        if (!end.mayDraw(me))
            code = gate.sleep(deadline, &inTime);
        else if (++pauses < yields)
            sched_yield();
        else
            clock_nanosleep(CLOCK_MONOTONIC, 0, &nap, nullptr);
        if (code == 0) // otherwise the caller takes nothing for moved
            *moved = move<end>(me, item);
    }
    gate.leave();
    return code;
}

template <const End& end>
cu_ErrorCode wakeOpposite(cu_PointerBuffer* me, internal::Place here)
{
    CU_TRY_AT(here, (me->*end.opposite).wake());
    return 0;
}

// A put or get of the exported function whose place it is given, when the first look was in vain. Null deadline:
// without limit.
template <const End& end>
[[gnu::noinline]] cu_ErrorCode await(cu_PointerBuffer* me, Item<end> item, const cu_TimeValue* deadline, bool* moved,
                                     internal::Place here)
{
    internal::Spin spin = deadline != nullptr ? internal::Spin(*deadline) : internal::Spin();
    *moved = spin.spinUntil([&] { return move<end>(me, item); });
    if (!*moved) {
        CU_TRY_AT(here, sleepAndMove<end>(me, item, deadline, moved));
        // Of several things to draw only the first woke anybody.
        if (end.mayDraw(me))
            CU_TRY_AT(here, (me->*end.waiting).wake());
    }
    return *moved ? wakeOpposite<end>(me, here) : 0;
}

// The same for a function without deadline, after its first look.
template <const End& end>
[[gnu::cold]] cu_ErrorCode finish(cu_PointerBuffer* me, Item<end> item, bool moved, internal::Place here)
{
    return moved ? wakeOpposite<end>(me, here) : await<end>(me, item, nullptr, &moved, here);
}

template <const End& end>
cu_ErrorCode tryTransfer(cu_PointerBuffer* me, Item<end> item, bool* moved, internal::Place here)
{
    *moved = move<end>(me, item);
    return *moved ? wakeOpposite<end>(me, here) : 0;
}

template <const End& end>
cu_ErrorCode timedTransfer(cu_PointerBuffer* me, Item<end> item, const cu_TimeValue* deadline, bool* moved,
                           internal::Place here)
{
    // A semaphore refuses such a deadline, and says so, even while there is something to take.
    if (deadline->tv_nsec < 0 || deadline->tv_nsec >= 1'000'000'000) {
        bool woken = false;
        CU_TRY_AT(here, (me->*end.waiting).sleep(deadline, &woken));
    }
    *moved = move<end>(me, item);
    return *moved ? wakeOpposite<end>(me, here) : await<end>(me, item, deadline, moved, here);
}

} // namespace

cu_ErrorCode cu_PointerBuffer_new(cu_PointerBuffer** me, uint32_t capacity, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(std::has_single_bit(capacity));

    internal::Owned<cu_PointerBuffer> buffer;
    CU_TRY(buffer.allocate(allocator));
    internal::Owned<Slot> slots;
    if (capacity > UINT32_MAX / sizeof(Slot))
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    CU_TRY(slots.allocateBytes(allocator, capacity * static_cast<uint32_t>(sizeof(Slot))));
    for (uint32_t number = 0; number < capacity; ++number)
        new (slots.get() + number) Slot{2 * number, nullptr};
    CU_TRY(buffer->notFull.open(allocator));
    CU_ROLLBACK(closeNotFull, buffer->notFull.close());
    CU_TRY(buffer->notEmpty.open(allocator));
    closeNotFull.dismiss();
    buffer->capacity = capacity;
    buffer->slots = slots.release();
    *me = buffer.release();
    return 0;
}

cu_ErrorCode cu_PointerBuffer_delete(cu_PointerBuffer** me)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    cu_PointerBuffer* buffer = *me;
    CU_TRY(buffer->notFull.close());
    CU_TRY(buffer->notEmpty.close());
    CU_TRY(internal::freeArray(buffer->allocator, &buffer->slots));
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_PointerBuffer_put(cu_PointerBuffer* me, void* value)
{
    CU_REQUIRE(me != nullptr);

    const bool put = move<producing>(me, value);
    return put && me->notEmpty.isQuiet() ? 0 : finish<producing>(me, value, put, CU_HERE);
}

cu_ErrorCode cu_PointerBuffer_tryPut(cu_PointerBuffer* me, void* value, bool* put)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(put != nullptr);

    return tryTransfer<producing>(me, value, put, CU_HERE);
}

cu_ErrorCode cu_PointerBuffer_timedPut(cu_PointerBuffer* me, void* value, const cu_TimeValue* deadline, bool* put)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(put != nullptr);

    return timedTransfer<producing>(me, value, deadline, put, CU_HERE);
}

cu_ErrorCode cu_PointerBuffer_get(cu_PointerBuffer* me, void** value)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(value != nullptr);

    const bool got = move<consuming>(me, value);
    return got && me->notFull.isQuiet() ? 0 : finish<consuming>(me, value, got, CU_HERE);
}

cu_ErrorCode cu_PointerBuffer_tryGet(cu_PointerBuffer* me, void** value, bool* got)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(value != nullptr);
    CU_REQUIRE(got != nullptr);

    return tryTransfer<consuming>(me, value, got, CU_HERE);
}

cu_ErrorCode cu_PointerBuffer_timedGet(cu_PointerBuffer* me, void** value, const cu_TimeValue* deadline, bool* got)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(value != nullptr);
    CU_REQUIRE(deadline != nullptr);
    CU_REQUIRE(got != nullptr);

    return timedTransfer<consuming>(me, value, deadline, got, CU_HERE);
}
