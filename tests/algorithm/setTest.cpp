// A set, and through it the hash table that a map has, too.
#include "algorithm/elements.h"

#include "internal/remainder.h"

#include <cUtil/algorithm/set.h>

#include <list>
#include <random>

namespace
{

using namespace algorithm;
using Ids = std::vector<int>;

constexpr char file[] = "src/cUtil/algorithm/set";

class Set : public Containers
{
protected:
    Set() { create(); }
    ~Set() override { EXPECT_EQ(cu_Set_delete(&set_), 0U); }

    void create() { EXPECT_EQ(cu_Set_new(&set_, hashOf, equality, destroy, cloneOf, allocator_.get()), 0U); }
    void renew()
    {
        EXPECT_EQ(cu_Set_delete(&set_), 0U);
        EXPECT_EQ(set_, nullptr);
        create();
    }

    // A new element, which goes if it cannot be inserted.
    static cu_ErrorCode insert(cu_Set* set, int id, uint32_t hash = 0)
    {
        void* element = make(id, hash);
        bool inserted = false;
        const cu_ErrorCode code = cu_Set_insert(set, &element, &inserted);
        EXPECT_TRUE(inserted);
        EXPECT_EQ(element == nullptr, code == 0);
        if (element != nullptr)
            destroy(element);
        return code;
    }

    static Ids walk(const cu_Set* set)
    {
        cu_Set_ConstIterator* iterator = nullptr;
        EXPECT_EQ(cu_Set_ConstIterator_new(&iterator, set), 0U);
        Ids ids;
        const void* element = nullptr;
        while (cu_Set_ConstIterator_next(iterator, &element) == 0 && element != nullptr)
            ids.push_back(idOf(element));
        EXPECT_FALSE(told(cu_Set_ConstIterator_hasNext, iterator));
        EXPECT_EQ(cu_Set_ConstIterator_delete(&iterator), 0U);
        EXPECT_EQ(told(cu_Set_getSize, set), ids.size());
        return ids;
    }

    cu_Set* set_ = nullptr;

private:
    support::WatchfulAllocator allocator_;
};

TEST_F(Set, refusesNullArgumentsAndWrongHandles)
{
    cu_Set* none = nullptr;
    cu_Set_Iterator* noIterator = nullptr;
    cu_Set_Iterator* iterator = nullptr;
    cu_Set_ConstIterator* noConstIterator = nullptr;
    cu_Set_ConstIterator* constIterator = nullptr;
    void* element = &none;
    const void* constElement = nullptr;
    bool flag = false;
    uint32_t size = 0;
    ASSERT_EQ(cu_Set_Iterator_new(&iterator, set_), 0U);
    ASSERT_EQ(cu_Set_ConstIterator_new(&constIterator, set_), 0U);
    const std::tuple good{&none,         &noIterator, &noConstIterator, set_,    iterator,
                          constIterator, &element,    &constElement,    &flag,   &size,
                          &hashOf,       &equality,   &destroy,         &cloneOf};
    EXPECT_NULLS_REFUSED(file, good, cu_Set_new, cu_Set_insert, cu_Set_constInsert, cu_Set_remove, cu_Set_hasValue,
                         cu_Set_getSize, cu_Set_union, cu_Set_intersect, cu_Set_Iterator_new, cu_Set_Iterator_next,
                         cu_Set_Iterator_hasNext, cu_Set_ConstIterator_new, cu_Set_ConstIterator_next,
                         cu_Set_ConstIterator_hasNext);
    EXPECT_NULLS_REFUSED(file, (std::tuple{&set_, &iterator, &constIterator}), cu_Set_delete, cu_Set_Iterator_delete,
                         cu_Set_ConstIterator_delete);
    element = nullptr;
    EXPECT_REFUSED(cu_Set_insert(set_, &element, &flag), "cu_Set_insert", file);
    EXPECT_EQ(cu_Set_Iterator_delete(&iterator), 0U);
    EXPECT_EQ(cu_Set_ConstIterator_delete(&constIterator), 0U);
}

TEST_F(Set, leavesNothingBehindWhenItCannotBeMadeOrWalked)
{
    EXPECT_CLEAN_FAILURES(cu_Set_new, cu_Set_delete, hashOf, equality, destroy, cloneOf);
    support::sweep<cu_Set_Iterator>(
        "cu_Set_Iterator_new", [&](auto handle, auto) { return cu_Set_Iterator_new(handle, set_); },
        cu_Set_Iterator_delete);
}

TEST_F(Set, keepsTheFirstOfEqualElements)
{
    ASSERT_EQ(insert(set_, 1), 0U);
    void* const first = const_cast<void*>(*alive.begin());
    void* const second = make(1);
    bool inserted = true;
    for (void* const given : {first, second}) { // the very same is the set's already
        void* element = given;
        EXPECT_EQ(cu_Set_insert(set_, &element, &inserted), 0U);
        EXPECT_FALSE(std::exchange(inserted, true));
        EXPECT_EQ(element, given);
    }
    EXPECT_EQ(cu_Set_constInsert(set_, second, &inserted), 0U);
    EXPECT_FALSE(inserted);
    EXPECT_EQ(walk(set_), Ids{1});
    const Element& wanted = *static_cast<const Element*>(first);
    EXPECT_TRUE(tell(cu_Set_remove, set_, wanted)); // by itself
    EXPECT_FALSE(alive.contains(first));
    EXPECT_FALSE(tell(cu_Set_remove, set_, {0, 1}));
    destroy(second);
}

TEST_F(Set, isWalkedAndDestroyedInTheOrderOfItsBuckets)
{
    for (const auto& [id, hash] : {std::pair{1, 5U}, {2, 4U}, {3, 5U + 193}, {4, 192U}, {5, 4U + 2 * 193}, {6, 0U}})
        ASSERT_EQ(insert(set_, id, hash), 0U);
    cu_Set_Iterator* iterator = nullptr;
    ASSERT_EQ(cu_Set_Iterator_new(&iterator, set_), 0U);
    for (const int expected : {6, 5, 2, 3, 1, 4, -1, -1}) {
        EXPECT_EQ(told(cu_Set_Iterator_hasNext, iterator), expected != -1);
        void* element = &iterator;
        EXPECT_EQ(cu_Set_Iterator_next(iterator, &element), 0U);
        EXPECT_EQ(idOf(element), expected);
    }
    EXPECT_EQ(cu_Set_Iterator_delete(&iterator), 0U);
    destroyed.clear();
    renew();
    EXPECT_EQ(destroyed, (Ids{6, 5, 2, 3, 1, 4}));
}

TEST_F(Set, copiesWhatTheCallerKeeps)
{
    const auto insertCopy = [&](int id) {
        const Element original = {0, id};
        bool inserted = false;
        const cu_ErrorCode code = cu_Set_constInsert(set_, &original, &inserted);
        EXPECT_TRUE(inserted);
        return code;
    };
    const support::Failure outOfMemory = {cu_ERROR_COM_MALLOC_FAILED, "cu_Set_constInsert", file, ""};
    for (int id = 0; id < 65; ++id) {
        clonesLeft = 0;
        EXPECT_EQ(support::failureOf([&] { return insertCopy(id); }), outOfMemory);
        clonesLeft = 1;
        EXPECT_EQ(insertCopy(id), 0U);
    }
    clonesLeft = 1;
    EXPECT_EQ(support::failureOf([&] {
                  const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
                  return insertCopy(100);
              }),
              outOfMemory);
    EXPECT_EQ(clonesLeft, 0U);
    EXPECT_EQ(alive.size(), 65U);
}

TEST_F(Set, combinesOnlySetsOfTheSameKind)
{
    const struct {
        decltype(&hashOf) hash = hashOf;
        decltype(&equality) equal = equality;
        decltype(&destroy) end = destroy;
        decltype(&cloneOf) copy = cloneOf;
    } kinds[] = {{.hash = [](const void*) { return 0U; }},
                 {.equal = [](const void*, const void*) { return 0; }},
                 {.end = [](void*) {}},
                 {.copy = [](const void*) -> void* { return nullptr; }}};
    for (const auto& kind : kinds) {
        cu_Set* other = nullptr;
        cu_Set* result = nullptr;
        ASSERT_EQ(cu_Set_new(&other, kind.hash, kind.equal, kind.end, kind.copy, nullptr), 0U);
        EXPECT_FAILURE(cu_Set_union(&result, set_, other, nullptr), cu_ERROR_COM_INVARIANT, "cu_Set_union", file, "");
        EXPECT_FAILURE(cu_Set_intersect(&result, other, set_, nullptr), cu_ERROR_COM_INVARIANT, "cu_Set_intersect",
                       file, "");
        EXPECT_EQ(result, nullptr);
        EXPECT_EQ(cu_Set_delete(&other), 0U);
    }
}

TEST_F(Set, givesACombinationOnlyWhenThereWasNoMemoryForIt)
{
    cu_Set* other = nullptr;
    ASSERT_EQ(cu_Set_new(&other, hashOf, equality, destroy, cloneOf, nullptr), 0U);
    for (int id = 0; id < 200; ++id) {
        ASSERT_EQ(insert(set_, id, static_cast<uint32_t>(id)), 0U);
        ASSERT_EQ(insert(other, id + 100, static_cast<uint32_t>(id + 100)), 0U);
    }
    const struct {
        const char* name;
        decltype(&cu_Set_union) combine;
        unsigned tables; // that its elements take: one for 65, 130, 257 and 514 each
    } operations[] = {{"cu_Set_union", cu_Set_union, 4}, {"cu_Set_intersect", cu_Set_intersect, 2}};
    for (const auto& operation : operations) {
        SCOPED_TRACE(operation.name);
        support::WatchfulAllocator allocator;
        cu_Set* result = nullptr;
        const auto combine = [&](unsigned nth) {
            const support::Injection exhausted("calloc", ENOMEM, nth);
            return operation.combine(&result, set_, other, allocator.get());
        };
        for (unsigned nth = 1; nth <= operation.tables; ++nth) {
            ASSERT_EQ(combine(nth), 0U);
            // An empty set like any other.
            ASSERT_NE(result, nullptr);
            EXPECT_EQ(walk(result), Ids{});
            EXPECT_FALSE(tell(cu_Set_hasValue, result, {1, 1}));
            EXPECT_FALSE(tell(cu_Set_remove, result, {1, 1}));
            EXPECT_EQ(insert(result, 1), 0U);
            EXPECT_EQ(walk(result), Ids{1});
            EXPECT_EQ(cu_Set_delete(&result), 0U);
        }
        const unsigned oneMore = operation.tables + 1;
        EXPECT_FAILURE(combine(oneMore), cu_ERROR_COM_MALLOC_FAILED, operation.name, file, "");
        allocator.refuse(1);
        EXPECT_FAILURE(combine(oneMore), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "");
        EXPECT_EQ(result, nullptr);
        EXPECT_EQ(alive.size(), 400U);
    }
    EXPECT_EQ(cu_Set_delete(&other), 0U);
}

constexpr uint32_t primes[] = {193,      389,      769,      1543,      3079,      6151,      12289,     24593,
                               49157,    98317,    196613,   393241,    786433,    1572869,   3145739,   6291469,
                               12582917, 25165843, 50331653, 100663319, 201326611, 402653189, 805306457, 1610612741};

// The table as it is described, as plainly as can be.
class Model
{
public:
    bool isFull() const { return 3 * size_ >= buckets_.size(); }

    void add(int id, uint32_t hash)
    {
        if (isFull()) {
            const auto old = std::exchange(buckets_, std::vector<Chain>(primes[++growths_]));
            for (const auto& chain : old)
                for (const Element& element : chain)
                    bucket(element.hash).push_front(element);
        }
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

private:
    using Chain = std::list<Element>;

    Chain& bucket(uint32_t hash) { return buckets_[hash % buckets_.size()]; }

    std::size_t size_ = 0;
    std::size_t growths_ = 0;
    std::vector<Chain> buckets_ = std::vector<Chain>(primes[0]);
};

// Where the order differs the table has grown too early or too late, or has moved its entries in another order.
TEST_F(Set, keepsTheOrderOfTheBucketsAndStaysAsItIsWhenItCannotGrow)
{
    const int some = support::scaled(4000) + 440; // everywhere beyond the second growth
    const struct {
        const char* name;
        int count;
        uint32_t (*of)(uint32_t id);
    } hashings[] = {{"one after the other", some, [](uint32_t id) { return id; }},
                    {"scattered", support::scaled(1'000'000), [](uint32_t id) { return id * 2654435761U; }},
                    {"large", some, [](uint32_t id) { return UINT32_MAX - id % 500; }},
                    {"colliding", some, [](uint32_t id) { return id % 5 * 193 + id % 2 * 389; }},
                    {"all the same", some, [](uint32_t) { return 192U; }}};
    for (const auto& hashing : hashings) {
        SCOPED_TRACE(hashing.name);
        const auto element = [&](int id) { return Element{hashing.of(static_cast<uint32_t>(id)), id}; };
        std::mt19937 random(5);
        Model model;
        Ids present;
        for (int id = 0; id < hashing.count; ++id) {
            const Element added = element(id);
            if (model.isFull()) {
                const auto insertWithoutMemory = [&] {
                    const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
                    return insert(set_, id, added.hash);
                };
                EXPECT_FAILURE(insertWithoutMemory(), cu_ERROR_COM_MALLOC_FAILED, "cu_Set_insert", file, "");
                EXPECT_FALSE(tell(cu_Set_hasValue, set_, added));
                ASSERT_EQ(walk(set_), model.walk());
            }
            ASSERT_EQ(insert(set_, id, added.hash), 0U);
            model.add(id, added.hash);
            present.push_back(id);
            if ((id > some / 2 && id < some) || random() % 5 == 0) {
                std::swap(present[random() % present.size()], present.back());
                const Element victim = element(present.back());
                ASSERT_TRUE(tell(cu_Set_remove, set_, victim));
                ASSERT_FALSE(tell(cu_Set_hasValue, set_, victim));
                model.remove(victim.id, victim.hash);
                present.pop_back();
            }
            if (id < 140 || (id < some && id % 16 == 0)) {
                ASSERT_EQ(walk(set_), model.walk()) << id;
            }
        }
        EXPECT_EQ(walk(set_), model.walk());
        for (const int id : present)
            ASSERT_TRUE(tell(cu_Set_hasValue, set_, element(id)));
        renew();
    }
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
