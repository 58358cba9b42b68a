// cutil shm: shared-memory regions, and the FIFO that may lie in one.
#include "cutil.h"

#include <cUtil/fifo.h>
#include <cUtil/sharedMemory.h>
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

constexpr char usage[] = "usage: cutil shm list\n"
                         "       cutil shm show NAME\n"
                         "\n"
                         "  list  lists the shared-memory regions: size in bytes, mode, owner, group, name\n"
                         "  show  tells about one region and, if a FIFO lies at its start, how full that is\n"
                         "\n"
                         "NAME is the name that programs give to the library, without a leading slash.\n"
                         "'show' needs the right to read and write the region.\n";

/// Where the system keeps the regions as files.
constexpr char folder[] = "/dev/shm/";

struct CloseFolder {
    void operator()(DIR* dir) const { closedir(dir); }
};

struct DeleteRegion {
    void operator()(cu_SharedMemory* region) const
    {
        if (const cu_ErrorCode code = cu_SharedMemory_delete(&region, false); code != 0)
            static_cast<void>(failByRecord(code, "closing the region"));
    }
};
using Region = std::unique_ptr<cu_SharedMemory, DeleteRegion>;

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

/// The first two words of a FIFO's block.
struct FifoShape {
    uint32_t capacity;
    uint32_t entrySize;
};

// A FIFO carries no mark, so what lies there is one when all that it says fits together and into the region.
std::optional<FifoShape> findFifo(void* block, uint32_t size)
{
    if (size < CU_FIFO_HEADER_SIZE || cu_Fifo_attach(block) != 0)
        return std::nullopt;
    FifoShape shape{};
    memcpy(&shape, block, sizeof(shape));
    const uint32_t needed = cu_Fifo_getBlockSize(shape.capacity, shape.entrySize);
    if (needed == 0 || needed > size)
        return std::nullopt;
    return shape;
}

int showFifo(void* block, uint32_t size)
{
    const std::optional<FifoShape> shape = findFifo(block, size);
    if (!shape) {
        puts("FIFO:        none");
        return done;
    }
    uint32_t capacity = 0;
    int32_t free = 0;
    int32_t used = 0;
    const cu_ErrorCode code = cu_Fifo_getLengthInfos(block, &capacity, &free, &used);
    if (code != 0)
        return failByRecord(code, "reading the FIFO");
    // The two are read one after the other, and open transactions count as neither.
    if (free > static_cast<int64_t>(capacity) || used > static_cast<int64_t>(capacity)) {
        puts("FIFO:        none");
        return done;
    }
    printf("FIFO:        %u entries of %u bytes\n"
           "  used:      %d\n"
           "  free:      %d\n",
           capacity, shape->entrySize, used, free);
    return done;
}

int show(const char* name)
{
    Region region;
    {
        cu_SharedMemory* opened = nullptr;
        const cu_ErrorCode code = cu_SharedMemory_open(&opened, name, nullptr);
        if (code != 0)
            return failByRecord(code, name);
        region.reset(opened);
    }
    const std::optional<struct stat> status = statusOf(name);
    if (!status)
        return fail("%s%s: %s", folder, name, strerror(errno));
    uint32_t size = 0;
    void* base = nullptr;
    cu_ErrorCode code = cu_SharedMemory_getMappedSize(region.get(), &size);
    if (code == 0)
        code = cu_SharedMemory_getShared(region.get(), &base);
    if (code != 0)
        return failByRecord(code, name);

    printf("name:        %s\n"
           "size:        %u bytes\n"
           "owner:       %s\n"
           "group:       %s\n"
           "mode:        %04o\n",
           name, size, ownerOf(*status).c_str(), groupOf(*status).c_str(), status->st_mode & 07777U);
    return showFifo(base, size);
}

int run(Arguments arguments)
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
