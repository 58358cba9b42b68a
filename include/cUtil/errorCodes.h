/** @file
 *  The space of error codes, the catalogue of the built-in codes, and the registry of components.
 *
 *  A code is an unsigned 32-bit value: bits 31..24 are the component index, bits 23..0 the code within the component.
 *  Component 0 holds the common codes, component 1 the library's own; 2 to 255 are free for applications, which
 *  register a resolver for the names and descriptions of their codes. 0 is success in every component.
 */
#ifndef CUTIL_ERROR_CODES_H
#define CUTIL_ERROR_CODES_H

#include <cUtil/types.h>

CU_BEGIN_DECLS

/** Bits of the code field within a component; the last argument of cu_SetResolver() and cu_ClearResolver(). */
#define CU_ERROR_CODE_BITS 24

/** The code @p number of component @p component, unsigned. Applications declare the codes of their own components with
 *  it; as a constant expression of the preprocessor, too. */
#define CU_ERROR_CODE(component, number) ((component) * (UINT32_C(1) << CU_ERROR_CODE_BITS) + (number))

/** What cu_GetErrorDescription() gives for an unknown code of the library, and for the codes without a description. */
#define CU_NO_DESCRIPTION "getDescription(): Unknown error code! Can't retrieve an associated textual description!"

/* clang-format off */

/* The catalogue: X(number within the component, name, description). The constants, the names and the descriptions
   all come from these two tables. Applications match on the descriptions: their slips are part of the interface. */

/** The common codes (component 0), as X(number, name, description). */
#define CU_COMMON_ERRORS(X) \
    X(0, cu_ERROR_COM_SUCCESS, "Function was successful.") \
    X(1, cu_ERROR_COM_INVALID_ARGUMENT, "Function unable to proceed, because of invalid argument value.") \
    X(2, cu_ERROR_COM_MALLOC_FAILED, "Malloc failed! Out of memory!") \
    X(3, cu_ERROR_COM_INVARIANT, \
      "Invariant validation of state failed. This is a fatal internalerror and should never ever happen!") \
    X(4, cu_ERROR_COM_NOT_IMPLEMENTED, "The given function/functionality is currently not implemented.") \
    X(5, cu_ERROR_COM_FATAL, "Fatal internal error") \
    X(6, cu_ERROR_COM_STD_EXCEPTION, "Caught std::exception.") \
    X(7, cu_ERROR_COM_UNKNOWN_EXCEPTION, "Caught unknown exception.") \
    X(8, cu_ERROR_COM_OPERATION_TIMED_OUT, "The requested operation timed out.")

/** The codes of the library (component 1), as X(number, name, description). */
#define CU_LIBRARY_ERRORS(X) \
    X(0, cu_ERROR_SLEEP_FAILED, "Sleep failed.") \
    X(1, cu_ERROR_TIME_GET_FAILED, "Failed to read current time.") \
    X(2, cu_ERROR_SEM_INIT_FAILED, "Unable to initialize semaphore!") \
    X(3, cu_ERROR_SEM_LOCK_FAILED, "Unable to lock semaphore!") \
    X(4, cu_ERROR_SEM_UNLOCK_FAILED, "Unable to unlock semaphore!") \
    X(5, cu_ERROR_SEM_FREE_FAILED, "Unable to free/deinit semaphore!") \
    X(6, cu_ERROR_SEM_GET_COUNT_FAILED, CU_NO_DESCRIPTION) \
    X(7, cu_ERROR_SEM_LIST_INIT_FAILED, CU_NO_DESCRIPTION) \
    X(8, cu_ERROR_MUTEX_INIT_FAILED, "Unable to initialize mutex.") \
    X(9, cu_ERROR_MUTEX_FREE_FAILED, "Unable to free/deinit mutex.") \
    X(10, cu_ERROR_MUTEX_LOCK_FAILED, "Unable lock mutex. Maybe it's not recursive?") \
    X(11, cu_ERROR_MUTEX_UNLOCK_FAILED, "Unable unlock mutex.") \
    X(12, cu_ERROR_CONDWAIT_INIT_FAILED, "Unable to initialize condition variable.") \
    X(13, cu_ERROR_CONDWAIT_FREE_FAILED, "Unable to free condition variable.") \
    X(14, cu_ERROR_CONDWAIT_SIGNAL_FAILED, "Unable to signal condition variable.") \
    X(15, cu_ERROR_CONDWAIT_WAIT_FAILED, "Unable to wait on condition variable.") \
    X(16, cu_ERROR_SPINLOCK_INIT_FAILED, "Unable to initialize spin lock.") \
    X(17, cu_ERROR_SPINLOCK_FREE_FAILED, "Unable to free spin lock.") \
    X(18, cu_ERROR_SPINLOCK_LOCK_FAILED, "Unable to lock spin lock.") \
    X(19, cu_ERROR_SPINLOCK_UNLOCK_FAILED, "unable to unlock spin lock.") \
    X(20, cu_ERROR_THREAD_CREATE_FAILED, "Unable to create thread.") \
    X(21, cu_ERROR_THREAD_JOIN_FAILED, "Unable to join with thread.") \
    X(22, cu_ERROR_THREAD_START_FAILED, "Unable to start thread.") \
    X(23, cu_ERROR_THREAD_STOP_FAILED, "Unable to stop thread.") \
    X(24, cu_ERROR_IP_ADDRESS_TRANSLATION, "Failed to translate string to IP-Address.") \
    X(25, cu_ERROR_SOCKET_INIT_FAILED, "Initialization of socket failed.") \
    X(26, cu_ERROR_SOCKET_PORT_ALREADY_BOUND, "The port is already in use.") \
    X(27, cu_ERROR_SOCKET_CONNECT_FAILED, "Unable to connect to the given host system!") \
    X(28, cu_ERROR_SOCKET_SOCKET_OPT_FAILED, "Internal operation setsocketopt failed!") \
    X(29, cu_ERROR_SOCKET_CLOSE_FAILED, "Closing of a socket failed.") \
    X(30, cu_ERROR_SOCKET_IO_TIMEOUT, "The I/O operation (send/received) timed out!") \
    X(31, cu_ERROR_SOCKET_RECEIVE_FAILED, "Unable to receive data via the given socket") \
    X(32, cu_ERROR_SOCKET_SEND_FAILED, "Unable to send data via the given socket") \
    X(33, cu_ERROR_SOCKET_SELECT_FAILED, "The wait operation (via select(...)) of a socket has failed!") \
    X(34, cu_ERROR_SOCKET_OTHER_SIDE_CLOSED, \
      "Unable to operate on the given socket, because the communication partner has closed it!") \
    X(35, cu_ERROR_SOCKET_WOULD_BLOCK, "The requested socket operation would block") \
    X(36, cu_ERROR_SOCKET_SHUTDOWN_FAILED, "Failed to shutdown the socket") \
    X(37, cu_ERROR_TRUNCATION_DETECTED, \
      "The destination buffer for the operation was too small. To avoid a truncation the operation has been aborted.") \
    X(38, cu_ERROR_FAILED_TO_LOAD_LIBRARY, "Unable to dynamically load the given library.") \
    X(39, cu_ERROR_FAILED_TO_UNLOAD_LIBRARY, "Unable to unload the given library.") \
    X(40, cu_ERROR_FAILED_TO_LOAD_SYMBOL, "Unable to load the requested symbol from the given library.") \
    X(41, cu_ERROR_USER_INVALID, "Invalid user name or id.") \
    X(42, cu_ERROR_GROUP_INVALID, "Invalid group name or id.") \
    X(43, cu_ERROR_CUTIL_FATAL, "Fatal error happened") \
    X(44, cu_ERROR_SHM_CREATE_FAILED, "Creation of new shared memory region failed.") \
    X(45, cu_ERROR_SHM_CLOSE_FAILED, "Unable to close socket handle.") \
    X(46, cu_ERROR_SHM_OPEN_FAILED, "Opening of an existing shared memory region failed.") \
    X(47, cu_ERROR_SHM_FSTAT, "Call to fstat(...) failed.") \
    X(48, cu_ERROR_TLS_CREATE_FAILED, "Failed to create thread local storage.") \
    X(49, cu_ERROR_TLS_FREE_FAILED, "Failed to free thread local storage.") \
    X(50, cu_ERROR_TLS_GET_FAILED, "Failed to get thread local storage item.") \
    X(51, cu_ERROR_NO_TOKEN_POSSIBLE, \
      "The source does not contain the requested delimiter character. Therefore a tokenization is not possible!") \
    X(52, cu_ERROR_INVALID_MAGIC, "Magic number mismatch!") \
    X(53, cu_ERROR_LOGGER_INIT_FAILED, "Failed to initialize logging!") \
    X(54, cu_ERROR_FILEOPEN_FAILED, "Failed to open a file!") \
    X(55, cu_ERROR_BUFFER_UNDERRUN, "Buffer underrun occurred!") \
    X(56, cu_ERROR_BUFFER_OVERRUN, "Buffer overrun occurred!") \
    X(57, cu_ERROR_SIG_SEND_FAILED, "Failed to send signal to task!") \
    X(58, cu_ERROR_SIG_RECEIVER_QUEUE_FULL, "Signaling receiver queue is full") \
    X(59, cu_ERROR_SIG_INSTALL_FAILED, "Failed to install signal handler") \
    X(60, cu_ERROR_UNKNOWN_CMDLINE_OPTION, "Unexpected command line option!") \
    X(61, cu_ERROR_MISSING_CMDLINE_OPTION, "Missing command line option argument!") \
    X(62, cu_ERROR_RBTREE_ADD_EXISTS, "Duplicated map entry!") \
    X(63, cu_ERROR_RBTREE_NOT_FOUND, "Map entry not found!") \
    X(64, cu_ERROR_CONVERSION_FAILED, "Value conversion has failed!") \
    X(65, cu_ERROR_PROCESS_ALREADY_RUNNING, "The process is already running") \
    X(66, cu_ERROR_PROCESS_LAUNCH_FAILURE, "Failed to start process!") \
    X(67, cu_ERROR_PROCESS_STOP_FAILURE, "Failed to stop process!") \
    X(68, cu_ERROR_INVALID_FILE, "Invalid file!") \
    X(69, cu_ERROR_SERIAL_OPEN_FAILED, "RS232: Failed to open requested device.") \
    X(70, cu_ERROR_SERIAL_SETTINGS_GET_FAILED, "RS2323: Failed to retrieve device settings.") \
    X(71, cu_ERROR_SERIAL_SETTINGS_SET_FAILED, "RS232: Failed to set device settings.") \
    X(72, cu_ERROR_SERIAL_FLUSH_BUFFER_FAILED, "RS232: Failed to flush buffers.") \
    X(73, cu_ERROR_SERIAL_RECV_FAILED, "RS232: Failed to receive.") \
    X(74, cu_ERROR_SERIAL_SEND_FAILED, "RS232: Failed to send.") \
    X(75, cu_ERROR_FILE_CREATE_FAILED, "Unable to create the requested file.") \
    X(76, cu_ERROR_FILE_OPEN_FAILED, "Unable to open the specified file.") \
    X(77, cu_ERROR_WINDOWS_FORMAT_MESSAGE_FAILED, "Called FormatMessage, but it failed by returning 0!")

/** The constants of the catalogue. */
enum cu_ErrorConstant {
#define CU_ERROR_CONSTANT(number, name, description) name = CU_ERROR_CODE(0, number),
    CU_COMMON_ERRORS(CU_ERROR_CONSTANT)
#undef CU_ERROR_CONSTANT
#define CU_ERROR_CONSTANT(number, name, description) name = CU_ERROR_CODE(1, number),
    CU_LIBRARY_ERRORS(CU_ERROR_CONSTANT)
#undef CU_ERROR_CONSTANT
};

/* clang-format on */

/** Turns a whole code of one component into a constant text; never null. */
typedef const char* (*cu_ErrorTextFunction)(cu_ErrorCode code);

/**
 * Names the component that owns a code.
 *
 * @param code  any error code
 * @return the category name as registered, or "Unknown component"; constant, never null, not to be freed
 *
 * Never fails and never reports. Any thread may call it at any time; it does not block.
 */
CU_EXPORT const char* cu_GetErrorCategory(cu_ErrorCode code);

/**
 * Gives the symbolic name of a code, for instance "cu_ERROR_COM_SUCCESS".
 *
 * @param code  any error code
 * @return the name, the component's own text for a code that it does not know, or "Unknown component"; constant,
 *         never null, not to be freed
 *
 * Never fails and never reports. Any thread may call it at any time; it does not block.
 */
CU_EXPORT const char* cu_GetErrorName(cu_ErrorCode code);

/**
 * Gives the human-readable description of a code.
 *
 * @param code  any error code
 * @return the description, the component's own text for a code that it does not know, or "Unknown component";
 *         constant, never null, not to be freed
 *
 * Never fails and never reports. Any thread may call it at any time; it does not block.
 */
CU_EXPORT const char* cu_GetErrorDescription(cu_ErrorCode code);

/**
 * Registers the catalogue of a component, replacing what was registered for it.
 *
 * @param componentIndex       0 to 255; applications use 2 and above
 * @param categoryName         name of the component; not copied, it must outlive the registration; null: none
 * @param nameFunction         gives the name of a code; null: none
 * @param descriptionFunction  gives the description of a code; null: none
 * @param bitSize              #CU_ERROR_CODE_BITS as the caller was compiled with
 *
 * A wrong @p bitSize (checked first) or a @p componentIndex above 255 would make codes be read with the wrong
 * component: either is told on the standard error stream and ends the process with status 1.
 *
 * Meant for start-up: a look-up in another thread at the same moment may see the new name beside the old function.
 * Does not block.
 */
CU_EXPORT void cu_SetResolver(uint32_t componentIndex, const char* categoryName, cu_ErrorTextFunction nameFunction,
                              cu_ErrorTextFunction descriptionFunction, uint32_t bitSize);

/**
 * Takes the catalogue of a component out of the registry again; its codes are then of an "Unknown component".
 *
 * @param componentIndex  0 to 255
 * @param bitSize         #CU_ERROR_CODE_BITS as the caller was compiled with
 *
 * Bad arguments end the process as told at cu_SetResolver(). Does not block.
 */
CU_EXPORT void cu_ClearResolver(uint32_t componentIndex, uint32_t bitSize);

CU_END_DECLS

#endif
