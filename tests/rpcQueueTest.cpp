#include "support/deadline.h"
#include "support/inject.h"
#include "support/made.h"
#include "support/process.h"
#include "support/record.h"
#include "support/refusal.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/rpcChannel.h>
#include <cUtil/rpcQueue.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <semaphore.h>

namespace
{

constexpr char file[] = "src/cUtil/rpcQueue";
constexpr char channelFile[] = "src/cUtil/rpcChannel";
constexpr std::size_t semaphoreOffset = sizeof(void*) == 4 ? 4 : 8;

using Queue = support::Made<cu_RPCQueue_create, cu_RPCQueue_delete>;

TEST(RpcQueue, isLaidOutForOldBinaries)
{
    const support::Shared<char> region(3 * 4096);
    memset(region.get(), 0xA5, 3 * 4096);
    const Queue queue(region.get(), 8193U);
    uint32_t size = 0;
    memcpy(&size, region.get(), 4);
    EXPECT_EQ(size, 4097U);
    EXPECT_EQ(cu_RPCQueue_signal(queue), 0U);
    int value = 0;
    EXPECT_EQ(sem_getvalue(static_cast<sem_t*>(static_cast<void*>(region.get() + semaphoreOffset)), &value), 0);
    EXPECT_EQ(value, 1);
    const char* rest = region.get() + semaphoreOffset + sizeof(sem_t);
    EXPECT_EQ(std::count(rest, static_cast<const char*>(region.get()) + 8193, '\0'), region.get() + 8193 - rest);
    EXPECT_EQ(region.get()[8193], '\xA5');
    void* payload = nullptr;
    EXPECT_EQ(cu_RPCQueue_get(queue, &payload), 0U);
    EXPECT_EQ(payload, region.get() + 4096);
}

TEST(RpcQueue, aRegionThatIsUnalignedOrTooSmallIsRefusedUntouched)
{
    const support::Shared<char> region(4 * 4096);
    memset(region.get(), 0xA5, 4 * 4096);
    cu_RPCQueue* queue = nullptr;
    for (const std::size_t offset : {1U, 2048U})
        EXPECT_REFUSED(cu_RPCQueue_create(&queue, region.get() + offset, 8192, nullptr), "cu_RPCQueue_create", file);
    for (const uint32_t size : {0U, 8191U})
        EXPECT_REFUSED(cu_RPCQueue_create(&queue, region.get(), size, nullptr), "cu_RPCQueue_create", file);
    // Each half of a channel is checked as a queue, the second one when the first is there.
    cu_RPCChannel* channel = nullptr;
    EXPECT_REFUSED(cu_RPCChannel_create(&channel, region.get(), 16383, nullptr), "cu_RPCQueue_create", file);
    EXPECT_EQ(std::count(region.get(), region.get() + 4 * 4096, '\xA5'), 4 * 4096);
    EXPECT_REFUSED(cu_RPCChannel_create(&channel, region.get(), 16386, nullptr), "cu_RPCQueue_create", file);
    EXPECT_EQ(support::trace().find("cu_RPCChannel_create  -  src/cUtil/rpcChannel:"), 0U);
}

TEST(RpcQueue, constructorsLeaveNothingBehind)
{
    const support::Shared<char> region(16384);
    EXPECT_CLEAN_FAILURES(cu_RPCQueue_create, cu_RPCQueue_delete, region.get(), 8192U);
    EXPECT_CLEAN_FAILURES(cu_RPCQueue_open, cu_RPCQueue_delete, region.get());
    EXPECT_CLEAN_FAILURES(cu_RPCChannel_create, cu_RPCChannel_delete, region.get(), 16384U);
    EXPECT_CLEAN_FAILURES(cu_RPCChannel_open, cu_RPCChannel_delete, region.get());
}

TEST(RpcQueue, aDeletionThatFailsEndsTheProcess)
{
    const support::Shared<char> region(8192);
    Queue queue(region.get(), 8192U);
    const support::Injection injection("sem_destroy", EBUSY);
    const auto outcome = support::outcomeOf([&] { cu_RPCQueue_delete(queue.handle()); });
    EXPECT_EQ(outcome.status, 1);
    EXPECT_NE(outcome.out.find("!   Function: 'cu_RPCQueue_delete'\n"), std::string::npos);
}

/// The creator's and the opener's channel on one region.
class RpcChannel : public testing::Test
{
protected:
    static constexpr uint32_t regionSize = 16384;

    static char* buffer(cu_ErrorCode (*call)(cu_RPCChannel*, void**), cu_RPCChannel* channel)
    {
        void* payload = nullptr;
        EXPECT_EQ(call(channel, &payload), 0U);
        return static_cast<char*>(payload);
    }

    const support::Shared<char> region{regionSize};
    const support::Made<cu_RPCChannel_create, cu_RPCChannel_delete> creator{region.get(), regionSize};
    const support::Made<cu_RPCChannel_open, cu_RPCChannel_delete> opener{region.get()};
};

TEST_F(RpcChannel, badArgumentsAreRefused)
{
    const support::Made<cu_RPCQueue_open, cu_RPCQueue_delete> someQueue(region.get());
    cu_RPCQueue* queue = someQueue;
    cu_RPCQueue* noQueue = nullptr;
    cu_RPCChannel* channel = creator;
    cu_RPCChannel* noChannel = nullptr;
    void* const memory = region.get();
    uint32_t size = 0;
    void* payload = nullptr;
    bool taken = false;
    const cu_TimeValue deadline = {};
    const std::tuple good{&noQueue, &noChannel, queue, channel, memory, &size, &payload, &deadline, &taken, regionSize};
    EXPECT_NULLS_REFUSED(file, good, cu_RPCQueue_create, cu_RPCQueue_open, cu_RPCQueue_getSize, cu_RPCQueue_get,
                         cu_RPCQueue_signal, cu_RPCQueue_wait, cu_RPCQueue_tryWait, cu_RPCQueue_timedWait);
    EXPECT_NULLS_REFUSED(file, std::tuple{&queue}, cu_RPCQueue_delete);
    EXPECT_NULLS_REFUSED(channelFile, good, cu_RPCChannel_create, cu_RPCChannel_open, cu_RPCChannel_getSize,
                         cu_RPCChannel_getRxBuffer, cu_RPCChannel_getTxBuffer, cu_RPCChannel_signalTx,
                         cu_RPCChannel_waitRx, cu_RPCChannel_tryWaitRx, cu_RPCChannel_timedWaitRx);
    EXPECT_NULLS_REFUSED(channelFile, std::tuple{&channel}, cu_RPCChannel_delete);
}

TEST_F(RpcChannel, crossesItsHalves)
{
    char* const first = region.get() + 4096;
    cu_RPCChannel* const ways[][2] = {{creator, opener}, {opener, creator}};
    for (const auto& way : ways) {
        uint32_t size = 0;
        EXPECT_EQ(cu_RPCChannel_getSize(way[0], &size), 0U);
        EXPECT_EQ(size, 4096U);
        EXPECT_EQ(buffer(cu_RPCChannel_getRxBuffer, way[0]), way[0] == creator.get() ? first : first + 8192);
        EXPECT_EQ(buffer(cu_RPCChannel_getTxBuffer, way[0]), way[0] == creator.get() ? first + 8192 : first);
        const auto expectSignal = [&](bool expected, bool timed, cu_RPCChannel* channel) {
            const cu_TimeValue past = {1, 0};
            bool taken = !expected;
            EXPECT_EQ(timed ? cu_RPCChannel_timedWaitRx(channel, &past, &taken)
                            : cu_RPCChannel_tryWaitRx(channel, &taken),
                      0U);
            EXPECT_EQ(taken, expected);
        };
        for (int signal = 0; signal < 3; ++signal)
            EXPECT_EQ(cu_RPCChannel_signalTx(way[0]), 0U);
        expectSignal(false, false, way[0]);
        EXPECT_EQ(cu_RPCChannel_waitRx(way[1]), 0U);
        for (const bool expected : {true, false}) {
            expectSignal(expected, false, way[1]);
            expectSignal(expected, true, way[1]);
        }
    }
    const support::Injection injection("sem_post", EOVERFLOW);
    EXPECT_SYSTEM_FAILURE(cu_RPCChannel_signalTx(creator), cu_ERROR_SEM_UNLOCK_FAILED, EOVERFLOW, "cu_Semaphore_v",
                          "src/cUtil/semaphore.linux", "");
    EXPECT_EQ(support::trace().find("cu_RPCQueue_signal  -  src/cUtil/rpcQueue:"), 0U);
    EXPECT_NE(support::trace().find("\ncu_RPCChannel_signalTx  -  src/cUtil/rpcChannel:"), std::string::npos);
}

TEST_F(RpcChannel, openRefusesAPayloadSizeThatNoChannelHas)
{
    uint32_t good = 0;
    memcpy(&good, region.get(), 4);
    for (const uint32_t bad : {0U, 1U, 4095U, 4100U, 6144U, UINT32_MAX, UINT32_MAX - 4095}) {
        memcpy(region.get(), &bad, 4);
        cu_RPCChannel* channel = nullptr;
        EXPECT_FAILURE(cu_RPCChannel_open(&channel, region.get(), nullptr), cu_ERROR_COM_INVARIANT,
                       "cu_RPCChannel_open", channelFile, "");
        EXPECT_EQ(channel, nullptr);
    }
    memcpy(region.get(), &good, 4);
}

TEST_F(RpcChannel, processesExchangeRequestsAlsoWhenTheServerIsKilledAndReplaced)
{
    const auto requests = static_cast<uint32_t>(support::scaled(1'000'000));
    const auto serve = [&] {
        const char* request = buffer(cu_RPCChannel_getRxBuffer, opener);
        char* answer = buffer(cu_RPCChannel_getTxBuffer, opener);
        while (cu_RPCChannel_waitRx(opener) == 0) {
            std::reverse_copy(request, request + 16, answer);
            cu_RPCChannel_signalTx(opener);
        }
        return 1;
    };
    std::optional<support::Process> server;
    char* request = buffer(cu_RPCChannel_getTxBuffer, creator);
    const char* answer = buffer(cu_RPCChannel_getRxBuffer, creator);
    const cu_TimeValue limit = support::fromNow(100'000);
    for (uint32_t count = 0; count < requests; ++count) {
        bool taken = true;
        if (count % (requests / 20) == 0) {
            server.reset();
            EXPECT_EQ(cu_RPCChannel_tryWaitRx(opener, &taken), 0U);
            EXPECT_FALSE(taken) << "the dead took a signal, or none was there";
            server.emplace(serve);
        }
        snprintf(request, 17, "request %08x", count);
        ASSERT_EQ(cu_RPCChannel_signalTx(creator), 0U);
        ASSERT_EQ(cu_RPCChannel_timedWaitRx(creator, &limit, &taken), 0U);
        ASSERT_TRUE(taken);
        ASSERT_TRUE(std::equal(request, request + 16, std::reverse_iterator(answer + 16)));
    }
}

} // namespace
