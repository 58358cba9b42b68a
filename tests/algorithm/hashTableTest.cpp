#include "algorithm/elements.h"

#include "internal/remainder.h"

#include <cUtil/algorithm/set.h>

#include <algorithm>
#include <list>
#include <random>

namespace
{

using namespace algorithm;
using Ids = std::vector<int>;

constexpr uint32_t primes[] = {193,      389,      769,      1543,      3079,      6151,      12289,     24593,
                               49157,    98317,    196613,   393241,    786433,    1572869,   3145739,   6291469,
                               12582917, 25165843, 50331653, 100663319, 201326611, 402653189, 805306457, 1610612741};

// The table as it is described, as plainly as can be.
class Model
{
public:
    void add(int id, uint32_t hash)
    {
        if (3 * size_ / buckets_.size() >= 1)
            grow();
        bucket(hash).push_front({hash, id});
        ++size_;
    }

    void remove(int id, uint32_t hash)
    {
        std::erase_if(bucket(hash), [&](const Element& element) { return element.id == id; });
        --size_;
    }

    Ids walk() const
    {
        Ids ids;
        for (const auto& bucket : buckets_)
            for (const Element& element : bucket)
                ids.push_back(element.id);
        return ids;
    }

    std::size_t growths() const { return growths_; }

private:
    using Chain = std::list<Element>;

    Chain& bucket(uint32_t hash) { return buckets_[hash % buckets_.size()]; }

    void grow()
    {
        const auto old = std::exchange(buckets_, std::vector<Chain>(primes[++growths_]));
        for (const auto& chain : old)
            for (const Element& element : chain)
                bucket(element.hash).push_front(element);
    }

    std::size_t size_ = 0;
    std::size_t growths_ = 0;
    std::vector<Chain> buckets_ = std::vector<Chain>(primes[0]);
};

// The table as a set shows it.
class HashTable : public Containers
{
protected:
    HashTable() { EXPECT_EQ(cu_Set_new(&set_, hashOf, equality, destroy, cloneOf, nullptr), 0U); }
    ~HashTable() override { EXPECT_EQ(cu_Set_delete(&set_), 0U); }

    cu_ErrorCode insert(int id, uint32_t hash)
    {
        void* element = make(id, hash);
        bool inserted = false;
        const cu_ErrorCode code = cu_Set_insert(set_, &element, &inserted);
        EXPECT_TRUE(inserted);
        EXPECT_EQ(element == nullptr, code == 0);
        if (code != 0)
            destroy(element);
        return code;
    }

    bool has(int id, uint32_t hash) { return tell(cu_Set_hasValue, set_, {hash, id}); }
    bool remove(int id, uint32_t hash) { return tell(cu_Set_remove, set_, {hash, id}); }
    uint32_t size() { return sizeOf(cu_Set_getSize, set_); }

    Ids walk()
    {
        cu_Set_ConstIterator* iterator = nullptr;
        EXPECT_EQ(cu_Set_ConstIterator_new(&iterator, set_), 0U);
        Ids ids;
        for (bool more = false; cu_Set_ConstIterator_hasNext(iterator, &more) == 0 && more;) {
            const void* element = nullptr;
            EXPECT_EQ(cu_Set_ConstIterator_next(iterator, &element), 0U);
            ids.push_back(idOf(element));
        }
        EXPECT_EQ(cu_Set_ConstIterator_delete(&iterator), 0U);
        return ids;
    }

    cu_Set* set_ = nullptr;
};

struct Hashing {
    const char* name;
    uint32_t (*of)(int id);
};

class HashTableOrder : public HashTable, public testing::WithParamInterface<Hashing>
{
};

INSTANTIATE_TEST_SUITE_P(
    , HashTableOrder,
    testing::Values(Hashing{"oneAfterTheOther", [](int id) { return static_cast<uint32_t>(id); }},
                    Hashing{"scattered", [](int id) { return static_cast<uint32_t>(id) * 2654435761U; }},
                    Hashing{"large", [](int id) { return UINT32_MAX - static_cast<uint32_t>(id) % 500; }},
                    Hashing{"colliding",
                            [](int id) {
                                return static_cast<uint32_t>(id) % 5 * 193 + static_cast<uint32_t>(id) % 2 * 389;
                            }},
                    Hashing{"allTheSame", [](int) { return 192U; }}),
    [](const auto& test) { return test.param.name; });

// Where the order differs the table has grown too early or too late, or has moved its entries in another order.
TEST_P(HashTableOrder, isThatOfTheBuckets)
{
    std::mt19937 random(5);
    Model model;
    Ids present;
    const auto hash = GetParam().of;
    const int last = support::scaled(4000) + 440; // everywhere beyond the second growth
    for (int id = 0; id < last; ++id) {
        SCOPED_TRACE(id);
        ASSERT_EQ(insert(id, hash(id)), 0U);
        model.add(id, hash(id));
        present.push_back(id);
        if (id > last / 2 || random() % 5 == 0) {
            std::swap(present[random() % present.size()], present.back());
            const int victim = present.back();
            ASSERT_TRUE(remove(victim, hash(victim)));
            ASSERT_FALSE(has(victim, hash(victim)));
            model.remove(victim, hash(victim));
            present.pop_back();
        }
        if (id % 16 == 0 || id < 140) {
            ASSERT_EQ(walk(), model.walk());
        }
        ASSERT_EQ(size(), present.size());
    }
    EXPECT_GE(model.growths(), 2U);
    EXPECT_EQ(walk(), model.walk());
    for (const int id : present)
        ASSERT_TRUE(has(id, hash(id)));
}

TEST_F(HashTable, growsWhenAThirdOfTheBucketsIsReached)
{
    // A bucket's newest entry comes first; that of hash 193 is in bucket 0 until there are 389.
    ASSERT_EQ(insert(0, 0), 0U);
    ASSERT_EQ(insert(1, 193), 0U);
    for (int id = 2; id < 65; ++id)
        ASSERT_EQ(insert(id, 50), 0U);
    EXPECT_EQ(size(), 65U);
    EXPECT_EQ(walk()[0], 1);
    ASSERT_EQ(insert(65, 50), 0U);
    EXPECT_EQ(walk().front(), 0);
    EXPECT_EQ(walk().back(), 1);
}

TEST_F(HashTable, holdsAMillionEntries)
{
    const int count = support::scaled(1'000'000);
    const auto hash = [](int id) { return static_cast<uint32_t>(id) * 2654435761U; };
    for (int id = 0; id < count; ++id)
        ASSERT_EQ(insert(id, hash(id)), 0U);
    for (int id = 0; id < count; id += 2)
        ASSERT_TRUE(remove(id, hash(id)));
    for (int id = 0; id < count; ++id)
        ASSERT_EQ(has(id, hash(id)), id % 2 != 0);
    EXPECT_EQ(size(), static_cast<uint32_t>(count / 2));
    Ids order = walk();
    const std::size_t buckets = *std::ranges::find_if(primes, [&](uint32_t prime) { return count <= prime / 3 + 1; });
    EXPECT_TRUE(std::ranges::is_sorted(order, {}, [&](int id) { return hash(id) % buckets; }));
    std::ranges::sort(order);
    for (int at = 0; at < count / 2; ++at)
        ASSERT_EQ(order[static_cast<std::size_t>(at)], 2 * at + 1);
}

TEST_F(HashTable, staysAsItIsWhenMemoryIsOut)
{
    Model model;
    unsigned refusals = 0;
    for (int id = 0; id < 1200; ++id) {
        const auto hash = static_cast<uint32_t>(id) * 7;
        const support::Failure outcome = support::failureOf([&] {
            const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
            return insert(id, hash);
        });
        if (outcome.code != 0) {
            ++refusals;
            EXPECT_EQ(outcome.code, cu_ERROR_COM_MALLOC_FAILED);
            EXPECT_EQ(outcome.description, "");
            EXPECT_FALSE(has(id, hash));
            ASSERT_EQ(walk(), model.walk());
            ASSERT_EQ(insert(id, hash), 0U);
        }
        model.add(id, hash);
    }
    EXPECT_EQ(refusals, model.growths());
    EXPECT_EQ(walk(), model.walk());
}

// Where the quotient is wrong for some number, it is so next to a multiple of the divisor.
TEST(Remainder, isExactForEveryHashAndBucketCount)
{
    for (const uint32_t divisor : primes) {
        const cu::internal::Remainder remainder(divisor);
        const uint64_t step = uint64_t{divisor} * 20 / support::scaled(20);
        for (uint64_t multiple = 0; multiple <= UINT32_MAX; multiple += step) {
            const auto number = static_cast<uint32_t>(multiple);
            ASSERT_EQ(remainder.of(number), 0U) << number << " % " << divisor;
            ASSERT_EQ(remainder.of(number - 1), (number - 1) % divisor) << number - 1 << " % " << divisor;
        }
    }
    EXPECT_EQ(cu::internal::Remainder(1'000'000'010).of(4'000'000'041), 1U);
    EXPECT_EQ(cu::internal::Remainder().of(UINT32_MAX), UINT32_MAX);
}

} // namespace
