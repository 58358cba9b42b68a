#include "support/exchange.h"
#include "support/process.h"
#include "support/record.h"
#include "support/refusal.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/ringBuffer.h>
#include <cUtil/semaphore.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <numeric>
#include <random>
#include <sched.h>
#include <semaphore.h>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/ringBuffer";
constexpr std::string_view magic = "\x40\x40\x30\x30\x20\x20\x10\x10";

// The words of the header by their places.
enum Word : uint32_t { sizeWord = 8, readWord = 12, writeWord = 16, writeCopy = 24, readCopy = 88 };

/// Memory for a ring between two pages that nobody may touch.
class Region
{
public:
    explicit Region(uint32_t size)
        : length_((cu_RingBuffer_getRegionSize(size) + page - 1) / page * page), memory_(length_ + 2 * page)
    {
        mprotect(memory_.get(), page, PROT_NONE);
        mprotect(get() + length_, page, PROT_NONE);
    }

    char* get() const { return memory_.get() + page; }
    char* data() const { return get() + CU_RING_BUFFER_HEADER_SIZE; }
    bool hasMagic() const { return std::string_view(get(), 8) == magic; }
    sem_t* lock(bool ofWriter) const { return static_cast<sem_t*>(static_cast<void*>(get() + (ofWriter ? 96 : 32))); }

    std::atomic_ref<uint32_t> word(uint32_t at) const
    {
        return std::atomic_ref(*static_cast<uint32_t*>(static_cast<void*>(get() + at)));
    }
    std::array<uint32_t, 4> positions() const
    {
        return {word(readWord), word(writeWord), word(writeCopy), word(readCopy)};
    }

private:
    static constexpr std::size_t page = 4096;

    std::size_t length_;
    support::Shared<char> memory_;
};

/// An object that is deleted at the end.
class Ring : support::Pinned
{
public:
    Ring(const Region& region, uint32_t size, bool readerLock = false, bool writerLock = false)
    {
        EXPECT_EQ(cu_RingBuffer_create(&ring_, region.get(), size, readerLock, writerLock, nullptr), 0U);
    }
    explicit Ring(const Region& region) { EXPECT_EQ(cu_RingBuffer_open(&ring_, region.get(), nullptr), 0U); }
    ~Ring()
    {
        EXPECT_EQ(cu_RingBuffer_delete(&ring_), 0U);
        EXPECT_EQ(ring_, nullptr);
    }

    cu_RingBuffer* get() const { return ring_; }

    bool put(const void* record, uint32_t length) const
    {
        bool written = length % 2 == 0; // either way it is to be set
        EXPECT_EQ(cu_RingBuffer_put(ring_, record, length, &written), 0U);
        return written;
    }
    bool put(const std::string& record) const { return put(record.data(), static_cast<uint32_t>(record.size())); }

    bool get(void* record, uint32_t length) const
    {
        bool read = length % 2 == 0;
        EXPECT_EQ(cu_RingBuffer_get(ring_, record, length, &read), 0U);
        return read;
    }
    std::string get(uint32_t length) const
    {
        std::string record(length, '?');
        return get(record.data(), length) ? record : "refused";
    }

    uint32_t used() const { return figure(cu_RingBuffer_getAvailable); }
    uint32_t free() const { return figure(cu_RingBuffer_putAvailable); }

private:
    uint32_t figure(cu_ErrorCode (*call)(cu_RingBuffer*, uint32_t*)) const
    {
        uint32_t value = 0;
        EXPECT_EQ(call(ring_, &value), 0U);
        return value;
    }

    cu_RingBuffer* ring_ = nullptr;
};

TEST(RingBuffer, isLaidOutForOldBinaries)
{
    EXPECT_EQ(cu_RingBuffer_getRegionSize(8), 4104U);
    EXPECT_EQ(cu_RingBuffer_getRegionSize(1U << 31), (1U << 31) + 4096);
    EXPECT_EQ(cu_RingBuffer_getRegionSize(0), 0U);
    EXPECT_EQ(cu_RingBuffer_getRegionSize(12), 0U);

    const Region region(8);
    memset(region.get(), 0xA5, 4104);
    const Ring ring(region, 8, true, true);
    EXPECT_TRUE(region.hasMagic());
    EXPECT_EQ(region.word(sizeWord), 8U);
    EXPECT_THAT(region.positions(), testing::Each(0U));
    EXPECT_TRUE(ring.put("abcde"));
    EXPECT_THAT(region.positions(), testing::ElementsAre(0, 5, 0, 0));
    EXPECT_EQ(std::string(region.data(), 8), std::string("abcde\0\0\0", 8));
    EXPECT_EQ(ring.get(4), "abcd");
    EXPECT_THAT(region.positions(), testing::ElementsAre(4, 5, 5, 0));
    EXPECT_TRUE(ring.put("fgh")) << "after a look at the consumer's position";
    EXPECT_THAT(region.positions(), testing::ElementsAre(4, 0, 5, 4)) << "a record that ends at the end";
    EXPECT_EQ(ring.get(4), "efgh");

    // Each side looks at the other one's position only when its own copy says no.
    EXPECT_TRUE(ring.put("abcd"));
    EXPECT_EQ(ring.get(2), "ab");
    region.word(writeWord) = 2;
    EXPECT_EQ(ring.get(2), "cd");
    region.word(writeWord) = 6;
    EXPECT_EQ(ring.get(3), "refused");
    EXPECT_THAT(region.positions(), testing::ElementsAre(4, 6, 6, 0));
    region.word(readWord) = 5;
    EXPECT_TRUE(ring.put("e"));
    EXPECT_THAT(region.positions(), testing::ElementsAre(5, 7, 6, 0));
    EXPECT_FALSE(ring.put("123456"));
    EXPECT_THAT(region.positions(), testing::ElementsAre(5, 7, 6, 5));
}

TEST(RingBuffer, badArgumentsAreRefused)
{
    const Region region(8);
    const Ring some(region, 8);
    cu_RingBuffer* ring = some.get();
    cu_RingBuffer* none = nullptr;
    char byte = 0;
    bool done = false;
    uint32_t figure = 0;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, ring, static_cast<void*>(region.get()), &done, &figure, uint32_t{8}}),
                         cu_RingBuffer_new, cu_RingBuffer_create, cu_RingBuffer_open, cu_RingBuffer_put,
                         cu_RingBuffer_get, cu_RingBuffer_getAvailable, cu_RingBuffer_putAvailable);
    EXPECT_NULLS_REFUSED(file, std::tuple{&ring}, cu_RingBuffer_delete);
    for (const uint32_t size : {0U, 3U, 12U, UINT32_MAX}) {
        EXPECT_REFUSED(cu_RingBuffer_new(&none, size, false, false, nullptr), "cu_RingBuffer_new", file);
        EXPECT_REFUSED(cu_RingBuffer_create(&none, region.get(), size, false, false, nullptr), "cu_RingBuffer_create",
                       file);
    }
    EXPECT_REFUSED(cu_RingBuffer_put(ring, &byte, 0, &done), "cu_RingBuffer_put", file);
    EXPECT_REFUSED(cu_RingBuffer_get(ring, &byte, 0, &done), "cu_RingBuffer_get", file);
    EXPECT_EQ(none, nullptr);
}

TEST(RingBuffer, constructorsLeaveNothingBehind)
{
    const Region region(64);
    EXPECT_CLEAN_FAILURES(cu_RingBuffer_new, cu_RingBuffer_delete, 64U, true, true);
    support::sweep<cu_RingBuffer>(
        "cu_RingBuffer_create",
        [&](auto** me, auto* allocator) {
            const cu_ErrorCode code = cu_RingBuffer_create(me, region.get(), 64, true, true, allocator);
            EXPECT_EQ(region.hasMagic(), code == 0) << "what is half made is no ring";
            return code;
        },
        cu_RingBuffer_delete);
    const Ring ring(region, 64, true, true);
    EXPECT_CLEAN_FAILURES(cu_RingBuffer_open, cu_RingBuffer_delete, region.get());
}

TEST(RingBuffer, openRefusesWhatIsNoRingAndChangesNothing)
{
    const Region region(16);
    EXPECT_TRUE(Ring(region, 16, true, true).put("0123456789"));
    const std::string before(region.get(), cu_RingBuffer_getRegionSize(16));
    cu_RingBuffer* none = nullptr;
    const std::pair<uint32_t, uint32_t> cases[] = {
        {0, 0x30304041},        {4, 0x11102020}, {sizeWord, 0},   {sizeWord, 8},          {sizeWord, 15},
        {sizeWord, UINT32_MAX}, {readWord, 16},  {writeWord, 16}, {readWord, UINT32_MAX}, {writeWord, UINT32_MAX}};
    for (const auto& one : cases) {
        const uint32_t good = region.word(one.first).exchange(one.second);
        EXPECT_FAILURE(cu_RingBuffer_open(&none, region.get(), nullptr),
                       one.first < sizeWord ? cu_ERROR_INVALID_MAGIC : cu_ERROR_COM_INVARIANT, "cu_RingBuffer_open",
                       file, "");
        region.word(one.first) = good;
    }
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(Ring(region).used(), 10U);
    EXPECT_EQ(std::string(region.get(), before.size()), before);
}

// Every length at every position in the area, with copies of every age. Nothing beside the record changes.
TEST(RingBuffer, keepsEveryRecordWholeWhereverItLies)
{
    for (const uint32_t size : {1U, 2U, 8U, 64U, 128U}) {
        const Region region(size);
        const Ring ring(region, size);
        std::string bytes(size + 2, '\0');
        std::iota(bytes.begin(), bytes.end(), '!');
        const char* record = bytes.data() + 1;
        for (uint32_t position = 0; position < size; ++position) {
            for (uint32_t length = 1; length < size; ++length) {
                const uint32_t end = (position + length) % size;
                for (const Word at : {readWord, writeWord, writeCopy})
                    region.word(at) = position;
                region.word(readCopy) = end;
                memset(region.data(), 0, size);
                ASSERT_TRUE(ring.put(record, length));
                ASSERT_EQ(ring.used(), length);
                ASSERT_EQ(ring.free(), size - 1 - length);
                ASSERT_EQ(region.word(writeWord), end);
                for (uint32_t at = 0; at < size; ++at)
                    ASSERT_EQ(region.data()[(position + at) % size], at < length ? record[at] : '\0');
                ASSERT_EQ(ring.get(length + 1), "refused");
                ASSERT_EQ(region.word(readWord), position);
                std::string got(length + 2, '?');
                ASSERT_TRUE(ring.get(got.data() + 1, length));
                ASSERT_EQ(got, '?' + std::string(record, length) + '?') << position;
                ASSERT_EQ(region.word(readWord), end);
                ASSERT_EQ(ring.used(), 0U);
            }
            for (const uint32_t tooLong : {size, size + 1, 1U << 31, UINT32_MAX - 1, UINT32_MAX}) {
                ASSERT_FALSE(ring.put(record, tooLong));
                ASSERT_FALSE(ring.get(bytes.data(), tooLong));
            }
        }
    }
}

// In memory of its own, in a region that it formats, and in one that is open already.
TEST(RingBuffer, hasTheLocksThatWereAskedForAndReportsTheirFailures)
{
    const Region region(8);
    for (const auto& [readerLock, writerLock] : {std::pair{false, false}, {false, true}, {true, false}, {true, true}}) {
        support::WatchfulAllocator allocator;
        cu_RingBuffer* rings[3] = {};
        ASSERT_EQ(cu_RingBuffer_new(&rings[0], 8, readerLock, writerLock, allocator.get()), 0U);
        EXPECT_EQ(allocator.requests()[1], 4096U);
        EXPECT_EQ(allocator.requests()[2], 8U);
        ASSERT_EQ(cu_RingBuffer_create(&rings[1], region.get(), 8, readerLock, writerLock, nullptr), 0U);
        ASSERT_EQ(cu_RingBuffer_open(&rings[2], region.get(), nullptr), 0U);
        for (cu_RingBuffer* ring : rings) {
            for (const bool putting : {true, false}) {
                const bool locked = putting ? writerLock : readerLock;
                char record[8] = "record";
                bool done = false;
                const auto expect = [&](const char* systemCall, const support::Failure& failure) {
                    const support::Injection injection(systemCall, failure.systemErrorCode);
                    const auto call = [&] {
                        return putting ? cu_RingBuffer_put(ring, record, 3, &done)
                                       : cu_RingBuffer_get(ring, record, 3, &done);
                    };
                    EXPECT_EQ(support::failureOf(call), locked ? failure : support::Failure());
                    const std::string place =
                        std::string(putting ? "cu_RingBuffer_put" : "cu_RingBuffer_get") + "  -  ";
                    EXPECT_EQ(support::trace().find(place + file), locked ? 0U : std::string::npos);
                };
                const std::string origin = "src/cUtil/semaphore.linux";
                expect("sem_post", {cu_ERROR_SEM_UNLOCK_FAILED, "cu_Semaphore_v", origin, "", EOVERFLOW});
                EXPECT_TRUE(done) << "the lock stays taken, but the record is there";
                expect("sem_wait",
                       {cu_ERROR_SEM_LOCK_FAILED, "cu_Semaphore_p", origin, "errno[22]='Invalid argument'", EINVAL});
                if (ring == rings[1])
                    sem_post(region.lock(putting));
            }
        }
        for (const int which : {0, 2, 1})
            EXPECT_EQ(cu_RingBuffer_delete(&rings[which]), 0U);
    }
}

// Another process scribbles over the header, and this one, too, meanwhile puts and gets. There are pages around the
// region that nobody may touch.
TEST(RingBuffer, aHostileRegionLeadsToNoAccessOutsideIt)
{
    constexpr uint32_t size = 4096;
    const Region region(size);
    const Ring ring(region, size);
    const auto scribble = [&](std::mt19937& random) {
        static constexpr uint32_t near[] = {0, 1, size - 1, size, size + 1, 1U << 31, UINT32_MAX - size, UINT32_MAX};
        static constexpr Word words[] = {sizeWord, readWord, writeWord, writeCopy, readCopy};
        const auto value = static_cast<uint32_t>(random());
        region.word(words[random() % 5]) = random() % 2 == 0 ? value : near[value % 8];
    };
    const support::Process enemy([&] {
        for (std::mt19937 random(2);;)
            scribble(random);
        return 0;
    });
    std::mt19937 random(3);
    for (int step = 0; step < 50000; ++step) {
        scribble(random);
        const auto length = static_cast<uint32_t>(random() % (size + 1) + 1);
        if (random() % 2 == 0)
            ring.put(std::string(length, 'g'));
        else
            ring.get(length);
        ASSERT_LT(ring.used(), size);
        ASSERT_LT(ring.free(), size);
    }
}

template <typename Take>
void whileRefused(Take take)
{
    while (!take())
        sched_yield();
}

// A stream whose every piece tells where it belongs, in pieces less than half a ring long, or both sides could wait for
// each other.
TEST(RingBuffer, carriesAStreamBetweenTwoProcessesAndBetweenTwoThreads)
{
    const auto total = static_cast<uint64_t>(sizeof(void*) == 4 ? 50'000'000 : support::scaled(100'000'000));
    constexpr uint32_t longest = 1500;
    constexpr uint32_t period = 65521; // in step with no ring
    std::mt19937 bytes(9);
    std::vector<char> stream(period);
    std::generate(stream.begin(), stream.end(), [&] { return static_cast<char>(bytes()); });
    stream.resize(period + longest);
    std::copy_n(stream.begin(), longest, stream.begin() + period);
    const Region region(1 << 12);
    const Ring ring(region, 1 << 12);
    const auto carry = [&](unsigned seed, auto piece) {
        std::mt19937 random(seed);
        for (uint64_t offset = 0; offset < total;) {
            const auto length = static_cast<uint32_t>(std::min<uint64_t>(1 + random() % longest, total - offset));
            whileRefused([&] { return piece(stream.data() + offset % period, length); });
            offset += length;
        }
        return testing::Test::HasFailure() ? 99 : 0;
    };
    const auto produce = [&] {
        return carry(5, [&](const char* from, uint32_t length) { return ring.put(from, length); });
    };
    const auto expectStream = [&] {
        uint64_t wrong = 0;
        carry(6, [&](const char* expected, uint32_t length) {
            char record[longest];
            const bool got = ring.get(record, length);
            wrong += got && memcmp(record, expected, length) != 0 ? 1 : 0;
            return got;
        });
        EXPECT_EQ(wrong, 0U);
    };
    support::Process process(produce);
    expectStream();
    EXPECT_EQ(process.wait(), 0);
    std::thread thread(produce);
    expectStream();
    thread.join();
}

TEST(RingBuffer, severalProducersAndConsumersExchangeEveryRecordOnce)
{
    const Region region(64);
    const Ring ring(region, 64, true, true);
    EXPECT_TRUE(ring.put("123"));
    EXPECT_EQ(ring.get(3), "123"); // so that every eighth record wraps
    const auto put = [&](const support::Numbered& record) {
        whileRefused([&] { return ring.put(&record, sizeof(record)); });
    };
    const auto take = [&] {
        support::Numbered record = {};
        whileRefused([&] { return ring.get(&record, sizeof(record)); });
        return record;
    };
    support::expectExchange(3, 20000, put, take);
    EXPECT_EQ(ring.used(), 0U);
}

} // namespace
