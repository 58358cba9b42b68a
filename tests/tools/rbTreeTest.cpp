#include "internal/rbTreeLayout.h"
#include "support/made.h"
#include "support/refusal.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/tools/rbTree.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <random>
#include <set>
#include <vector>

namespace
{

using Keys = std::vector<const void*>;
using Tree = support::Made<cu_RBTree_new, cu_RBTree_delete>;

constexpr char file[] = "src/cUtil/tools/rbTree";

void* pointer(uintptr_t number)
{
    return reinterpret_cast<void*>(number); // NOLINT(performance-no-int-to-ptr)
}

uintptr_t number(const void* key)
{
    return reinterpret_cast<uintptr_t>(key);
}

// Any value of the right sign will do, also one that has no opposite.
int32_t compareNumbers(const void* a, const void* b)
{
    return number(a) < number(b) ? INT32_MIN : number(a) > number(b) ? INT32_MAX : 0;
}

/// Walks a subtree and tells its black height; notes its keys in order, and what is wrong with it.
int blackHeight(const cu_RBTree* tree, const cu::internal::RBTreeNode* node, Keys& keys)
{
    if (node == nullptr)
        return 0;
    const int height = blackHeight(tree, node->child[cu::internal::left], keys);
    keys.push_back(node->key);
    EXPECT_EQ(blackHeight(tree, node->child[cu::internal::right], keys), height);
    EXPECT_EQ(node->tree, tree);
    for (const auto* child : node->child)
        EXPECT_FALSE(node->isRed && child != nullptr && child->isRed);
    return height + !node->isRed;
}

/// The keys of a tree that is one: balanced, and with a black root.
Keys keysOf(const cu_RBTree* tree)
{
    Keys keys;
    blackHeight(tree, tree->root, keys);
    EXPECT_TRUE(tree->root == nullptr || !tree->root->isRed);
    return keys;
}

uintptr_t valueAt(const cu_RBTree* tree, uintptr_t key)
{
    void* value = pointer(~uintptr_t{0});
    EXPECT_EQ(cu_RBTree_has(tree, pointer(key), &value), 0U);
    return number(value);
}

/// An iterator goes through the keys, which are the values, too, in order, and to the end, where it stays.
void expectWalk(const cu_RBTree* tree, const Keys& keys)
{
    const support::Made<cu_RBTreeIterator_new, cu_RBTreeIterator_delete> it{tree};
    const auto keyAt = [&](std::size_t at) { return at < keys.size() ? keys[at] : nullptr; };
    for (std::size_t at = 0; at < keys.size() + 2; ++at) {
        const bool tellsKey = at % 2 == 0;
        void* key = &key;
        void* value = &value;
        ASSERT_EQ(cu_RBTreeIterator_current(it, &key, &value), 0U);
        ASSERT_EQ(key, keyAt(at));
        ASSERT_EQ(value, key);
        ASSERT_EQ(cu_RBTreeIterator_next(it, tellsKey ? &key : nullptr, &value), 0U);
        ASSERT_EQ(value, keyAt(at + 1));
        ASSERT_EQ(key, keyAt(tellsKey ? at + 1 : at));
    }
}

// Few keys make every shape of a small tree, and that is looked at after each change; many make a high one.
TEST(RBTree, answersAsASetDoesThroughAMillionOperationsAndStaysBalanced)
{
    struct {
        uintptr_t keys;
        int rounds, between;
    } const cases[] = {{12, 100'000, 1}, {100, 100'000, 10}, {5'000, 300'000, 3'001}, {200'000, 500'000, 100'003}};
    std::mt19937 random(1);
    for (const auto& one : cases) {
        SCOPED_TRACE(one.keys);
        const Tree tree{compareNumbers, nullptr, nullptr, nullptr};
        std::set<const void*> model;
        const int rounds = support::scaled(one.rounds);
        for (int round = 1; round <= rounds; ++round) {
            void* const key = pointer(1 + random() % one.keys);
            const bool isThere = model.contains(key);
            ASSERT_EQ(valueAt(tree, number(key)), isThere ? number(key) : 0U);
            const bool grows = round * 5LL / rounds % 2 == 0;
            if (random() % 3 < (grows ? 2 : 1)) {
                ASSERT_EQ(cu_RBTree_add(tree, key, key), isThere ? cu_ErrorCode{cu_ERROR_RBTREE_ADD_EXISTS} : 0U);
                model.insert(key);
            } else {
                ASSERT_EQ(cu_RBTree_rem(tree, key), isThere ? 0U : cu_ErrorCode{cu_ERROR_RBTREE_NOT_FOUND});
                model.erase(key);
            }
            if (round % one.between != 0 && round != rounds)
                continue;
            const Keys expected(model.begin(), model.end());
            ASSERT_EQ(keysOf(tree), expected);
            uint32_t size = ~0U;
            ASSERT_EQ(cu_RBTree_size(tree, &size), 0U);
            ASSERT_EQ(size, expected.size());
            expectWalk(tree, expected);
            ASSERT_FALSE(HasFailure());
        }
    }
}

/// The caller's functions for keys and values, of which one call may fail. They watch that everything is released once.
struct Caller : Tree {
    static inline std::set<const void*> live;
    static inline std::vector<uintptr_t> released;
    static inline unsigned callsLeft; ///< until the one that fails; 0: none is to fail

    Caller() : Tree(compareNumbers, copy, release, release) {}
    ~Caller()
    {
        end();
        EXPECT_TRUE(live.empty());
    }

    /// The value is ten times the key. It stays the caller's on a failure.
    cu_ErrorCode add(uintptr_t key)
    {
        void* value = pointer(10 * key);
        const cu_ErrorCode code = cu_RBTree_add(get(), pointer(key), value);
        if (code == 0)
            live.insert(value);
        return code;
    }
    static cu_ErrorCode copy(void** slot, const void* key)
    {
        EXPECT_EQ(*slot, nullptr);
        const cu_ErrorCode code = refusal(4711);
        if (code == 0)
            live.insert(*slot = const_cast<void*>(key));
        return code;
    }
    static cu_ErrorCode release(void** slot)
    {
        EXPECT_TRUE(live.contains(*slot)) << "released before";
        const cu_ErrorCode code = refusal(4712);
        if (code == 0 && live.erase(*slot) == 1)
            released.push_back(number(*slot));
        return code;
    }
    static cu_ErrorCode refusal(cu_ErrorCode code)
    {
        if (callsLeft == 0 || --callsLeft != 0)
            return 0;
        cu_Error_report(cu_getErrorLocation(), code, 0, "refusal", 1, "test", nullptr);
        return code;
    }
};

// Whichever call of the caller's fails: its code comes back, the tree holds what it says, and in the end everything was
// released once.
TEST(RBTree, losesAndReleasesTwiceNothingWhicheverFunctionFails)
{
    for (unsigned nth = 1; Caller::callsLeft == 0; ++nth) {
        SCOPED_TRACE(nth);
        ASSERT_LT(nth, 100U);
        Caller::callsLeft = nth;
        Caller tree;
        std::set<const void*> expected;
        for (const int step : {1, 2, 3, 4, 5, 6, 7, 8, 9, -5, -1, -8}) {
            const auto key = static_cast<uintptr_t>(std::abs(step));
            if (step > 0) {
                const cu_ErrorCode code = tree.add(key);
                EXPECT_TRUE(code == 4711 || (code == 0 && expected.insert(pointer(key)).second));
            } else if (expected.erase(pointer(key)) == 1) {
                const cu_ErrorCode code = cu_RBTree_rem(tree, pointer(key));
                EXPECT_TRUE(code == 4712 || code == 0);
            }
            EXPECT_EQ(keysOf(tree), Keys(expected.begin(), expected.end()));
        }
        if (cu_RBTree_delete(tree.handle()) != 0) {
            EXPECT_EQ(cu_getErrorLocation()->errorID, 4712U);
            ASSERT_NE(tree.get(), nullptr);
            keysOf(tree);
        }
    }
}

TEST(RBTree, deletionGoesOnBehindWhatCannotBeReleased)
{
    Caller::callsLeft = 0;
    Caller tree;
    for (const uintptr_t key : {1U, 2U, 3U})
        EXPECT_EQ(tree.add(key), 0U);
    Caller::released.clear();
    const std::pair<unsigned, std::vector<uintptr_t>> attempts[] = {
        // the call of a release function that fails, and what has been released then
        {1, {}},            // key 1
        {2, {2}},           // value 20
        {4, {2, 3, 30, 1}}, // value 10, at the second try for key 1
        {1, {2, 3, 30, 1}}, // value 20 again
        {0, {2, 3, 30, 1, 10, 20}},
    };
    for (const auto& [failAt, released] : attempts) {
        Caller::callsLeft = failAt;
        EXPECT_EQ(cu_RBTree_delete(tree.handle()), failAt != 0 ? 4712U : 0U);
        EXPECT_EQ(Caller::released, released);
    }
}

TEST(RBTree, tellsWhatItRefusesAndIsMadeAsAWholeOrNotAtAll)
{
    const Tree tree{compareNumbers, nullptr, nullptr, nullptr};
    void* const one = pointer(1);
    EXPECT_EQ(cu_RBTree_add(tree, one, one), 0U);
    EXPECT_FAILURE(cu_RBTree_add(tree, one, pointer(8)), cu_ERROR_RBTREE_ADD_EXISTS, "cu_RBTree_add", file, "");
    EXPECT_EQ(valueAt(tree, 1), 1U);
    EXPECT_FAILURE(cu_RBTree_rem(tree, pointer(2)), cu_ERROR_RBTREE_NOT_FOUND, "cu_RBTree_rem", file, "");

    const support::Made<cu_RBTreeIterator_new, cu_RBTreeIterator_delete> it{tree.get()};
    cu_RBTree* none = nullptr;
    void* value = pointer(7);
    EXPECT_NULLS_REFUSED(file, std::tuple{support::Anything{}}, cu_RBTree_add, cu_RBTree_has, cu_RBTree_rem,
                         cu_RBTree_size, cu_RBTreeIterator_new);
    EXPECT_NULLS_REFUSED(file, std::tuple{support::Anything{{value}}}, cu_RBTree_delete, cu_RBTreeIterator_delete);
    // Without functions to copy and release, and without a key to tell.
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, &compareNumbers}), cu_RBTree_new);
    EXPECT_REFUSED(cu_RBTreeIterator_current(nullptr, nullptr, &value), "cu_RBTreeIterator_current", file);
    EXPECT_REFUSED(cu_RBTreeIterator_current(it, &value, nullptr), "cu_RBTreeIterator_current", file);
    EXPECT_REFUSED(cu_RBTreeIterator_next(nullptr, nullptr, &value), "cu_RBTreeIterator_next", file);
    EXPECT_REFUSED(cu_RBTreeIterator_next(it, &value, nullptr), "cu_RBTreeIterator_next", file);
    EXPECT_EQ(value, pointer(7));

    EXPECT_CLEAN_FAILURES(cu_RBTree_new, cu_RBTree_delete, compareNumbers, nullptr, nullptr, nullptr);
    EXPECT_CLEAN_FAILURES(cu_RBTreeIterator_new, cu_RBTreeIterator_delete, tree);
    const support::Injection failing("calloc", ENOMEM);
    EXPECT_EQ(cu_RBTree_add(tree, pointer(2), one), cu_ErrorCode{cu_ERROR_COM_MALLOC_FAILED});
    EXPECT_THAT(support::trace(),
                testing::AllOf(testing::StartsWith("RBTreeImpl_new  -  "), testing::HasSubstr("\ncu_RBTree_add  -  ")));
    EXPECT_EQ(keysOf(tree), Keys{one});
}

} // namespace
