/** @file
 *  Child programs: started with arguments of the caller's, killed and waited for.
 *
 *  A child begins with the default disposition of every signal, none of them blocked, and with those of its parent's
 *  descriptors that are not marked close-on-exec: of the library's own it gets none.
 *
 *  Every function returns 0 or an error code, and cu_ERROR_COM_INVALID_ARGUMENT for a null argument that is not said to
 *  be allowed. Objects are not locked: one thread at a time per object. Nothing blocks unless that is said.
 */
#ifndef CUTIL_PROCESS_H
#define CUTIL_PROCESS_H

#include <cUtil/allocator.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A program with its arguments, and the child that runs it. */
typedef struct cu_Process cu_Process;

/**
 * Prepares a program. Its first argument is the last component of the path, as basename() tells it.
 *
 * @param process    address of a null handle; set only on success. cu_Process_delete() ends the object.
 * @param path       the program's file, not looked for in PATH; copied. Whether it exists shows in the child.
 * @param allocator  for the object and its copies; null: the shared one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_Process_new(cu_Process** process, const char* path, cu_allocator* allocator);

/**
 * Appends an argument. A child that runs keeps those that it was started with.
 *
 * @param process   the program; unchanged on failure
 * @param argument  not empty; copied
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT when there are 255 arguments, the first one
 *         included; or what the allocator says
 */
CU_EXPORT cu_ErrorCode cu_Process_addArgument(cu_Process* process, const char* argument);

/**
 * Starts a child that executes the program.
 *
 * A child that cannot execute it says so on its standard error stream, with the path, the arguments and the system
 * error, and ends with status 1; exit handlers do not run in it and buffered output of the parent is not written.
 *
 * @param process         the program
 * @param waitBeforeExec  whether the child tells its id on the standard output and waits for 10 seconds first, so that
 *                        a debugger can be attached
 * @return 0, also when the child will find no program; cu_ERROR_COM_INVALID_ARGUMENT;
 *         cu_ERROR_PROCESS_ALREADY_RUNNING; cu_ERROR_PROCESS_LAUNCH_FAILURE with the system's error
 */
CU_EXPORT cu_ErrorCode cu_Process_start(cu_Process* process, bool waitBeforeExec);

/**
 * Tells whether a child has been started and not been stopped. The system is not asked: a child that has ended by
 * itself counts as running.
 *
 * @param process  the program
 * @param running  receives the answer
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Process_isRunning(const cu_Process* process, bool* running);

/**
 * Kills the child and waits for its end, which blocks for as long as the system takes. A child that somebody else has
 * waited for is gone, and no other process that has got its id is touched.
 *
 * @param process  the program; it can be started again
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT when it does not run, or with the system's error
 *         when the child cannot be waited for; it then counts as running
 */
CU_EXPORT cu_ErrorCode cu_Process_stop(cu_Process* process);

/**
 * Gives the child's id.
 *
 * @param process  the program
 * @param pid      receives the id
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_COM_INVARIANT when it does not run
 */
CU_EXPORT cu_ErrorCode cu_Process_getProcessID(const cu_Process* process, int32_t* pid);

/**
 * Compatibility: checks its arguments and does nothing.
 *
 * @param process  the program
 * @param command  stays as it is
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_Process_getCommand(const cu_Process* process, const char** command);

/**
 * Ends an object; a child that runs is stopped before, as by cu_Process_stop(), unless it is gone already.
 *
 * @param process  address of the handle, which must hold an object; null afterwards
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; what cu_Process_stop() or the allocator says, and the handle stays
 */
CU_EXPORT cu_ErrorCode cu_Process_delete(cu_Process** process);

CU_END_DECLS

#endif
