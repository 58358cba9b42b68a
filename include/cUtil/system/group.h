/** @file
 *  Groups of the operating system: a name and a numeric id that stand together in the group database.
 *
 *  Objects are not locked: one thread at a time per object. Any number of threads may look groups up at the same time.
 */
#ifndef CUTIL_SYSTEM_GROUP_H
#define CUTIL_SYSTEM_GROUP_H

#include <cUtil/allocator.h>
#include <cUtil/tools/string.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A group. */
typedef struct cu_Group cu_Group;

/**
 * Looks up the real group of the calling process.
 *
 * @param group      receives the object; must hold null, and keeps it on failure. End it with cu_Group_delete().
 * @param allocator  for the object and its name; null: the shared heap one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_GROUP_INVALID when the database has no such group or cannot be
 * read (system error code: the reason, 0 for a group that is merely not there); or what the allocator says
 *
 * Any thread may call it. Blocks while the system reads its database, which may lie on a server.
 */
CU_EXPORT cu_ErrorCode cu_Group_current(cu_Group** group, cu_allocator* allocator);

/**
 * Looks up a group by name.
 *
 * @param group      receives the object; must hold null, and keeps it on failure. End it with cu_Group_delete().
 * @param name       the group's name, not empty
 * @param allocator  for the object and its name; null: the shared heap one
 * @return as cu_Group_current(), which also tells about threads and blocking
 */
CU_EXPORT cu_ErrorCode cu_Group_fromName(cu_Group** group, const char* name, cu_allocator* allocator);

/**
 * Looks up a group by id.
 *
 * @param group      receives the object; must hold null, and keeps it on failure. End it with cu_Group_delete().
 * @param id         the numeric group id
 * @param allocator  for the object and its name; null: the shared heap one
 * @return as cu_Group_current(), which also tells about threads and blocking; but a group that is not found is
 *         cu_ERROR_USER_INVALID here
 */
CU_EXPORT cu_ErrorCode cu_Group_fromID(cu_Group** group, uint32_t id, cu_allocator* allocator);

/**
 * Looks the id of a group up again, with that group's allocator: the name may have changed, and a group that was
 * removed from the database meanwhile cannot be cloned.
 *
 * @param copy   receives the object; must hold null, and keeps it on failure. End it with cu_Group_delete().
 * @param group  the group to look up
 * @return as cu_Group_current(), which also tells about threads and blocking; but a group that is not found is
 *         cu_ERROR_USER_INVALID here
 */
CU_EXPORT cu_ErrorCode cu_Group_clone(cu_Group** copy, const cu_Group* group);

/**
 * Ends a group object.
 *
 * @param group  holds the object; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Group_delete(cu_Group** group);

/**
 * Gives the name.
 *
 * @param group  the group
 * @param name   receives the name, which belongs to the object and lasts as long as it
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Group_getName(const cu_Group* group, const cu_String** name);

/**
 * Gives the numeric id.
 *
 * @param group  the group
 * @param id     receives the id
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Group_getID(const cu_Group* group, uint32_t* id);

CU_END_DECLS

#endif
