#include "algorithm/elements.h"

#include "internal/remainder.h"

#include <cUtil/algorithm/map.h>
#include <cUtil/algorithm/set.h>

#include <algorithm>
#include <functional>
#include <list>
#include <map>
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

// What sets and maps have in common. A value of the map has its key's id.
class SetTable
{
public:
    SetTable() { EXPECT_EQ(cu_Set_new(&set_, hashOf, equality, destroy, cloneOf, nullptr), 0U); }
    SetTable(const SetTable&) = delete;
    SetTable& operator=(const SetTable&) = delete;
    ~SetTable() { EXPECT_EQ(cu_Set_delete(&set_), 0U); }

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

    bool has(int id, uint32_t hash) const
    {
        const Element wanted = {hash, id};
        bool found = false;
        EXPECT_EQ(cu_Set_hasValue(set_, &wanted, &found), 0U);
        return found;
    }

    bool remove(int id, uint32_t hash)
    {
        const Element wanted = {hash, id};
        bool removed = false;
        EXPECT_EQ(cu_Set_remove(set_, &wanted, &removed), 0U);
        return removed;
    }

    uint32_t size() const
    {
        uint32_t size = 0;
        EXPECT_EQ(cu_Set_getSize(set_, &size), 0U);
        return size;
    }

    Ids walk() const
    {
        Ids ids;
        cu_Set_ConstIterator* iterator = nullptr;
        EXPECT_EQ(cu_Set_ConstIterator_new(&iterator, set_), 0U);
        bool more = false;
        while (cu_Set_ConstIterator_hasNext(iterator, &more) == 0 && more) {
            const void* element = nullptr;
            EXPECT_EQ(cu_Set_ConstIterator_next(iterator, &element), 0U);
            ids.push_back(idOf(element));
        }
        EXPECT_EQ(cu_Set_ConstIterator_delete(&iterator), 0U);
        return ids;
    }

private:
    cu_Set* set_ = nullptr;
};

class MapTable
{
public:
    MapTable() { EXPECT_EQ(cu_Map_new(&map_, hashOf, equality, destroy, destroy, cloneOf, cloneOf, nullptr), 0U); }
    MapTable(const MapTable&) = delete;
    MapTable& operator=(const MapTable&) = delete;
    ~MapTable() { EXPECT_EQ(cu_Map_delete(&map_), 0U); }

    cu_ErrorCode insert(int id, uint32_t hash)
    {
        void* key = make(id, hash);
        void* value = make(id);
        const cu_ErrorCode code = cu_Map_insert(map_, &key, &value);
        EXPECT_EQ(key == nullptr, code == 0);
        EXPECT_EQ(value == nullptr, code == 0);
        if (code != 0) {
            destroy(key);
            destroy(value);
        }
        return code;
    }

    bool has(int id, uint32_t hash) const
    {
        const Element wanted = {hash, id};
        void* value = nullptr;
        EXPECT_EQ(cu_Map_lookup(map_, &wanted, &value), 0U);
        EXPECT_TRUE(value == nullptr || idOf(value) == id);
        return value != nullptr;
    }

    bool remove(int id, uint32_t hash)
    {
        const Element wanted = {hash, id};
        bool removed = false;
        EXPECT_EQ(cu_Map_remove(map_, &wanted, &removed), 0U);
        return removed;
    }

    uint32_t size() const
    {
        uint32_t size = 0;
        EXPECT_EQ(cu_Map_getSize(map_, &size), 0U);
        return size;
    }

    Ids walk() const
    {
        Ids ids;
        cu_Map_ConstIterator* iterator = nullptr;
        EXPECT_EQ(cu_Map_ConstIterator_new(&iterator, map_), 0U);
        bool more = false;
        while (cu_Map_ConstIterator_hasNext(iterator, &more) == 0 && more) {
            const void* key = nullptr;
            const void* value = nullptr;
            EXPECT_EQ(cu_Map_ConstIterator_next(iterator, &key, &value), 0U);
            EXPECT_EQ(idOf(key), idOf(value));
            ids.push_back(idOf(key));
        }
        EXPECT_EQ(cu_Map_ConstIterator_delete(&iterator), 0U);
        return ids;
    }

private:
    cu_Map* map_ = nullptr;
};

// How elements get their hashes.
const std::map<std::string, std::function<uint32_t(int)>> hashes = {
    {"one after the other", [](int id) { return static_cast<uint32_t>(id); }},
    {"anything", [](int id) { return static_cast<uint32_t>(id) * 2654435761U; }},
    {"as large as can be", [](int id) { return UINT32_MAX - static_cast<uint32_t>(id) % 500; }},
    {"few buckets", [](int id) { return static_cast<uint32_t>(id) % 5 * 193 + static_cast<uint32_t>(id) % 2 * 389; }},
    {"all the same", [](int) { return 192U; }},
};

template <typename Table>
class HashTable : public Containers
{
};

using Tables = testing::Types<SetTable, MapTable>;
TYPED_TEST_SUITE(HashTable, Tables);

// Where the order differs the table has grown too early or too late, or has moved its entries in another order.
TYPED_TEST(HashTable, isWalkedInTheOrderOfItsBuckets)
{
    for (const auto& [name, hash] : hashes) {
        SCOPED_TRACE(name);
        std::mt19937 random(5);
        TypeParam table;
        Model model;
        Ids present;
        const int last = support::scaled(2200) + 330; // everywhere beyond the second growth
        for (int id = 0; id < last; ++id) {
            SCOPED_TRACE(id);
            ASSERT_EQ(table.insert(id, hash(id)), 0U);
            model.add(id, hash(id));
            present.push_back(id);
            if (random() % 5 == 0) {
                std::swap(present[random() % present.size()], present.back());
                const int victim = present.back();
                ASSERT_TRUE(table.remove(victim, hash(victim)));
                ASSERT_FALSE(table.has(victim, hash(victim)));
                model.remove(victim, hash(victim));
                present.pop_back();
            }
            if (id % 16 == 0 || id < 140) {
                ASSERT_EQ(table.walk(), model.walk());
            }
            ASSERT_EQ(table.size(), present.size());
        }
        EXPECT_GE(model.growths(), 2U);
        const Ids order = table.walk();
        EXPECT_EQ(order, model.walk());
        for (const int id : order)
            ASSERT_TRUE(table.has(id, hash(id)));
    }
}

TYPED_TEST(HashTable, growsWhenAThirdOfTheBucketsIsReached)
{
    // A bucket's newest entry comes first; that of hash 193 is in bucket 0 until there are 389.
    TypeParam table;
    ASSERT_EQ(table.insert(0, 0), 0U);
    ASSERT_EQ(table.insert(1, 193), 0U);
    for (int id = 2; id < 65; ++id)
        ASSERT_EQ(table.insert(id, 50), 0U);
    EXPECT_EQ(table.size(), 65U);
    EXPECT_EQ(table.walk()[0], 1);
    ASSERT_EQ(table.insert(65, 50), 0U);
    EXPECT_EQ(table.walk().front(), 0);
    EXPECT_EQ(table.walk().back(), 1);
}

TYPED_TEST(HashTable, holdsAMillionEntries)
{
    const int count = support::scaled(1'000'000);
    const auto hash = [](int id) { return static_cast<uint32_t>(id) * 2654435761U; };
    TypeParam table;
    for (int id = 0; id < count; ++id)
        ASSERT_EQ(table.insert(id, hash(id)), 0U);
    for (int id = 0; id < count; id += 2)
        ASSERT_TRUE(table.remove(id, hash(id)));
    for (int id = 0; id < count; ++id)
        ASSERT_EQ(table.has(id, hash(id)), id % 2 != 0);
    EXPECT_EQ(table.size(), static_cast<uint32_t>(count / 2));
    Ids order = table.walk();
    const std::size_t buckets = *std::ranges::find_if(primes, [&](uint32_t prime) { return count <= prime / 3 + 1; });
    EXPECT_TRUE(std::ranges::is_sorted(order, {}, [&](int id) { return hash(id) % buckets; }));
    std::ranges::sort(order);
    for (int at = 0; at < count / 2; ++at)
        ASSERT_EQ(order[static_cast<std::size_t>(at)], 2 * at + 1);
}

TYPED_TEST(HashTable, staysAsItIsWhenMemoryIsOut)
{
    TypeParam table;
    Model model;
    unsigned refusals = 0;
    for (int id = 0; id < 1200; ++id) {
        const auto hash = static_cast<uint32_t>(id) * 7;
        const support::Failure outcome = support::failureOf([&] {
            const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
            return table.insert(id, hash);
        });
        if (outcome.code != 0) {
            ++refusals;
            EXPECT_EQ(outcome.code, cu_ERROR_COM_MALLOC_FAILED);
            EXPECT_EQ(outcome.description, "");
            EXPECT_FALSE(table.has(id, hash));
            ASSERT_EQ(table.walk(), model.walk());
            ASSERT_EQ(table.insert(id, hash), 0U);
        }
        model.add(id, hash);
    }
    EXPECT_EQ(refusals, model.growths());
    EXPECT_EQ(table.walk(), model.walk());
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
