#include <cUtil/system/group.h>

#include "internal/account.h"

#include <unistd.h>

cu_ErrorCode cu_Group_current(cu_Group** group, cu_allocator* allocator)
{
    CU_REQUIRE(group != nullptr);
    CU_REQUIRE(*group == nullptr);
    return internal::newAccount(group, getgrgid_r, getgid(), cu_ERROR_GROUP_INVALID, allocator, CU_HERE);
}

cu_ErrorCode cu_Group_fromName(cu_Group** group, const char* name, cu_allocator* allocator)
{
    CU_REQUIRE(group != nullptr);
    CU_REQUIRE(*group == nullptr);
    CU_REQUIRE(name != nullptr);
    CU_REQUIRE(name[0] != '\0');
    return internal::newAccount(group, getgrnam_r, name, cu_ERROR_GROUP_INVALID, allocator, CU_HERE);
}

cu_ErrorCode cu_Group_fromID(cu_Group** group, uint32_t id, cu_allocator* allocator)
{
    CU_REQUIRE(group != nullptr);
    CU_REQUIRE(*group == nullptr);
    // Compatibility: a group id that is not found is reported with the code for users.
    return internal::newAccount(group, getgrgid_r, id, cu_ERROR_USER_INVALID, allocator, CU_HERE);
}

cu_ErrorCode cu_Group_clone(cu_Group** copy, const cu_Group* group)
{
    CU_REQUIRE(copy != nullptr);
    CU_REQUIRE(*copy == nullptr);
    CU_REQUIRE(group != nullptr);
    CU_TRY(cu_Group_fromID(copy, group->id, group->allocator));
    return 0;
}

cu_ErrorCode cu_Group_delete(cu_Group** group)
{
    CU_REQUIRE(group != nullptr);
    CU_REQUIRE(*group != nullptr);
    return internal::deleteAccount(group, CU_HERE);
}

cu_ErrorCode cu_Group_getName(const cu_Group* group, const cu_String** name)
{
    CU_REQUIRE(group != nullptr);
    CU_REQUIRE(name != nullptr);
    *name = group->name;
    return 0;
}

cu_ErrorCode cu_Group_getID(const cu_Group* group, uint32_t* id)
{
    CU_REQUIRE(group != nullptr);
    CU_REQUIRE(id != nullptr);
    *id = group->id;
    return 0;
}
