/** @file
 *  Maps from keys to values of any type: a hash table of pointers, with what the map must know of its keys and values
 *  in functions that the caller gives.
 *
 *  Every function returns 0 or an error code, and cu_ERROR_COM_INVALID_ARGUMENT for a null argument, a null key or
 *  value included. A key that is looked for need only be good for the hash and equality functions.
 *
 *  A key stays in its place while it is in the map; it must not change in a way that those two functions see. The
 *  functions that a map is given must not use the map.
 *
 *  Adding, finding and removing take constant time with a good hash; once in a while adding takes time and memory in
 *  proportion to the map, which then gets about twice the room. The table comes from the process heap; the allocator
 *  gives the map's own record alone.
 *
 *  Maps are not locked: one thread at a time per map. Nothing blocks, unless a given function or the allocator does.
 */
#ifndef CUTIL_ALGORITHM_MAP_H
#define CUTIL_ALGORITHM_MAP_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A map with at most one value for a key. */
typedef struct cu_Map cu_Map;

/** A walk through a map. It ends when the map changes or ends: then it may only be deleted. */
typedef struct cu_Map_Iterator cu_Map_Iterator;

/** A walk through a map whose keys and values are only looked at. */
typedef struct cu_Map_ConstIterator cu_Map_ConstIterator;

/**
 * Makes an empty map.
 *
 * @param map           receives the map; must hold null
 * @param hash          any number that is the same for equal keys
 * @param equality      not 0 when two keys are equal: the first one of the map, the second one given
 * @param keyDestroy    releases a key of the map
 * @param valueDestroy  releases a value of the map
 * @param keyClone      gives a copy of a key that @p keyDestroy can release, or null
 * @param valueClone    gives a copy of a value that @p valueDestroy can release, or null
 * @param allocator     for the map's record; null: the shared one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_Map_new(cu_Map** map, uint32_t (*hash)(const void* key),
                                  int32_t (*equality)(const void* a, const void* b), void (*keyDestroy)(void* key),
                                  void (*valueDestroy)(void* value), void* (*keyClone)(const void* key),
                                  void* (*valueClone)(const void* value), cu_allocator* allocator);

/**
 * Ends a map and destroys its keys and values, in the order of a walk, each key before its value.
 *
 * @param map  holds the map; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says, and then the map is empty
 */
CU_EXPORT cu_ErrorCode cu_Map_delete(cu_Map** map);

/**
 * Adds a key and its value, which become the map's. Where an equal key is there, both take the places of the old key
 * and the old value, which are then destroyed, in this order; one that is the same pointer as before is kept.
 *
 * @param map    the map
 * @param key    holds the key; null once the map owns it, otherwise unchanged
 * @param value  holds the value; null once the map owns it, otherwise unchanged
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED, possible where an equal key is there, too, and
 *         then the map is as it was
 */
CU_EXPORT cu_ErrorCode cu_Map_insert(cu_Map* map, void** key, void** value);

/** As cu_Map_insert(), with a copy of the key. cu_ERROR_COM_MALLOC_FAILED also when its clone function gives null. */
CU_EXPORT cu_ErrorCode cu_Map_constKeyInsert(cu_Map* map, const void* key, void** value);

/** As cu_Map_insert(), with a copy of the value. cu_ERROR_COM_MALLOC_FAILED also when its clone function gives null. */
CU_EXPORT cu_ErrorCode cu_Map_constValueInsert(cu_Map* map, void** key, const void* value);

/** As cu_Map_insert(), with copies of both. cu_ERROR_COM_MALLOC_FAILED also when a clone function gives null. */
CU_EXPORT cu_ErrorCode cu_Map_constInsert(cu_Map* map, const void* key, const void* value);

/**
 * Looks for a key.
 *
 * @param map    the map
 * @param key    equal to the one that is meant
 * @param value  receives its value, which remains the map's; null if there is no such key
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Map_lookup(const cu_Map* map, const void* key, void** value);

/**
 * Takes a key and its value out and destroys them, in this order.
 *
 * @param map      the map
 * @param key      equal to the one that is meant; it may be that one itself
 * @param removed  receives whether there was one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Map_remove(cu_Map* map, const void* key, bool* removed);

/** Gives the number of keys in @p size. */
CU_EXPORT cu_ErrorCode cu_Map_getSize(const cu_Map* map, uint32_t* size);

/**
 * Begins a walk through a map. Its order is that of the table, not that of the insertions.
 *
 * @param iterator  receives the iterator, which is of the process heap; must hold null
 * @param map       the map
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Map_Iterator_new(cu_Map_Iterator** iterator, cu_Map* map);

/** Ends a walk: @p iterator holds it, and null afterwards. */
CU_EXPORT cu_ErrorCode cu_Map_Iterator_delete(cu_Map_Iterator** iterator);

/** Gives the next key and its value, which remain the map's, and goes on. At the end both receive null. */
CU_EXPORT cu_ErrorCode cu_Map_Iterator_next(cu_Map_Iterator* iterator, void** key, void** value);

/** As cu_Map_Iterator_next(), with the key alone: its value is passed over. */
CU_EXPORT cu_ErrorCode cu_Map_Iterator_nextKey(cu_Map_Iterator* iterator, void** key);

/** Tells whether there is a next key. */
CU_EXPORT cu_ErrorCode cu_Map_Iterator_hasNext(const cu_Map_Iterator* iterator, bool* result);

/** As cu_Map_Iterator_new(). */
CU_EXPORT cu_ErrorCode cu_Map_ConstIterator_new(cu_Map_ConstIterator** iterator, const cu_Map* map);

/** As cu_Map_Iterator_delete(). */
CU_EXPORT cu_ErrorCode cu_Map_ConstIterator_delete(cu_Map_ConstIterator** iterator);

/** As cu_Map_Iterator_next(). */
CU_EXPORT cu_ErrorCode cu_Map_ConstIterator_next(cu_Map_ConstIterator* iterator, const void** key, const void** value);

/** As cu_Map_Iterator_hasNext(). */
CU_EXPORT cu_ErrorCode cu_Map_ConstIterator_hasNext(const cu_Map_ConstIterator* iterator, bool* result);

CU_END_DECLS

#endif
