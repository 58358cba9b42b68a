#include "algorithm/elements.h"

#include <cUtil/algorithm/map.h>

namespace
{

using namespace algorithm;

constexpr char file[] = "src/cUtil/algorithm/map";

class Map : public Containers
{
protected:
    Map() { create(); }
    ~Map() override { EXPECT_EQ(cu_Map_delete(&map_), 0U); }

    void create()
    {
        EXPECT_EQ(cu_Map_new(&map_, hashOf, equality, destroy, destroy, cloneOf, cloneOf, allocator_.get()), 0U);
    }
    void renew()
    {
        EXPECT_EQ(cu_Map_delete(&map_), 0U);
        EXPECT_EQ(map_, nullptr);
        create();
    }

    void insert(void* key, void* value)
    {
        EXPECT_EQ(cu_Map_insert(map_, &key, &value), 0U);
        EXPECT_EQ(key, nullptr);
        EXPECT_EQ(value, nullptr);
    }

    // The id of a key's value, or -1.
    int valueOf(int id)
    {
        const Element wanted = {0, id};
        void* value = &map_;
        EXPECT_EQ(cu_Map_lookup(map_, &wanted, &value), 0U);
        return idOf(value);
    }

    cu_Map* map_ = nullptr;

private:
    support::WatchfulAllocator allocator_;
};

TEST_F(Map, refusesNullArgumentsAndWrongHandles)
{
    cu_Map* none = nullptr;
    cu_Map_Iterator* noIterator = nullptr;
    cu_Map_Iterator* iterator = nullptr;
    cu_Map_ConstIterator* noConstIterator = nullptr;
    cu_Map_ConstIterator* constIterator = nullptr;
    void* element = &none;
    void* nothing = nullptr;
    const void* constElement = nullptr;
    bool flag = false;
    uint32_t size = 0;
    ASSERT_EQ(cu_Map_Iterator_new(&iterator, map_), 0U);
    ASSERT_EQ(cu_Map_ConstIterator_new(&constIterator, map_), 0U);
    const std::tuple good{&none,         &noIterator, &noConstIterator, map_,    iterator,
                          constIterator, &element,    &constElement,    &flag,   &size,
                          &hashOf,       &equality,   &destroy,         &cloneOf};
    EXPECT_NULLS_REFUSED(file, good, cu_Map_new, cu_Map_insert, cu_Map_constKeyInsert, cu_Map_constValueInsert,
                         cu_Map_constInsert, cu_Map_lookup, cu_Map_remove, cu_Map_getSize, cu_Map_Iterator_new,
                         cu_Map_Iterator_next, cu_Map_Iterator_nextKey, cu_Map_Iterator_hasNext,
                         cu_Map_ConstIterator_new, cu_Map_ConstIterator_next, cu_Map_ConstIterator_hasNext);
    EXPECT_NULLS_REFUSED(file, (std::tuple{&map_, &iterator, &constIterator}), cu_Map_delete, cu_Map_Iterator_delete,
                         cu_Map_ConstIterator_delete);
    EXPECT_REFUSED(cu_Map_insert(map_, &nothing, &element), "cu_Map_insert", file);
    EXPECT_REFUSED(cu_Map_insert(map_, &element, &nothing), "cu_Map_insert", file);
    EXPECT_REFUSED(cu_Map_constKeyInsert(map_, &size, &nothing), "cu_Map_constKeyInsert", file);
    EXPECT_REFUSED(cu_Map_constValueInsert(map_, &nothing, &size), "cu_Map_constValueInsert", file);
    EXPECT_EQ(cu_Map_Iterator_delete(&iterator), 0U);
    EXPECT_EQ(cu_Map_ConstIterator_delete(&constIterator), 0U);
}

TEST_F(Map, leavesNothingBehindWhenItCannotBeMade)
{
    EXPECT_CLEAN_FAILURES(cu_Map_new, cu_Map_delete, hashOf, equality, destroy, destroy, cloneOf, cloneOf);
}

TEST_F(Map, replacesKeyAndValue)
{
    Element* key = make(1);
    Element* value = make(10);
    insert(key, value);
    Element* otherKey = make(1);
    insert(otherKey, make(11));
    EXPECT_EQ(valueOf(1), 11);
    EXPECT_EQ(told(cu_Map_getSize, map_), 1U);
    EXPECT_FALSE(alive.contains(key));
    EXPECT_FALSE(alive.contains(value));

    // What the map has already it keeps.
    insert(otherKey, make(12));
    EXPECT_EQ(valueOf(1), 12);
    Element* kept = make(13);
    insert(make(1), kept);
    insert(make(1), kept);
    EXPECT_EQ(valueOf(1), 13);
    EXPECT_EQ(alive.size(), 2U);

    EXPECT_TRUE(tell(cu_Map_remove, map_, {0, 1}));
    EXPECT_EQ(alive.size(), 0U);
    EXPECT_FALSE(tell(cu_Map_remove, map_, {0, 1}));
    EXPECT_EQ(valueOf(1), -1);
}

TEST_F(Map, copiesWhatTheCallerKeepsAndMakesRoomEvenToReplace)
{
    const Element key = {0, 1};
    const Element value = {0, 100};
    const struct {
        const char* name;
        std::function<cu_ErrorCode(void** given)> insert;
        int given;
        unsigned clones;
    } calls[] = {
        {"cu_Map_constValueInsert", [&](void** given) { return cu_Map_constValueInsert(map_, given, &value); }, 1, 1},
        {"cu_Map_constKeyInsert", [&](void** given) { return cu_Map_constKeyInsert(map_, &key, given); }, 100, 1},
        {"cu_Map_constInsert", [&](void**) { return cu_Map_constInsert(map_, &key, &value); }, 0, 2},
    };
    for (const auto& call : calls) {
        SCOPED_TRACE(call.name);
        for (int id = 0; id < 65; ++id)
            insert(make(id), make(id));
        void* given = make(call.given);
        for (unsigned clones = 0; clones <= call.clones; ++clones) {
            clonesLeft = clones;
            const bool cloned = clones == call.clones;
            const auto insertWithoutMemory = [&] {
                const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
                return call.insert(&given);
            };
            EXPECT_FAILURE(insertWithoutMemory(), cu_ERROR_COM_MALLOC_FAILED, cloned ? "cu_Map_insert" : call.name,
                           file, "");
            EXPECT_EQ(support::trace().find(call.name) == 0, cloned);
            EXPECT_EQ(idOf(given), call.given);
            EXPECT_EQ(alive.size(), 131U);
            EXPECT_EQ(valueOf(1), 1);
        }
        clonesLeft = call.clones;
        EXPECT_EQ(call.insert(&given), 0U);
        EXPECT_EQ(valueOf(1), 100);
        EXPECT_EQ(given == nullptr, call.given != 0);
        if (given != nullptr)
            destroy(given);
        EXPECT_EQ(alive.size(), 130U);
        renew();
    }
}

TEST_F(Map, isWalkedAndDestroyedInTheOrderOfItsBuckets)
{
    for (const auto& [id, hash] : {std::pair{1, 5U}, {2, 4U}, {3, 5U + 193}, {4, 192U}})
        insert(make(id, hash), make(10 * id));
    cu_Map_Iterator* iterator = nullptr;
    cu_Map_ConstIterator* constIterator = nullptr;
    ASSERT_EQ(cu_Map_Iterator_new(&iterator, map_), 0U);
    ASSERT_EQ(cu_Map_ConstIterator_new(&constIterator, map_), 0U);
    for (const auto& [id, keyAlone] :
         {std::pair{2, false}, {3, true}, {1, false}, {4, true}, {-1, true}, {-1, false}}) {
        EXPECT_EQ(told(cu_Map_Iterator_hasNext, iterator), id != -1);
        EXPECT_EQ(told(cu_Map_ConstIterator_hasNext, constIterator), id != -1);
        void* key = &map_;
        void* value = &map_;
        const void* constKey = &map_;
        const void* constValue = &map_;
        EXPECT_EQ(cu_Map_ConstIterator_next(constIterator, &constKey, &constValue), 0U);
        if (keyAlone) {
            EXPECT_EQ(cu_Map_Iterator_nextKey(iterator, &key), 0U);
        } else {
            EXPECT_EQ(cu_Map_Iterator_next(iterator, &key, &value), 0U);
            EXPECT_EQ(value, constValue);
        }
        EXPECT_EQ(key, constKey);
        EXPECT_EQ(idOf(key), id);
        EXPECT_EQ(idOf(constValue), id == -1 ? -1 : 10 * id);
    }
    EXPECT_EQ(cu_Map_Iterator_delete(&iterator), 0U);
    EXPECT_EQ(cu_Map_ConstIterator_delete(&constIterator), 0U);
    destroyed.clear();
    renew();
    EXPECT_EQ(destroyed, (std::vector{2, 20, 3, 30, 1, 10, 4, 40}));
}

} // namespace
