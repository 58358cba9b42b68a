#include "system/accountCases.h"

#include <cUtil/system/user.h>

#include <pwd.h>
#include <unistd.h>

namespace
{

struct User {
    using Object = cu_User;
    static constexpr char prefix[] = "cu_User_";
    static constexpr char file[] = "src/cUtil/system/user.linux";
    static constexpr char database[] = "passwd";
    static constexpr char byName[] = "getpwnam_r";
    static constexpr char byID[] = "getpwuid_r";
    static constexpr cu_ErrorCode invalid = cu_ERROR_USER_INVALID;
    static constexpr auto current = cu_User_current;
    static constexpr auto fromName = cu_User_fromName;
    static constexpr auto fromID = cu_User_fromID;
    static constexpr auto clone = cu_User_clone;
    static constexpr auto destroy = cu_User_delete;
    static constexpr auto getName = cu_User_getName;
    static constexpr auto getID = cu_User_getID;

    static uint32_t ownID() { return getuid(); }

    template <typename Visit>
    static void eachEntry(Visit visit)
    {
        setpwent();
        while (const passwd* entry = getpwent())
            visit(std::string(entry->pw_name), entry->pw_uid);
        endpwent();
    }
};

} // namespace

namespace accounts
{
INSTANTIATE_TYPED_TEST_SUITE_P(User, AccountTest, User);
}
