#include "internal/mappedRegion.h"

#include "internal/account.h"

#include <sys/mman.h>
#include <unistd.h>

namespace cu::internal
{

// Flag 1 stands for the first bit here, flag 2 for the second, and so on.
constexpr mode_t modeBits[] = {S_IRUSR, S_IWUSR, S_IXUSR, S_IRGRP, S_IWGRP, S_IXGRP, S_IROTH, S_IWOTH, S_IXOTH};

mode_t modeOf(uint32_t permissions)
{
    mode_t mode = 0;
    uint32_t flag = 1;
    for (const mode_t bit : modeBits) {
        if (permissions == 0 || (permissions & flag) != 0)
            mode |= bit;
        flag <<= 1;
    }
    return mode;
}

uint32_t permissionOf(mode_t mode)
{
    // Compatibility: only the flag of the last bit is told, not the set of them.
    uint32_t last = 0;
    uint32_t flag = 1;
    for (const mode_t bit : modeBits) {
        if ((mode & bit) != 0)
            last = flag;
        flag <<= 1;
    }
    return last;
}

int giveToOwner(const MappedRegion& region)
{
    if (region.user == nullptr || region.group == nullptr)
        return 0;
    return fchown(region.descriptor, region.user->id, region.group->id) == 0 ? 0 : errno;
}

int resize(const MappedRegion& region)
{
    return ftruncate(region.descriptor, region.size) == 0 ? 0 : errno;
}

int map(MappedRegion& region, off_t size)
{
    if (size > UINT32_MAX)
        return EOVERFLOW;
    region.size = static_cast<uint32_t>(size);
    void* const base = mmap(nullptr, region.size, PROT_READ | PROT_WRITE, MAP_SHARED, region.descriptor, 0);
    if (base == MAP_FAILED)
        return errno;
    region.base = base;
    return 0;
}

int unmapAndClose(MappedRegion& region)
{
    if (region.base != nullptr)
        munmap(region.base, region.size);
    region.base = nullptr;
    region.size = 0;
    if (region.descriptor != -1 && close(region.descriptor) != 0)
        return errno;
    region.descriptor = -1;
    return 0;
}

int examineSize(const MappedRegion& region, uint32_t& size)
{
    size = 0;
    struct stat status;
    if (fstat(region.descriptor, &status) != 0)
        return errno;
    if (status.st_size > UINT32_MAX)
        return EOVERFLOW;
    size = static_cast<uint32_t>(status.st_size);
    return 0;
}

cu_ErrorCode deleteParts(MappedRegion& region)
{
    cu_ErrorCode code = 0;
    if (region.group != nullptr)
        code = cu_Group_delete(&region.group);
    if (code == 0 && region.user != nullptr)
        code = cu_User_delete(&region.user);
    if (code == 0 && region.name != nullptr)
        code = cu_String_delete(&region.name);
    return code;
}

} // namespace cu::internal
