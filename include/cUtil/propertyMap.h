/** @file
 *  A dictionary of values by name, for a few to some thousands of them: an array that is kept in the order of the
 * names.
 *
 *  A map is a plain record of its caller. cu_PropertyMap_init() makes it fit for use, cu_PropertyMap_free() ends it; in
 *  between it owns names and values. Its properties may be read in their order, and values changed in place; everything
 *  else is done by calls. Finding takes time with the logarithm of the number of properties, inserting and erasing with
 *  the number itself.
 *
 *  Names are NUL-terminated, not empty, and compare as bytes. Every function returns 0 or an error code:
 *  cu_ERROR_COM_INVALID_ARGUMENT for a null argument or an empty name, cu_ERROR_COM_MALLOC_FAILED for exhausted memory,
 *  and what cu_Variant_clone() or cu_Variant_free() says. Names and values that are handed in may be those of the map
 *  itself.
 *
 *  Maps are not locked: one thread at a time per map, except that any number may read one that nobody changes. Nothing
 *  blocks beyond the lock of the heap.
 */
#ifndef CUTIL_PROPERTY_MAP_H
#define CUTIL_PROPERTY_MAP_H

#include <cUtil/variant.h>

CU_BEGIN_DECLS

/** A value with its name. */
typedef struct cu_Property {
    char* name;       /**< On the heap. */
    cu_Variant value; /**< Owned. */
} cu_Property;

/** A dictionary. */
typedef struct cu_PropertyMap {
    uint32_t count;          /**< Number of properties. */
    cu_Property* properties; /**< Sorted by name, each name once; on the heap. */
} cu_PropertyMap;

/** Makes a record an empty map; what it held is neither looked at nor released. */
CU_EXPORT cu_ErrorCode cu_PropertyMap_init(cu_PropertyMap* map);

/** Releases everything that a map owns. It is empty afterwards and may be used again. */
CU_EXPORT cu_ErrorCode cu_PropertyMap_free(cu_PropertyMap* map);

/** As cu_PropertyMap_free(). */
CU_EXPORT cu_ErrorCode cu_PropertyMap_clear(cu_PropertyMap* map);

/** Tells the number of properties. */
CU_EXPORT cu_ErrorCode cu_PropertyMap_getSize(const cu_PropertyMap* map, uint32_t* size);

/**
 * Inserts a property, or replaces the value of the one that has the name.
 *
 * @param map    the map; after a failure it is as it was
 * @param name   is copied
 * @param value  is copied
 * @return see above
 */
CU_EXPORT cu_ErrorCode cu_PropertyMap_insert(cu_PropertyMap* map, const char* name, const cu_Variant* value);

/**
 * Gets a copy of a value.
 *
 * @param map    the map
 * @param name   of the property
 * @param value  an initialised variant, which receives the copy; null after a failure, and also after a success when
 *               there is no such property
 * @return see above
 */
CU_EXPORT cu_ErrorCode cu_PropertyMap_get(const cu_PropertyMap* map, const char* name, cu_Variant* value);

/** Removes the property that has a name, if there is one. Its place in the array is kept for another one. */
CU_EXPORT cu_ErrorCode cu_PropertyMap_erase(cu_PropertyMap* map, const char* name);

/**
 * Makes a map a copy of another one.
 *
 * @param destination  an initialised map, whose properties are released; after a failure it is as it was
 * @param source       the map to copy
 * @return see above
 */
CU_EXPORT cu_ErrorCode cu_PropertyMap_clone(cu_PropertyMap* destination, const cu_PropertyMap* source);

CU_END_DECLS

#endif
