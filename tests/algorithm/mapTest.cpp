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

    uint32_t size()
    {
        uint32_t size = ~0U;
        EXPECT_EQ(cu_Map_getSize(map_, &size), 0U);
        return size;
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
    cu_Map* none = nullptr;
    void* nothing = nullptr;
    void* key = make(1);
    void* value = make(2);
    bool flag = false;
    uint32_t size = 0;
    EXPECT_REFUSED(cu_Map_new(nullptr, hashOf, equality, destroy, destroy, cloneOf, cloneOf, nullptr), "cu_Map_new",
                   file);
    EXPECT_REFUSED(cu_Map_new(&map_, hashOf, equality, destroy, destroy, cloneOf, cloneOf, nullptr), "cu_Map_new",
                   file);
    EXPECT_REFUSED(cu_Map_new(&none, nullptr, equality, destroy, destroy, cloneOf, cloneOf, nullptr), "cu_Map_new",
                   file);
    EXPECT_REFUSED(cu_Map_new(&none, hashOf, nullptr, destroy, destroy, cloneOf, cloneOf, nullptr), "cu_Map_new", file);
    EXPECT_REFUSED(cu_Map_new(&none, hashOf, equality, nullptr, destroy, cloneOf, cloneOf, nullptr), "cu_Map_new",
                   file);
    EXPECT_REFUSED(cu_Map_new(&none, hashOf, equality, destroy, nullptr, cloneOf, cloneOf, nullptr), "cu_Map_new",
                   file);
    EXPECT_REFUSED(cu_Map_new(&none, hashOf, equality, destroy, destroy, nullptr, cloneOf, nullptr), "cu_Map_new",
                   file);
    EXPECT_REFUSED(cu_Map_new(&none, hashOf, equality, destroy, destroy, cloneOf, nullptr, nullptr), "cu_Map_new",
                   file);
    EXPECT_REFUSED(cu_Map_delete(nullptr), "cu_Map_delete", file);
    EXPECT_REFUSED(cu_Map_delete(&none), "cu_Map_delete", file);
    EXPECT_REFUSED(cu_Map_insert(nullptr, &key, &value), "cu_Map_insert", file);
    EXPECT_REFUSED(cu_Map_insert(map_, nullptr, &value), "cu_Map_insert", file);
    EXPECT_REFUSED(cu_Map_insert(map_, &nothing, &value), "cu_Map_insert", file);
    EXPECT_REFUSED(cu_Map_insert(map_, &key, nullptr), "cu_Map_insert", file);
    EXPECT_REFUSED(cu_Map_insert(map_, &key, &nothing), "cu_Map_insert", file);
    EXPECT_REFUSED(cu_Map_constKeyInsert(nullptr, key, &value), "cu_Map_constKeyInsert", file);
    EXPECT_REFUSED(cu_Map_constKeyInsert(map_, nullptr, &value), "cu_Map_constKeyInsert", file);
    EXPECT_REFUSED(cu_Map_constKeyInsert(map_, key, nullptr), "cu_Map_constKeyInsert", file);
    EXPECT_REFUSED(cu_Map_constKeyInsert(map_, key, &nothing), "cu_Map_constKeyInsert", file);
    EXPECT_REFUSED(cu_Map_constValueInsert(nullptr, &key, value), "cu_Map_constValueInsert", file);
    EXPECT_REFUSED(cu_Map_constValueInsert(map_, nullptr, value), "cu_Map_constValueInsert", file);
    EXPECT_REFUSED(cu_Map_constValueInsert(map_, &nothing, value), "cu_Map_constValueInsert", file);
    EXPECT_REFUSED(cu_Map_constValueInsert(map_, &key, nullptr), "cu_Map_constValueInsert", file);
    EXPECT_REFUSED(cu_Map_constInsert(nullptr, key, value), "cu_Map_constInsert", file);
    EXPECT_REFUSED(cu_Map_constInsert(map_, nullptr, value), "cu_Map_constInsert", file);
    EXPECT_REFUSED(cu_Map_constInsert(map_, key, nullptr), "cu_Map_constInsert", file);
    EXPECT_REFUSED(cu_Map_lookup(nullptr, key, &nothing), "cu_Map_lookup", file);
    EXPECT_REFUSED(cu_Map_lookup(map_, nullptr, &nothing), "cu_Map_lookup", file);
    EXPECT_REFUSED(cu_Map_lookup(map_, key, nullptr), "cu_Map_lookup", file);
    EXPECT_REFUSED(cu_Map_remove(nullptr, key, &flag), "cu_Map_remove", file);
    EXPECT_REFUSED(cu_Map_remove(map_, nullptr, &flag), "cu_Map_remove", file);
    EXPECT_REFUSED(cu_Map_remove(map_, key, nullptr), "cu_Map_remove", file);
    EXPECT_REFUSED(cu_Map_getSize(nullptr, &size), "cu_Map_getSize", file);
    EXPECT_REFUSED(cu_Map_getSize(map_, nullptr), "cu_Map_getSize", file);

    cu_Map_Iterator* iterator = nullptr;
    cu_Map_ConstIterator* constIterator = nullptr;
    const void* constNothing = nullptr;
    EXPECT_REFUSED(cu_Map_Iterator_new(nullptr, map_), "cu_Map_Iterator_new", file);
    EXPECT_REFUSED(cu_Map_Iterator_new(&iterator, nullptr), "cu_Map_Iterator_new", file);
    EXPECT_REFUSED(cu_Map_Iterator_delete(nullptr), "cu_Map_Iterator_delete", file);
    EXPECT_REFUSED(cu_Map_Iterator_delete(&iterator), "cu_Map_Iterator_delete", file);
    EXPECT_REFUSED(cu_Map_Iterator_next(nullptr, &nothing, &nothing), "cu_Map_Iterator_next", file);
    EXPECT_REFUSED(cu_Map_Iterator_nextKey(nullptr, &nothing), "cu_Map_Iterator_nextKey", file);
    EXPECT_REFUSED(cu_Map_Iterator_hasNext(nullptr, &flag), "cu_Map_Iterator_hasNext", file);
    EXPECT_REFUSED(cu_Map_ConstIterator_new(nullptr, map_), "cu_Map_ConstIterator_new", file);
    EXPECT_REFUSED(cu_Map_ConstIterator_new(&constIterator, nullptr), "cu_Map_ConstIterator_new", file);
    EXPECT_REFUSED(cu_Map_ConstIterator_delete(nullptr), "cu_Map_ConstIterator_delete", file);
    EXPECT_REFUSED(cu_Map_ConstIterator_delete(&constIterator), "cu_Map_ConstIterator_delete", file);
    EXPECT_REFUSED(cu_Map_ConstIterator_next(nullptr, &constNothing, &constNothing), "cu_Map_ConstIterator_next", file);
    EXPECT_REFUSED(cu_Map_ConstIterator_hasNext(nullptr, &flag), "cu_Map_ConstIterator_hasNext", file);
    ASSERT_EQ(cu_Map_Iterator_new(&iterator, map_), 0U);
    ASSERT_EQ(cu_Map_ConstIterator_new(&constIterator, map_), 0U);
    EXPECT_REFUSED(cu_Map_Iterator_new(&iterator, map_), "cu_Map_Iterator_new", file);
    EXPECT_REFUSED(cu_Map_Iterator_next(iterator, nullptr, &nothing), "cu_Map_Iterator_next", file);
    EXPECT_REFUSED(cu_Map_Iterator_next(iterator, &nothing, nullptr), "cu_Map_Iterator_next", file);
    EXPECT_REFUSED(cu_Map_Iterator_nextKey(iterator, nullptr), "cu_Map_Iterator_nextKey", file);
    EXPECT_REFUSED(cu_Map_Iterator_hasNext(iterator, nullptr), "cu_Map_Iterator_hasNext", file);
    EXPECT_REFUSED(cu_Map_ConstIterator_next(constIterator, nullptr, &constNothing), "cu_Map_ConstIterator_next", file);
    EXPECT_REFUSED(cu_Map_ConstIterator_next(constIterator, &constNothing, nullptr), "cu_Map_ConstIterator_next", file);
    EXPECT_REFUSED(cu_Map_ConstIterator_hasNext(constIterator, nullptr), "cu_Map_ConstIterator_hasNext", file);
    EXPECT_EQ(cu_Map_Iterator_delete(&iterator), 0U);
    EXPECT_EQ(cu_Map_ConstIterator_delete(&constIterator), 0U);
    destroy(key);
    destroy(value);
}

TEST_F(Map, replacesKeyAndValue)
{
    Element* key = make(1);
    Element* value = make(10);
    insert(key, value);
    Element* otherKey = make(1);
    insert(otherKey, make(11));
    EXPECT_EQ(valueOf(1), 11);
    EXPECT_EQ(size(), 1U);
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

    bool removed = false;
    const Element wanted = {0, 1};
    EXPECT_EQ(cu_Map_remove(map_, &wanted, &removed), 0U);
    EXPECT_TRUE(removed);
    EXPECT_EQ(alive.size(), 0U);
    EXPECT_EQ(cu_Map_remove(map_, &wanted, &removed), 0U);
    EXPECT_FALSE(removed);
    EXPECT_EQ(valueOf(1), -1);
}

TEST_F(Map, makesRoomEvenToReplace)
{
    for (int id = 0; id < 65; ++id)
        insert(make(id), make(id));
    void* key = make(3);
    void* value = make(100);
    {
        const auto exhausted = support::Injection::ofEvery("calloc", ENOMEM);
        EXPECT_FAILURE(cu_Map_insert(map_, &key, &value), cu_ERROR_COM_MALLOC_FAILED, "cu_Map_insert", file, "");
    }
    EXPECT_EQ(valueOf(3), 3);
    EXPECT_EQ(size(), 65U);
    insert(key, value);
    EXPECT_EQ(valueOf(3), 100);
    EXPECT_EQ(size(), 65U);
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
    support::sweep<cu_Map_Iterator>(
        "cu_Map_Iterator_new", [&](auto handle, auto) { return cu_Map_Iterator_new(handle, map_); },
        cu_Map_Iterator_delete);
    cu_Map_Iterator* iterator = nullptr;
    ASSERT_EQ(cu_Map_Iterator_new(&iterator, map_), 0U);
    void* key = nullptr;
    void* value = nullptr;
    bool more = false;
    EXPECT_EQ(cu_Map_Iterator_next(iterator, &key, &value), 0U);
    EXPECT_EQ(idOf(key), 2);
    EXPECT_EQ(idOf(value), 20);
    EXPECT_EQ(cu_Map_Iterator_nextKey(iterator, &key), 0U);
    EXPECT_EQ(idOf(key), 3);
    EXPECT_EQ(cu_Map_Iterator_next(iterator, &key, &value), 0U);
    EXPECT_EQ(idOf(key), 1);
    EXPECT_EQ(idOf(value), 10);
    EXPECT_EQ(cu_Map_Iterator_hasNext(iterator, &more), 0U);
    EXPECT_TRUE(more);
    EXPECT_EQ(cu_Map_Iterator_nextKey(iterator, &key), 0U);
    EXPECT_EQ(idOf(key), 4);
    EXPECT_EQ(cu_Map_Iterator_hasNext(iterator, &more), 0U);
    EXPECT_FALSE(more);
    EXPECT_EQ(cu_Map_Iterator_next(iterator, &key, &value), 0U);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(value, nullptr);
    key = &map_;
    EXPECT_EQ(cu_Map_Iterator_nextKey(iterator, &key), 0U);
    EXPECT_EQ(key, nullptr);
    EXPECT_EQ(cu_Map_Iterator_delete(&iterator), 0U);

    destroyed.clear();
    EXPECT_EQ(cu_Map_delete(&map_), 0U);
    EXPECT_EQ(map_, nullptr);
    EXPECT_THAT(destroyed, testing::ElementsAre(2, 20, 3, 30, 1, 10, 4, 40));
    ASSERT_EQ(cu_Map_new(&map_, hashOf, equality, destroy, destroy, cloneOf, cloneOf, nullptr), 0U);
}

} // namespace
