// cutil shm: shared-memory regions, and what may lie in one.
#include "cutil.h"
#include "region.h"

#include <cUtil/system/group.h>
#include <cUtil/system/user.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace cutil
{

namespace
{

constexpr char usage[] =
    "usage: cutil shm list\n"
    "       cutil shm show NAME\n"
    "\n"
    "  list  lists the shared-memory regions: size in bytes, mode, owner, group, name\n"
    "  show  tells about one region and what lies at its start: how full a ring buffer or a FIFO is, how\n"
    "        many signals wait in an RPC queue or channel\n"
    "\n"
    "NAME is the name that programs give to the library, without a leading slash.\n"
    "'show' needs the right to read and write the region.\n";

/// Where the system keeps the regions as files.
constexpr char folder[] = "/dev/shm/";

struct CloseFolder {
    void operator()(DIR* dir) const { closedir(dir); }
};

/// A name from one of the databases; the number where there is none.
template <typename Account, auto fromId, auto getName, auto destroy>
std::string accountName(uint32_t id)
{
    std::string result = std::to_string(id);
    Account* account = nullptr;
    if (fromId(&account, id, nullptr) == 0) {
        const cu_String* name = nullptr;
        if (getName(account, &name) == 0)
            result = cu_String_get(name);
        if (const cu_ErrorCode code = destroy(&account); code != 0)
            static_cast<void>(failByRecord(code, "account"));
    }
    return result;
}

std::string ownerOf(const struct stat& status)
{
    return accountName<cu_User, cu_User_fromID, cu_User_getName, cu_User_delete>(status.st_uid);
}

std::string groupOf(const struct stat& status)
{
    return accountName<cu_Group, cu_Group_fromID, cu_Group_getName, cu_Group_delete>(status.st_gid);
}

/// What the system tells about a region: the library's object knows only one of the permissions of an opened region.
std::optional<struct stat> statusOf(const std::string& name)
{
    struct stat status {
    };
    if (lstat((folder + name).c_str(), &status) != 0)
        return std::nullopt;
    return status;
}

// Named semaphores lie in the same folder.
bool isRegionName(std::string_view name)
{
    return !name.starts_with("sem.");
}

int list()
{
    const std::unique_ptr<DIR, CloseFolder> dir(opendir(folder));
    if (!dir)
        return fail("%s: %s", folder, strerror(errno));
    std::vector<std::string> names;
    errno = 0;
    while (const dirent* entry = readdir(dir.get())) {
        if (isRegionName(entry->d_name))
            names.emplace_back(entry->d_name);
    }
    if (errno != 0)
        return fail("%s: %s", folder, strerror(errno));

    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
        // A region that went away meanwhile is no failure.
        const auto status = statusOf(name);
        if (status && S_ISREG(status->st_mode))
            printf("%12lld  %04o  %-10s %-10s %s\n", static_cast<long long>(status->st_size), status->st_mode & 07777U,
                   ownerOf(*status).c_str(), groupOf(*status).c_str(), name.c_str());
    }
    return done;
}

int show(const char* name)
{
    Region region;
    Memory memory;
    if (const int result = openRegion(name, region, memory); result != done)
        return result;
    const std::optional<struct stat> status = statusOf(name);
    if (!status)
        return fail("%s%s: %s", folder, name, strerror(errno));

    printf("name:        %s\n"
           "size:        %u bytes\n"
           "owner:       %s\n"
           "group:       %s\n"
           "mode:        %04o\n",
           name, memory.size, ownerOf(*status).c_str(), groupOf(*status).c_str(), status->st_mode & 07777U);
    return showContents(memory);
}

int run(const Arguments& arguments)
{
    if (arguments.empty())
        return misuse(shmCommand, "list or show?");
    const std::string_view action = arguments[0];
    if (action == "list")
        return arguments.size() == 1 ? list() : misuse(shmCommand, "nothing may follow 'list'");
    if (action == "show")
        return arguments.size() == 2 ? show(arguments[1]) : misuse(shmCommand, "'show' takes one name");
    return misuse(shmCommand, "there is no '%s'", arguments[0]);
}

} // namespace

constinit const Command shmCommand = {"shm", "lists shared-memory regions, shows one", usage, run};

} // namespace cutil
