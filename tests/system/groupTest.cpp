#include "system/accountCases.h"

#include <cUtil/system/group.h>

#include <grp.h>
#include <unistd.h>

namespace
{

struct Group {
    using Object = cu_Group;
    static constexpr char prefix[] = "cu_Group_";
    static constexpr char file[] = "src/cUtil/system/group.linux";
    static constexpr char database[] = "group";
    static constexpr char byName[] = "getgrnam_r";
    static constexpr char byID[] = "getgrgid_r";
    static constexpr cu_ErrorCode invalid = cu_ERROR_GROUP_INVALID;
    static constexpr auto current = cu_Group_current;
    static constexpr auto fromName = cu_Group_fromName;
    static constexpr auto fromID = cu_Group_fromID;
    static constexpr auto clone = cu_Group_clone;
    static constexpr auto destroy = cu_Group_delete;
    static constexpr auto getName = cu_Group_getName;
    static constexpr auto getID = cu_Group_getID;

    static uint32_t ownID() { return getgid(); }

    template <typename Visit>
    static void eachEntry(Visit visit)
    {
        setgrent();
        while (const group* entry = getgrent())
            visit(std::string(entry->gr_name), entry->gr_gid);
        endgrent();
    }
};

} // namespace

namespace accounts
{
INSTANTIATE_TYPED_TEST_SUITE_P(Group, AccountTest, Group);
}
