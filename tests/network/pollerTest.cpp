#include "sockets.h"

#include <cUtil/network/poller.h>

#include <cstring>
#include <functional>
#include <list>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/network/poller.linux";

// What is registered, and what it was called for.
struct Source : support::Pinned {
    explicit Source(unsigned count = 1) : selectable{eventfd(count, EFD_CLOEXEC | EFD_NONBLOCK)} {}
    explicit Source(int descriptor) : selectable{descriptor} {}
    ~Source() { close(selectable.handle); }

    static cu_ErrorCode call(const cu_Selectable* selectable, uint32_t flags, void* userData)
    {
        auto* me = static_cast<Source*>(userData);
        EXPECT_EQ(selectable, &me->selectable);
        me->calls.push_back(flags);
        if (me->onCall)
            me->onCall();
        return cu_ERROR_COM_INVARIANT; // which nobody looks at
    }

    cu_Selectable selectable;
    std::vector<uint32_t> calls;
    std::function<void()> onCall;
};

template <typename Allocator>
class PollerOf : public testing::Test
{
protected:
    void SetUp() override
    {
        lowest = Source().selectable.handle;
        ASSERT_EQ(cu_Poller_new(&poller, allocator.get()), 0U);
    }
    void TearDown() override { EXPECT_EQ(cu_Poller_delete(&poller), 0U); }

    cu_ErrorCode add(Source& source, uint32_t flags = CU_POLLER_READABLE)
    {
        return cu_Poller_add(poller, &source.selectable, flags, Source::call, &source);
    }
    cu_ErrorCode remove(const Source& source) { return cu_Poller_remove(poller, &source.selectable); }
    cu_ErrorCode poll(uint32_t maxEvents = 100) { return cu_Poller_poll(poller, 0, maxEvents); }

    Allocator allocator;
    cu_Poller* poller = nullptr;
    int lowest = -1; // of the descriptors that were free, which is the poller's
};

using Poller = PollerOf<support::WatchfulAllocator>;
using PollerCallback = PollerOf<support::GraveAllocator>; // what a callback takes out is not touched again

TEST_F(Poller, callsBackWithWhatASelectableIsReadyForAndAgainAsLongAsItIs)
{
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
    close(ends[1]);
    Source hungUp(ends[0]);
    Source full[3];
    Source empty[2] = {Source(0U), Source(0U)};
    const struct {
        Source& source;
        uint32_t flags;
        std::vector<uint32_t> calls;
    } table[] = {{full[0], 1, {1, 1}}, {full[1], 2, {2, 2}},  {full[2], 3, {3, 3}},
                 {empty[0], 1, {}},    {empty[1], 3, {2, 2}}, {hungUp, 1, {0, 0}}};
    for (const auto& row : table)
        ASSERT_EQ(add(row.source, row.flags), 0U);
    EXPECT_EQ(poll(), 0U);
    EXPECT_EQ(poll(), 0U);
    for (const auto& row : table) {
        EXPECT_EQ(row.source.calls, row.calls);
        ASSERT_EQ(remove(row.source), 0U);
    }
    ASSERT_EQ(add(empty[0]), 0U);
    EXPECT_GE(timeOf([&] { EXPECT_EQ(cu_Poller_poll(poller, 50, 1), 0U); }), atLeast(50ms));
}

TEST_F(PollerCallback, mayPollTakeOutAndAddWhoseEventIsStillToCome)
{
    Source sources[5];
    Source late;
    std::size_t calls = 0;
    for (Source& source : sources) {
        ASSERT_EQ(add(source), 0U);
        source.onCall = [&] {
            for (Source& each : sources)
                EXPECT_EQ(remove(each), 0U);
            if (++calls == 1) {
                for (Source& each : sources)
                    EXPECT_EQ(add(each), 0U);
                EXPECT_EQ(add(late), 0U);
            }
        };
    }
    for (std::size_t polls = 1; polls <= 3; ++polls) {
        EXPECT_EQ(poll(), 0U);
        EXPECT_EQ(calls, std::min<std::size_t>(polls, 2));
        EXPECT_EQ(late.calls.size(), polls - 1);
    }
    for (Source& source : sources) {
        ASSERT_EQ(add(source), 0U);
        source.onCall = [&] {
            ++calls;
            EXPECT_EQ(remove(source), 0U);
            EXPECT_EQ(poll(), 0U);
        };
    }
    EXPECT_EQ(poll(), 0U);
    EXPECT_EQ(calls, 7U) << "each once";
}

TEST_F(Poller, callsTenThousandInTurnWithoutTheHeapAndTakesThemOutInAnyOrder)
{
    std::list<Source> sources;
    for (int left = allowDescriptors(10'100) - 100; left != 0; --left)
        ASSERT_EQ(add(sources.emplace_back(1U)), 0U);
    const std::size_t requests = allocator.requests().size();
    for (std::size_t left = sources.size(); left != 0; left -= std::min<std::size_t>(left, 1000))
        ASSERT_EQ(poll(static_cast<uint32_t>(std::min<std::size_t>(left, 1000))), 0U);
    EXPECT_EQ(allocator.requests().size(), requests);
    EXPECT_TRUE(std::ranges::all_of(sources, [](const Source& source) { return source.calls.size() == 1; }));
    EXPECT_EQ(poll(UINT32_MAX), 0U);
    for (bool fromFront = true; !sources.empty(); fromFront = !fromFront) {
        ASSERT_EQ(remove(fromFront ? sources.front() : sources.back()), 0U);
        fromFront ? sources.pop_front() : sources.pop_back();
    }
    EXPECT_EQ(allocator.live(), 1U) << "beside the poller's own";
}

TEST_F(PollerCallback, aSelectableThatChangedItsDescriptorLeavesNothingToCallBack)
{
    Source source;
    Source second;
    const int first = source.selectable.handle;
    ASSERT_EQ(add(source), 0U);
    source.selectable.handle = second.selectable.handle;
    ASSERT_EQ(add(source), 0U);
    ASSERT_EQ(remove(source), 0U);
    source.selectable.handle = first;
    EXPECT_EQ(poll(), 0U);
    EXPECT_EQ(source.calls, std::vector<uint32_t>{1}) << "by its first descriptor";
    source.onCall = [&] { EXPECT_REFUSED(cu_Poller_delete(&poller), "cu_Poller_delete", file); };
    EXPECT_EQ(poll(), 0U);
    ASSERT_EQ(add(second), 0U);
    source.selectable.handle = second.selectable.handle;
    ASSERT_EQ(remove(source), 0U);
    source.selectable.handle = first;
    EXPECT_EQ(poll(), 0U);
    EXPECT_EQ(source.calls.size(), 2U);
}

TEST_F(Poller, aFailureLeavesWhatWasThere)
{
    Source source;
    Source other;
    cu_Poller* none = nullptr;
    ASSERT_EQ(add(source), 0U);
    const auto expectFailure = [](std::string call, int error, cu_ErrorCode code, const char* function,
                                  auto operation) {
        const std::string text = call + "(..) failed [" + std::to_string(error) + "] " + strerror(error);
        const support::Injection injection(call != "epoll_create" ? call.c_str() : "epoll_create1", error);
        EXPECT_SYSTEM_FAILURE(operation(), code, error, function, file, text);
    };
    constexpr cu_ErrorCode invalid = cu_ERROR_COM_INVALID_ARGUMENT;
    expectFailure("epoll_create", EMFILE, cu_ERROR_FILE_OPEN_FAILED, "cu_Poller_new",
                  [&] { return cu_Poller_new(&none, nullptr); });
    expectFailure("epoll_ctl", EEXIST, invalid, "cu_Poller_add", [&] { return add(other); });
    expectFailure("epoll_ctl", ENOENT, invalid, "cu_Poller_remove", [&] { return remove(source); });
    expectFailure("epoll_wait", EINTR, invalid, "cu_Poller_poll", [&] { return poll(); });
    for (const unsigned nth : {1U, 2U}) { // the item, the array
        allocator.refuse(nth);
        EXPECT_EQ(add(other), cu_ERROR_COM_MALLOC_FAILED);
        EXPECT_NE(support::trace().find("cu_Poller_add"), std::string::npos);
    }
    EXPECT_EQ(poll(), 0U);
    EXPECT_EQ(source.calls.size(), 1U);
    EXPECT_TRUE(other.calls.empty());
    EXPECT_EQ(add(other), 0U);
}

TEST_F(Poller, isKeyedByTheSelectableAndNotByItsDescriptorAndAnEventOfNobodyEndsTheDispatch)
{
    Source source;
    Source nobody;
    const cu_Selectable twin = source.selectable;
    ASSERT_EQ(add(source), 0U);
    EXPECT_EQ(cu_Poller_remove(poller, &twin), 0U); // the descriptor is let go, the registration stays
    EXPECT_EQ(poll(), 0U);
    EXPECT_EQ(allocator.live(), 3U);
    epoll_event event = {EPOLLIN, {}};
    ASSERT_EQ(epoll_ctl(lowest, EPOLL_CTL_ADD, nobody.selectable.handle, &event), 0);
    ASSERT_EQ(add(source), 0U);
    EXPECT_REFUSED(poll(), "cu_PollerItem_action", file);
    EXPECT_TRUE(source.calls.empty());
}

TEST_F(Poller, refusesNullsAndEmptySets)
{
    EXPECT_CLEAN_FAILURES(cu_Poller_new, cu_Poller_delete);
    Source source;
    cu_Poller* none = nullptr;
    const cu_Selectable* selectable = &source.selectable;
    const std::tuple good(poller, &none, selectable, static_cast<cu_PollerCallback>(Source::call),
                          static_cast<void*>(nullptr));
    EXPECT_NULLS_REFUSED(file, good, cu_Poller_new, cu_Poller_add, cu_Poller_remove, cu_Poller_poll);
    EXPECT_NULLS_REFUSED(file, std::tuple(&poller), cu_Poller_delete);
    EXPECT_REFUSED(add(source, 0), "cu_Poller_add", file);
    EXPECT_REFUSED(poll(0), "cu_Poller_poll", file);
}

} // namespace
