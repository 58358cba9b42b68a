/** @file
 *  An ordered map from key pointers to value pointers: a red-black tree, and an iterator in the order of the keys.
 *
 *  What a key is, only the caller's functions know: the tree orders keys by a comparison, copies them if it is told
 * how, and gives keys and values to release functions when their node goes. Without these functions keys and values
 * stay the caller's.
 *
 *  Every function returns 0 or an error code, and cu_ERROR_COM_INVALID_ARGUMENT for a null argument that is not said to
 *  be allowed. Trees are not locked: one thread at a time per tree and its iterators, any number as long as all of them
 *  only look. The caller's functions must not change the tree that calls them; they may look into it. Nothing blocks,
 *  unless these functions do.
 */
#ifndef CUTIL_TOOLS_RB_TREE_H
#define CUTIL_TOOLS_RB_TREE_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** An ordered map. */
typedef struct cu_RBTree cu_RBTree;

/** A position in an ordered map. */
typedef struct cu_RBTreeIterator cu_RBTreeIterator;

/** Orders keys: below 0 when the first one comes before the second, above 0 when it comes after it, 0 when they are
 *  equal. The first one is the caller's key, the second one the tree's. */
typedef int32_t (*cu_RBTreeCompare)(const void* key, const void* treeKey);

/** Fills the tree's slot for a key, which holds null, with a copy of the caller's @p key. A failure must leave nothing
 * behind, for the slot is given up. @return 0 or an error code */
typedef cu_ErrorCode (*cu_RBTreeKeyCopy)(void** slot, const void* key);

/** Releases what stands in a slot of the tree. After an error the tree keeps it, and may ask again. @return 0 or an
 *  error code */
typedef cu_ErrorCode (*cu_RBTreeRelease)(void** slot);

/**
 * Makes an empty tree.
 *
 * @param tree          address of a null handle; set only on success. cu_RBTree_delete() ends the tree.
 * @param compare       orders the keys
 * @param keyCopy       copies a key that is added; null: the caller's pointer is stored as it is
 * @param keyRelease    releases the key of a node that goes; null: nothing is done with it
 * @param valueRelease  releases its value, after the key; null: nothing is done with it
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RBTree_new(cu_RBTree** tree, cu_RBTreeCompare compare, cu_RBTreeKeyCopy keyCopy,
                                     cu_RBTreeRelease keyRelease, cu_RBTreeRelease valueRelease);

/**
 * Ends a tree: removes its nodes in the order of their keys, then releases what earlier removals could not.
 *
 * @param tree  address of the handle, which must hold a tree; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what a release function says. Then the tree is still there, without the
 *         nodes that are gone, and so is what was not released: call again to go on behind it and to try it anew at the
 *         end. A release function that fails for ever keeps its tree for ever.
 */
CU_EXPORT cu_ErrorCode cu_RBTree_delete(cu_RBTree** tree);

/**
 * Adds a key with its value.
 *
 * @param tree   the tree
 * @param key    the key; the tree takes it over unless it copies keys
 * @param value  the value, not null; the tree takes it over
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_RBTREE_ADD_EXISTS when an equal key is there;
 *         cu_ERROR_COM_MALLOC_FAILED; or what the copy function says. After a failure the tree is as it was, and key
 * and value are the caller's.
 */
CU_EXPORT cu_ErrorCode cu_RBTree_add(cu_RBTree* tree, const void* key, void* value);

/**
 * Looks up a key.
 *
 * @param tree   the tree
 * @param key    the key
 * @param value  receives the value, which stays the tree's; null when there is no such key, which is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_RBTree_has(const cu_RBTree* tree, const void* key, void** value);

/**
 * Removes a key and releases it and its value.
 *
 * @param tree  the tree
 * @param key   the key
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_RBTREE_NOT_FOUND; or what a release function says. Then the key is
 *         not in the tree any more, but what was not released is kept until cu_RBTree_delete(), which tries it again:
 *         key and value when the key could not be released, the value alone otherwise.
 */
CU_EXPORT cu_ErrorCode cu_RBTree_rem(cu_RBTree* tree, const void* key);

/**
 * Counts the keys, one by one.
 *
 * @param tree  the tree
 * @param size  receives the number
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_RBTree_size(const cu_RBTree* tree, uint32_t* size);

/**
 * Makes an iterator that stands on the smallest key, or at the end of an empty tree. It holds until the tree changes;
 * then it may only be deleted.
 *
 * @param it    address of a null handle; set only on success. cu_RBTreeIterator_delete() ends the iterator.
 * @param tree  the tree
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_RBTreeIterator_new(cu_RBTreeIterator** it, const cu_RBTree* tree);

/**
 * Tells what the iterator stands on.
 *
 * @param it     the iterator
 * @param key    receives the key, which stays the tree's; null at the end. May be null.
 * @param value  receives the value, which stays the tree's; null at the end
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_RBTreeIterator_current(const cu_RBTreeIterator* it, void** key, void** value);

/**
 * Goes on to the next key in ascending order and tells what the iterator then stands on. At the end it stays there.
 *
 * @param it     the iterator
 * @param key    receives the key, which stays the tree's; null at the end. May be null.
 * @param value  receives the value, which stays the tree's; null at the end
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_RBTreeIterator_next(cu_RBTreeIterator* it, void** key, void** value);

/**
 * Ends an iterator, also when its tree has changed or is gone.
 *
 * @param it  address of the handle, which must hold an iterator; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_RBTreeIterator_delete(cu_RBTreeIterator** it);

CU_END_DECLS

#endif
