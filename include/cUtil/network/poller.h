/** @file
 *  Many selectables watched at once: each is registered with a callback, and a poll calls back for those that are
 *  ready.
 *
 *  Threads: one thread owns a poller; the callbacks run in it, within cu_Poller_poll(). They may add and remove
 *  selectables, their own included. They must not delete the poller.
 */
#ifndef CUTIL_NETWORK_POLLER_H
#define CUTIL_NETWORK_POLLER_H

#include <cUtil/allocator.h>
#include <cUtil/network/selectable.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** What to watch for, and what has come; may be combined. */
enum cu_PollerFlag {
    CU_POLLER_READABLE = 1, /**< something can be read */
    CU_POLLER_WRITABLE = 2  /**< something can be written */
};

/** A set of selectables. */
typedef struct cu_Poller cu_Poller;

/**
 * What is called for a selectable that is ready.
 *
 * @param selectable  the one that was registered
 * @param flags       what it is ready for; 0 when the other side has hung up or there is an error, and nothing else
 * @param userData    as registered
 * @return ignored
 */
typedef cu_ErrorCode (*cu_PollerCallback)(const cu_Selectable* selectable, uint32_t flags, void* userData);

/**
 * Makes an empty poller.
 *
 * @param poller     receives it; must hold null
 * @param allocator  gives its memory; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_FILE_OPEN_FAILED; what the allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_Poller_new(cu_Poller** poller, cu_allocator* allocator);

/**
 * Ends a poller; the selectables stay the caller's. If memory cannot be given back, the process ends with status 1.
 *
 * @param poller  the poller; becomes null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also from a callback of its own
 */
CU_EXPORT cu_ErrorCode cu_Poller_delete(cu_Poller** poller);

/**
 * Registers a selectable.
 *
 * @param poller      the poller
 * @param selectable  whom to watch; it must last until it is removed, and is the key for that
 * @param flags       what for, not 0
 * @param callback    what to call
 * @param userData    handed to it; may be null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also for a descriptor that is registered already or cannot be watched; what
 *         the allocator fails with
 */
CU_EXPORT cu_ErrorCode cu_Poller_add(cu_Poller* poller, const cu_Selectable* selectable, uint32_t flags,
                                     cu_PollerCallback callback, void* userData);

/**
 * Takes a selectable out. It is not called back any more, not even for what has already come. Its descriptor must still
 * be open.
 *
 * @param poller      the poller
 * @param selectable  as it was registered
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also for a descriptor that is not registered
 */
CU_EXPORT cu_ErrorCode cu_Poller_remove(cu_Poller* poller, const cu_Selectable* selectable);

/**
 * Waits for selectables to be ready and calls back for each. What is still ready then comes with the next poll again.
 *
 * @param poller     the poller
 * @param timeoutMs  how long to wait, in milliseconds; 0: not at all; -1: without limit
 * @param maxEvents  how many to call back for at most, not 0; never more than 1024 in one poll
 * @return 0, also when the time is up; cu_ERROR_COM_INVALID_ARGUMENT, also when a signal ends the wait
 */
CU_EXPORT cu_ErrorCode cu_Poller_poll(cu_Poller* poller, int32_t timeoutMs, uint32_t maxEvents);

CU_END_DECLS

#endif
