#include "internal/rbTreeLayout.h"

#include "internal/report.h"
#include "internal/rollback.h"

#include <cUtil/tools/safeMalloc.h>

#include <new>
#include <utility>

namespace
{

using internal::left;
using internal::right;
using Node = internal::RBTreeNode;

bool isRed(const Node* node)
{
    return node != nullptr && node->isRed;
}

// Which child of its parent a link is.
bool sideOf(Node* const* link, const Node* parent)
{
    return link == &parent->child[right];
}

// Turns what hangs on a link to a side: the child of the other side rises.
Node* rotate(Node** link, bool side)
{
    Node* sinking = *link;
    Node* rising = sinking->child[!side]; // never null: the tree would not be balanced
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference)
    sinking->child[!side] = rising->child[side];
    rising->child[side] = sinking;
    *link = rising;
    return rising;
}

// The same with their colours exchanged, so that neither way down has more black nodes or fewer than before.
Node* rotateColoured(Node** link, bool side)
{
    Node* sinking = *link;
    Node* rising = rotate(link, side);
    std::swap(sinking->isRed, rising->isRed);
    return rising;
}

// The links from the root to a place in the tree, the last one being that place.
class Path
{
public:
    explicit Path(cu_RBTree* tree) { links_[0] = &tree->root; }

    void push(Node** link) { links_[++last_] = link; }
    std::size_t last() const { return last_; }
    Node** operator[](std::size_t at) const { return links_[at]; }
    Node*& end() const { return *links_[last_]; }

private:
    Node** links_[internal::pathBound];
    std::size_t last_ = 0;
};

// Follows a key down to its node, or to the empty place where it belongs, and tells of each link that it takes.
template <typename Take>
Node* follow(const cu_RBTree* tree, const void* key, Take take)
{
    Node* node = tree->root;
    while (node != nullptr) {
        // Both are on their way while the keys are compared; a jump to either would be guessed wrong every other time.
        Node* const lesser = node->child[left];
        Node* const greater = node->child[right];
        __builtin_prefetch(lesser);
        __builtin_prefetch(greater);
        const int32_t order = tree->compare(key, node->key);
        if (order == 0)
            break;
        take(&node->child[order > 0]);
        node = order < 0 ? lesser : greater;
    }
    return node;
}

// Puts a red node into the empty place at the end of a path.
void insert(cu_RBTree* tree, const Path& path, Node* node)
{
    path.end() = node;
    for (std::size_t at = path.last(); at >= 2 && (*path[at - 1])->isRed; at -= 2) {
        Node** top = path[at - 2];
        Node* grandparent = *top;
        Node* parent = *path[at - 1];
        const bool side = sideOf(path[at - 1], grandparent);
        Node* uncle = grandparent->child[!side];
        if (!isRed(uncle)) {
            if (sideOf(path[at], parent) != side)
                rotate(path[at - 1], side);
            rotateColoured(top, !side);
            break;
        }
        parent->isRed = false;
        uncle->isRed = false;
        grandparent->isRed = true;
    }
    // NOLINTNEXTLINE(clang-analyzer-core.NullDereference): there is the new node at least
    tree->root->isRed = false;
}

// Makes up for a black node that is missing on the way down through the end of a path.
void restoreBlack(const Path& path)
{
    for (std::size_t at = path.last(); at >= 1; --at) {
        Node** top = path[at - 1];
        const bool side = sideOf(path[at], *top);
        if ((*top)->child[!side]->isRed)
            // The new sibling is black, and the parent, one further down, red.
            top = &rotateColoured(top, side)->child[side];
        Node* parent = *top;
        Node* sibling = parent->child[!side];
        if (isRed(sibling->child[side]) && !isRed(sibling->child[!side]))
            sibling = rotateColoured(&parent->child[!side], !side);
        if (isRed(sibling->child[!side])) {
            sibling->child[!side]->isRed = false;
            rotateColoured(top, side);
            return;
        }
        sibling->isRed = true;
        if (parent->isRed) {
            parent->isRed = false;
            return;
        }
    }
}

// Takes the key and the value at the end of a path out of the tree, in a node that is not part of it any more.
Node* unlink(Path& path)
{
    Node* node = path.end();
    if (node->child[left] != nullptr && node->child[right] != nullptr) {
        // The next key, which has no lesser child, moves here.
        path.push(&node->child[right]);
        while (path.end()->child[left] != nullptr)
            path.push(&path.end()->child[left]);
        Node* next = path.end();
        std::swap(node->key, next->key);
        std::swap(node->value, next->value);
        node = next;
    }
    Node* only = node->child[node->child[left] == nullptr];
    path.end() = only;
    if (only != nullptr)
        only->isRed = false; // it was red, or its sides would differ
    else if (!node->isRed)
        restoreBlack(path);
    return node;
}

// What could not be released waits in a ring, of which the tree holds the last node.
cu_ErrorCode keep(Node* node)
{
    Node*& last = node->tree->unreleased;
    node->child[right] = last != nullptr ? std::exchange(last->child[right], node) : node;
    last = node;
    return 0;
}

Node* takeKept(cu_RBTree* tree)
{
    Node*& last = tree->unreleased;
    Node* first = last->child[right];
    if (first == last)
        last = nullptr;
    else
        last->child[right] = first->child[right];
    return first;
}

uint32_t count(const Node* node)
{
    return node != nullptr ? 1 + count(node->child[left]) + count(node->child[right]) : 0;
}

// Takes an iterator to the smallest key of a subtree or, if that is empty, to the next one above it.
const Node* advance(cu_RBTreeIterator* it, Node* node)
{
    unsigned depth = it->depth;
    if (node == nullptr) {
        node = it->path[--depth];
    } else {
        for (Node* lesser; (lesser = node->child[left]) != nullptr; node = lesser)
            it->path[depth++] = node;
    }
    it->depth = static_cast<uint16_t>(depth);
    it->current = node;
    return node;
}

void tell(const Node* node, void** key, void** value)
{
    if (key != nullptr)
        *key = node != nullptr ? node->key : nullptr;
    *value = node != nullptr ? node->value : nullptr;
}

} // namespace

static cu_ErrorCode RBTreeImpl_new(Node** node, cu_RBTree* tree, const void* key, void* value)
{
    void* block = nullptr;
    CU_TRY(cu_safeMalloc(&block, sizeof(Node)));
    CU_ROLLBACK(freeBlock, cu_safeFreeImpl(block));
    auto* fresh = new (block) Node{nullptr, value, tree, true, false, {}};
    if (tree->keyCopy != nullptr)
        CU_TRY(tree->keyCopy(&fresh->key, key));
    else
        fresh->key = const_cast<void*>(key);
    freeBlock.dismiss();
    *node = fresh;
    return 0;
}

static cu_ErrorCode RBTreeImpl_delete(Node* node)
{
    const cu_RBTree* tree = node->tree;
    CU_ROLLBACK(keepNode, keep(node));
    if (tree->keyRelease != nullptr && !node->keyIsReleased)
        CU_TRY(tree->keyRelease(&node->key));
    node->keyIsReleased = true;
    if (tree->valueRelease != nullptr)
        CU_TRY(tree->valueRelease(&node->value));
    keepNode.dismiss();
    return cu_safeFreeImpl(node);
}

cu_ErrorCode cu_RBTree_new(cu_RBTree** tree, cu_RBTreeCompare compare, cu_RBTreeKeyCopy keyCopy,
                           cu_RBTreeRelease keyRelease, cu_RBTreeRelease valueRelease)
{
    CU_REQUIRE(tree != nullptr);
    CU_REQUIRE(*tree == nullptr);
    CU_REQUIRE(compare != nullptr);

    void* block = nullptr;
    CU_TRY(cu_safeMalloc(&block, sizeof(cu_RBTree)));
    *tree = new (block) cu_RBTree{compare, keyCopy, keyRelease, valueRelease, nullptr, nullptr};
    return 0;
}

cu_ErrorCode cu_RBTree_delete(cu_RBTree** tree)
{
    CU_REQUIRE(tree != nullptr);
    CU_REQUIRE(*tree != nullptr);

    while ((*tree)->root != nullptr) {
        Path path(*tree);
        while (path.end()->child[left] != nullptr)
            path.push(&path.end()->child[left]);
        CU_TRY(RBTreeImpl_delete(unlink(path)));
    }
    while ((*tree)->unreleased != nullptr)
        CU_TRY(RBTreeImpl_delete(takeKept(*tree)));
    CU_TRY(cu_safeFreeImpl(*tree));
    *tree = nullptr;
    return 0;
}

cu_ErrorCode cu_RBTree_add(cu_RBTree* tree, const void* key, void* value)
{
    CU_REQUIRE(tree != nullptr);
    CU_REQUIRE(key != nullptr);
    CU_REQUIRE(value != nullptr);

    Path path(tree);
    if (follow(tree, key, [&path](Node** link) { path.push(link); }) != nullptr)
        return CU_REPORT(cu_ERROR_RBTREE_ADD_EXISTS, 0, nullptr);
    Node* node = nullptr;
    CU_TRY(RBTreeImpl_new(&node, tree, key, value));
    insert(tree, path, node);
    return 0;
}

cu_ErrorCode cu_RBTree_has(const cu_RBTree* tree, const void* key, void** value)
{
    CU_REQUIRE(tree != nullptr);
    CU_REQUIRE(key != nullptr);
    CU_REQUIRE(value != nullptr);

    const Node* node = follow(tree, key, [](Node**) {});
    *value = node != nullptr ? node->value : nullptr;
    return 0;
}

cu_ErrorCode cu_RBTree_rem(cu_RBTree* tree, const void* key)
{
    CU_REQUIRE(tree != nullptr);
    CU_REQUIRE(key != nullptr);

    Path path(tree);
    if (follow(tree, key, [&path](Node** link) { path.push(link); }) == nullptr)
        return CU_REPORT(cu_ERROR_RBTREE_NOT_FOUND, 0, nullptr);
    CU_TRY(RBTreeImpl_delete(unlink(path)));
    return 0;
}

cu_ErrorCode cu_RBTree_size(const cu_RBTree* tree, uint32_t* size)
{
    CU_REQUIRE(tree != nullptr);
    CU_REQUIRE(size != nullptr);

    *size = count(tree->root);
    return 0;
}

cu_ErrorCode cu_RBTreeIterator_new(cu_RBTreeIterator** it, const cu_RBTree* tree)
{
    CU_REQUIRE(it != nullptr);
    CU_REQUIRE(*it == nullptr);
    CU_REQUIRE(tree != nullptr);

    void* block = nullptr;
    CU_TRY(cu_safeMalloc(&block, sizeof(cu_RBTreeIterator)));
    *it = static_cast<cu_RBTreeIterator*>(block);
    (*it)->depth = 1; // the end, null, comes after all nodes
    advance(*it, tree->root);
    return 0;
}

cu_ErrorCode cu_RBTreeIterator_current(const cu_RBTreeIterator* it, void** key, void** value)
{
    CU_REQUIRE(it != nullptr);
    CU_REQUIRE(value != nullptr);

    tell(it->current, key, value);
    return 0;
}

cu_ErrorCode cu_RBTreeIterator_next(cu_RBTreeIterator* it, void** key, void** value)
{
    CU_REQUIRE(it != nullptr);
    CU_REQUIRE(value != nullptr);

    const Node* node = it->current;
    if (node != nullptr)
        node = advance(it, node->child[right]);
    tell(node, key, value);
    return 0;
}

cu_ErrorCode cu_RBTreeIterator_delete(cu_RBTreeIterator** it)
{
    CU_REQUIRE(it != nullptr);
    CU_REQUIRE(*it != nullptr);

    CU_TRY(cu_safeFreeImpl(*it));
    *it = nullptr;
    return 0;
}
