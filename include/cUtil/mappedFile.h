/** @file
 *  Mapped files: regions as in sharedMemory.h, but over ordinary files, so that what is shared stays on the disk.
 *  SIGBUS tells here also that the disk is full or cannot be read.
 *
 *  Objects are not locked: one thread at a time per object; the accessors only read it. What lies in the file is the
 *  affair of those who share it.
 */
#ifndef CUTIL_MAPPED_FILE_H
#define CUTIL_MAPPED_FILE_H

#include <cUtil/allocator.h>
#include <cUtil/sharedMemory.h>
#include <cUtil/system/group.h>
#include <cUtil/system/user.h>
#include <cUtil/tools/string.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A mapped file. */
typedef struct cu_MappedFile cu_MappedFile;

/**
 * Creates a file, sets its size and maps it for reading and writing. New bytes are zero.
 *
 * @param me            receives the object; must hold null, and keeps it on failure. End it with
 * cu_MappedFile_delete().
 * @param path          path of the file, not empty; copied. A relative one must still lead to the file when it is
 * deleted.
 * @param size          bytes, a multiple of 4096 and not 0. An existing file is cut or extended to it.
 * @param user          who owns the file; copied by cu_User_clone(). The ownership changes only when both @p user and
 *                      @p group are given; null: the creator.
 * @param group         the group of the file, likewise
 * @param permissions   sum of CU_PERMISSION_ values, 0 for all of them; the process's umask takes its part away
 * @param openExisting  true: an existing file is taken, with the ownership changed as told and the permissions that it
 *                      has; false: it is a failure
 * @param allocator     for the object and its parts; null: the shared heap one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_FILE_CREATE_FAILED with the system's error code; the failures of
 *         cu_User_clone() and cu_Group_clone(); or what the allocator says
 *
 * A failure after the file was made leaves the file there. The descriptor is close-on-exec. Any thread may call it.
 * Blocks while the file system does.
 */
CU_EXPORT cu_ErrorCode cu_MappedFile_create(cu_MappedFile** me, const char* path, uint32_t size, const cu_User* user,
                                            const cu_Group* group, uint32_t permissions, bool openExisting,
                                            cu_allocator* allocator);

/**
 * Opens an existing file and maps it for reading and writing, as large as it is.
 *
 * @param me         receives the object; must hold null, and keeps it on failure. End it with cu_MappedFile_delete().
 * @param path       path of the file, not empty; copied
 * @param allocator  for the object and its parts; null: the shared heap one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_FILE_OPEN_FAILED with the system's error code, for an empty file
 * and for one of 4 GiB and above, too; the failures of cu_User_fromID() and cu_Group_fromID() for an owner that the
 *         databases do not know; or what the allocator says
 *
 * The descriptor is close-on-exec. Any thread may call it. Blocks while the file system does.
 */
CU_EXPORT cu_ErrorCode cu_MappedFile_open(cu_MappedFile** me, const char* path, cu_allocator* allocator);

/**
 * Unmaps and closes a file. What was written reaches the disk in the system's own time.
 *
 * @param me      holds the object; null afterwards, unchanged on failure
 * @param unlink  true: remove the file, too
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SHM_CLOSE_FAILED; 0xFFFFFFFF when the file cannot be removed,
 * which is not reported; or what the allocator says
 *
 * After a failure the object is unmapped but still there; delete it again, without @p unlink when that was what failed.
 */
CU_EXPORT cu_ErrorCode cu_MappedFile_delete(cu_MappedFile** me, bool unlink);

/** Gives the path as the caller gave it; it belongs to the object. @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_MappedFile_getName(const cu_MappedFile* me, const cu_String** name);

/** Gives the size of the mapping in bytes; 0 after a delete that failed. @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_MappedFile_getMappedSize(const cu_MappedFile* me, uint32_t* size);

/** Gives the address of the file's first byte, valid until the object is deleted; null after a delete that failed.
 *  @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_MappedFile_getPointer(const cu_MappedFile* me, void** address);

/** Gives the address of the byte at @p offset, which must lie below the mapped size; valid until the object is deleted.
 *  @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_MappedFile_getPointerWithOffset(const cu_MappedFile* me, void** address, uint32_t offset);

/** Gives the owner: the one given at creation (perhaps null), or the one found when the file was opened. It belongs to
 * the object. @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_MappedFile_getUser(const cu_MappedFile* me, const cu_User** user);

/** Gives the group: the one given at creation (perhaps null), or the one found when the file was opened. It belongs to
 * the object. @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_MappedFile_getGroup(const cu_MappedFile* me, const cu_Group** group);

/** Gives the permissions: those given at creation (0 stays 0); after cu_MappedFile_open() only the last permission that
 * the file has, in the order of the CU_PERMISSION_ values. @return 0 or cu_ERROR_COM_INVALID_ARGUMENT */
CU_EXPORT cu_ErrorCode cu_MappedFile_getPermissions(const cu_MappedFile* me, uint32_t* permissions);

CU_END_DECLS

#endif
