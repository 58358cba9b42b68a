#include "algorithm/elements.h"

#include <cUtil/algorithm/map.h>

namespace
{

using namespace algorithm;

constexpr char file[] = "src/cUtil/algorithm/map";

class Map : public Containers
{
protected:
    Map() { EXPECT_EQ(cu_Map_new(&map_, hashOf, equality, destroy, destroy, cloneOf, cloneOf, allocator_.get()), 0U); }
    ~Map() override { EXPECT_EQ(cu_Map_delete(&map_), 0U); }

    void insert(void* key, void* value)
    {
        EXPECT_EQ(cu_Map_insert(map_, &key, &value), 0U);
        EXPECT_EQ(key, nullptr);
        EXPECT_EQ(value, nullptr);
    }

    // The id of a key's value, or -1.
    int valueOf(int id, uint32_t hash = 0)
    {
        const Element wanted = {hash, id};
        void* value = &map_;
        EXPECT_EQ(cu_Map_lookup(map_, &wanted, &value), 0U);
        return idOf(value);
    }

    cu_Map* map_ = nullptr;

private:
    support::WatchfulAllocator allocator_;
};

TEST(MapConstructor, leavesNothingBehindWhenItFails)
{
    support::sweep<cu_Map>(
        "cu_Map_new",
        [](auto handle, auto allocator) {
            return cu_Map_new(handle, hashOf, equality, destroy, destroy, cloneOf, cloneOf, allocator);
        },
        cu_Map_delete);
}

TEST_F(Map, badArgumentsAreRefused)
{
    const Element wanted = {0, 1};
    cu_Map* none = nullptr;
    cu_Map_Iterator* noIterator = nullptr;
    cu_Map_Iterator* iterator = nullptr;
    cu_Map_ConstIterator* noConstIterator = nullptr;
    cu_Map_ConstIterator* constIterator = nullptr;
    void* nothing = nullptr;
    const void* constNothing = nullptr;
    bool flag = false;
    uint32_t size = 0;
    ASSERT_EQ(cu_Map_Iterator_new(&iterator, map_), 0U);
    ASSERT_EQ(cu_Map_ConstIterator_new(&constIterator, map_), 0U);
    EXPECT_NULLS_REFUSED(cu_Map_new, &none, hashOf, equality, destroy, destroy, cloneOf, cloneOf, nullptr);
    EXPECT_REFUSED(cu_Map_new(&map_, hashOf, equality, destroy, destroy, cloneOf, cloneOf, nullptr), "cu_Map_new",
                   file);
    EXPECT_NULLS_REFUSED(cu_Map_delete, &map_);
    EXPECT_REFUSED(cu_Map_delete(&none), "cu_Map_delete", file);
    void* key = make(1);
    void* value = make(2);
    EXPECT_NULLS_REFUSED(cu_Map_insert, map_, &key, &value);
    EXPECT_REFUSED(cu_Map_insert(map_, &nothing, &value), "cu_Map_insert", file);
    EXPECT_REFUSED(cu_Map_insert(map_, &key, &nothing), "cu_Map_insert", file);
    EXPECT_NULLS_REFUSED(cu_Map_constKeyInsert, map_, &wanted, &value);
    EXPECT_REFUSED(cu_Map_constKeyInsert(map_, &wanted, &nothing), "cu_Map_constKeyInsert", file);
    EXPECT_NULLS_REFUSED(cu_Map_constValueInsert, map_, &key, &wanted);
    EXPECT_REFUSED(cu_Map_constValueInsert(map_, &nothing, &wanted), "cu_Map_constValueInsert", file);
    destroy(key);
    destroy(value);
    EXPECT_NULLS_REFUSED(cu_Map_constInsert, map_, &wanted, &wanted);
    EXPECT_NULLS_REFUSED(cu_Map_lookup, map_, &wanted, &nothing);
    EXPECT_NULLS_REFUSED(cu_Map_remove, map_, &wanted, &flag);
    EXPECT_NULLS_REFUSED(cu_Map_getSize, map_, &size);
    EXPECT_NULLS_REFUSED(cu_Map_Iterator_new, &noIterator, map_);
    EXPECT_REFUSED(cu_Map_Iterator_new(&iterator, map_), "cu_Map_Iterator_new", file);
    EXPECT_NULLS_REFUSED(cu_Map_Iterator_next, iterator, &nothing, &nothing);
    EXPECT_NULLS_REFUSED(cu_Map_Iterator_nextKey, iterator, &nothing);
    EXPECT_NULLS_REFUSED(cu_Map_Iterator_hasNext, iterator, &flag);
    EXPECT_NULLS_REFUSED(cu_Map_Iterator_delete, &iterator);
    EXPECT_REFUSED(cu_Map_Iterator_delete(&noIterator), "cu_Map_Iterator_delete", file);
    EXPECT_NULLS_REFUSED(cu_Map_ConstIterator_new, &noConstIterator, map_);
    EXPECT_REFUSED(cu_Map_ConstIterator_new(&constIterator, map_), "cu_Map_ConstIterator_new", file);
    EXPECT_NULLS_REFUSED(cu_Map_ConstIterator_next, constIterator, &constNothing, &constNothing);
    EXPECT_NULLS_REFUSED(cu_Map_ConstIterator_hasNext, constIterator, &flag);
    EXPECT_NULLS_REFUSED(cu_Map_ConstIterator_delete, &constIterator);
    EXPECT_REFUSED(cu_Map_ConstIterator_delete(&noConstIterator), "cu_Map_ConstIterator_delete", file);
    EXPECT_EQ(cu_Map_Iterator_delete(&iterator), 0U);
    EXPECT_EQ(cu_Map_ConstIterator_delete(&constIterator), 0U);
}

TEST_F(Map, replacesKeyAndValue)
{
    Element* key = make(1);
    Element* value = make(10);
    insert(key, value);
    Element* otherKey = make(1);
    insert(otherKey, make(11));
    EXPECT_EQ(valueOf(1), 11);
    EXPECT_EQ(sizeOf(cu_Map_getSize, map_), 1U);
    EXPECT_FALSE(alive.contains(key));
    EXPECT_FALSE(alive.contains(value));

    // What the map has already it keeps.
    insert(otherKey, make(12));
    EXPECT_EQ(valueOf(1), 12);
    Element* kept = make(13);
    insert(make(1), kept);
    insert(make(1), kept);
    EXPECT_EQ(valueOf(1), 13);
    EXPECT_TRUE(alive.contains(kept));
    EXPECT_EQ(alive.size(), 2U);

    EXPECT_TRUE(tell(cu_Map_remove, map_, {0, 1}));
    EXPECT_EQ(alive.size(), 0U);
    EXPECT_FALSE(tell(cu_Map_remove, map_, {0, 1}));
    EXPECT_EQ(valueOf(1), -1);
}

TEST_F(Map, makesRoomEvenToReplace)
{
    for (int id = 0; id < 65; ++id)
        insert(make(id), make(id));
    void* key = make(3);
    void* value = make(100);
    const auto insertWithoutMemory = [&] {
        const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
        return cu_Map_insert(map_, &key, &value);
    };
    EXPECT_FAILURE(insertWithoutMemory(), cu_ERROR_COM_MALLOC_FAILED, "cu_Map_insert", file, "");
    EXPECT_EQ(valueOf(3), 3);
    EXPECT_EQ(sizeOf(cu_Map_getSize, map_), 65U);
    insert(key, value);
    EXPECT_EQ(valueOf(3), 100);
    EXPECT_EQ(sizeOf(cu_Map_getSize, map_), 65U);
}

TEST_F(Map, copiesWhatTheCallerKeeps)
{
    const Element key = {0, 1};
    const Element value = {0, 2};
    const auto ownKey = [&](void** given) { return cu_Map_constValueInsert(map_, given, &value); };
    const auto ownValue = [&](void** given) { return cu_Map_constKeyInsert(map_, &key, given); };
    const auto nothing = [&](void**) { return cu_Map_constInsert(map_, &key, &value); };
    const struct {
        const char* name;
        std::function<cu_ErrorCode(void** given)> insert;
        int given;
        unsigned clones;
    } calls[] = {{"cu_Map_constValueInsert", ownKey, 1, 1},
                 {"cu_Map_constKeyInsert", ownValue, 2, 1},
                 {"cu_Map_constInsert", nothing, 0, 2}};
    for (const auto& call : calls) {
        SCOPED_TRACE(call.name);
        void* given = make(call.given);
        const std::size_t before = alive.size();
        for (clonesLeft = 0; clonesLeft < call.clones;) {
            const unsigned left = clonesLeft;
            EXPECT_FAILURE(call.insert(&given), cu_ERROR_COM_MALLOC_FAILED, call.name, file, "");
            EXPECT_NE(given, nullptr);
            EXPECT_EQ(alive.size(), before);
            clonesLeft = left + 1;
        }
        clonesLeft = 1000;
        EXPECT_EQ(call.insert(&given), 0U);
        EXPECT_EQ(valueOf(1), 2);
        EXPECT_EQ(given == nullptr, call.given != 0);
        if (given != nullptr)
            destroy(given);
        EXPECT_EQ(alive.size(), 2U);
    }

    for (int id = 10; id < 74; ++id)
        insert(make(id), make(id));
    const std::size_t before = alive.size();
    const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
    for (const auto& call : calls) {
        void* given = make(call.given);
        EXPECT_FAILURE(call.insert(&given), cu_ERROR_COM_MALLOC_FAILED, "cu_Map_insert", file, "");
        EXPECT_THAT(support::trace(), testing::HasSubstr(call.name));
        ASSERT_NE(given, nullptr);
        destroy(given);
        EXPECT_EQ(alive.size(), before);
    }
}

TEST_F(Map, isWalkedAndDestroyedInTheOrderOfItsBuckets)
{
    for (const auto& [id, hash] : {std::pair{1, 5U}, {2, 4U}, {3, 5U + 193}, {4, 192U}})
        insert(make(id, hash), make(10 * id));
    cu_Map_Iterator* iterator = nullptr;
    ASSERT_EQ(cu_Map_Iterator_new(&iterator, map_), 0U);
    for (const auto& [id, keyAlone] :
         {std::pair{2, false}, {3, true}, {1, false}, {4, true}, {-1, true}, {-1, false}}) {
        void* key = &map_;
        void* value = &map_;
        bool more = id == -1;
        EXPECT_EQ(cu_Map_Iterator_hasNext(iterator, &more), 0U);
        EXPECT_EQ(more, id != -1);
        if (keyAlone) {
            EXPECT_EQ(cu_Map_Iterator_nextKey(iterator, &key), 0U);
        } else {
            EXPECT_EQ(cu_Map_Iterator_next(iterator, &key, &value), 0U);
            EXPECT_EQ(idOf(value), id == -1 ? -1 : 10 * id);
        }
        EXPECT_EQ(idOf(key), id);
    }
    EXPECT_EQ(cu_Map_Iterator_delete(&iterator), 0U);

    destroyed.clear();
    EXPECT_EQ(cu_Map_delete(&map_), 0U);
    EXPECT_EQ(map_, nullptr);
    EXPECT_THAT(destroyed, testing::ElementsAre(2, 20, 3, 30, 1, 10, 4, 40));
    ASSERT_EQ(cu_Map_new(&map_, hashOf, equality, destroy, destroy, cloneOf, cloneOf, nullptr), 0U);
}

} // namespace
