/** @file
 *  Sets of elements of any type: a hash table of pointers, with what the set must know of its elements in functions
 *  that the caller gives.
 *
 *  Every function returns 0 or an error code, and cu_ERROR_COM_INVALID_ARGUMENT for a null argument, a null element
 *  included. An element that is looked for need only be good for the hash and equality functions.
 *
 *  An element stays in its place while it is in the set; it must not change in a way that those two functions see.
 *  The functions that a set is given must not use the set.
 *
 *  Adding, finding and removing take constant time with a good hash; once in a while adding takes time and memory in
 *  proportion to the set, which then gets about twice the room. The table comes from the process heap; the allocator
 *  gives the set's own record alone.
 *
 *  Sets are not locked: one thread at a time per set. Nothing blocks, unless a given function or the allocator does.
 */
#ifndef CUTIL_ALGORITHM_SET_H
#define CUTIL_ALGORITHM_SET_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A set of elements, each at most once. */
typedef struct cu_Set cu_Set;

/** A walk through a set. It ends when the set changes or ends: then it may only be deleted. */
typedef struct cu_Set_Iterator cu_Set_Iterator;

/** A walk through a set whose elements are only looked at. */
typedef struct cu_Set_ConstIterator cu_Set_ConstIterator;

/**
 * Makes an empty set.
 *
 * @param set        receives the set; must hold null
 * @param hash       any number that is the same for equal elements
 * @param equality   not 0 when two elements are equal: the first one of the set, the second one given
 * @param destroy    releases an element of the set
 * @param clone      gives a copy of an element that @p destroy can release, or null
 * @param allocator  for the set's record; null: the shared one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_Set_new(cu_Set** set, uint32_t (*hash)(const void* element),
                                  int32_t (*equality)(const void* a, const void* b), void (*destroy)(void* element),
                                  void* (*clone)(const void* element), cu_allocator* allocator);

/**
 * Ends a set and destroys its elements, in the order of a walk.
 *
 * @param set  holds the set; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says, and then the set is empty
 */
CU_EXPORT cu_ErrorCode cu_Set_delete(cu_Set** set);

/**
 * Adds an element that becomes the set's, unless an equal one is there.
 *
 * @param set       the set
 * @param element   holds the element; null once the set owns it, otherwise unchanged
 * @param inserted  receives whether no equal element was there; true also when memory is out
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED, and then the set is as it was
 */
CU_EXPORT cu_ErrorCode cu_Set_insert(cu_Set* set, void** element, bool* inserted);

/**
 * Adds a copy of an element, unless an equal one is there. The element stays the caller's in any case.
 *
 * @param set       the set
 * @param element   the element
 * @param inserted  receives whether no equal element was there; true also when memory is out
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED, also when the clone function gives null, and
 *         then the set is as it was
 */
CU_EXPORT cu_ErrorCode cu_Set_constInsert(cu_Set* set, const void* element, bool* inserted);

/**
 * Takes an element out and destroys it.
 *
 * @param set      the set
 * @param element  equal to the one that is meant; it may be that one itself
 * @param removed  receives whether there was one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Set_remove(cu_Set* set, const void* element, bool* removed);

/**
 * Looks for an element.
 *
 * @param set      the set
 * @param element  equal to the one that is meant
 * @param found    receives whether there is one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Set_hasValue(const cu_Set* set, const void* element, bool* found);

/**
 * Gives the number of elements.
 *
 * @param set   the set
 * @param size  receives the number
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT for 2^31 elements and more
 */
CU_EXPORT cu_ErrorCode cu_Set_getSize(const cu_Set* set, uint32_t* size);

/**
 * Combines the elements of two sets. As old programs know it, it never gives what it combined: it fails when that was
 * built, and when memory was out it succeeds with an empty set.
 *
 * @param result     receives an empty set, to be deleted like any other; must hold null
 * @param a          a set
 * @param b          a set with the same four functions
 * @param allocator  for the record of @p result; null: the shared one
 * @return 0 when there was no memory for the combined elements; cu_ERROR_COM_MALLOC_FAILED when there was, and nothing
 *         is left behind; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT for sets with different functions; or
 *         what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_Set_union(cu_Set** result, const cu_Set* a, const cu_Set* b, cu_allocator* allocator);

/** As cu_Set_union(), with the elements of @p a that have an equal one in @p b. */
CU_EXPORT cu_ErrorCode cu_Set_intersect(cu_Set** result, const cu_Set* a, const cu_Set* b, cu_allocator* allocator);

/**
 * Begins a walk through a set. Its order is that of the table, not that of the insertions.
 *
 * @param iterator  receives the iterator, which is of the process heap; must hold null
 * @param set       the set
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Set_Iterator_new(cu_Set_Iterator** iterator, cu_Set* set);

/** Ends a walk: @p iterator holds it, and null afterwards. */
CU_EXPORT cu_ErrorCode cu_Set_Iterator_delete(cu_Set_Iterator** iterator);

/** Gives the next element, which remains the set's, and goes on. At the end @p element receives null. */
CU_EXPORT cu_ErrorCode cu_Set_Iterator_next(cu_Set_Iterator* iterator, void** element);

/** Tells whether there is a next element. */
CU_EXPORT cu_ErrorCode cu_Set_Iterator_hasNext(const cu_Set_Iterator* iterator, bool* result);

/** As cu_Set_Iterator_new(). */
CU_EXPORT cu_ErrorCode cu_Set_ConstIterator_new(cu_Set_ConstIterator** iterator, const cu_Set* set);

/** As cu_Set_Iterator_delete(). */
CU_EXPORT cu_ErrorCode cu_Set_ConstIterator_delete(cu_Set_ConstIterator** iterator);

/** As cu_Set_Iterator_next(). */
CU_EXPORT cu_ErrorCode cu_Set_ConstIterator_next(cu_Set_ConstIterator* iterator, const void** element);

/** As cu_Set_Iterator_hasNext(). */
CU_EXPORT cu_ErrorCode cu_Set_ConstIterator_hasNext(const cu_Set_ConstIterator* iterator, bool* result);

CU_END_DECLS

#endif
