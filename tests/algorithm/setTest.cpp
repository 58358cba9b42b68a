#include "algorithm/elements.h"

#include <cUtil/algorithm/set.h>

namespace
{

using namespace algorithm;

constexpr char file[] = "src/cUtil/algorithm/set";

uint32_t otherHash(const void*)
{
    return 0;
}

int32_t otherEquality(const void* a, const void* b)
{
    return a == b ? 1 : 0;
}

void otherDestroy(void* element)
{
    destroy(element);
}

void* otherClone(const void* element)
{
    return cloneOf(element);
}

class Set : public Containers
{
protected:
    Set() { EXPECT_EQ(cu_Set_new(&set_, hashOf, equality, destroy, cloneOf, allocator_.get()), 0U); }
    ~Set() override { EXPECT_EQ(cu_Set_delete(&set_), 0U); }

    // The element, or null once the set has it.
    void* insert(void* element, bool expected = true) { return insertInto(set_, element, expected); }

    static void* insertInto(cu_Set* set, void* element, bool expected = true)
    {
        bool inserted = !expected;
        EXPECT_EQ(cu_Set_insert(set, &element, &inserted), 0U);
        EXPECT_EQ(inserted, expected);
        return element;
    }

    cu_Set* set_ = nullptr;

private:
    support::WatchfulAllocator allocator_;
};

TEST(SetConstructor, leavesNothingBehindWhenItFails)
{
    support::sweep<cu_Set>(
        "cu_Set_new",
        [](auto handle, auto allocator) { return cu_Set_new(handle, hashOf, equality, destroy, cloneOf, allocator); },
        cu_Set_delete);
}

TEST_F(Set, badArgumentsAreRefused)
{
    const Element wanted = {0, 1};
    cu_Set* none = nullptr;
    cu_Set* other = nullptr;
    cu_Set_Iterator* noIterator = nullptr;
    cu_Set_Iterator* iterator = nullptr;
    cu_Set_ConstIterator* noConstIterator = nullptr;
    cu_Set_ConstIterator* constIterator = nullptr;
    void* nothing = nullptr;
    const void* constNothing = nullptr;
    bool flag = false;
    uint32_t size = 0;
    ASSERT_EQ(cu_Set_new(&other, hashOf, equality, destroy, cloneOf, nullptr), 0U);
    ASSERT_EQ(cu_Set_Iterator_new(&iterator, set_), 0U);
    ASSERT_EQ(cu_Set_ConstIterator_new(&constIterator, set_), 0U);
    EXPECT_NULLS_REFUSED(cu_Set_new, &none, hashOf, equality, destroy, cloneOf, nullptr);
    EXPECT_REFUSED(cu_Set_new(&set_, hashOf, equality, destroy, cloneOf, nullptr), "cu_Set_new", file);
    EXPECT_NULLS_REFUSED(cu_Set_delete, &set_);
    EXPECT_REFUSED(cu_Set_delete(&none), "cu_Set_delete", file);
    void* element = make(1);
    EXPECT_NULLS_REFUSED(cu_Set_insert, set_, &element, &flag);
    EXPECT_REFUSED(cu_Set_insert(set_, &nothing, &flag), "cu_Set_insert", file);
    destroy(element);
    EXPECT_NULLS_REFUSED(cu_Set_constInsert, set_, &wanted, &flag);
    EXPECT_NULLS_REFUSED(cu_Set_remove, set_, &wanted, &flag);
    EXPECT_NULLS_REFUSED(cu_Set_hasValue, set_, &wanted, &flag);
    EXPECT_NULLS_REFUSED(cu_Set_getSize, set_, &size);
    EXPECT_NULLS_REFUSED(cu_Set_union, &none, set_, other, nullptr);
    EXPECT_REFUSED(cu_Set_union(&other, set_, set_, nullptr), "cu_Set_union", file);
    EXPECT_NULLS_REFUSED(cu_Set_intersect, &none, set_, other, nullptr);
    EXPECT_REFUSED(cu_Set_intersect(&other, set_, set_, nullptr), "cu_Set_intersect", file);
    EXPECT_NULLS_REFUSED(cu_Set_Iterator_new, &noIterator, set_);
    EXPECT_REFUSED(cu_Set_Iterator_new(&iterator, set_), "cu_Set_Iterator_new", file);
    EXPECT_NULLS_REFUSED(cu_Set_Iterator_next, iterator, &nothing);
    EXPECT_NULLS_REFUSED(cu_Set_Iterator_hasNext, iterator, &flag);
    EXPECT_NULLS_REFUSED(cu_Set_Iterator_delete, &iterator);
    EXPECT_REFUSED(cu_Set_Iterator_delete(&noIterator), "cu_Set_Iterator_delete", file);
    EXPECT_NULLS_REFUSED(cu_Set_ConstIterator_new, &noConstIterator, set_);
    EXPECT_REFUSED(cu_Set_ConstIterator_new(&constIterator, set_), "cu_Set_ConstIterator_new", file);
    EXPECT_NULLS_REFUSED(cu_Set_ConstIterator_next, constIterator, &constNothing);
    EXPECT_NULLS_REFUSED(cu_Set_ConstIterator_hasNext, constIterator, &flag);
    EXPECT_NULLS_REFUSED(cu_Set_ConstIterator_delete, &constIterator);
    EXPECT_REFUSED(cu_Set_ConstIterator_delete(&noConstIterator), "cu_Set_ConstIterator_delete", file);
    EXPECT_EQ(cu_Set_Iterator_delete(&iterator), 0U);
    EXPECT_EQ(cu_Set_ConstIterator_delete(&constIterator), 0U);
    EXPECT_EQ(cu_Set_delete(&other), 0U);
}

TEST_F(Set, keepsTheFirstOfEqualElements)
{
    void* first = make(1);
    EXPECT_EQ(insert(first), nullptr);
    void* second = make(1);
    EXPECT_EQ(insert(second, false), second);
    EXPECT_EQ(insert(first, false), first); // the very same is the set's already
    bool inserted = true;
    EXPECT_EQ(cu_Set_constInsert(set_, second, &inserted), 0U);
    EXPECT_FALSE(inserted);
    EXPECT_EQ(sizeOf(cu_Set_getSize, set_), 1U);
    const auto* wanted = static_cast<const Element*>(first);
    EXPECT_TRUE(tell(cu_Set_remove, set_, *wanted)); // by itself
    EXPECT_FALSE(alive.contains(first));
    EXPECT_FALSE(tell(cu_Set_remove, set_, *static_cast<const Element*>(second)));
    destroy(second);
}

TEST_F(Set, aWalkEndsWithNull)
{
    support::sweep<cu_Set_Iterator>(
        "cu_Set_Iterator_new", [&](auto handle, auto) { return cu_Set_Iterator_new(handle, set_); },
        cu_Set_Iterator_delete);
    void* first = make(1);
    EXPECT_EQ(insert(first), nullptr);
    cu_Set_Iterator* iterator = nullptr;
    ASSERT_EQ(cu_Set_Iterator_new(&iterator, set_), 0U);
    for (void* expected : {first, static_cast<void*>(nullptr), static_cast<void*>(nullptr)}) {
        bool more = expected == nullptr;
        EXPECT_EQ(cu_Set_Iterator_hasNext(iterator, &more), 0U);
        EXPECT_EQ(more, expected != nullptr);
        void* element = &iterator;
        EXPECT_EQ(cu_Set_Iterator_next(iterator, &element), 0U);
        EXPECT_EQ(element, expected);
    }
    EXPECT_EQ(cu_Set_Iterator_delete(&iterator), 0U);
    EXPECT_EQ(iterator, nullptr);
}

TEST_F(Set, destroysItsElementsInTheOrderOfAWalk)
{
    for (const auto& [id, hash] : {std::pair{1, 5U}, {2, 4U}, {3, 5U + 193}, {4, 192U}, {5, 4U + 2 * 193}, {6, 0U}})
        EXPECT_EQ(insert(make(id, hash)), nullptr);
    destroyed.clear();
    EXPECT_EQ(cu_Set_delete(&set_), 0U);
    EXPECT_EQ(set_, nullptr);
    EXPECT_THAT(destroyed, testing::ElementsAre(6, 5, 2, 3, 1, 4));
    ASSERT_EQ(cu_Set_new(&set_, hashOf, equality, destroy, cloneOf, nullptr), 0U);
}

TEST_F(Set, copiesWhatTheCallerKeeps)
{
    const Element original = {3, 1};
    bool inserted = false;
    clonesLeft = 0;
    EXPECT_FAILURE(cu_Set_constInsert(set_, &original, &inserted), cu_ERROR_COM_MALLOC_FAILED, "cu_Set_constInsert",
                   file, "");
    EXPECT_EQ(sizeOf(cu_Set_getSize, set_), 0U);
    clonesLeft = 1000;
    EXPECT_EQ(cu_Set_constInsert(set_, &original, &inserted), 0U);
    EXPECT_TRUE(inserted);
    EXPECT_EQ(alive.size(), 1U);

    for (int id = 2; id < 66; ++id)
        EXPECT_EQ(insert(make(id)), nullptr);
    const Element another = {0, 100};
    const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
    inserted = false;
    EXPECT_FAILURE(cu_Set_constInsert(set_, &another, &inserted), cu_ERROR_COM_MALLOC_FAILED, "cu_Set_constInsert",
                   file, "");
    EXPECT_TRUE(inserted);
    void* element = make(100);
    inserted = false;
    EXPECT_FAILURE(cu_Set_insert(set_, &element, &inserted), cu_ERROR_COM_MALLOC_FAILED, "cu_Set_insert", file, "");
    EXPECT_TRUE(inserted);
    EXPECT_EQ(alive.size(), 66U);
    destroy(element);
}

TEST_F(Set, combinesOnlySetsOfTheSameKind)
{
    struct {
        decltype(&hashOf) hash = hashOf;
        decltype(&equality) equal = equality;
        decltype(&destroy) end = destroy;
        decltype(&cloneOf) copy = cloneOf;
    } kinds[] = {{.hash = otherHash}, {.equal = otherEquality}, {.end = otherDestroy}, {.copy = otherClone}};
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
    for (int id = 0; id < 100; ++id) {
        insert(make(id, static_cast<uint32_t>(id)));
        insertInto(other, make(id + 20, static_cast<uint32_t>(id + 20)));
    }
    const std::size_t elements = alive.size();
    const struct {
        const char* name;
        decltype(&cu_Set_union) combine;
    } operations[] = {{"cu_Set_union", cu_Set_union}, {"cu_Set_intersect", cu_Set_intersect}};
    for (const auto& operation : operations) {
        SCOPED_TRACE(operation.name);
        support::WatchfulAllocator allocator;
        cu_Set* result = nullptr;
        for (unsigned nth = 1; nth <= 2; ++nth) {
            {
                const support::Injection exhausted("calloc", ENOMEM, nth);
                ASSERT_EQ(operation.combine(&result, set_, other, allocator.get()), 0U);
                EXPECT_STREQ(exhausted.fired(), "calloc");
            }
            ASSERT_NE(result, nullptr);
            EXPECT_EQ(allocator.live(), 1U);

            // An empty set like any other.
            EXPECT_EQ(sizeOf(cu_Set_getSize, result), 0U);
            EXPECT_FALSE(tell(cu_Set_hasValue, result, {1, 1}));
            EXPECT_FALSE(tell(cu_Set_remove, result, {1, 1}));
            cu_Set_ConstIterator* iterator = nullptr;
            ASSERT_EQ(cu_Set_ConstIterator_new(&iterator, result), 0U);
            const void* element = &iterator;
            EXPECT_EQ(cu_Set_ConstIterator_next(iterator, &element), 0U);
            EXPECT_EQ(element, nullptr);
            EXPECT_EQ(cu_Set_ConstIterator_delete(&iterator), 0U);
            if (nth == 2) {
                EXPECT_EQ(insertInto(result, make(1)), nullptr);
                EXPECT_EQ(sizeOf(cu_Set_getSize, result), 1U);
            }
            EXPECT_EQ(cu_Set_delete(&result), 0U);
            EXPECT_EQ(alive.size(), elements);
        }
        EXPECT_FAILURE(operation.combine(&result, set_, other, allocator.get()), cu_ERROR_COM_MALLOC_FAILED,
                       operation.name, file, "");
        EXPECT_EQ(result, nullptr);
        allocator.refuse(1);
        EXPECT_FAILURE(operation.combine(&result, set_, other, allocator.get()), cu_ERROR_COM_MALLOC_FAILED, "refusal",
                       "test", "");
        EXPECT_EQ(alive.size(), elements);
    }
    EXPECT_EQ(cu_Set_delete(&other), 0U);
}

} // namespace
