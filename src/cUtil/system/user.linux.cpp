#include <cUtil/system/user.h>

#include "internal/account.h"

#include <unistd.h>

cu_ErrorCode cu_User_current(cu_User** user, cu_allocator* allocator)
{
    CU_REQUIRE(user != nullptr);
    CU_REQUIRE(*user == nullptr);
    return internal::newAccount(user, getpwuid_r, getuid(), cu_ERROR_USER_INVALID, allocator, CU_HERE);
}

cu_ErrorCode cu_User_fromName(cu_User** user, const char* name, cu_allocator* allocator)
{
    CU_REQUIRE(user != nullptr);
    CU_REQUIRE(*user == nullptr);
    CU_REQUIRE(name != nullptr);
    CU_REQUIRE(name[0] != '\0');
    return internal::newAccount(user, getpwnam_r, name, cu_ERROR_USER_INVALID, allocator, CU_HERE);
}

cu_ErrorCode cu_User_fromID(cu_User** user, uint32_t id, cu_allocator* allocator)
{
    CU_REQUIRE(user != nullptr);
    CU_REQUIRE(*user == nullptr);
    return internal::newAccount(user, getpwuid_r, id, cu_ERROR_USER_INVALID, allocator, CU_HERE);
}

cu_ErrorCode cu_User_clone(cu_User** copy, const cu_User* user)
{
    CU_REQUIRE(copy != nullptr);
    CU_REQUIRE(*copy == nullptr);
    CU_REQUIRE(user != nullptr);
    CU_TRY(cu_User_fromID(copy, user->id, user->allocator));
    return 0;
}

cu_ErrorCode cu_User_delete(cu_User** user)
{
    CU_REQUIRE(user != nullptr);
    CU_REQUIRE(*user != nullptr);
    return internal::deleteAccount(user, CU_HERE);
}

cu_ErrorCode cu_User_getName(const cu_User* user, const cu_String** name)
{
    CU_REQUIRE(user != nullptr);
    CU_REQUIRE(name != nullptr);
    *name = user->name;
    return 0;
}

cu_ErrorCode cu_User_getID(const cu_User* user, uint32_t* id)
{
    CU_REQUIRE(user != nullptr);
    CU_REQUIRE(id != nullptr);
    *id = user->id;
    return 0;
}
