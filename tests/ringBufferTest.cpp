#include "support/inject.h"
#include "support/process.h"
#include "support/record.h"
#include "support/refusal.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/ringBuffer.h>
#include <cUtil/semaphore.h>

#include <gmock/gmock.h>

#include <algorithm>
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

// The words of the header by their places.
enum Word : uint32_t { sizeWord = 8, readWord = 12, writeWord = 16, writeCopy = 24, readCopy = 88 };

/// Memory for a ring between two pages that nobody may touch.
class Region
{
public:
    explicit Region(uint32_t size)
        : length_((cu_RingBuffer_getRegionSize(size) + page - 1) / page * page + 2 * page),
          memory_(static_cast<char*>(mmap(nullptr, length_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)))
    {
        mprotect(memory_, page, PROT_NONE);
        mprotect(memory_ + length_ - page, page, PROT_NONE);
    }
    Region(const Region&) = delete;
    Region& operator=(const Region&) = delete;
    ~Region() { munmap(memory_, length_); }

    char* get() const { return memory_ + page; }
    char* data() const { return get() + CU_RING_BUFFER_HEADER_SIZE; }
    sem_t* lock(bool ofWriter) const { return static_cast<sem_t*>(static_cast<void*>(get() + (ofWriter ? 96 : 32))); }

    uint32_t word(Word at) const { return std::atomic_ref(address(at)).load(std::memory_order_relaxed); }
    void set(Word at, uint32_t value) const { std::atomic_ref(address(at)).store(value, std::memory_order_relaxed); }

    /// Both positions and both copies, as if bytes had come and gone.
    void moveTo(uint32_t position) const
    {
        for (const Word at : {readWord, writeWord, writeCopy, readCopy})
            set(at, position);
    }

private:
    static constexpr std::size_t page = 4096;

    uint32_t& address(Word at) const { return *static_cast<uint32_t*>(static_cast<void*>(get() + at)); }

    std::size_t length_;
    char* memory_;
};

/// An object that is deleted at the end.
class Ring
{
public:
    Ring(const Region& region, uint32_t size, bool readerLock = false, bool writerLock = false)
    {
        EXPECT_EQ(cu_RingBuffer_create(&ring_, region.get(), size, readerLock, writerLock, nullptr), 0U);
    }
    explicit Ring(const Region& region) { EXPECT_EQ(cu_RingBuffer_open(&ring_, region.get(), nullptr), 0U); }
    Ring(const Ring&) = delete;
    Ring& operator=(const Ring&) = delete;
    ~Ring()
    {
        EXPECT_EQ(cu_RingBuffer_delete(&ring_), 0U);
        EXPECT_EQ(ring_, nullptr);
    }

    cu_RingBuffer* get() const { return ring_; }

    bool put(const void* record, uint32_t length) const
    {
        bool written = length % 2 == 0;
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
    EXPECT_EQ(std::string(region.get(), 8), "\x40\x40\x30\x30\x20\x20\x10\x10");
    EXPECT_EQ(region.word(sizeWord), 8U);
    EXPECT_EQ(std::string(region.get() + 20, 2), "\1\1");
    EXPECT_EQ(std::string(region.data(), 8), std::string(8, '\0'));
    for (const bool ofWriter : {false, true}) {
        int value = -1;
        EXPECT_EQ(sem_getvalue(region.lock(ofWriter), &value), 0);
        EXPECT_EQ(value, 1);
    }
    for (const Word at : {readWord, writeWord, writeCopy, readCopy})
        EXPECT_EQ(region.word(at), 0U);

    EXPECT_TRUE(ring.put("abcde"));
    EXPECT_EQ(region.word(writeWord), 5U);
    EXPECT_EQ(region.word(writeCopy), 0U);
    EXPECT_EQ(std::string(region.data(), 8), std::string("abcde\0\0\0", 8));
    EXPECT_EQ(ring.get(4), "abcd");
    EXPECT_EQ(region.word(readWord), 4U);
    EXPECT_EQ(region.word(writeCopy), 5U);
    EXPECT_EQ(region.word(readCopy), 0U);
    EXPECT_TRUE(ring.put("fgh")) << "after a look at the consumer's position";
    EXPECT_EQ(region.word(readCopy), 4U);
    EXPECT_EQ(region.word(writeWord), 0U) << "a record that ends at the end";
    EXPECT_EQ(ring.get(4), "efgh");
    EXPECT_EQ(region.word(readWord), 0U);
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
            cu_RingBuffer* other = nullptr;
            if (code != 0) { // what is half made is no ring
                const cu_Error record = *cu_getErrorLocation();
                EXPECT_EQ(cu_RingBuffer_open(&other, region.get(), nullptr), cu_ErrorCode{cu_ERROR_INVALID_MAGIC});
                *cu_getErrorLocation() = record;
            }
            return code;
        },
        cu_RingBuffer_delete);
    const Ring ring(region, 64, true, true);
    EXPECT_CLEAN_FAILURES(cu_RingBuffer_open, cu_RingBuffer_delete, region.get());
}

TEST(RingBuffer, openRefusesWhatIsNoRingAndChangesNothing)
{
    const Region region(16);
    {
        const Ring ring(region, 16, true, true);
        EXPECT_TRUE(ring.put("0123456789"));
    }
    const std::string before(region.get(), cu_RingBuffer_getRegionSize(16));
    cu_RingBuffer* none = nullptr;
    for (int at = 0; at < 8; ++at) {
        region.get()[at] ^= 1;
        EXPECT_FAILURE(cu_RingBuffer_open(&none, region.get(), nullptr), cu_ERROR_INVALID_MAGIC, "cu_RingBuffer_open",
                       file, "");
        region.get()[at] ^= 1;
    }
    struct {
        Word word;
        uint32_t value;
    } const cases[] = {{sizeWord, 0},  {sizeWord, 15},         {sizeWord, UINT32_MAX}, {sizeWord, 8},
                       {readWord, 16}, {readWord, UINT32_MAX}, {writeWord, 16},        {writeWord, UINT32_MAX}};
    for (const auto& one : cases) {
        const uint32_t good = region.word(one.word);
        region.set(one.word, one.value);
        EXPECT_FAILURE(cu_RingBuffer_open(&none, region.get(), nullptr), cu_ERROR_COM_INVARIANT, "cu_RingBuffer_open",
                       file, "");
        region.set(one.word, good);
    }
    EXPECT_EQ(none, nullptr);
    {
        const Ring ring(region);
        EXPECT_EQ(ring.used(), 10U);
        EXPECT_EQ(ring.free(), 5U);
        EXPECT_EQ(std::string(region.get(), before.size()), before);
    }
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
                region.moveTo(position);
                region.set(readCopy, (position + length) % size);
                memset(region.data(), 0, size);
                ASSERT_TRUE(ring.put(record, length));
                ASSERT_EQ(ring.used(), length);
                ASSERT_EQ(ring.free(), size - 1 - length);
                ASSERT_EQ(region.word(writeWord), (position + length) % size);
                for (uint32_t at = 0; at < size; ++at)
                    ASSERT_EQ(region.data()[(position + at) % size], at < length ? record[at] : '\0');
                ASSERT_EQ(ring.get(length + 1), "refused");
                ASSERT_EQ(region.word(readWord), position);
                std::string got(length + 2, '?');
                ASSERT_TRUE(ring.get(got.data() + 1, length));
                ASSERT_EQ(got, '?' + std::string(record, length) + '?') << position;
                ASSERT_EQ(region.word(readWord), (position + length) % size);
                ASSERT_EQ(ring.used(), 0U);
            }
            region.moveTo(position);
            for (const uint32_t tooLong : {size, size + 1, 1U << 31, UINT32_MAX - 1, UINT32_MAX}) {
                ASSERT_FALSE(ring.put(bytes.data(), tooLong));
                ASSERT_FALSE(ring.get(bytes.data(), tooLong));
            }
            ASSERT_EQ(region.word(readWord), position);
            ASSERT_EQ(region.word(writeWord), position);
        }
    }
}

TEST(RingBuffer, looksAtTheOtherPositionOnlyWhenItsOwnCopySaysNo)
{
    const Region region(16);
    const Ring ring(region, 16);
    EXPECT_TRUE(ring.put("0123456789"));
    EXPECT_EQ(ring.get(2), "01");
    region.set(writeWord, 2); // empty: nobody looks
    EXPECT_EQ(ring.get(8), "23456789");
    EXPECT_EQ(region.word(writeCopy), 10U);
    region.set(writeWord, 12);
    EXPECT_EQ(ring.get(3), "refused");
    EXPECT_EQ(region.word(writeCopy), 12U);
    region.set(readWord, 11);
    EXPECT_TRUE(ring.put("abc"));
    EXPECT_EQ(region.word(readCopy), 0U);
    EXPECT_FALSE(ring.put("0123456789abcd"));
    EXPECT_EQ(region.word(readCopy), 11U);
}

TEST(RingBuffer, worksInMemoryOfItsOwnAndFreesIt)
{
    support::WatchfulAllocator allocator;
    cu_RingBuffer* ring = nullptr;
    ASSERT_EQ(cu_RingBuffer_new(&ring, 1 << 10, false, false, allocator.get()), 0U);
    EXPECT_THAT(allocator.requests(), testing::ElementsAre(testing::_, 4096, 1 << 10));
    bool done = false;
    char text[1024] = "text";
    EXPECT_EQ(cu_RingBuffer_put(ring, text, 1023, &done), 0U);
    EXPECT_TRUE(done);
    char got[1024] = {};
    EXPECT_EQ(cu_RingBuffer_get(ring, got, 1023, &done), 0U);
    EXPECT_TRUE(done);
    EXPECT_STREQ(got, "text");
    EXPECT_EQ(cu_RingBuffer_delete(&ring), 0U);
}

TEST(RingBuffer, hasTheLocksThatWereAskedFor)
{
    const Region region(8);
    for (const auto& [readerLock, writerLock] : {std::pair{false, false}, {false, true}, {true, false}, {true, true}}) {
        cu_RingBuffer* rings[3] = {};
        ASSERT_EQ(cu_RingBuffer_new(&rings[0], 8, readerLock, writerLock, nullptr), 0U);
        ASSERT_EQ(cu_RingBuffer_create(&rings[1], region.get(), 8, readerLock, writerLock, nullptr), 0U);
        ASSERT_EQ(cu_RingBuffer_open(&rings[2], region.get(), nullptr), 0U);
        EXPECT_EQ(std::string(region.get() + 20, 2),
                  (std::string{static_cast<char>(readerLock), static_cast<char>(writerLock)}));
        for (cu_RingBuffer* ring : rings) {
            char byte = 'b';
            bool done = false;
            for (const bool putting : {true, false}) {
                const support::Injection posting("sem_post", EOVERFLOW); // leaves the lock held
                EXPECT_EQ(putting ? cu_RingBuffer_put(ring, &byte, 1, &done) : cu_RingBuffer_get(ring, &byte, 1, &done),
                          (putting ? writerLock : readerLock) ? cu_ErrorCode{cu_ERROR_SEM_UNLOCK_FAILED} : 0U);
                EXPECT_TRUE(done);
            }
            if (ring == rings[1])
                for (const bool ofWriter : {false, true})
                    sem_post(region.lock(ofWriter));
        }
        for (const int which : {0, 2, 1})
            EXPECT_EQ(cu_RingBuffer_delete(&rings[which]), 0U);
    }
}

TEST(RingBuffer, aRefusalGivesTheLockBackAndAFailingLockIsReported)
{
    const Region region(8);
    const Ring ring(region, 8, true, true);
    const auto isFree = [&](bool ofWriter) {
        int value = -1;
        sem_getvalue(region.lock(ofWriter), &value);
        return value == 1;
    };
    EXPECT_FALSE(ring.put("12345678"));
    EXPECT_TRUE(isFree(true));
    EXPECT_EQ(ring.get(1), "refused");
    EXPECT_TRUE(isFree(false));

    char record[4] = "abc";
    bool done = false;
    for (const bool putting : {true, false}) {
        SCOPED_TRACE(putting);
        const auto call = [&] {
            return putting ? cu_RingBuffer_put(ring.get(), record, 3, &done)
                           : cu_RingBuffer_get(ring.get(), record, 3, &done);
        };
        const std::string trace = std::string(putting ? "cu_RingBuffer_put" : "cu_RingBuffer_get") + "  -  " + file;
        const uint32_t before = ring.used();
        ASSERT_EQ(sem_wait(region.lock(putting)), 0);
        {
            const support::Injection injection("sem_wait", EINVAL);
            EXPECT_SYSTEM_FAILURE(call(), cu_ERROR_SEM_LOCK_FAILED, EINVAL, "cu_Semaphore_p",
                                  "src/cUtil/semaphore.linux", "errno[22]='Invalid argument'");
        }
        EXPECT_EQ(support::trace().find(trace), 0U);
        EXPECT_EQ(ring.used(), before);
        ASSERT_EQ(sem_post(region.lock(putting)), 0);
        done = false;
        {
            const support::Injection injection("sem_post", EOVERFLOW);
            EXPECT_SYSTEM_FAILURE(call(), cu_ERROR_SEM_UNLOCK_FAILED, EOVERFLOW, "cu_Semaphore_v",
                                  "src/cUtil/semaphore.linux", "");
        }
        EXPECT_EQ(support::trace().find(trace), 0U);
        EXPECT_TRUE(done);
        EXPECT_EQ(ring.used(), putting ? 3U : 0U);
        ASSERT_EQ(sem_post(region.lock(putting)), 0);
    }
}

// Another process scribbles over the header, and this one, too, meanwhile puts and gets. There are pages around the
// region that nobody may touch, and bytes around the records that nobody may change.
TEST(RingBuffer, aHostileRegionLeadsToNoAccessOutsideIt)
{
    constexpr uint32_t size = 4096;
    const Region region(size);
    const Ring ring(region, size);
    const auto scribble = [&](std::mt19937& random) {
        static constexpr uint32_t near[] = {0, 1, size - 1, size, size + 1, 1U << 31, UINT32_MAX - size, UINT32_MAX};
        static constexpr Word words[] = {sizeWord, readWord, writeWord, writeCopy, readCopy};
        const auto value = static_cast<uint32_t>(random());
        region.set(words[random() % 5], random() % 2 == 0 ? value : near[value % 8]);
    };
    const support::Process enemy([&] {
        for (std::mt19937 random(2);;)
            scribble(random);
        return 0;
    });
    std::mt19937 random(3);
    std::vector<char> record(size + 32, 'r');
    for (int step = 0; step < 50000; ++step) {
        scribble(random);
        const auto length = static_cast<uint32_t>(random() % (size + 1) + 1);
        if (random() % 2 == 0) {
            ring.put(record.data() + 16, length);
        } else {
            std::fill(record.begin(), record.begin() + 16, 'g');
            std::fill(record.begin() + static_cast<std::ptrdiff_t>(16 + length), record.end(), 'g');
            ring.get(record.data() + 16, length);
            ASSERT_EQ(std::count(record.begin(), record.begin() + 16, 'g'), 16);
            ASSERT_EQ(std::count(record.begin() + static_cast<std::ptrdiff_t>(16 + length), record.end(), 'g'),
                      static_cast<std::ptrdiff_t>(record.size() - 16 - length));
        }
        ASSERT_LT(ring.used(), size);
        ASSERT_LT(ring.free(), size);
    }
}

/// A stream whose every piece tells where it belongs.
class Stream
{
public:
    static constexpr uint32_t longest = 1500; ///< less than half a ring, or both sides could wait for each other

    explicit Stream(unsigned seed) : random_(seed)
    {
        std::mt19937 bytes(9);
        for (char& byte : pattern_)
            byte = static_cast<char>(bytes());
        memcpy(pattern_ + period, pattern_, longest);
    }

    /// The length of the next piece, with which the stream does not exceed its end.
    uint32_t nextLength(uint64_t left)
    {
        return static_cast<uint32_t>(std::min<uint64_t>(1 + random_() % longest, left));
    }
    const char* at(uint64_t offset) const { return pattern_ + offset % period; }

private:
    static constexpr uint32_t period = 65521; // in step with no ring

    char pattern_[period + longest];
    std::mt19937 random_;
};

// On a 32-bit machine two tests carry a hundred million together.
constexpr auto streamLength = static_cast<uint64_t>(sizeof(void*) == 4 ? 50'000'000 : support::scaled(100'000'000));

template <typename Take>
void whileRefused(Take take)
{
    while (!take())
        sched_yield();
}

int produce(const Ring& ring)
{
    Stream stream(5);
    for (uint64_t offset = 0; offset < streamLength;) {
        const uint32_t length = stream.nextLength(streamLength - offset);
        whileRefused([&] { return ring.put(stream.at(offset), length); });
        offset += length;
    }
    return 0;
}

// Where the first piece lies that is not what was produced, or the end.
uint64_t consume(const Ring& ring)
{
    Stream stream(6);
    char record[Stream::longest];
    uint64_t good = streamLength;
    for (uint64_t offset = 0; offset < streamLength;) {
        const uint32_t length = stream.nextLength(streamLength - offset);
        whileRefused([&] { return ring.get(record, length); });
        if (memcmp(record, stream.at(offset), length) != 0)
            good = std::min(good, offset);
        offset += length;
    }
    return good;
}

TEST(RingBuffer, carriesAStreamBetweenTwoProcesses)
{
    const Region region(1 << 13);
    const Ring ring(region, 1 << 13);
    support::Process producer([&] { return produce(Ring(region)); });
    EXPECT_EQ(consume(ring), streamLength);
    EXPECT_EQ(producer.wait(), 0);
}

TEST(RingBuffer, carriesAStreamBetweenTwoThreads)
{
    const Region region(1 << 12);
    const Ring ring(region, 1 << 12);
    std::thread producer([&] { EXPECT_EQ(produce(ring), 0); });
    EXPECT_EQ(consume(ring), streamLength);
    producer.join();
}

TEST(RingBuffer, severalProducersAndConsumersExchangeEveryRecordOnce)
{
    constexpr uint32_t sides = 3;
    constexpr uint32_t each = 20000;
    struct Record {
        uint32_t writer;
        uint32_t number;
        uint32_t check;
    };
    struct Tally {
        uint32_t takes[sides][each];
    };
    const Region region(64); // five records and some bytes: they wrap at every fourth byte
    const Ring ring(region, 64, true, true);
    const support::Shared<Tally> tally;
    const auto write = [&](uint32_t writer) {
        const Ring mine(region);
        for (uint32_t number = 0; number < each; ++number) {
            const Record record = {writer, number, writer ^ ~number};
            whileRefused([&] { return mine.put(&record, sizeof(record)); });
        }
        return testing::Test::HasFailure() ? 99 : 0;
    };
    const auto read = [&] {
        const Ring mine(region);
        uint32_t next[sides] = {};
        for (uint32_t taken = 0; taken < each; ++taken) {
            Record record = {};
            whileRefused([&] { return mine.get(&record, sizeof(record)); });
            if (record.writer >= sides || record.number >= each || record.check != (record.writer ^ ~record.number))
                return 1;
            if (record.number < next[record.writer])
                return 2;
            next[record.writer] = record.number + 1;
            ++tally->takes[record.writer][record.number];
        }
        return testing::Test::HasFailure() ? 99 : 0;
    };
    {
        support::Process processes[] = {support::Process([&] { return write(0); }),
                                        support::Process([&] { return write(1); }),
                                        support::Process([&] { return write(2); }),
                                        support::Process(read),
                                        support::Process(read),
                                        support::Process(read)};
        for (support::Process& process : processes)
            EXPECT_EQ(process.wait(), 0);
    }
    for (const auto& writer : tally->takes)
        for (const uint32_t takes : writer)
            ASSERT_EQ(takes, 1U);
    EXPECT_EQ(ring.used(), 0U);
}

// Without a lock a producer that dies leaves whole records only, and another one goes on.
TEST(RingBuffer, aProducerThatIsKilledLeavesWholeRecords)
{
    constexpr uint32_t words = 50;
    const Region region(1 << 10);
    const Ring ring(region, 1 << 10);
    for (uint32_t generation = 1; generation <= 30; ++generation) {
        support::Process producer([&] {
            const Ring mine(region);
            for (uint32_t number = 0;; ++number) {
                const std::vector<uint32_t> record(words, generation << 20 | (number & 0xFFFFF));
                mine.put(record.data(), words * 4);
            }
            return 0;
        });
        bool hasSeen = false;
        const auto take = [&] {
            std::vector<uint32_t> record(words);
            if (!ring.get(record.data(), words * 4))
                return false;
            EXPECT_EQ(record, std::vector<uint32_t>(words, record[0]));
            hasSeen = hasSeen || record[0] >> 20 == generation;
            return true;
        };
        EXPECT_TRUE(support::comesTrue([&] {
            for (uint32_t count = 0; count < generation * 10; ++count)
                take();
            return hasSeen;
        }));
        producer.kill();
        while (take()) {
        }
        ASSERT_EQ(ring.used(), 0U);
    }
}

TEST(RingBuffer, aProcessThatIsKilledWhileItWaitsForALockLeavesNothing)
{
    const Region region(64);
    const Ring ring(region, 64, true, true);
    ASSERT_EQ(sem_wait(region.lock(true)), 0);
    const support::Shared<std::atomic<bool>> started;
    support::Process waiting([&] {
        *started = true;
        Ring(region).put("never");
        return 0;
    });
    EXPECT_TRUE(support::comesTrue([&] { return started->load(); }));
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // most likely asleep by now; right either way
    EXPECT_EQ(waiting.kill(), -SIGKILL);
    ASSERT_EQ(sem_post(region.lock(true)), 0);
    EXPECT_TRUE(ring.put("record"));
    EXPECT_EQ(ring.get(6), "record");
    EXPECT_EQ(ring.used(), 0U);
}

} // namespace
