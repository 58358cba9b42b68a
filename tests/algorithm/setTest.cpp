// A set, and through it the hash table that a map has, too.
#include "algorithm/elements.h"

#include "internal/remainder.h"

#include <cUtil/algorithm/set.h>

#include <list>

namespace
{

using namespace algorithm;
using Ids = std::vector<int>;
using MadeSet = support::Made<cu_Set_new, cu_Set_delete>;

constexpr char file[] = "src/cUtil/algorithm/set";

class Set : public Containers
{
protected:
    // A new element or a copy of it; what has not been inserted goes.
    static cu_ErrorCode insert(cu_Set* set, const Element& what, bool copies = false)
    {
        void* element = make(what.id, what.hash);
        bool inserted = false;
        const cu_ErrorCode code =
            copies ? cu_Set_constInsert(set, element, &inserted) : cu_Set_insert(set, &element, &inserted);
        EXPECT_TRUE(inserted);
        EXPECT_EQ(element == nullptr, code == 0 && !copies);
        if (element != nullptr)
            destroy(element);
        return code;
    }

    static Ids walk(cu_Set* set)
    {
        const support::Made<cu_Set_Iterator_new, cu_Set_Iterator_delete> iterator{set};
        const support::Made<cu_Set_ConstIterator_new, cu_Set_ConstIterator_delete> constIterator{set};
        Ids ids;
        for (uint32_t left = told(cu_Set_getSize, set);; --left) {
            EXPECT_EQ(told(cu_Set_Iterator_hasNext, iterator), left != 0);
            EXPECT_EQ(told(cu_Set_ConstIterator_hasNext, constIterator), left != 0);
            void* element = &ids;
            const void* constElement = &ids;
            EXPECT_EQ(cu_Set_Iterator_next(iterator, &element), 0U);
            EXPECT_EQ(cu_Set_ConstIterator_next(constIterator, &constElement), 0U);
            EXPECT_EQ(element, constElement);
            if (left == 0) {
                EXPECT_EQ(element, nullptr);
                return ids;
            }
            ids.push_back(idOf(element));
        }
    }

    MadeSet set_{hashOf, equality, destroy, cloneOf};
};

TEST_F(Set, isMadeAndWalkedAsAWholeAndRefusesNullArgumentsAndWrongHandles)
{
    EXPECT_CLEAN_FAILURES(cu_Set_new, cu_Set_delete, hashOf, equality, destroy, cloneOf);
    EXPECT_CLEAN_FAILURES(cu_Set_Iterator_new, cu_Set_Iterator_delete, set_);

    void* element = &element;
    const std::tuple good{&element, support::Anything{}};
    EXPECT_NULLS_REFUSED(file, good, cu_Set_new, cu_Set_insert, cu_Set_constInsert, cu_Set_remove, cu_Set_hasValue,
                         cu_Set_getSize, cu_Set_union, cu_Set_intersect, cu_Set_Iterator_new, cu_Set_Iterator_next,
                         cu_Set_Iterator_hasNext, cu_Set_ConstIterator_new, cu_Set_ConstIterator_next,
                         cu_Set_ConstIterator_hasNext);
    EXPECT_NULLS_REFUSED(file, std::tuple{support::Anything{{&element}}}, cu_Set_delete, cu_Set_Iterator_delete,
                         cu_Set_ConstIterator_delete);
    element = nullptr;
    bool inserted = false;
    EXPECT_REFUSED(cu_Set_insert(set_, &element, &inserted), "cu_Set_insert", file);
}

TEST_F(Set, keepsTheFirstOfEqualElements)
{
    ASSERT_EQ(insert(set_, {0, 1}), 0U);
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
    EXPECT_TRUE(tell(cu_Set_remove, set_.get(), *static_cast<const Element*>(first))); // by itself
    EXPECT_FALSE(alive.contains(first));
    EXPECT_FALSE(tell(cu_Set_remove, set_.get(), {0, 1}));
    destroy(second);
}

TEST_F(Set, isCombinedWithItsKindAndOnlyWhenThereIsNoMemoryForIt)
{
    const MadeSet other{hashOf, equality, destroy, cloneOf};
    for (int id = 0; id < 200; ++id) {
        ASSERT_EQ(insert(set_, {static_cast<uint32_t>(id), id}), 0U);
        ASSERT_EQ(insert(other, {static_cast<uint32_t>(id + 100), id + 100}), 0U);
    }
    const MadeSet foreign[] = {MadeSet{[](const void*) { return 0U; }, equality, destroy, cloneOf},
                               MadeSet{hashOf, [](const void*, const void*) { return 0; }, destroy, cloneOf},
                               MadeSet{hashOf, equality, [](void*) {}, cloneOf},
                               MadeSet{hashOf, equality, destroy, [](const void*) -> void* { return nullptr; }}};
    const struct {
        const char* name;
        decltype(&cu_Set_union) combine;
        unsigned tables; // that its elements take: one for 65, 130, 257 and 514 each
    } operations[] = {{"cu_Set_union", cu_Set_union, 4}, {"cu_Set_intersect", cu_Set_intersect, 2}};
    for (const auto& operation : operations) {
        SCOPED_TRACE(operation.name);
        support::WatchfulAllocator allocator;
        for (unsigned nth = 1; nth <= operation.tables + 2; ++nth) {
            if (nth == operation.tables + 2)
                allocator.refuse(1);
            cu_Set* result = nullptr;
            const support::Failure outcome = support::failureOf([&] {
                const support::Injection exhausted("calloc", ENOMEM, nth);
                return operation.combine(&result, set_, other, allocator.get());
            });
            if (nth > operation.tables) {
                const bool refused = nth == operation.tables + 2;
                EXPECT_EQ(outcome, (support::Failure{cu_ERROR_COM_MALLOC_FAILED, refused ? "refusal" : operation.name,
                                                     refused ? "test" : file, ""}));
                EXPECT_EQ(result, nullptr);
                continue;
            }
            // An empty set like any other.
            ASSERT_EQ(outcome.code, 0U);
            EXPECT_EQ(walk(result), Ids{});
            EXPECT_FALSE(tell(cu_Set_remove, result, {1, 1}));
            EXPECT_EQ(insert(result, {0, 1}), 0U);
            EXPECT_EQ(walk(result), Ids{1});
            EXPECT_EQ(cu_Set_delete(&result), 0U);
        }
        for (const MadeSet& different : foreign) {
            cu_Set* result = nullptr;
            EXPECT_FAILURE(operation.combine(&result, set_, different, nullptr), cu_ERROR_COM_INVARIANT, operation.name,
                           file, "");
            EXPECT_EQ(result, nullptr);
        }
    }
    EXPECT_EQ(alive.size(), 400U);
}

constexpr uint32_t primes[] = {193,      389,      769,      1543,      3079,      6151,      12289,     24593,
                               49157,    98317,    196613,   393241,    786433,    1572869,   3145739,   6291469,
                               12582917, 25165843, 50331653, 100663319, 201326611, 402653189, 805306457, 1610612741};

// The table as it is described, as plainly as can be.
class Model
{
public:
    bool isFull() const { return 3 * size_ >= buckets_.size(); }

    void add(const Element& added)
    {
        if (isFull()) {
            const auto old = std::exchange(buckets_, Buckets(primes[++growths_]));
            for (const auto& chain : old)
                for (const Element& element : chain)
                    bucket(element).push_front(element);
        }
        bucket(added).push_front(added);
        ++size_;
    }

    void remove(const Element& removed)
    {
        size_ -= std::erase_if(bucket(removed), [&](const Element& element) { return element.id == removed.id; });
    }

    Ids walk() const
    {
        Ids ids;
        for (const auto& chain : buckets_)
            for (const Element& element : chain)
                ids.push_back(element.id);
        return ids;
    }

private:
    using Buckets = std::vector<std::list<Element>>;

    std::list<Element>& bucket(const Element& element) { return buckets_[element.hash % buckets_.size()]; }

    std::size_t size_ = 0;
    std::size_t growths_ = 0;
    Buckets buckets_ = Buckets(primes[0]);
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
        MadeSet set{hashOf, equality, destroy, cloneOf};
        const auto element = [&](int id) { return Element{hashing.of(static_cast<uint32_t>(id)), id}; };
        std::mt19937 random(5);
        Model model;
        Ids present;
        for (int id = 0; id < hashing.count; ++id) {
            const Element added = element(id);
            if (model.isFull()) {
                support::Failure outOfMemory = {cu_ERROR_COM_MALLOC_FAILED, "cu_Set_insert", file, ""};
                EXPECT_EQ(withoutMemory([&] { return insert(set, added); }), outOfMemory);
                outOfMemory.function = "cu_Set_constInsert";
                for (const unsigned clones : {0U, 1U})
                    EXPECT_EQ(withoutMemory([&] { return insert(set, added, true); }, clones), outOfMemory);
                EXPECT_FALSE(tell(cu_Set_hasValue, set.get(), added));
                ASSERT_EQ(walk(set), model.walk());
            }
            ASSERT_EQ(insert(set, added, id % 2 == 0), 0U);
            model.add(added);
            present.push_back(id);
            if ((id > some / 2 && id < some) || random() % 5 == 0) {
                std::swap(present[random() % present.size()], present.back());
                const Element victim = element(present.back());
                ASSERT_TRUE(tell(cu_Set_remove, set.get(), victim));
                ASSERT_FALSE(tell(cu_Set_hasValue, set.get(), victim));
                model.remove(victim);
                present.pop_back();
            }
            if (id < 140 || (id < some && id % 16 == 0)) {
                ASSERT_EQ(walk(set), model.walk()) << id;
            }
        }
        for (const int id : present)
            ASSERT_TRUE(tell(cu_Set_hasValue, set.get(), element(id)));
        EXPECT_EQ(walk(set), model.walk());
        destroyed.clear();
        set.end();
        EXPECT_EQ(destroyed, model.walk());
    }
}

// Where the quotient is wrong for some number, it is so next to a multiple of the divisor.
TEST(Remainder, isExactForEveryHashAndBucketCount)
{
    for (const uint32_t divisor : primes) {
        const cu::internal::Remainder remainder(divisor);
        const uint64_t step = uint64_t{divisor} * (support::stepsAreSlow ? 20U : 1U);
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
