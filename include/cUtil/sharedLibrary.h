/** @file
 *  Shared libraries, loaded at run time, and the addresses of their symbols.
 *
 *  Objects are not locked: one thread at a time per object, except that several threads may resolve symbols.
 */
#ifndef CUTIL_SHARED_LIBRARY_H
#define CUTIL_SHARED_LIBRARY_H

#include <cUtil/allocator.h>
#include <cUtil/tools/string.h>
#include <cUtil/types.h>

CU_BEGIN_DECLS

/** A loaded shared library. */
typedef struct cu_SharedLibrary cu_SharedLibrary;

/**
 * Loads a library, binds all its symbols at once and makes them available to libraries that are loaded later. When
 * there is no file of the name as given, "lib<name>.so" is tried.
 *
 * @param library    receives the object; must hold null, and keeps it on failure. End it with
 * cu_SharedLibrary_delete().
 * @param name       path, file name or bare name ("m"); empty: the program itself; copied
 * @param allocator  for the object and the copy of the name; null: the shared heap one
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_FAILED_TO_LOAD_LIBRARY with the loader's text; or what the
 *         allocator says
 *
 * Any thread may call it. Blocks while the file is read and while the library's constructors run.
 */
CU_EXPORT cu_ErrorCode cu_SharedLibrary_new(cu_SharedLibrary** library, const char* name, cu_allocator* allocator);

/**
 * Closes a library. Its code and data go when nobody else has it open; addresses from cu_SharedLibrary_resolve() must
 * not be used any more.
 *
 * @param library  holds the object; null afterwards, unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_FAILED_TO_UNLOAD_LIBRARY
 *
 * Blocks while the library's destructors run.
 */
CU_EXPORT cu_ErrorCode cu_SharedLibrary_delete(cu_SharedLibrary** library);

/**
 * Gives the address of a symbol of the library or of the libraries that it depends on.
 *
 * @param library     the library
 * @param symbolName  the symbol as the linker knows it
 * @param address     receives the address, valid until the library is closed; unchanged on failure
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; cu_ERROR_FAILED_TO_LOAD_SYMBOL when there is no such symbol or its address
 * is null
 */
CU_EXPORT cu_ErrorCode cu_SharedLibrary_resolve(const cu_SharedLibrary* library, const char* symbolName,
                                                void** address);

/**
 * Gives the name as it was passed to cu_SharedLibrary_new().
 *
 * @param library  the library
 * @param name     receives the name, which belongs to the object and lasts as long as it
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT
 */
CU_EXPORT cu_ErrorCode cu_SharedLibrary_getName(const cu_SharedLibrary* library, const char** name);

/**
 * Formats the usual file name "lib<name>.so" of a library with cu_String_format(), which leaves the string's length as
 * it was and refuses what does not fit into the string's capacity.
 *
 * @param string  an existing string
 * @param name    the bare name
 * @return 0; cu_ERROR_COM_INVALID_ARGUMENT; or the failure of cu_String_format()
 */
CU_EXPORT cu_ErrorCode cu_SharedLibrary_createFileName(cu_String* string, const char* name);

CU_END_DECLS

#endif
