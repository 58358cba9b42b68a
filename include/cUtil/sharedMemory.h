/** @file
 *  Named shared-memory regions: one process creates a region with a size, an owner and permissions, others open it by
 *  the same name, and all of them see the same bytes.
 *
 *  Mapped bytes that are not there raise SIGBUS when they are touched: those beyond the size to which another process
 *  cut the region, and those for which the system finds no memory any more.
 *
 *  Objects are not locked: one thread at a time per object; the accessors only read it. What lies in the region is the
 *  affair of those who share it.
 */
#ifndef CUTIL_SHARED_MEMORY_H
#define CUTIL_SHARED_MEMORY_H

#include <cUtil/allocator.h>
#include <cUtil/system/group.h>
#include <cUtil/system/user.h>
#include <cUtil/tools/string.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/* Permissions of a region or of a mapped file; 0 at creation stands for all nine. */
#define CU_PERMISSION_OWNER_READ 1U       /**< Mode bit 0400. */
#define CU_PERMISSION_OWNER_WRITE 2U      /**< Mode bit 0200. */
#define CU_PERMISSION_OWNER_EXECUTE 4U    /**< Mode bit 0100. */
#define CU_PERMISSION_GROUP_READ 8U       /**< Mode bit 040. */
#define CU_PERMISSION_GROUP_WRITE 16U     /**< Mode bit 020. */
#define CU_PERMISSION_GROUP_EXECUTE 32U   /**< Mode bit 010. */
#define CU_PERMISSION_OTHERS_READ 64U     /**< Mode bit 04. */
#define CU_PERMISSION_OTHERS_WRITE 128U   /**< Mode bit 02. */
#define CU_PERMISSION_OTHERS_EXECUTE 256U /**< Mode bit 01. */

/** A mapped shared-memory region. */
typedef struct cu_SharedMemory cu_SharedMemory;

/**
 * Creates a region, sets its size and maps it for reading and writing. New bytes are zero.
 *
 * @param me            receives the object; must hold null, and keeps it on failure. End it with
 * cu_SharedMemory_delete().
 * @param name          the name without the leading slash of the system's, not empty and without slashes; copied
 * @param size          bytes, not 0. An existing region is cut or extended to it.
 * @param user          who owns the region; copied by cu_User_clone(). The ownership changes only when both @p user and
 *                      @p group are given; null: the creator.
 * @param group         the group of the region, likewise
 * @param permissions   sum of CU_PERMISSION_ values, 0 for all of them; the process's umask takes its part away
 * @param openExisting  true: an existing region is taken, with the ownership changed as told and the permissions that
 * it has; false: it is a failure
 * @param allocator     for the object and its parts; null: the shared heap one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SHM_CREATE_FAILED with the system's error code, for a name of more
 *         than 255 characters, too; the failures of cu_User_clone() and cu_Group_clone(); or what the allocator says
 *
 * A failure after the region was made leaves the region in the system. The descriptor is close-on-exec. Any thread may
 * call it.
 */
CU_EXPORT cu_ErrorCode cu_SharedMemory_create(cu_SharedMemory** me, const char* name, uint32_t size,
                                              const cu_User* user, const cu_Group* group, uint32_t permissions,
                                              bool openExisting, cu_allocator* allocator);

/**
 * Opens an existing region and maps it for reading and writing, as large as it is.
 *
 * @param me         receives the object; must hold null, and keeps it on failure. End it with cu_SharedMemory_delete().
 * @param name       the name as given to cu_SharedMemory_create(), not empty; copied
 * @param allocator  for the object and its parts; null: the shared heap one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SHM_OPEN_FAILED with the system's error code, for a region of 4
 * GiB and above, too; the failures of cu_User_fromID() and cu_Group_fromID() for an owner that the databases do not
 *         know; or what the allocator says
 *
 * The descriptor is close-on-exec. Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_SharedMemory_open(cu_SharedMemory** me, const char* name, cu_allocator* allocator);

/**
 * Unmaps and closes a region.
 *
 * @param me      holds the object; null afterwards, unchanged on failure
 * @param unlink  true: take the name out of the system, too. The bytes last until every process has let go of them.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SHM_CLOSE_FAILED; 0xFFFFFFFF when the name cannot be taken out,
 * which is not reported; or what the allocator says
 *
 * After a failure the object is unmapped but still there; delete it again, without @p unlink when that was what failed.
 */
CU_EXPORT cu_ErrorCode cu_SharedMemory_delete(cu_SharedMemory** me, bool unlink);

/** Gives the name as the caller gave it; it belongs to the object. @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_SharedMemory_getName(const cu_SharedMemory* me, const cu_String** name);

/** Gives the size of the mapping in bytes; 0 after a delete that failed. @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_SharedMemory_getMappedSize(const cu_SharedMemory* me, uint32_t* size);

/** Gives the address of the region's first byte, valid until the region is deleted; null after a delete that failed.
 *  @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_SharedMemory_getShared(const cu_SharedMemory* me, void** address);

/** Gives the address of the byte at @p offset, which must lie below the mapped size; valid until the region is deleted.
 *  @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_SharedMemory_getSharedWithOffset(const cu_SharedMemory* me, void** address, uint32_t offset);

/** Gives the owner: the one given at creation (perhaps null), or the one found when the region was opened. It belongs
 * to the object. @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_SharedMemory_getUser(const cu_SharedMemory* me, const cu_User** user);

/** Gives the group: the one given at creation (perhaps null), or the one found when the region was opened. It belongs
 * to the object. @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_SharedMemory_getGroup(const cu_SharedMemory* me, const cu_Group** group);

/** Gives the permissions: those given at creation (0 stays 0); after cu_SharedMemory_open() only the last permission
 * that the region has, in the order of the CU_PERMISSION_ values. @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_SharedMemory_getPermissions(const cu_SharedMemory* me, uint32_t* permissions);

/**
 * Gives the size of the region as it is now; another process may have changed it since it was mapped.
 *
 * @param me    the region
 * @param size  receives the bytes; 0 when the size cannot be told
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SHM_FSTAT with the system's error code (EOVERFLOW: 4 GiB and
 * above)
 */
CU_EXPORT cu_ErrorCode cu_SharedMemory_getSHMSize(const cu_SharedMemory* me, uint32_t* size);

/** Gives the bytes of a memory page, of which mappings are made. @return 0; cu_ERROR_COM_INVALID_ARGUMENT;
 *  cu_ERROR_CUTIL_FATAL. Any thread may call it. */
CU_EXPORT cu_ErrorCode cu_getSystemGranularity(int32_t* granularity);

/** The same as cu_getSystemGranularity(). */
CU_EXPORT cu_ErrorCode cu_getPageSize(int32_t* size);

CU_END_DECLS

#endif
