#include <cUtil/sharedLibrary.h>

#include "internal/owned.h"
#include "internal/report.h"

#include <cstdio>
#include <cstring>
#include <dlfcn.h>

struct cu_SharedLibrary {
    cu_allocator* allocator;
    void* handle;
    char* name;
};

static void* openLibrary(const char* name)
{
    constexpr int flags = RTLD_NOW | RTLD_GLOBAL;
    void* handle = dlopen(name, flags);
    if (handle != nullptr)
        return handle;
    char fileName[1024];
    const int length = snprintf(fileName, sizeof(fileName), "lib%s.so", name);
    // A cut name would be that of another library.
    return length >= 0 && static_cast<std::size_t>(length) < sizeof(fileName) ? dlopen(fileName, flags) : nullptr;
}

cu_ErrorCode cu_SharedLibrary_new(cu_SharedLibrary** library, const char* name, cu_allocator* allocator)
{
    CU_REQUIRE(library != nullptr);
    CU_REQUIRE(*library == nullptr);
    CU_REQUIRE(name != nullptr);

    internal::Owned<cu_SharedLibrary> fresh;
    CU_TRY(fresh.allocate(allocator));
    internal::Owned<char> copy;
    CU_TRY(internal::copyText(copy, name, allocator, CU_HERE));

    fresh->handle = openLibrary(name);
    if (fresh->handle == nullptr)
        // NOLINTNEXTLINE(concurrency-mt-unsafe): the C library keeps the text per thread
        return CU_REPORT(cu_ERROR_FAILED_TO_LOAD_LIBRARY, 0, "Error: %s", dlerror());
    fresh->name = copy.release();
    *library = fresh.release();
    return 0;
}

cu_ErrorCode cu_SharedLibrary_delete(cu_SharedLibrary** library)
{
    CU_REQUIRE(library != nullptr);
    CU_REQUIRE(*library != nullptr);

    if ((*library)->handle != nullptr && dlclose((*library)->handle) != 0)
        return CU_REPORT(cu_ERROR_FAILED_TO_UNLOAD_LIBRARY, 0, nullptr);
    (*library)->handle = nullptr;
    CU_TRY(internal::freeArray((*library)->allocator, &(*library)->name));
    CU_TRY(internal::freeObject(library));
    return 0;
}

cu_ErrorCode cu_SharedLibrary_resolve(const cu_SharedLibrary* library, const char* symbolName, void** address)
{
    CU_REQUIRE(library != nullptr);
    CU_REQUIRE(symbolName != nullptr);
    CU_REQUIRE(address != nullptr);

    void* const found = dlsym(library->handle, symbolName);
    if (found == nullptr)
        return CU_REPORT(cu_ERROR_FAILED_TO_LOAD_SYMBOL, 0, nullptr);
    *address = found;
    return 0;
}

cu_ErrorCode cu_SharedLibrary_getName(const cu_SharedLibrary* library, const char** name)
{
    CU_REQUIRE(library != nullptr);
    CU_REQUIRE(name != nullptr);
    *name = library->name;
    return 0;
}

cu_ErrorCode cu_SharedLibrary_createFileName(cu_String* string, const char* name)
{
    CU_REQUIRE(string != nullptr);
    CU_REQUIRE(name != nullptr);
    CU_TRY(cu_String_format(string, "lib%s.so", name));
    return 0;
}
