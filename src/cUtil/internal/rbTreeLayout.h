// A red-black tree from inside, for its own source and for tests that walk it.
#pragma once

#include <cUtil/tools/rbTree.h>

#include <cstddef>
#include <cstdint>

namespace cu::internal
{

enum Side : uint8_t { left, right };

/// There is no pointer to the parent: whoever changes the tree has the way that led there.
struct RBTreeNode {
    void* key;
    void* value;
    cu_RBTree* tree;
    bool isRed;
    bool keyIsReleased; ///< of a node that is not in the tree any more
    RBTreeNode* child[2];
};

static_assert(offsetof(RBTreeNode, isRed) == 3 * sizeof(void*));
static_assert(offsetof(RBTreeNode, child) == 4 * sizeof(void*) && sizeof(RBTreeNode) == 6 * sizeof(void*));

/// A red-black tree is at most twice as high as the logarithm of its nodes, of which there are fewer than 2^60.
constexpr std::size_t pathBound = 128;

} // namespace cu::internal

struct cu_RBTree {
    cu_RBTreeCompare compare;
    cu_RBTreeKeyCopy keyCopy;
    cu_RBTreeRelease keyRelease;
    cu_RBTreeRelease valueRelease;
    cu::internal::RBTreeNode* root;
    cu::internal::RBTreeNode* unreleased; ///< removed nodes with something left, chained by their right children
};

/// An ancestor leaves the path when the iterator comes to stand on it, so no state of a level is needed in this order.
struct cu_RBTreeIterator {
    cu::internal::RBTreeNode* current;                       ///< null at the end
    cu::internal::RBTreeNode* path[cu::internal::pathBound]; ///< null, for the end, then the ancestors still to come
    uint8_t state[cu::internal::pathBound];                  ///< zero
    uint16_t depth;
    uint16_t mode; ///< zero: in order
    uint32_t reserved;
};
