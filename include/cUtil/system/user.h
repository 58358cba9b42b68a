/** @file
 *  Users of the operating system: a name and a numeric id that stand together in the user database.
 *
 *  Objects are not locked: one thread at a time per object. Any number of threads may look users up at the same time.
 */
#ifndef CUTIL_SYSTEM_USER_H
#define CUTIL_SYSTEM_USER_H

#include <cUtil/allocator.h>
#include <cUtil/tools/string.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A user. */
typedef struct cu_User cu_User;

/**
 * Looks up the real user of the calling process.
 *
 * @param user       receives the object; must hold null, and keeps it on failure. End it with cu_User_delete().
 * @param allocator  for the object and its name; null: the shared heap one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_USER_INVALID when the database has no such user or cannot be read
 *         (system error code: the reason, 0 for a user that is merely not there); or what the allocator says
 *
 * Any thread may call it. Blocks while the system reads its database, which may lie on a server.
 */
CU_EXPORT cu_ErrorCode cu_User_current(cu_User** user, cu_allocator* allocator);

/**
 * Looks up a user by name.
 *
 * @param user       receives the object; must hold null, and keeps it on failure. End it with cu_User_delete().
 * @param name       the user's name, not empty
 * @param allocator  for the object and its name; null: the shared heap one
 * @return as cu_User_current(), which also tells about threads and blocking
 */
CU_EXPORT cu_ErrorCode cu_User_fromName(cu_User** user, const char* name, cu_allocator* allocator);

/**
 * Looks up a user by id.
 *
 * @param user       receives the object; must hold null, and keeps it on failure. End it with cu_User_delete().
 * @param id         the numeric user id
 * @param allocator  for the object and its name; null: the shared heap one
 * @return as cu_User_current(), which also tells about threads and blocking
 */
CU_EXPORT cu_ErrorCode cu_User_fromID(cu_User** user, uint32_t id, cu_allocator* allocator);

/**
 * Looks the id of a user up again, with that user's allocator: the name may have changed, and a user who was removed
 * from the database meanwhile cannot be cloned.
 *
 * @param copy  receives the object; must hold null, and keeps it on failure. End it with cu_User_delete().
 * @param user  the user to look up
 * @return as cu_User_current(), which also tells about threads and blocking
 */
CU_EXPORT cu_ErrorCode cu_User_clone(cu_User** copy, const cu_User* user);

/**
 * Ends a user object.
 *
 * @param user  holds the object; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_User_delete(cu_User** user);

/**
 * Gives the name.
 *
 * @param user  the user
 * @param name  receives the name, which belongs to the object and lasts as long as it
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_User_getName(const cu_User* user, const cu_String** name);

/**
 * Gives the numeric id.
 *
 * @param user  the user
 * @param id    receives the id
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_User_getID(const cu_User* user, uint32_t* id);

CU_END_DECLS

#endif
