#include <cUtil/mappedFile.h>

#include "internal/mappedRegion.h"

#include <unistd.h>

struct cu_MappedFile : cu::internal::MappedRegion {
};

namespace
{

// Fixed, whatever the pages of the host: files move between hosts.
constexpr uint32_t sizeGranularity = 4096;

struct Kind {
    using Region = cu_MappedFile;
    static constexpr cu_ErrorCode createFailed = cu_ERROR_FILE_CREATE_FAILED;
    static constexpr cu_ErrorCode openFailed = cu_ERROR_FILE_OPEN_FAILED;
    static constexpr char cannotCreate[] =
        "Unable to create the requested file '%s' with the options '%u' and openmode "
        "'0%o'. open failed with errno='%s' [%u]";
    static constexpr char cannotOpen[] = "Requested to open '%s' with options '%u'. Errno='%s' [%u]";
    static constexpr char cannotGive[] = "Failed to change ownership of file: %s [%u]";
    static constexpr char cannotResize[] = "Failed to call ftruncate. Errno='%s' [%u]";
    static constexpr char cannotExamine[] = "Failed to call fstat. Errno='%s' [%u]";
    static constexpr char cannotMap[] = "Failed to call mmap. Errno='%s' [%u]";

    static int open(const char* path, int options, mode_t mode) { return ::open(path, options, mode); }
};

} // namespace

cu_ErrorCode cu_MappedFile_create(cu_MappedFile** me, const char* path, uint32_t size, const cu_User* user,
                                  const cu_Group* group, uint32_t permissions, bool openExisting,
                                  cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(path != nullptr);
    CU_REQUIRE(path[0] != '\0');
    CU_REQUIRE(size != 0);
    CU_REQUIRE(size % sizeGranularity == 0);

    return internal::createRegion<Kind>(me, path, path, size, user, group, permissions, openExisting, allocator,
                                        CU_HERE);
}

cu_ErrorCode cu_MappedFile_open(cu_MappedFile** me, const char* path, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(path != nullptr);
    CU_REQUIRE(path[0] != '\0');

    return internal::openRegion<Kind>(me, path, path, allocator, CU_HERE);
}

cu_ErrorCode cu_MappedFile_delete(cu_MappedFile** me, bool unlink)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    cu_MappedFile& region = **me;
    if (const int error = internal::unmapAndClose(region); error != 0)
        // Compatibility: the code is that of shared memory.
        return CU_REPORT(cu_ERROR_SHM_CLOSE_FAILED, error, nullptr);
    // Compatibility: a failing unlink is not reported, and its raw -1 is the result, as with shared memory.
    if (unlink)
        CU_TRY(static_cast<cu_ErrorCode>(::unlink(cu_String_get(region.name))));
    CU_TRY(internal::deleteParts(region));
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_MappedFile_getName(const cu_MappedFile* me, const cu_String** name)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(name != nullptr);
    *name = me->name;
    return 0;
}

cu_ErrorCode cu_MappedFile_getMappedSize(const cu_MappedFile* me, uint32_t* size)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(size != nullptr);
    *size = me->size;
    return 0;
}

cu_ErrorCode cu_MappedFile_getPointer(const cu_MappedFile* me, void** address)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(address != nullptr);
    *address = me->base;
    return 0;
}

cu_ErrorCode cu_MappedFile_getPointerWithOffset(const cu_MappedFile* me, void** address, uint32_t offset)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(address != nullptr);
    CU_REQUIRE(offset < me->size);
    *address = static_cast<char*>(me->base) + offset;
    return 0;
}

cu_ErrorCode cu_MappedFile_getUser(const cu_MappedFile* me, const cu_User** user)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(user != nullptr);
    *user = me->user;
    return 0;
}

cu_ErrorCode cu_MappedFile_getGroup(const cu_MappedFile* me, const cu_Group** group)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(group != nullptr);
    *group = me->group;
    return 0;
}

cu_ErrorCode cu_MappedFile_getPermissions(const cu_MappedFile* me, uint32_t* permissions)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(permissions != nullptr);
    *permissions = me->permissions;
    return 0;
}
