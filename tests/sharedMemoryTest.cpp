#include "regionCases.h"
#include "support/refusal.h"

#include <cUtil/sharedMemory.h>

namespace
{

struct SharedMemory {
    using Object = cu_SharedMemory;
    static constexpr char prefix[] = "cu_SharedMemory_";
    static constexpr char file[] = "src/cUtil/sharedMemory.linux";
    static constexpr char addressName[] = "cu_SharedMemory_getShared";
    static constexpr char cannotGive[] = "Failed to change ownership of shared memory";
    static constexpr cu_ErrorCode createFailed = cu_ERROR_SHM_CREATE_FAILED;
    static constexpr cu_ErrorCode openFailed = cu_ERROR_SHM_OPEN_FAILED;
    static constexpr auto create = cu_SharedMemory_create;
    static constexpr auto open = cu_SharedMemory_open;
    static constexpr auto destroy = cu_SharedMemory_delete;
    static constexpr auto nameOf = cu_SharedMemory_getName;
    static constexpr auto sizeOf = cu_SharedMemory_getMappedSize;
    static constexpr auto addressOf = cu_SharedMemory_getShared;
    static constexpr auto addressAt = cu_SharedMemory_getSharedWithOffset;
    static constexpr auto userOf = cu_SharedMemory_getUser;
    static constexpr auto groupOf = cu_SharedMemory_getGroup;
    static constexpr auto permissionsOf = cu_SharedMemory_getPermissions;

    static std::string freshName()
    {
        static int count = 0;
        return "cuShmTest." + std::to_string(getpid()) + "." + std::to_string(++count);
    }

    static std::string systemName(const std::string& name) { return "/" + name; }
    static std::string pathOf(const std::string& name) { return "/dev/shm/" + name; }
    static int openDirectly(const char* name) { return shm_open(name, O_RDWR | O_CREAT, 0600); }
    static std::string nameOfLength(std::size_t length) { return freshName().append(length, 'x').substr(0, length); }

    static std::vector<std::pair<std::size_t, bool>> lengths()
    {
        return {{254, true}, {255, true}, {256, false}, {257, false}, {4096, false}};
    }

    static std::string cannotCreate(const std::string& name, unsigned options, const char* mode)
    {
        return "Unable to create the requested SHM '/" + name + "' with the options '" + std::to_string(options) +
               "' and openmode '" + mode + "'. shm_open failed with errno";
    }
};

constexpr char file[] = "src/cUtil/sharedMemory.linux";

TEST(SharedMemorySize, isAskedFromTheSystemEachTime)
{
    const std::string name = SharedMemory::freshName();
    const std::string path = SharedMemory::pathOf(name);
    cu_SharedMemory* me = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(cu_SharedMemory_create(&me, name.c_str(), 8192, nullptr, nullptr, 0, false, nullptr), 0U);
    support::Process other([&] { return truncate(path.c_str(), 4096); });
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(cu_SharedMemory_getSHMSize(me, &size), 0U);
    EXPECT_EQ(size, 4096U);
    EXPECT_EQ(cu_SharedMemory_getMappedSize(me, &size), 0U);
    EXPECT_EQ(size, 8192U);

    ASSERT_EQ(truncate(path.c_str(), 0xFFFFFFFF), 0);
    EXPECT_EQ(cu_SharedMemory_getSHMSize(me, &size), 0U);
    EXPECT_EQ(size, 0xFFFFFFFFU);
    ASSERT_EQ(truncate(path.c_str(), off_t{1} << 32), 0);
    EXPECT_SYSTEM_FAILURE(cu_SharedMemory_getSHMSize(me, &size), cu_ERROR_SHM_FSTAT, EOVERFLOW,
                          "cu_SharedMemory_getSHMSize", file,
                          "Call fo fstat failed. Errno=Value too large for defined data type [75]");
    EXPECT_EQ(size, 0U);
    size = 7;
    {
        const support::Injection failing("fstat64", EIO);
        EXPECT_SYSTEM_FAILURE(cu_SharedMemory_getSHMSize(me, &size), cu_ERROR_SHM_FSTAT, EIO,
                              "cu_SharedMemory_getSHMSize", file, "Call fo fstat failed. Errno=Input/output error [5]");
    }
    EXPECT_EQ(size, 0U);
    size = 7;
    EXPECT_NULLS_REFUSED(file, (std::tuple{me, &size}), cu_SharedMemory_getSHMSize);
    EXPECT_EQ(size, 7U);
    EXPECT_EQ(cu_SharedMemory_delete(&me, true), 0U);
}

TEST(SharedMemoryName, isBuiltAnewForTheUnlinkAndItsFailureKeepsTheObject)
{
    support::WatchfulAllocator allocator;
    const std::string name = SharedMemory::freshName();
    cu_SharedMemory* me = nullptr;
    ASSERT_EQ(cu_SharedMemory_create(&me, name.c_str(), 1, nullptr, nullptr, 0, false, allocator.get()), 0U);
    allocator.refuse(1);
    EXPECT_FAILURE(cu_SharedMemory_delete(&me, true), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "");
    EXPECT_EQ(support::trace().find("createSHMName  -  src/cUtil/sharedMemory.linux:"), 0U);
    EXPECT_NE(support::trace().find("\ncu_SharedMemory_delete  -  "), std::string::npos);
    ASSERT_NE(me, nullptr);
    EXPECT_EQ(cu_SharedMemory_delete(&me, true), 0U);
    EXPECT_NE(access(SharedMemory::pathOf(name).c_str(), F_OK), 0);
}

TEST(PageSize, isTheSystemsOrAFatalError)
{
    struct {
        cu_ErrorCode (*call)(int32_t*);
        const char* name;
    } const cases[] = {{cu_getSystemGranularity, "cu_getSystemGranularity"}, {cu_getPageSize, "cu_getPageSize"}};
    for (const auto& one : cases) {
        int32_t size = 0;
        EXPECT_EQ(one.call(&size), 0U);
        EXPECT_EQ(size, sysconf(_SC_PAGESIZE));
        const support::Injection failing("sysconf", EINVAL);
        EXPECT_SYSTEM_FAILURE(one.call(&size), cu_ERROR_CUTIL_FATAL, EINVAL, one.name, file,
                              "sysconf failed with error 22 [Invalid argument]");
        EXPECT_EQ(size, sysconf(_SC_PAGESIZE));
        EXPECT_REFUSED(one.call(nullptr), one.name, file);
    }
}

} // namespace

namespace regions
{
INSTANTIATE_TYPED_TEST_SUITE_P(SharedMemory, RegionTest, SharedMemory);
}
