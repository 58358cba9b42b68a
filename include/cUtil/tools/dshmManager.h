/** @file
 *  The shared-memory regions of a process by name, so that its parts that use the same region share one mapping.
 *
 *  A region is opened when it is first asked for. It carries a count of users that the users keep themselves: they
 *  count up when they begin and down when they end, and whoever ends last may have the region closed. Closing never
 *  unlinks: the region stays for other processes, each of which has registries of its own.
 *
 *  Any thread may call any function but cu_DSHMManager_new() and cu_DSHMManager_delete(); operations of one registry
 *  wait for each other. A registry whose semaphore cannot be posted back ends the process. A region is valid until its
 *  entry is removed; nothing keeps a thread from using it longer than that.
 *
 *  Every function returns 0 or an error code. A null argument is cu_ERROR_COM_INVALID_ARGUMENT with a description of
 *  the pointer arguments, of each the low 32 bits; cu_DSHMManager_has(), cu_DSHMManager_add() and cu_DSHMManager_rem()
 *  report under their names with "Impl" appended.
 */
#ifndef CUTIL_TOOLS_DSHM_MANAGER_H
#define CUTIL_TOOLS_DSHM_MANAGER_H

#include <cUtil/sharedMemory.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** The shared-memory regions of a process by name. */
typedef struct cu_DSHMManager cu_DSHMManager;

/**
 * Makes an empty registry.
 *
 * @param me  address of a null handle; set only on success. cu_DSHMManager_delete() ends the registry.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_SEM_INIT_FAILED
 */
CU_EXPORT cu_ErrorCode cu_DSHMManager_new(cu_DSHMManager** me);

/**
 * Closes every region and ends the registry; nobody may be in a call on it.
 *
 * @param me  address of the handle, which must hold a registry; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_FREE_FAILED, and then nothing has changed; the failures of
 *         cu_SharedMemory_delete(), and then the registry may only be deleted again, which goes on with the regions
 * that are left and tries those anew that were not closed
 */
CU_EXPORT cu_ErrorCode cu_DSHMManager_delete(cu_DSHMManager** me);

/**
 * Looks up a region.
 *
 * @param me    the registry
 * @param name  its name, as given to cu_SharedMemory_open()
 * @param dshm  receives the region, which stays the registry's; null when there is none of that name, which is no error
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_DSHMManager_has(cu_DSHMManager* me, const char* name, cu_SharedMemory** dshm);

/**
 * Registers a region that the caller has opened or created, with no user yet.
 *
 * @param me    the registry
 * @param name  the name to find it by; copied
 * @param dshm  the region; it is the registry's then, after a failure still the caller's
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_RBTREE_ADD_EXISTS when the name is taken;
 *         cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_DSHMManager_add(cu_DSHMManager* me, const char* name, cu_SharedMemory* dshm);

/**
 * Closes a region and removes its entry, whatever its count of users.
 *
 * @param me    the registry
 * @param name  its name
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_RBTREE_NOT_FOUND; cu_ERROR_SEM_LOCK_FAILED; the failures of
 *         cu_SharedMemory_delete(), and then the entry is removed but the region kept until cu_DSHMManager_delete()
 */
CU_EXPORT cu_ErrorCode cu_DSHMManager_rem(cu_DSHMManager* me, const char* name);

/**
 * Gives a region; opens and registers it, with no user yet, when there is none of that name.
 *
 * @param me    the registry
 * @param name  its name, as given to cu_SharedMemory_open()
 * @param size  not used: the region is as large as it is
 * @param dshm  receives the region, which stays the registry's; null when it cannot be opened
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; the failures of cu_SharedMemory_open(); cu_ERROR_COM_MALLOC_FAILED;
 *         cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_DSHMManager_get(cu_DSHMManager* me, const char* name, uint32_t size, cu_SharedMemory** dshm);

/** Counts the regions of the registry @p me. @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SEM_LOCK_FAILED */
CU_EXPORT cu_ErrorCode cu_DSHMManager_size(cu_DSHMManager* me, uint32_t* size);

/**
 * Counts a user more; beyond 4294967295 the count starts at 0 again.
 *
 * @param me    the registry
 * @param name  the name of the region
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when there is no such region; cu_ERROR_SEM_LOCK_FAILED
 */
CU_EXPORT cu_ErrorCode cu_DSHMManager_incCounter(cu_DSHMManager* me, const char* name);

/**
 * Counts a user less; below 0 the count goes on at 4294967295.
 *
 * @param me      the registry
 * @param name    the name of the region
 * @param remove  true: when no user is left, close the region and remove its entry as cu_DSHMManager_rem() does
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when there is no such region; cu_ERROR_SEM_LOCK_FAILED; the failures
 *         of cu_DSHMManager_rem()
 */
CU_EXPORT cu_ErrorCode cu_DSHMManager_decCounter(cu_DSHMManager* me, const char* name, bool remove);

CU_END_DECLS

#endif
