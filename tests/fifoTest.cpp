#include "support/inject.h"
#include "support/process.h"
#include "support/record.h"
#include "support/refusal.h"

#include <cUtil/fifo.h>
#include <cUtil/ipcSemaphore.h>

#include <gmock/gmock.h>

#include <array>
#include <cstring>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/fifo";

struct Entry {
    uint32_t writer;
    uint32_t number;
};

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
    char* entries() const { return memory_.get() + CU_FIFO_HEADER_SIZE; }

    void startCountersAt(uint32_t value) const { words()[2] = words()[3] = value; }

    bool put(uint32_t writer, uint32_t number) const
    {
        void* entry = nullptr;
        EXPECT_EQ(cu_Fifo_tryPut(get(), &entry), 0U);
        if (entry == nullptr)
            return false;
        *static_cast<Entry*>(entry) = {writer, number};
        EXPECT_EQ(cu_Fifo_putCommit(get()), 0U);
        return true;
    }

    int32_t used() const { return lengths()[1]; }
    int32_t free() const { return lengths()[0]; }

private:
    std::array<int32_t, 2> lengths() const
    {
        uint32_t capacity = 0;
        std::array<int32_t, 2> values = {-1, -1};
        EXPECT_EQ(cu_Fifo_getLengthInfos(get(), &capacity, &values[0], &values[1]), 0U);
        EXPECT_EQ(capacity, words()[0]);
        return values;
    }

    support::Shared<char> memory_;
};

TEST(Fifo, isLaidOutForOldBinaries)
{
    const bool is32Bit = sizeof(void*) == 4;
    EXPECT_EQ(CU_FIFO_HEADER_SIZE, is32Bit ? 64 : 128);
    EXPECT_EQ(cu_Fifo_getBlockSize(4, 10), CU_FIFO_HEADER_SIZE + 40U);
    EXPECT_EQ(cu_Fifo_getBlockSize(0x10000, 0x10000), 0U);
    EXPECT_EQ(cu_Fifo_getBlockSize(1, UINT32_MAX - CU_FIFO_HEADER_SIZE + 1), 0U);
    EXPECT_EQ(cu_Fifo_getBlockSize(0, 10), 0U);

    const Block block(4, 10);
    EXPECT_THAT(std::vector<uint32_t>(block.words(), block.words() + 4), testing::ElementsAre(4, 10, 0, 0));
    const int expected[] = {0, 4, 1}; // filled, free, lock
    for (int which = 0; which < 3; ++which) {
        int32_t count = -1;
        EXPECT_EQ(cu_ipcSem_getCount(block.semaphore(which), &count), 0U);
        EXPECT_EQ(count, expected[which]);
    }
    EXPECT_EQ(std::string(block.entries(), 40), std::string(40, 'i'));
    void* entry = nullptr;
    EXPECT_EQ(cu_Fifo_put(block.get(), &entry), 0U);
    EXPECT_EQ(entry, block.entries());
    EXPECT_EQ(cu_Fifo_putCommit(block.get()), 0U);
    EXPECT_EQ(cu_Fifo_put(block.get(), &entry), 0U);
    EXPECT_EQ(entry, block.entries() + 10);
    EXPECT_EQ(cu_Fifo_putRollback(block.get()), 0U);
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
    EXPECT_REFUSED(cu_Fifo_init(raw, 0, 8, raw), "cu_Fifo_init", file);
    EXPECT_REFUSED(cu_Fifo_init(raw, 3, 8, raw), "cu_Fifo_init", file);
    EXPECT_REFUSED(cu_Fifo_init(raw, 2, 0, raw), "cu_Fifo_init", file);
    EXPECT_REFUSED(cu_Fifo_tryMove(block.get(), block.get(), &entry, &entry), "cu_Fifo_tryMove", file);
    EXPECT_REFUSED(cu_Fifo_tryMove(block.get(), otherSize.get(), &entry, &entry), "cu_Fifo_tryMove", file);
    EXPECT_REFUSED(cu_Fifo_tryMoveCommit(block.get(), block.get()), "cu_Fifo_tryMoveCommit", file);
}

TEST(Fifo, attachRefusesAHeaderThatCannotBeOne)
{
    struct {
        uint32_t capacity;
        uint32_t entrySize;
    } const cases[] = {{0, 8}, {8, 0}, {6, 8}, {UINT32_MAX, 8}};
    const Block block(8);
    EXPECT_EQ(cu_Fifo_attach(block.get()), 0U);
    EXPECT_EQ(cu_Fifo_detach(block.get()), 0U);
    for (const auto& one : cases) {
        uint32_t header[64] = {one.capacity, one.entrySize};
        EXPECT_FAILURE(cu_Fifo_attach(header), cu_ERROR_COM_INVARIANT, "cu_Fifo_attach", file, "");
    }
}

TEST(Fifo, keepsOrderAcrossTheWrapOfItsCounters)
{
    for (const uint32_t capacity : {1U, 2U, 8U}) {
        const Block block(capacity);
        block.startCountersAt(UINT32_MAX - 20);
        uint32_t taken = 0;
        uint32_t given = 0;
        while (taken < 60) {
            while (block.put(0, given))
                ++given;
            EXPECT_EQ(given - taken, capacity);
            EXPECT_EQ(block.used(), static_cast<int32_t>(capacity));
            EXPECT_EQ(block.free(), 0);
            for (uint32_t one = 0; one < (capacity + 1) / 2; ++one) {
                void* entry = nullptr;
                ASSERT_EQ(cu_Fifo_get(block.get(), &entry), 0U);
                EXPECT_EQ(static_cast<Entry*>(entry)->number, taken++);
                ASSERT_EQ(cu_Fifo_getCommit(block.get()), 0U);
            }
        }
        EXPECT_LT(block.words()[2], 60U);
    }
}

TEST(Fifo, aFullOrEmptyQueueSaysSoAndARollbackChangesNothing)
{
    const Block block(1);
    void* entry = &entry;
    EXPECT_EQ(cu_Fifo_tryGet(block.get(), &entry), 0U);
    EXPECT_EQ(entry, nullptr);
    const cu_TimeValue past = {1, 0};
    entry = &entry;
    EXPECT_EQ(cu_Fifo_timedGet(block.get(), &entry, &past), 0U);
    EXPECT_EQ(entry, nullptr);

    ASSERT_EQ(cu_Fifo_put(block.get(), &entry), 0U);
    EXPECT_EQ(cu_Fifo_putRollback(block.get()), 0U);
    EXPECT_EQ(block.used(), 0);
    ASSERT_EQ(cu_Fifo_timedPut(block.get(), &entry, &past), 0U);
    static_cast<Entry*>(entry)->number = 7;
    EXPECT_EQ(cu_Fifo_putCommit(block.get()), 0U);
    for (const auto put : {cu_Fifo_tryPut, +[](void*b, void**e) {
                               const cu_TimeValue passed = {1, 0};
                               return cu_Fifo_timedPut(b, e, &passed);
                           }}) {
        entry = &entry;
        EXPECT_EQ(put(block.get(), &entry), 0U);
        EXPECT_EQ(entry, nullptr);
    }
    for (const auto end : {cu_Fifo_getRollback, cu_Fifo_getCommit}) {
        ASSERT_EQ(cu_Fifo_get(block.get(), &entry), 0U);
        EXPECT_EQ(static_cast<Entry*>(entry)->number, 7U);
        EXPECT_EQ(end(block.get()), 0U);
    }
    EXPECT_EQ(block.used(), 0);
    EXPECT_EQ(block.free(), 1);
}

TEST(Fifo, moreEndsThanBeginningsAreFound)
{
    struct {
        cu_ErrorCode (*call)(void*);
        const char* name;
        bool full;
        uint32_t readCounter;
        uint32_t writeCounter;
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
        EXPECT_EQ(block.used(), one.full ? 2 : 0);
        int32_t lock = 0;
        EXPECT_EQ(cu_ipcSem_getCount(block.semaphore(2), &lock), 0U);
        EXPECT_EQ(lock, 2);
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
    EXPECT_EQ(destination.free(), 1);

    source.put(3, 4);
    for (const auto end : {cu_Fifo_tryMoveRollback, cu_Fifo_tryMoveCommit}) {
        move();
        ASSERT_NE(from, nullptr);
        memcpy(to, from, sizeof(Entry));
        EXPECT_EQ(end(source.get(), destination.get()), 0U);
    }
    EXPECT_EQ(source.used(), 0);
    EXPECT_EQ(destination.used(), 1);

    source.put(5, 6);
    move();
    EXPECT_EQ(from, nullptr);
    EXPECT_EQ(to, nullptr);
    EXPECT_EQ(source.used(), 1);
    ASSERT_EQ(cu_Fifo_get(destination.get(), &to), 0U);
    EXPECT_EQ(static_cast<Entry*>(to)->writer, 3U);
    EXPECT_EQ(cu_Fifo_getCommit(destination.get()), 0U);
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
    EXPECT_EQ(block.free(), 2);
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
    EXPECT_EQ(other.free(), 2);
    ASSERT_TRUE(other.put(1, 1)) << "its lock is free";
    const auto move = support::outcomeOf([&] {
        const support::Injection injection("sem_post", EINVAL);
        cu_Fifo_tryMoveCommit(block.get(), other.get());
    });
    EXPECT_EQ(move.status, 1);
    EXPECT_THAT(move.out, testing::HasSubstr("!   Function: 'cu_Fifo_tryMoveCommit'\n!   Return Code: '16777220' "
                                             "(0x01000004)\n"));
    EXPECT_THAT(move.out, testing::HasSubstr("!   Function: 'cu_ipcSem_unlock'\n!   Description: ''\n!!!"));
}

TEST(Fifo, fourProcessesExchangeEveryEntryOnceAndInOrder)
{
    constexpr uint32_t each = 20000;
    struct Tally {
        uint32_t takes[2][each];
    };
    for (const uint32_t capacity : {1U, 16U}) {
        const Block block(capacity);
        block.startCountersAt(UINT32_MAX - each);
        const support::Shared<Tally> tally;
        const auto write = [&](uint32_t writer) {
            for (uint32_t number = 0; number < each; ++number) {
                void* entry = nullptr;
                if (cu_Fifo_put(block.get(), &entry) != 0)
                    return 1;
                *static_cast<Entry*>(entry) = {writer, number};
                if (cu_Fifo_putCommit(block.get()) != 0)
                    return 2;
            }
            return 0;
        };
        const auto read = [&] {
            uint32_t next[2] = {};
            for (uint32_t taken = 0; taken < each; ++taken) {
                void* entry = nullptr;
                if (cu_Fifo_get(block.get(), &entry) != 0)
                    return 1;
                const Entry got = *static_cast<Entry*>(entry);
                if (cu_Fifo_getCommit(block.get()) != 0)
                    return 2;
                if (got.writer > 1 || got.number >= each || got.number < next[got.writer])
                    return 3;
                next[got.writer] = got.number + 1;
                ++tally->takes[got.writer][got.number];
            }
            return 0;
        };
        support::Process processes[] = {
            support::Process([&] { return write(0); }), support::Process([&] { return write(1); }),
            support::Process([&] { return read(); }), support::Process([&] { return read(); })};
        for (support::Process& process : processes)
            EXPECT_EQ(process.wait(), 0);
        for (const auto& writer : tally->takes)
            for (const uint32_t takes : writer)
                ASSERT_EQ(takes, 1U);
        EXPECT_EQ(block.free(), static_cast<int32_t>(capacity));
    }
}

TEST(Fifo, aProcessThatDiesWhileItWaitsForATransactionCostsTheQueueAnEntry)
{
    const Block block(4);
    ASSERT_TRUE(block.put(1, 1));
    void* entry = nullptr;
    ASSERT_EQ(cu_Fifo_put(block.get(), &entry), 0U);
    support::Process victim([&] {
        void* wanted = nullptr;
        cu_Fifo_tryGet(block.get(), &wanted);
        return 0;
    });
    EXPECT_TRUE(support::comesTrue([&] { return block.used() == 0; }));
    victim.kill();
    *static_cast<Entry*>(entry) = {1, 2};
    EXPECT_EQ(cu_Fifo_putCommit(block.get()), 0U);
    EXPECT_EQ(block.used() + block.free(), 3);
    for (uint32_t number = 1; number < 10; ++number) {
        ASSERT_EQ(cu_Fifo_tryGet(block.get(), &entry), 0U);
        ASSERT_NE(entry, nullptr);
        EXPECT_EQ(static_cast<Entry*>(entry)->number, number);
        EXPECT_EQ(cu_Fifo_getCommit(block.get()), 0U);
        EXPECT_TRUE(block.put(1, number + 2));
    }
}

TEST(Fifo, aProcessThatDiesInATransactionLosesNoEntryOfOthersButKeepsTheLock)
{
    const Block block(4);
    ASSERT_TRUE(block.put(1, 1));
    support::Process victim([&] {
        void* entry = nullptr;
        cu_Fifo_put(block.get(), &entry);
        pause();
        return 0;
    });
    EXPECT_TRUE(support::comesTrue([&] { return block.free() == 2; }));
    EXPECT_TRUE(support::comesTrue([&] {
        int32_t lock = 1;
        cu_ipcSem_getCount(block.semaphore(2), &lock);
        return lock == 0;
    }));
    victim.kill();
    EXPECT_EQ(block.used(), 1);
    EXPECT_EQ(block.free(), 2);
    void* entry = nullptr;
    // Formatting anew is the way out.
    const Entry initial = {};
    EXPECT_EQ(cu_Fifo_init(block.get(), 4, sizeof(initial), &initial), 0U);
    EXPECT_EQ(cu_Fifo_tryPut(block.get(), &entry), 0U);
    EXPECT_NE(entry, nullptr);
    EXPECT_EQ(cu_Fifo_putCommit(block.get()), 0U);
}

} // namespace
