/** @file
 *  The logger of the process, which gives each line to every adapter that listens to its level.
 *
 *  It is there without being made: before any constructor of the application runs and after its last destructor. Any
 *  thread may call any function here.
 *
 *  Adapters run side by side in several threads, each of which shares the logger's lock for its call. Adding and
 *  removing adapters wait until the calls under way have ended. New calls let a waiting change go first, for up to
 *  50 ms. An adapter may itself log, and set levels; one that adds or removes adapters while it logs a line is
 *  refused, for it would wait for itself.
 */
#ifndef CUTIL_LOGGER_LOGGER_H
#define CUTIL_LOGGER_LOGGER_H

#include <cUtil/logger/adapter.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/**
 * Logs a line. A level that no adapter listens to costs next to nothing.
 *
 * @param level  the line's level, 0 (most severe) to 3
 * @param text   the line, without a line break at its end; it is not a format
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; what the first adapter said that failed, and then the record is of that
 *         failure and the other adapters have got the line all the same; the codes of cu_RWMutex_readLock() and
 *         cu_RWMutex_unlock()
 *
 * As blocking as the adapters.
 */
CU_EXPORT cu_ErrorCode cu_Logger_log(uint32_t level, const char* text);

/**
 * Formats a line and logs it.
 *
 * @param level   the line's level
 * @param format  printf format. A text of 2048 characters or more loses its last one.
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when the format itself fails; cu_ERROR_COM_MALLOC_FAILED, without a
 *         report, when there is no memory for a text of 2048 characters or more; as cu_Logger_log()
 *
 * Nothing is formatted for a level that no adapter listens to.
 */
CU_EXPORT cu_ErrorCode cu_Logger_formattedLog(uint32_t level, const char* format, ...) CU_PRINTF(2, 3);

/**
 * Sets the level of every added adapter.
 *
 * @param level  the most verbose level that they are to get
 * @return 0; the codes of cu_RWMutex_readLock() and cu_RWMutex_unlock()
 */
CU_EXPORT cu_ErrorCode cu_Logger_setLogLevel(uint32_t level);

/**
 * Sets the level of one adapter.
 *
 * @param name   the adapter's name, not empty
 * @param level  the most verbose level that it is to get
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, without a report for a name that there is not; the codes of
 *         cu_RWMutex_readLock() and cu_RWMutex_unlock()
 */
CU_EXPORT cu_ErrorCode cu_Logger_setSpecificLogLevel(const char* name, uint32_t level);

/**
 * Adds an adapter in front of the others. From here on the logger owns it.
 *
 * @param name     its name, not empty and unlike every other's; it is copied
 * @param adapter  the adapter, not added yet
 * @param level    the most verbose level that it is to get
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_MALLOC_FAILED; the codes of cu_Mutex_lock() and
 *         cu_RWMutex_writeLock(); cu_ERROR_MUTEX_LOCK_FAILED with EDEADLK when an adapter that logs a line calls it.
 *         After a failure the adapter is still the caller's.
 *
 * Blocks until log calls under way have ended.
 */
CU_EXPORT cu_ErrorCode cu_Logger_addAdapter(const char* name, cu_logger_Adapter* adapter, uint32_t level);

/**
 * Removes an adapter and ends it. It gets no line any more when it is ended, and others may log meanwhile.
 *
 * @param name  the adapter's name
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, without a report for a name that there is not; as cu_Logger_addAdapter();
 *         what cu_logger_Adapter_destruct() says, and then the adapter is removed but not ended
 *
 * Blocks until log calls under way have ended, and as long as the adapter takes to end.
 */
CU_EXPORT cu_ErrorCode cu_Logger_removeAdapter(const char* name);

/**
 * Removes all adapters and ends them, the youngest first. The process ends with status 1 if one cannot be ended.
 *
 * @return 0; as cu_Logger_addAdapter()
 *
 * Blocks as cu_Logger_removeAdapter() does.
 */
CU_EXPORT cu_ErrorCode cu_Logger_removeAllAdapters(void);

/**
 * Keeps a pointer for the calling thread, for adapters that need to know whose line it is.
 *
 * @param pointer  not null; it stays the caller's and is not replaced any more
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT, also when the thread has one already; cu_ERROR_COM_MALLOC_FAILED
 */
CU_EXPORT cu_ErrorCode cu_Logger_setThreadSpecific(void* pointer);

/**
 * Gives the calling thread's pointer.
 *
 * @param pointer  receives it; null if there is none
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Logger_getThreadSpecific(void** pointer);

CU_END_DECLS

#endif
