// What shared memory and mapped files have in common: an object of the system with a name, mapped as a whole.
//
// A kind of region brings its type, its codes and its texts:
//
//     struct Kind {
//         using Region = cu_...;                                        // derived from MappedRegion
//         static constexpr cu_ErrorCode createFailed = ..., openFailed = ...;
//         static constexpr char cannotCreate[] = "...";                 // system name, options, mode, reason, number
//         static constexpr char cannotOpen[] = "...";                   // system name, options, reason, number
//         static constexpr char cannotGive[] = "...";                   // this and the others: reason, number
//         static constexpr char cannotResize[] = "...", cannotExamine[] = "...", cannotMap[] = "...";
//         static int open(const char* systemName, int options, mode_t mode);
//     };
#pragma once

#include "internal/owned.h"
#include "internal/report.h"
#include "internal/rollback.h"

#include <cUtil/system/group.h>
#include <cUtil/system/user.h>

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

namespace cu::internal
{

struct MappedRegion {
    cu_allocator* allocator = nullptr;
    int32_t descriptor = -1; ///< -1 once closed
    uint32_t size = 0;       ///< of the mapping, in bytes; 0 once unmapped
    cu_String* name = nullptr;
    void* base = nullptr; ///< null once unmapped
    cu_User* user = nullptr;
    cu_Group* group = nullptr;
    uint32_t permissions = 0;
};

/// The mode for a set of permission flags; no flag at all stands for every permission.
mode_t modeOf(uint32_t permissions);

/// The permission flag that a region tells after it was opened.
uint32_t permissionOf(mode_t mode);

// The steps yield 0 or the error number.

/// Gives a new object to the user and the group of the region, if it has both.
int giveToOwner(const MappedRegion& region);

int resize(const MappedRegion& region);

/// Maps as many bytes as the object has; there may be more than a region can have.
int map(MappedRegion& region, off_t size);

/// Unmaps and closes, each at most once; a descriptor that cannot be closed is kept.
int unmapAndClose(MappedRegion& region);

/// Asks for the size of the object as it is now; 0 when it cannot be told.
int examineSize(const MappedRegion& region, uint32_t& size);

/// Ends the objects that the region holds.
cu_ErrorCode deleteParts(MappedRegion& region);

/// Undoes the steps of a constructor; nothing that goes wrong here is worth more than what went wrong before.
inline cu_ErrorCode undo(MappedRegion& region)
{
    unmapAndClose(region);
    return deleteParts(region);
}

/// Reports a failing step whose text tells nothing but the reason and its number.
#define CU_REPORT_STEP(code, error, text)                                                                              \
    report(code, error, place, text, SystemErrorText(error).get(), static_cast<unsigned>(error))

template <typename Kind>
cu_ErrorCode createRegion(typename Kind::Region** me, const char* name, const char* systemName, uint32_t size,
                          const cu_User* user, const cu_Group* group, uint32_t permissions, bool openExisting,
                          cu_allocator* allocator, Place place)
{
    Owned<typename Kind::Region> region;
    CU_TRY_AT(place, region.allocate(allocator));
    Rollback undoing([&] { return undo(*region.get()); }, place);
    region->size = size;
    region->permissions = permissions;
    if (user != nullptr)
        CU_TRY_AT(place, cu_User_clone(&region->user, user));
    if (group != nullptr)
        CU_TRY_AT(place, cu_Group_clone(&region->group, group));
    CU_TRY_AT(place, cu_String_cloneStr(&region->name, name, region->allocator));

    const int options = O_RDWR | O_CREAT | (openExisting ? 0 : O_EXCL);
    const mode_t mode = modeOf(permissions);
    region->descriptor = Kind::open(systemName, options | O_CLOEXEC, mode);
    if (region->descriptor == -1) {
        const int error = errno;
        return report(Kind::createFailed, error, place, Kind::cannotCreate, systemName, static_cast<unsigned>(options),
                      mode, SystemErrorText(error).get(), static_cast<unsigned>(error));
    }
    if (const int error = giveToOwner(*region.get()); error != 0)
        return CU_REPORT_STEP(Kind::createFailed, error, Kind::cannotGive);
    if (const int error = resize(*region.get()); error != 0)
        return CU_REPORT_STEP(Kind::createFailed, error, Kind::cannotResize);
    if (const int error = map(*region.get(), size); error != 0)
        return CU_REPORT_STEP(Kind::createFailed, error, Kind::cannotMap);
    undoing.dismiss();
    *me = region.release();
    return 0;
}

template <typename Kind>
cu_ErrorCode openRegion(typename Kind::Region** me, const char* name, const char* systemName, cu_allocator* allocator,
                        Place place)
{
    Owned<typename Kind::Region> region;
    CU_TRY_AT(place, region.allocate(allocator));
    Rollback undoing([&] { return undo(*region.get()); }, place);
    CU_TRY_AT(place, cu_String_cloneStr(&region->name, name, region->allocator));

    constexpr int options = O_RDWR;
    region->descriptor = Kind::open(systemName, options | O_CLOEXEC, 0);
    if (region->descriptor == -1) {
        const int error = errno;
        return report(Kind::openFailed, error, place, Kind::cannotOpen, systemName, static_cast<unsigned>(options),
                      SystemErrorText(error).get(), static_cast<unsigned>(error));
    }
    struct stat status;
    if (fstat(region->descriptor, &status) != 0) {
        const int error = errno;
        return CU_REPORT_STEP(Kind::openFailed, error, Kind::cannotExamine);
    }
    CU_TRY_AT(place, cu_User_fromID(&region->user, status.st_uid, region->allocator));
    CU_TRY_AT(place, cu_Group_fromID(&region->group, status.st_gid, region->allocator));
    region->permissions = permissionOf(status.st_mode);
    if (const int error = map(*region.get(), status.st_size); error != 0)
        return CU_REPORT_STEP(Kind::openFailed, error, Kind::cannotMap);
    undoing.dismiss();
    *me = region.release();
    return 0;
}

#undef CU_REPORT_STEP

} // namespace cu::internal
