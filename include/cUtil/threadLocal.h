/** @file
 *  Thread-local slots: each thread of the process keeps one pointer of its own in each slot. A slot can make its values
 *  when they are first asked for, and release them when their threads end.
 *
 *  A process has a limited number of slots, PTHREAD_KEYS_MAX with those of other libraries. After a `fork` the child
 * has the values of the thread that forked.
 */
#ifndef CUTIL_THREAD_LOCAL_H
#define CUTIL_THREAD_LOCAL_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A thread-local slot. */
typedef struct cu_ThreadLocal cu_ThreadLocal;

/**
 * Makes a slot, empty in every thread.
 *
 * @param me         receives the slot; must hold null
 * @param userData   second argument of @p create
 * @param create     makes a thread's value, in that thread, when it asks for it and has none: stores it in `*value` and
 *                   returns 0, or an error code of its choice. It may use other slots, but asking this one for its
 * value would call it again without end. Null: values come from cu_ThreadLocal_setSpecific() alone.
 * @param destroy    releases a value, in its thread: when the thread ends or clears the slot. Null: values are not
 *                   released. Values of the thread that ends the process by `exit` or by leaving `main` stay.
 * @param allocator  gives the memory of the slot, not of the values; null: the shared heap allocator
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; cu_ERROR_TLS_CREATE_FAILED with the system's
 *         error code and a text
 */
CU_EXPORT cu_ErrorCode cu_ThreadLocal_new(cu_ThreadLocal** me, void* userData,
                                          cu_ErrorCode (*create)(void** value, void* userData),
                                          void (*destroy)(void* value), cu_allocator* allocator);

/**
 * Ends a slot, which no thread may be using. Values that threads still hold are not released: clear them before.
 *
 * @param me  holds the slot; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_TLS_FREE_FAILED, and then the slot is kept
 */
CU_EXPORT cu_ErrorCode cu_ThreadLocal_delete(cu_ThreadLocal** me);

/**
 * Gives the calling thread's value, which is made now if there is none and the slot has a create function.
 *
 * @param me     the slot
 * @param value  receives the value; null if there is none
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; what the create function returns; cu_ERROR_TLS_GET_FAILED with the system's
 *         error code when the new value cannot be stored (EEXIST: the create function itself has set another one, which
 *         stays), and then it is released and `*value` is null
 *
 * Any thread may call it. As blocking as the create function.
 */
CU_EXPORT cu_ErrorCode cu_ThreadLocal_getSpecific(cu_ThreadLocal* me, void** value);

/**
 * Sets the calling thread's value.
 *
 * @param me     the slot, empty in this thread
 * @param value  not null
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when the thread has a value already, which stays;
 *         cu_ERROR_COM_MALLOC_FAILED with the system's error code
 *
 * Any thread may call it.
 */
CU_EXPORT cu_ErrorCode cu_ThreadLocal_setSpecific(cu_ThreadLocal* me, void* value);

/**
 * Empties the slot in the calling thread and releases the value, if there is one. While the destroy function runs, the
 * slot is empty already.
 *
 * @param me  the slot
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 *
 * Any thread may call it. As blocking as the destroy function.
 */
CU_EXPORT cu_ErrorCode cu_ThreadLocal_clearSpecific(cu_ThreadLocal* me);

CU_END_DECLS

#endif
