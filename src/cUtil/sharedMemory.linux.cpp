#include <cUtil/sharedMemory.h>

#include "internal/mappedRegion.h"

#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

struct cu_SharedMemory : cu::internal::MappedRegion {
};

namespace
{

struct Kind {
    using Region = cu_SharedMemory;
    static constexpr cu_ErrorCode createFailed = cu_ERROR_SHM_CREATE_FAILED;
    static constexpr cu_ErrorCode openFailed = cu_ERROR_SHM_OPEN_FAILED;
    static constexpr char cannotCreate[] = "Unable to create the requested SHM '%s' with the options '%u' and openmode "
                                           "'0%o'. shm_open failed with errno='%s' [%u]";
    static constexpr char cannotOpen[] = "Requested to open '%s' with options '%u'. Errno='%s' [%u]";
    static constexpr char cannotGive[] = "Failed to change ownership of shared memory: %s [%u]";
    static constexpr char cannotResize[] = "Failed to call ftruncate. Errno='%s' [%u]";
    static constexpr char cannotExamine[] = "Failed to call fstat. Errno='%s' [%u]";
    static constexpr char cannotMap[] = "Failed to call mmap. Errno='%s' [%u]";

    static int open(const char* systemName, int options, mode_t mode) { return shm_open(systemName, options, mode); }
};

} // namespace

// The only place that knows how the system's name of a region is made from the caller's.
static cu_ErrorCode createSHMName(internal::Owned<char>* systemName, const char* name, cu_allocator* allocator)
{
    CU_REQUIRE(systemName != nullptr);
    CU_REQUIRE(name != nullptr);
    const std::size_t length = strlen(name);
    if (length > UINT32_MAX - 2)
        return CU_REPORT(cu_ERROR_COM_MALLOC_FAILED, 0, nullptr);
    CU_TRY(systemName->allocateBytes(allocator, static_cast<uint32_t>(length + 2)));
    systemName->get()[0] = '/';
    memcpy(systemName->get() + 1, name, length + 1);
    return 0;
}

cu_ErrorCode cu_SharedMemory_create(cu_SharedMemory** me, const char* name, uint32_t size, const cu_User* user,
                                    const cu_Group* group, uint32_t permissions, bool openExisting,
                                    cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(name != nullptr);
    CU_REQUIRE(name[0] != '\0');
    CU_REQUIRE(size != 0);

    internal::Owned<char> systemName;
    CU_TRY(createSHMName(&systemName, name, allocator));
    return internal::createRegion<Kind>(me, name, systemName.get(), size, user, group, permissions, openExisting,
                                        allocator, CU_HERE);
}

cu_ErrorCode cu_SharedMemory_open(cu_SharedMemory** me, const char* name, cu_allocator* allocator)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me == nullptr);
    CU_REQUIRE(name != nullptr);
    CU_REQUIRE(name[0] != '\0');

    internal::Owned<char> systemName;
    CU_TRY(createSHMName(&systemName, name, allocator));
    return internal::openRegion<Kind>(me, name, systemName.get(), allocator, CU_HERE);
}

cu_ErrorCode cu_SharedMemory_delete(cu_SharedMemory** me, bool unlink)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(*me != nullptr);

    cu_SharedMemory& region = **me;
    if (const int error = internal::unmapAndClose(region); error != 0)
        return CU_REPORT(cu_ERROR_SHM_CLOSE_FAILED, error, nullptr);
    if (unlink) {
        internal::Owned<char> systemName;
        CU_TRY(createSHMName(&systemName, cu_String_get(region.name), region.allocator));
        // Compatibility: a failing unlink is not reported, and its raw -1 is the result.
        CU_TRY(static_cast<cu_ErrorCode>(shm_unlink(systemName.get())));
    }
    CU_TRY(internal::deleteParts(region));
    CU_TRY(internal::freeObject(me));
    return 0;
}

cu_ErrorCode cu_SharedMemory_getName(const cu_SharedMemory* me, const cu_String** name)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(name != nullptr);
    *name = me->name;
    return 0;
}

cu_ErrorCode cu_SharedMemory_getMappedSize(const cu_SharedMemory* me, uint32_t* size)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(size != nullptr);
    *size = me->size;
    return 0;
}

cu_ErrorCode cu_SharedMemory_getShared(const cu_SharedMemory* me, void** address)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(address != nullptr);
    *address = me->base;
    return 0;
}

cu_ErrorCode cu_SharedMemory_getSharedWithOffset(const cu_SharedMemory* me, void** address, uint32_t offset)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(address != nullptr);
    CU_REQUIRE(offset < me->size);
    *address = static_cast<char*>(me->base) + offset;
    return 0;
}

cu_ErrorCode cu_SharedMemory_getUser(const cu_SharedMemory* me, const cu_User** user)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(user != nullptr);
    *user = me->user;
    return 0;
}

cu_ErrorCode cu_SharedMemory_getGroup(const cu_SharedMemory* me, const cu_Group** group)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(group != nullptr);
    *group = me->group;
    return 0;
}

cu_ErrorCode cu_SharedMemory_getPermissions(const cu_SharedMemory* me, uint32_t* permissions)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(permissions != nullptr);
    *permissions = me->permissions;
    return 0;
}

cu_ErrorCode cu_SharedMemory_getSHMSize(const cu_SharedMemory* me, uint32_t* size)
{
    CU_REQUIRE(me != nullptr);
    CU_REQUIRE(size != nullptr);
    if (const int error = internal::examineSize(*me, *size); error != 0)
        // Compatibility: the text keeps its slip, "fo".
        return CU_REPORT(cu_ERROR_SHM_FSTAT, error, "Call fo fstat failed. Errno=%s [%u]",
                         internal::SystemErrorText(error).get(), static_cast<unsigned>(error));
    return 0;
}

static cu_ErrorCode readPageSize(int32_t* size, internal::Place place)
{
    errno = 0;
    const long value = sysconf(_SC_PAGESIZE);
    if (value < 0) {
        const int error = errno;
        return internal::report(cu_ERROR_CUTIL_FATAL, error, place, "sysconf failed with error %u [%s]",
                                static_cast<unsigned>(error), internal::SystemErrorText(error).get());
    }
    *size = static_cast<int32_t>(value);
    return 0;
}

cu_ErrorCode cu_getSystemGranularity(int32_t* granularity)
{
    CU_REQUIRE(granularity != nullptr);
    return readPageSize(granularity, CU_HERE);
}

cu_ErrorCode cu_getPageSize(int32_t* size)
{
    CU_REQUIRE(size != nullptr);
    return readPageSize(size, CU_HERE);
}
