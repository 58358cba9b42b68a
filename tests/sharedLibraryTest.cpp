#include "support/made.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/sharedLibrary.h>

#include <gtest/gtest.h>

#include <dlfcn.h>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace
{

constexpr char file[] = "src/cUtil/sharedLibrary.linux";

using Library = support::Made<cu_SharedLibrary_new, cu_SharedLibrary_delete>;

/// The path of a library that is there on every host: the one under test.
std::string ownPath()
{
    Dl_info where = {};
    dladdr(reinterpret_cast<const void*>(cu_SharedLibrary_new), &where);
    return where.dli_fname;
}

TEST(SharedLibrary, loadsResolvesAndCloses)
{
    Library library(ownPath().c_str());
    void* address = nullptr;
    EXPECT_EQ(cu_SharedLibrary_resolve(library, "cu_SharedLibrary_resolve", &address), 0U);
    EXPECT_EQ(address, reinterpret_cast<void*>(cu_SharedLibrary_resolve));
    EXPECT_FAILURE(cu_SharedLibrary_resolve(library, "no_such_symbol", &address), cu_ERROR_FAILED_TO_LOAD_SYMBOL,
                   "cu_SharedLibrary_resolve", file, "");
    EXPECT_EQ(address, reinterpret_cast<void*>(cu_SharedLibrary_resolve));

    {
        const support::Injection stuck("dlclose", EBUSY);
        EXPECT_FAILURE(cu_SharedLibrary_delete(library.handle()), cu_ERROR_FAILED_TO_UNLOAD_LIBRARY,
                       "cu_SharedLibrary_delete", file, "");
    }
    EXPECT_EQ(cu_SharedLibrary_resolve(library, "cu_SharedLibrary_resolve", &address), 0U);
}

TEST(SharedLibrary, aNameWithoutAFileIsTriedWithPrefixAndSuffix)
{
    const auto folder = std::filesystem::temp_directory_path() / ("libcuHere" + std::to_string(getpid()));
    std::filesystem::create_directory(folder);
    std::filesystem::create_symlink(ownPath(), folder / "probe.so");
    std::filesystem::current_path(folder.parent_path());
    const std::string given = folder.filename().string().substr(3) + "/probe";
    const Library library(std::string(given).c_str()); // of which it keeps a copy
    const char* name = nullptr;
    EXPECT_EQ(cu_SharedLibrary_getName(library, &name), 0U);
    EXPECT_STREQ(name, given.c_str());
    std::filesystem::remove_all(folder);
}

TEST(SharedLibrary, whatCannotBeLoadedIsToldInTheLoadersWords)
{
    support::WatchfulAllocator allocator;
    cu_SharedLibrary* library = nullptr;
    EXPECT_FAILURE(cu_SharedLibrary_new(&library, "noSuchThing", allocator.get()), cu_ERROR_FAILED_TO_LOAD_LIBRARY,
                   "cu_SharedLibrary_new", file,
                   "Error: libnoSuchThing.so: cannot open shared object file: No such file or directory");
    // 1017 characters are the longest name that takes prefix and suffix in 1023.
    for (const std::size_t length : {1017U, 1018U}) {
        const std::string name(length, 'x');
        EXPECT_EQ(cu_SharedLibrary_new(&library, name.c_str(), allocator.get()),
                  static_cast<cu_ErrorCode>(cu_ERROR_FAILED_TO_LOAD_LIBRARY));
        EXPECT_EQ(std::string(ku_getErrorMessage()).find(length == 1017 ? "Error: libxxx" : "Error: xxx"), 0U);
        EXPECT_EQ(library, nullptr);
    }
}

TEST(SharedLibrary, badArgumentsAreRefusedAndFailuresLeaveNothing)
{
    EXPECT_CLEAN_FAILURES(cu_SharedLibrary_new, cu_SharedLibrary_delete, ownPath().c_str());
    const Library program("");
    const support::Made<cu_String_new, cu_String_delete> string;
    cu_SharedLibrary* none = nullptr;
    cu_SharedLibrary* library = program;
    void* address = nullptr;
    EXPECT_EQ(cu_SharedLibrary_resolve(library, "cu_SharedLibrary_resolve", &address), 0U);
    EXPECT_EQ(address, reinterpret_cast<void*>(cu_SharedLibrary_resolve)) << "the empty name stands for the program";
    const char* name = nullptr;
    EXPECT_NULLS_REFUSED(file, (std::tuple{&none, library, "m", &address, &name, string.get()}), cu_SharedLibrary_new,
                         cu_SharedLibrary_resolve, cu_SharedLibrary_getName, cu_SharedLibrary_createFileName);
    EXPECT_NULLS_REFUSED(file, std::tuple{&library}, cu_SharedLibrary_delete);
    EXPECT_EQ(cu_SharedLibrary_createFileName(string, "m"), 0U);
    EXPECT_STREQ(cu_String_get(string), "libm.so");
    EXPECT_EQ(cu_SharedLibrary_createFileName(string, std::string(1000, 'x').c_str()),
              static_cast<cu_ErrorCode>(cu_ERROR_COM_INVARIANT));
    EXPECT_NE(support::trace().find("cu_SharedLibrary_createFileName  -  "), std::string::npos);
}

} // namespace
