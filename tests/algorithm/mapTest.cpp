#include "algorithm/elements.h"

#include <cUtil/algorithm/map.h>

namespace
{

using namespace algorithm;

constexpr char file[] = "src/cUtil/algorithm/map";

class Map : public Containers
{
protected:
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

    support::Made<cu_Map_new, cu_Map_delete> map_{hashOf, equality, destroy, destroy, cloneOf, cloneOf};
};

TEST_F(Map, isMadeAsAWholeAndRefusesNullArgumentsAndWrongHandles)
{
    EXPECT_CLEAN_FAILURES(cu_Map_new, cu_Map_delete, hashOf, equality, destroy, destroy, cloneOf, cloneOf);
    void* element = &element;
    void* nothing = nullptr;
    const std::tuple good{&element, support::Anything{}};
    EXPECT_NULLS_REFUSED(file, good, cu_Map_new, cu_Map_insert, cu_Map_constKeyInsert, cu_Map_constValueInsert,
                         cu_Map_constInsert, cu_Map_lookup, cu_Map_remove, cu_Map_getSize, cu_Map_Iterator_new,
                         cu_Map_Iterator_next, cu_Map_Iterator_nextKey, cu_Map_Iterator_hasNext,
                         cu_Map_ConstIterator_new, cu_Map_ConstIterator_next, cu_Map_ConstIterator_hasNext);
    EXPECT_NULLS_REFUSED(file, std::tuple{support::Anything{{&element}}}, cu_Map_delete, cu_Map_Iterator_delete,
                         cu_Map_ConstIterator_delete);
    EXPECT_REFUSED(cu_Map_insert(map_, &nothing, &element), "cu_Map_insert", file);
    EXPECT_REFUSED(cu_Map_insert(map_, &element, &nothing), "cu_Map_insert", file);
    EXPECT_REFUSED(cu_Map_constKeyInsert(map_, file, &nothing), "cu_Map_constKeyInsert", file);
    EXPECT_REFUSED(cu_Map_constValueInsert(map_, &nothing, file), "cu_Map_constValueInsert", file);
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

    EXPECT_TRUE(tell(cu_Map_remove, map_.get(), {0, 1}));
    EXPECT_EQ(alive.size(), 0U);
    EXPECT_FALSE(tell(cu_Map_remove, map_.get(), {0, 1}));
    EXPECT_EQ(valueOf(1), -1);
}

TEST_F(Map, copiesWhatTheCallerKeepsAndMakesRoomEvenToReplace)
{
    const Element key = {0, 1};
    const Element values[] = {{0, 100}, {0, 300}};
    const struct {
        const char* name;
        std::function<cu_ErrorCode(void** given)> insert;
        int given, clones, value;
    } calls[] = {
        {"cu_Map_constValueInsert", [&](auto given) { return cu_Map_constValueInsert(map_, given, &values[0]); }, 1, 1,
         100},
        {"cu_Map_constKeyInsert", [&](auto given) { return cu_Map_constKeyInsert(map_, &key, given); }, 200, 1, 200},
        {"cu_Map_constInsert", [&](auto) { return cu_Map_constInsert(map_, &key, &values[1]); }, 0, 2, 300},
    };
    for (int id = 0; id < 65; ++id)
        insert(make(id), make(id));
    for (const auto& call : calls) {
        void* given = make(call.given);
        for (int clones = 0; clones <= call.clones; ++clones) {
            const char* const origin = clones == call.clones ? "cu_Map_insert" : call.name;
            EXPECT_EQ(withoutMemory([&] { return call.insert(&given); }, static_cast<unsigned>(clones)),
                      (support::Failure{cu_ERROR_COM_MALLOC_FAILED, origin, file, ""}));
            EXPECT_EQ(support::trace().find(call.name) == 0, clones == call.clones);
            EXPECT_EQ(alive.size(), 131U);
            EXPECT_EQ(valueOf(1), 1);
        }
        destroy(given);
    }
    for (const auto& call : calls) {
        void* given = make(call.given);
        EXPECT_EQ(call.insert(&given), 0U);
        EXPECT_EQ(given == nullptr, call.clones == 1);
        if (given != nullptr)
            destroy(given);
        EXPECT_EQ(valueOf(1), call.value);
        EXPECT_EQ(alive.size(), 130U);
    }
}

TEST_F(Map, isWalkedAndDestroyedInTheOrderOfItsBuckets)
{
    for (const auto& [id, hash] : {std::pair{1, 5U}, {2, 4U}, {3, 5U + 193}, {4, 192U}})
        insert(make(id, hash), make(10 * id));
    const support::Made<cu_Map_Iterator_new, cu_Map_Iterator_delete> iterator{map_.get()};
    const support::Made<cu_Map_ConstIterator_new, cu_Map_ConstIterator_delete> constIterator{map_.get()};
    for (const int id : {2, 3, 1, 4, -1, -1}) {
        EXPECT_EQ(told(cu_Map_Iterator_hasNext, iterator), id != -1);
        EXPECT_EQ(told(cu_Map_ConstIterator_hasNext, constIterator), id != -1);
        void* key = &map_;
        void* value = &map_;
        const void* constKey = &map_;
        const void* constValue = &map_;
        EXPECT_EQ(cu_Map_ConstIterator_next(constIterator, &constKey, &constValue), 0U);
        EXPECT_EQ(idOf(constKey), id);
        EXPECT_EQ(idOf(constValue), id == -1 ? -1 : 10 * id);
        if (id == 3) {
            EXPECT_EQ(cu_Map_Iterator_nextKey(iterator, &key), 0U);
        } else {
            EXPECT_EQ(cu_Map_Iterator_next(iterator, &key, &value), 0U);
            EXPECT_EQ(value, constValue);
        }
        EXPECT_EQ(key, constKey);
    }
    destroyed.clear();
    map_.end();
    EXPECT_EQ(destroyed, (std::vector{2, 20, 3, 30, 1, 10, 4, 40}));
}

} // namespace
