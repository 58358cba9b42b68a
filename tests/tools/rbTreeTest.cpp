#include "internal/rbTreeLayout.h"
#include "support/refusal.h"
#include "support/scale.h"
#include "support/sweep.h"

#include <cUtil/tools/rbTree.h>

#include <cmath>
#include <map>
#include <random>
#include <set>
#include <vector>

namespace
{

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
int blackHeight(const cu_RBTree* tree, const cu::internal::RBTreeNode* node, std::vector<const void*>& keys)
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
std::vector<const void*> keysOf(const cu_RBTree* tree)
{
    std::vector<const void*> keys;
    const int height = blackHeight(tree, tree->root, keys);
    EXPECT_TRUE(tree->root == nullptr || !tree->root->isRed);
    EXPECT_LE(height, std::log2(static_cast<double>(keys.size()) + 1));
    return keys;
}

/// A tree of numbers, which are keys and values at once unless told otherwise.
class NumberTree
{
public:
    NumberTree() { EXPECT_EQ(cu_RBTree_new(&tree_, compareNumbers, nullptr, nullptr, nullptr), 0U); }
    NumberTree(const NumberTree&) = delete;
    NumberTree& operator=(const NumberTree&) = delete;
    ~NumberTree() { EXPECT_EQ(cu_RBTree_delete(&tree_), 0U); }

    cu_RBTree* get() const { return tree_; }
    cu_ErrorCode add(uintptr_t key, uintptr_t value) const
    {
        return cu_RBTree_add(tree_, pointer(key), pointer(value));
    }
    cu_ErrorCode add(uintptr_t key) const { return add(key, key); }
    cu_ErrorCode remove(uintptr_t key) const { return cu_RBTree_rem(tree_, pointer(key)); }
    uintptr_t at(uintptr_t key) const
    {
        void* value = pointer(~uintptr_t{0});
        EXPECT_EQ(cu_RBTree_has(tree_, pointer(key), &value), 0U);
        return number(value);
    }
    uint32_t size() const
    {
        uint32_t size = ~0U;
        EXPECT_EQ(cu_RBTree_size(tree_, &size), 0U);
        return size;
    }

private:
    cu_RBTree* tree_ = nullptr;
};

/// An iterator goes through the keys in order, and to the end, where it stays.
void expectWalk(const cu_RBTree* tree, const std::vector<const void*>& keys)
{
    cu_RBTreeIterator* it = nullptr;
    ASSERT_EQ(cu_RBTreeIterator_new(&it, tree), 0U);
    const auto keyAt = [&](std::size_t at) { return at < keys.size() ? keys[at] : nullptr; };
    for (std::size_t at = 0; at < keys.size() + 2; ++at) {
        const bool tellsKey = at % 2 == 0;
        void* key = &it;
        void* value = &it;
        ASSERT_EQ(cu_RBTreeIterator_current(it, &key, &value), 0U);
        ASSERT_EQ(key, keyAt(at));
        ASSERT_EQ(value, key);
        ASSERT_EQ(cu_RBTreeIterator_next(it, tellsKey ? &key : nullptr, &value), 0U);
        ASSERT_EQ(value, keyAt(at + 1));
        ASSERT_EQ(key, keyAt(tellsKey ? at + 1 : at));
    }
    EXPECT_EQ(cu_RBTreeIterator_delete(&it), 0U);
    EXPECT_EQ(it, nullptr);
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
        const NumberTree tree;
        std::set<const void*> model;
        const int rounds = support::scaled(one.rounds);
        for (int round = 1; round <= rounds; ++round) {
            const uintptr_t key = 1 + random() % one.keys;
            const bool isThere = model.contains(pointer(key));
            ASSERT_EQ(tree.at(key), isThere ? key : 0U);
            const bool grows = round * 5LL / rounds % 2 == 0;
            if (random() % 3 < (grows ? 2 : 1)) {
                ASSERT_EQ(tree.add(key), isThere ? cu_ErrorCode{cu_ERROR_RBTREE_ADD_EXISTS} : 0U);
                model.insert(pointer(key));
            } else {
                ASSERT_EQ(tree.remove(key), isThere ? 0U : cu_ErrorCode{cu_ERROR_RBTREE_NOT_FOUND});
                model.erase(pointer(key));
            }
            if (round % one.between != 0 && round != rounds)
                continue;
            const std::vector<const void*> expected(model.begin(), model.end());
            ASSERT_EQ(keysOf(tree.get()), expected);
            ASSERT_EQ(tree.size(), expected.size());
            expectWalk(tree.get(), expected);
            ASSERT_FALSE(HasFailure());
        }
    }
}

/// The caller's functions for keys and values, of which one call may fail. They watch that everything is released once.
struct Caller {
    static inline std::set<const void*> live;
    static inline std::vector<uintptr_t> released;
    static inline unsigned callsLeft; ///< until the one that fails; 0: none is to fail

    static cu_RBTree* newTree()
    {
        cu_RBTree* tree = nullptr;
        EXPECT_EQ(cu_RBTree_new(&tree, compareNumbers, copy, release, release), 0U);
        return tree;
    }
    /// The value is ten times the key. It stays the caller's on a failure.
    static cu_ErrorCode add(cu_RBTree* tree, uintptr_t key)
    {
        void* value = pointer(10 * key);
        const cu_ErrorCode code = cu_RBTree_add(tree, pointer(key), value);
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

void expectPassedOn(cu_ErrorCode code, cu_ErrorCode expected, const char* inner, const char* outer)
{
    EXPECT_EQ(code, expected);
    EXPECT_EQ(support::trace().find(std::string(inner) + "  -  " + file + ":"), 0U) << support::trace();
    EXPECT_NE(support::trace().find(std::string("\n") + outer + "  -  " + file + ":"), std::string::npos);
}

// Whichever call of the caller's fails: its code comes back with a trace, the tree holds what it says, and in the end
// everything was released once.
TEST(RBTree, losesAndReleasesTwiceNothingWhicheverFunctionFails)
{
    for (unsigned nth = 1; Caller::callsLeft == 0; ++nth) {
        SCOPED_TRACE(nth);
        ASSERT_LT(nth, 100U);
        Caller::callsLeft = nth;
        cu_RBTree* tree = Caller::newTree();
        std::set<const void*> expected;
        const auto expectKeys = [&] {
            EXPECT_EQ(keysOf(tree), std::vector<const void*>(expected.begin(), expected.end()));
        };
        for (uintptr_t key = 1; key < 10; ++key) {
            if (const cu_ErrorCode code = Caller::add(tree, key); code == 0)
                expected.insert(pointer(key));
            else
                expectPassedOn(code, 4711, "RBTreeImpl_new", "cu_RBTree_add");
            expectKeys();
        }
        for (void* const key : {pointer(5), pointer(1), pointer(8)}) {
            if (expected.erase(key) == 0)
                continue;
            if (const cu_ErrorCode code = cu_RBTree_rem(tree, key); code != 0)
                expectPassedOn(code, 4712, "RBTreeImpl_delete", "cu_RBTree_rem");
            expectKeys();
        }
        if (const cu_ErrorCode code = cu_RBTree_delete(&tree); code != 0) {
            expectPassedOn(code, 4712, "RBTreeImpl_delete", "cu_RBTree_delete");
            ASSERT_NE(tree, nullptr);
            keysOf(tree);
            EXPECT_EQ(cu_RBTree_delete(&tree), 0U);
        }
        EXPECT_EQ(tree, nullptr);
        EXPECT_TRUE(Caller::live.empty());
    }
}

TEST(RBTree, deletionGoesOnBehindWhatCannotBeReleased)
{
    Caller::callsLeft = 0;
    Caller::released.clear();
    cu_RBTree* tree = Caller::newTree();
    for (const uintptr_t key : {1U, 2U, 3U})
        EXPECT_EQ(Caller::add(tree, key), 0U);
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
        EXPECT_EQ(cu_RBTree_delete(&tree), failAt != 0 ? 4712U : 0U);
        EXPECT_EQ(Caller::released, released);
    }
    EXPECT_EQ(tree, nullptr);
    EXPECT_TRUE(Caller::live.empty());
}

TEST(RBTree, isMadeAsAWholeOrNotAtAll)
{
    const NumberTree tree;
    ASSERT_EQ(tree.add(1), 0U);
    support::sweep<cu_RBTree>(
        "cu_RBTree_new",
        [](auto handle, auto) { return cu_RBTree_new(handle, compareNumbers, nullptr, nullptr, nullptr); },
        cu_RBTree_delete);
    support::sweep<cu_RBTreeIterator>(
        "cu_RBTreeIterator_new", [&](auto handle, auto) { return cu_RBTreeIterator_new(handle, tree.get()); },
        cu_RBTreeIterator_delete);
    const support::Injection failing("calloc", ENOMEM);
    expectPassedOn(tree.add(2), cu_ERROR_COM_MALLOC_FAILED, "RBTreeImpl_new", "cu_RBTree_add");
    EXPECT_EQ(keysOf(tree.get()), std::vector<const void*>{pointer(1)});
}

TEST(RBTree, tellsWhatItRefuses)
{
    const NumberTree tree;
    cu_RBTree* none = nullptr;
    cu_RBTree* some = tree.get();
    cu_RBTreeIterator* noPlace = nullptr;
    cu_RBTreeIterator* it = nullptr;
    ASSERT_EQ(cu_RBTreeIterator_new(&it, some), 0U);
    void* value = pointer(7);
    uint32_t size = 0;
    const std::tuple good{some, it, &noPlace, static_cast<void*>(&size), &value, &size};
    EXPECT_NULLS_REFUSED(file, good, cu_RBTree_add, cu_RBTree_has, cu_RBTree_rem, cu_RBTree_size,
                         cu_RBTreeIterator_new);
    EXPECT_NULLS_REFUSED(file, (std::tuple{&some, &it}), cu_RBTree_delete, cu_RBTreeIterator_delete);
    // Without functions to copy and release, and without a key to tell.
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, &compareNumbers}), cu_RBTree_new);
    EXPECT_REFUSED(cu_RBTreeIterator_current(nullptr, nullptr, &value), "cu_RBTreeIterator_current", file);
    EXPECT_REFUSED(cu_RBTreeIterator_current(it, &value, nullptr), "cu_RBTreeIterator_current", file);
    EXPECT_REFUSED(cu_RBTreeIterator_next(nullptr, nullptr, &value), "cu_RBTreeIterator_next", file);
    EXPECT_REFUSED(cu_RBTreeIterator_next(it, &value, nullptr), "cu_RBTreeIterator_next", file);
    EXPECT_EQ(value, pointer(7));
    EXPECT_EQ(cu_RBTreeIterator_delete(&it), 0U);

    EXPECT_EQ(tree.add(1, 7), 0U);
    EXPECT_FAILURE(tree.add(1, 8), cu_ERROR_RBTREE_ADD_EXISTS, "cu_RBTree_add", file, "");
    EXPECT_EQ(tree.at(1), 7U);
    EXPECT_FAILURE(tree.remove(2), cu_ERROR_RBTREE_NOT_FOUND, "cu_RBTree_rem", file, "");
}

} // namespace
