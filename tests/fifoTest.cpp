#include "support/exchange.h"
#include "support/inject.h"
#include "support/process.h"
#include "support/record.h"
#include "support/refusal.h"

#include <cUtil/fifo.h>
#include <cUtil/ipcSemaphore.h>

#include <gmock/gmock.h>

#include <cstring>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/fifo";

using Entry = support::Numbered;

/// A formatted block with its header words in view.
class Block
{
public:
    explicit Block(uint32_t capacity, uint32_t entrySize = sizeof(Entry))
        : memory_(cu_Fifo_getBlockSize(capacity, entrySize))
    {
        const std::vector<char> initial(entrySize, 'i');
        EXPECT_EQ(cu_Fifo_init(get(), capacity, entrySize, initial.data()), 0U);
    }
    ~Block() { EXPECT_EQ(cu_Fifo_cleanup(get()), 0U); }

    void* get() const { return memory_.get(); }
    uint32_t* words() const { return static_cast<uint32_t*>(get()); } ///< capacity, entry size, counters
    sem_t* semaphore(int which) const { return static_cast<sem_t*>(static_cast<void*>(words() + 4)) + which; }
    int32_t count(int which) const
    {
        int32_t value = -1;
        EXPECT_EQ(cu_ipcSem_getCount(semaphore(which), &value), 0U);
        return value;
    }
    char* entries() const { return memory_.get() + CU_FIFO_HEADER_SIZE; }

    using Begin = cu_ErrorCode (*)(void*, void**);
    using End = cu_ErrorCode (*)(void*);

    bool put(uint32_t writer, uint32_t number, Begin begin = cu_Fifo_tryPut, End end = cu_Fifo_putCommit) const
    {
        void* entry = nullptr;
        EXPECT_EQ(begin(get(), &entry), 0U);
        if (entry == nullptr)
            return false;
        *static_cast<Entry*>(entry) = {writer, number};
        EXPECT_EQ(end(get()), 0U);
        return true;
    }
    Entry take(End end = cu_Fifo_getCommit, Begin begin = cu_Fifo_get) const
    {
        void* entry = nullptr;
        EXPECT_EQ(begin(get(), &entry), 0U);
        const Entry taken = *static_cast<Entry*>(entry);
        EXPECT_EQ(end(get()), 0U);
        return taken;
    }

    /// No transaction is open.
    void expectUsed(int32_t expected) const
    {
        uint32_t capacity = 0;
        int32_t free = -1;
        int32_t used = -1;
        EXPECT_EQ(cu_Fifo_getLengthInfos(get(), &capacity, &free, &used), 0U);
        EXPECT_EQ(capacity, words()[0]);
        EXPECT_EQ(free, static_cast<int32_t>(capacity) - used);
        EXPECT_EQ(used, expected);
    }

private:
    support::Shared<char> memory_;
};

TEST(Fifo, isLaidOutForOldBinaries)
{
    EXPECT_EQ(cu_Fifo_getBlockSize(4, 10), CU_FIFO_HEADER_SIZE + 40U);
    EXPECT_EQ(cu_Fifo_getBlockSize(0x10000, 0x10000), 0U);
    EXPECT_EQ(cu_Fifo_getBlockSize(1, UINT32_MAX - CU_FIFO_HEADER_SIZE + 1), 0U);
    EXPECT_EQ(cu_Fifo_getBlockSize(0, 10), 0U);

    const Block block(4, 10);
    EXPECT_THAT(std::vector<uint32_t>(block.words(), block.words() + 4), testing::ElementsAre(4, 10, 0, 0));
    const int expected[] = {0, 4, 1}; // filled, free, lock
    for (int which = 0; which < 3; ++which)
        EXPECT_EQ(block.count(which), expected[which]);
    EXPECT_EQ(std::string(block.entries(), 40), std::string(40, 'i'));
    for (const auto& [place, end] : {std::pair{0, &cu_Fifo_putCommit}, {10, &cu_Fifo_putRollback}}) {
        void* entry = nullptr;
        EXPECT_EQ(cu_Fifo_put(block.get(), &entry), 0U);
        EXPECT_EQ(entry, block.entries() + place);
        EXPECT_EQ(end(block.get()), 0U);
    }
    EXPECT_THAT(std::vector<uint32_t>(block.words(), block.words() + 4), testing::ElementsAre(4, 10, 0, 1));
}

TEST(Fifo, badArgumentsAreRefused)
{
    const Block block(2);
    const Block otherSize(2, 12);
    void* entry = nullptr;
    uint32_t capacity = 0;
    int32_t count = 0;
    const cu_TimeValue deadline = {};
    alignas(64) char raw[256] = {};
    EXPECT_NULLS_REFUSED(file, (std::tuple{block.get(), &entry, &capacity, &count, &deadline, uint32_t{2}}),
                         cu_Fifo_init, cu_Fifo_cleanup, cu_Fifo_attach, cu_Fifo_detach, cu_Fifo_getLengthInfos,
                         cu_Fifo_get, cu_Fifo_put, cu_Fifo_tryGet, cu_Fifo_tryPut, cu_Fifo_timedGet, cu_Fifo_timedPut,
                         cu_Fifo_getCommit, cu_Fifo_getRollback, cu_Fifo_putCommit, cu_Fifo_putRollback,
                         cu_Fifo_tryMove, cu_Fifo_tryMoveCommit, cu_Fifo_tryMoveRollback);
    for (const auto& bad : {std::pair{0U, 8U}, {8U, 0U}, {6U, 8U}, {UINT32_MAX, 8U}}) {
        EXPECT_REFUSED(cu_Fifo_init(raw, bad.first, bad.second, raw), "cu_Fifo_init", file);
        uint32_t header[64] = {bad.first, bad.second};
        EXPECT_FAILURE(cu_Fifo_attach(header), cu_ERROR_COM_INVARIANT, "cu_Fifo_attach", file, "");
    }
    EXPECT_EQ(cu_Fifo_attach(block.get()), 0U);
    EXPECT_EQ(cu_Fifo_detach(block.get()), 0U);
    EXPECT_REFUSED(cu_Fifo_tryMove(block.get(), block.get(), &entry, &entry), "cu_Fifo_tryMove", file);
    EXPECT_REFUSED(cu_Fifo_tryMove(block.get(), otherSize.get(), &entry, &entry), "cu_Fifo_tryMove", file);
    EXPECT_REFUSED(cu_Fifo_tryMoveCommit(block.get(), block.get()), "cu_Fifo_tryMoveCommit", file);
}

TEST(Fifo, aFullOrEmptyQueueSaysSoAndARollbackChangesNothing)
{
    const Block block(1);
    static constexpr cu_TimeValue past = {1, 0};
    const Block::Begin timedGet = [](void* from, void** entry) { return cu_Fifo_timedGet(from, entry, &past); };
    const Block::Begin timedPut = [](void* to, void** entry) { return cu_Fifo_timedPut(to, entry, &past); };
    const auto expectNone = [&](Block::Begin call) {
        void* entry = &entry;
        EXPECT_EQ(call(block.get(), &entry), 0U);
        EXPECT_EQ(entry, nullptr);
    };
    expectNone(cu_Fifo_tryGet);
    expectNone(timedGet);
    EXPECT_TRUE(block.put(1, 6, cu_Fifo_tryPut, cu_Fifo_putRollback));
    block.expectUsed(0);
    EXPECT_TRUE(block.put(1, 7, timedPut));
    expectNone(cu_Fifo_tryPut);
    expectNone(timedPut);
    EXPECT_EQ(block.take(cu_Fifo_getRollback).number, 7U);
    EXPECT_EQ(block.take(cu_Fifo_getCommit, timedGet).number, 7U);
    block.expectUsed(0);
}

TEST(Fifo, moreEndsThanBeginningsAreFound)
{
    struct {
        Block::End call;
        const char* name;
        bool full;
        uint32_t readCounter, writeCounter;
    } const cases[] = {
        {cu_Fifo_getCommit, "cu_Fifo_getCommit", false, 1, 0},
        {cu_Fifo_putRollback, "cu_Fifo_putRollback", false, 0, 0},
        {cu_Fifo_putCommit, "cu_Fifo_putCommit", true, 0, 3},
        {cu_Fifo_getRollback, "cu_Fifo_getRollback", true, 0, 2},
    };
    for (const auto& one : cases) {
        const Block block(2);
        while (one.full && block.put(0, 0)) {
        }
        EXPECT_FAILURE(one.call(block.get()), cu_ERROR_COM_INVARIANT, one.name, file, "");
        EXPECT_EQ(block.words()[2], one.readCounter);
        EXPECT_EQ(block.words()[3], one.writeCounter);
        block.expectUsed(one.full ? 2 : 0);
        EXPECT_EQ(block.count(2), 2);
    }
}

TEST(Fifo, movesAnEntryOrTellsThatItCannot)
{
    const Block source(2);
    const Block destination(1);
    void* from = nullptr;
    void* to = nullptr;
    const auto move = [&] { EXPECT_EQ(cu_Fifo_tryMove(source.get(), destination.get(), &from, &to), 0U); };
    move();
    EXPECT_EQ(from, nullptr);
    EXPECT_NE(to, nullptr);
    destination.expectUsed(0);

    source.put(3, 4);
    for (const auto end : {cu_Fifo_tryMoveRollback, cu_Fifo_tryMoveCommit}) {
        move();
        ASSERT_NE(from, nullptr);
        memcpy(to, from, sizeof(Entry));
        EXPECT_EQ(end(source.get(), destination.get()), 0U);
    }
    source.expectUsed(0);
    destination.expectUsed(1);

    source.put(5, 6);
    move();
    EXPECT_EQ(from, nullptr);
    EXPECT_EQ(to, nullptr);
    source.expectUsed(1);
    EXPECT_EQ(destination.take().writer, 3U);
}

TEST(Fifo, formattingThatFailsLeavesNoSemaphoreAndTellsWhatFailed)
{
    alignas(64) char raw[256] = {};
    const Entry initial = {};
    const char* calls[] = {"sem_init", "sem_init", "sem_init", "sem_trywait", "sem_post"};
    for (unsigned step = 0; step < std::size(calls); ++step) {
        const support::Injection injection(step + 1);
        EXPECT_NE(cu_Fifo_init(raw, 2, sizeof(initial), &initial), 0U);
        EXPECT_STREQ(injection.fired(), calls[step]);
        EXPECT_EQ(support::trace().find("cu_Fifo_init  -  src/cUtil/fifo:"), 0U);
    }
    const support::Injection notTaken("sem_trywait", EAGAIN);
    EXPECT_FAILURE(cu_Fifo_init(raw, 2, sizeof(initial), &initial), cu_ERROR_COM_INVARIANT, "cu_Fifo_init", file, "");
}

TEST(Fifo, aFailingLockGivesThePlaceBackAndAFailingMoveEndsTheProcess)
{
    const Block block(2);
    void* entry = nullptr;
    ASSERT_EQ(cu_ipcSem_lock(block.semaphore(2)), 0U);
    {
        const support::Injection injection("sem_wait", EINVAL);
        EXPECT_EQ(cu_Fifo_tryPut(block.get(), &entry), static_cast<cu_ErrorCode>(cu_ERROR_SEM_LOCK_FAILED));
    }
    EXPECT_EQ(support::trace().find("cu_Fifo_tryPut  -  src/cUtil/fifo:"), 0U);
    block.expectUsed(0);
    ASSERT_EQ(cu_ipcSem_unlock(block.semaphore(2)), 0U);

    const Block other(2);
    ASSERT_TRUE(block.put(1, 1));
    {
        void* to = nullptr;
        const support::Injection injection("sem_trywait", EINVAL, 3); // after the destination's place and lock
        EXPECT_SYSTEM_FAILURE(cu_Fifo_tryMove(block.get(), other.get(), &entry, &to), cu_ERROR_SEM_LOCK_FAILED, EINVAL,
                              "cu_ipcSem_tryLock", "src/cUtil/ipcSemaphore.linux", "errno[22]='Invalid argument'");
        EXPECT_NE(support::trace().find("\ncu_Fifo_tryMove  -  src/cUtil/fifo:"), std::string::npos);
        EXPECT_EQ(entry, nullptr);
    }
    other.expectUsed(0);
    ASSERT_TRUE(other.put(1, 1)) << "its lock is free";
    const auto move = support::outcomeOf([&] {
        const support::Injection injection("sem_post", EINVAL);
        cu_Fifo_tryMoveCommit(block.get(), other.get());
    });
    EXPECT_EQ(move.status, 1);
    EXPECT_THAT(move.out, testing::HasSubstr("!   Function: 'cu_Fifo_tryMoveCommit'\n!   Return Code: '16777220' "
                                             "(0x01000004)\n"));
}

TEST(Fifo, processesExchangeEveryEntryOnceAndInOrderAcrossTheWrapOfTheCounters)
{
    constexpr uint32_t each = 20000;
    for (const uint32_t capacity : {1U, 2U, 16U}) {
        const Block block(capacity);
        block.words()[2] = block.words()[3] = UINT32_MAX - each;
        support::expectExchange(
            2, each, [&](const Entry& content) { EXPECT_TRUE(block.put(content.writer, content.number, cu_Fifo_put)); },
            [&] { return block.take(); });
        block.expectUsed(0);
    }
}

} // namespace
