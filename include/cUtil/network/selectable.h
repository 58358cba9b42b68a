/** @file
 *  One descriptor of the operating system that can be waited for. Every socket has one in it. Descriptors of any number
 *  are waited for, and signals do not prolong a wait.
 *
 *  Threads: a thread may wait for a selectable while another one sends by the same socket.
 */
#ifndef CUTIL_NETWORK_SELECTABLE_H
#define CUTIL_NETWORK_SELECTABLE_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A descriptor. */
typedef struct cu_Selectable {
    int32_t handle; /**< as the operating system numbers it */
} cu_Selectable;

/**
 * @param selectable  a selectable, or null
 * @return its descriptor; -1 for null
 */
CU_EXPORT int32_t cu_Selectable_getHandle(const cu_Selectable* selectable);

/**
 * Waits until there is something to read, or the other side has hung up, or there is an error to fetch.
 *
 * @param selectable  whom to wait for
 * @param timeoutUs   how long at most, in microseconds; 0: without limit
 * @param ready       receives whether it came; false: the time is up
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_SOCKET_SELECT_FAILED, for instance for a descriptor that is not
 *         open
 */
CU_EXPORT cu_ErrorCode cu_Selectable_waitReadReady(const cu_Selectable* selectable, uint32_t timeoutUs, bool* ready);

/**
 * Waits until something can be written, or the other side has hung up, or there is an error to fetch.
 *
 * @param selectable  whom to wait for
 * @param timeoutUs   how long at most, in microseconds; 0: without limit
 * @param ready       receives whether it came; false: the time is up
 * @return as cu_Selectable_waitReadReady()
 */
CU_EXPORT cu_ErrorCode cu_Selectable_waitWriteReady(const cu_Selectable* selectable, uint32_t timeoutUs, bool* ready);

/**
 * Waits until there is something to read from one of several.
 *
 * @param selectables  whom to wait for
 * @param count        how many there are, not 0
 * @param timeoutUs    how long at most, in microseconds; 0: without limit
 * @param index        receives the place of the first that is ready, in the order of the array; -1: the time is up
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also for a null in the array; cu_ERROR_SOCKET_SELECT_FAILED;
 *         cu_ERROR_COM_MALLOC_FAILED, for more than 64
 */
CU_EXPORT cu_ErrorCode cu_Selectable_waitReadReadyMultiple(const cu_Selectable* const* selectables, uint32_t count,
                                                           uint32_t timeoutUs, int32_t* index);

/**
 * Waits until something can be written to one of several.
 *
 * @param selectables  whom to wait for
 * @param count        how many there are, not 0
 * @param timeoutUs    how long at most, in microseconds; 0: without limit
 * @param index        receives the place of the first that is ready, in the order of the array; -1: the time is up
 * @return as cu_Selectable_waitReadReadyMultiple()
 */
CU_EXPORT cu_ErrorCode cu_Selectable_waitWriteReadyMultiple(const cu_Selectable* const* selectables, uint32_t count,
                                                            uint32_t timeoutUs, int32_t* index);

CU_END_DECLS

#endif
