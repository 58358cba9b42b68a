// cutil shm: shared-memory regions, and what may lie in one.
#include "cutil.h"
#include "json.h"
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

constexpr char help[] =
    "  list  tells of each region: size in bytes, mode, owner, group, name\n"
    "  show  tells the same of one, and what lies at its start: how full a ring buffer or a FIFO is, how many\n"
    "        signals wait in an RPC queue or channel\n"
    "\n"
    "A REGION is named as programs name it to the library, without a leading slash. 'show' needs the right to\n"
    "read and write it. A ring buffer carries a mark. RPC queues, channels and FIFOs do not: they are told from\n"
    "other contents by whether their numbers fit together and into the region.\n"
    "\n"
    "The system keeps the regions in /dev/shm.\n";

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
    return !name.starts_with("sem.") && name != "." && name != "..";
}

/// The names, sorted. @return #done, or #failed and the reason is told
int readNames(std::vector<std::string>& names)
{
    const std::unique_ptr<DIR, CloseFolder> dir(opendir(folder));
    if (!dir)
        return fail("%s: %s", folder, strerror(errno));
    errno = 0;
    while (const dirent* entry = readdir(dir.get())) {
        if (isRegionName(entry->d_name))
            names.emplace_back(entry->d_name);
    }
    if (errno != 0)
        return fail("%s: %s", folder, strerror(errno));
    std::sort(names.begin(), names.end());
    return done;
}

/// What is told of every region.
Json describe(const std::string& name, const struct stat& status)
{
    char mode[16];
    snprintf(mode, sizeof(mode), "%04o", status.st_mode & 07777U);
    Json json;
    json.add("name", name).add("size", status.st_size).add("mode", mode);
    return json.add("owner", ownerOf(status)).add("group", groupOf(status));
}

int list(const Arguments& arguments)
{
    std::vector<std::string> names;
    if (const int result = readNames(names); result != done)
        return result;
    for (const std::string& name : names) {
        // A region that went away meanwhile is no failure.
        const auto status = statusOf(name);
        if (!status || !S_ISREG(status->st_mode))
            continue;
        if (arguments.has('j'))
            describe(name, *status).print();
        else
            printf("%12lld  %04o  %-10s %-10s %s\n", static_cast<long long>(status->st_size), status->st_mode & 07777U,
                   ownerOf(*status).c_str(), groupOf(*status).c_str(), name.c_str());
    }
    return done;
}

int show(const Arguments& arguments)
{
    const char* name = arguments[0];
    Region region;
    Memory memory;
    if (const int result = openRegion(name, region, memory); result != done)
        return result;
    const std::optional<struct stat> status = statusOf(name);
    if (!status)
        return fail("%s%s: %s", folder, name, strerror(errno));

    if (arguments.has('j')) {
        Json json = describe(name, *status);
        const int result = showContents(memory, &json);
        if (result == done)
            json.print();
        return result;
    }
    printf("name:        %s\n"
           "size:        %u bytes\n"
           "owner:       %s\n"
           "group:       %s\n"
           "mode:        %04o\n",
           name, memory.size, ownerOf(*status).c_str(), groupOf(*status).c_str(), status->st_mode & 07777U);
    return showContents(memory, nullptr);
}

constexpr Option options[] = {jsonOption};
constexpr Form forms[] = {{"list", "j", list}, {"show REGION", "j", show}};

} // namespace

std::vector<std::string> regionNames()
{
    std::vector<std::string> names;
    static_cast<void>(readNames(names));
    return names;
}

constinit const Command shmCommand = {"shm", "lists shared-memory regions, shows one", help, forms, options};

} // namespace cutil
