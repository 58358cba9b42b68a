#include "support/process.h"
#include "support/refusal.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/mappedFile.h>
#include <cUtil/sharedMemory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

struct SharedMemory {
    using Object = cu_SharedMemory;
    static constexpr char prefix[] = "cu_SharedMemory_";
    static constexpr char file[] = "src/cUtil/sharedMemory.linux";
    static constexpr char kind[] = "SHM";
    static constexpr char longKind[] = "shared memory";
    static constexpr char opener[] = "shm_open";
    static constexpr char addressName[] = "cu_SharedMemory_getShared";
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

    static constexpr char start[] = "cuRegionTest.";
    static constexpr char pathPrefix[] = "/dev/shm/";
    static constexpr char systemPrefix[] = "/";
    static constexpr std::size_t longest = 255;
    static std::string lengthen(std::string name, std::size_t by) { return name.append(by, 'x'); }
    static int openDirectly(const char* name) { return shm_open(name, O_RDWR | O_CREAT, 0600); }
};

struct MappedFile {
    using Object = cu_MappedFile;
    static constexpr char prefix[] = "cu_MappedFile_";
    static constexpr char file[] = "src/cUtil/mappedFile.linux";
    static constexpr char kind[] = "file";
    static constexpr char longKind[] = "file";
    static constexpr char opener[] = "open";
    static constexpr char addressName[] = "cu_MappedFile_getPointer";
    static constexpr cu_ErrorCode createFailed = cu_ERROR_FILE_CREATE_FAILED;
    static constexpr cu_ErrorCode openFailed = cu_ERROR_FILE_OPEN_FAILED;
    static constexpr auto create = cu_MappedFile_create;
    static constexpr auto open = cu_MappedFile_open;
    static constexpr auto destroy = cu_MappedFile_delete;
    static constexpr auto nameOf = cu_MappedFile_getName;
    static constexpr auto sizeOf = cu_MappedFile_getMappedSize;
    static constexpr auto addressOf = cu_MappedFile_getPointer;
    static constexpr auto addressAt = cu_MappedFile_getPointerWithOffset;
    static constexpr auto userOf = cu_MappedFile_getUser;
    static constexpr auto groupOf = cu_MappedFile_getGroup;
    static constexpr auto permissionsOf = cu_MappedFile_getPermissions;

    static constexpr char start[] = "/tmp/cuRegionTest.";
    static constexpr char pathPrefix[] = "";
    static constexpr char systemPrefix[] = "";
    static constexpr std::size_t longest = 4095;
    static std::string lengthen(const std::string& name, std::size_t by) { return std::string(by, '/') + name; }
    static int openDirectly(const char* path) { return ::open(path, O_RDWR | O_CREAT, 0600); }
};

constexpr uint32_t someSize = 8192;
constexpr uint32_t nobody = 65534;
constexpr cu_ErrorCode rawMinusOne = 0xFFFFFFFF;

std::string reason(int error)
{
    return std::string("='") + strerror(error) + "' [" + std::to_string(error) + "]";
}

/// The flags of the open descriptor that leads to a file, or -1 when none does.
int descriptorFlags(const std::string& path)
{
    int flags = -1;
    std::error_code gone; // the descriptor of the iteration itself
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
        if (std::filesystem::read_symlink(entry, gone) == path)
            flags = fcntl(std::stoi(entry.path().filename()), F_GETFD);
    return flags;
}

/// A fresh name for every test; what it leaves in the system is removed.
template <typename Calls>
class RegionTest : public testing::Test
{
protected:
    using Object = typename Calls::Object;

    RegionTest() : mask_(umask(0)) {}
    ~RegionTest() override
    {
        unlink(path.c_str());
        umask(mask_);
    }

    static std::string text(const char* operation) { return std::string(Calls::prefix) + operation; }

    cu_ErrorCode create(Object** handle, uint32_t permissions = 0, bool openExisting = false, uint32_t size = someSize,
                        cu_allocator* allocator = nullptr)
    {
        return Calls::create(handle, name.c_str(), size, nullptr, nullptr, permissions, openExisting, allocator);
    }
    cu_ErrorCode open(Object** handle, cu_allocator* allocator = nullptr)
    {
        return Calls::open(handle, name.c_str(), allocator);
    }

    /// What a create or an open is that the system refuses.
    support::Failure cannotCreate(unsigned options, const char* mode, int error) const
    {
        const std::string message = std::string("Unable to create the requested ") + Calls::kind + " '" +
                                    Calls::systemPrefix + name + "' with the options '" + std::to_string(options) +
                                    "' and openmode '" + mode + "'. " + Calls::opener + " failed with errno";
        return {Calls::createFailed, text("create"), Calls::file, (message + reason(error)).substr(0, 999), error};
    }
    support::Failure cannotOpen(int error) const
    {
        const std::string message = "Requested to open '" + (Calls::systemPrefix + name) + "' with options '2'. Errno";
        return {Calls::openFailed, text("open"), Calls::file, (message + reason(error)).substr(0, 999), error};
    }

    struct stat status() const
    {
        struct stat result = {};
        EXPECT_EQ(stat(path.c_str(), &result), 0) << path;
        return result;
    }
    bool isThere() const { return access(path.c_str(), F_OK) == 0; }

    template <typename Value>
    static Value tell(cu_ErrorCode (*getter)(const Object*, Value*), const Object* me)
    {
        Value value = {};
        EXPECT_EQ(getter(me, &value), 0U);
        return value;
    }
    static char* address(const Object* me) { return static_cast<char*>(tell(Calls::addressOf, me)); }
    static uint32_t size(const Object* me) { return tell(Calls::sizeOf, me); }

    std::string name = Calls::start + std::to_string(getpid());
    const std::string path = Calls::pathPrefix + name;
    Object* me = nullptr;

private:
    mode_t mask_;
};

struct Name {
    template <typename Calls>
    static std::string GetName(int)
    {
        return Calls::opener;
    }
};
using Both = testing::Types<SharedMemory, MappedFile>;
TYPED_TEST_SUITE(RegionTest, Both, Name);

TYPED_TEST(RegionTest, processesSeeEachOthersWrites)
{
    typename TypeParam::Object* mine = nullptr;
    ASSERT_EQ(this->create(&mine), 0U);
    char* bytes = this->address(mine);
    EXPECT_EQ(std::string(bytes, someSize), std::string(someSize, '\0'));
    strcpy(bytes, "question");
    const auto other = support::outcomeOf([&] {
        ASSERT_EQ(this->open(&this->me), 0U);
        EXPECT_EQ(this->size(this->me), someSize);
        EXPECT_STREQ(this->address(this->me), "question");
        void* last = nullptr;
        ASSERT_EQ(TypeParam::addressAt(this->me, &last, someSize - 1), 0U);
        *static_cast<char*>(last) = '!';
        EXPECT_EQ(TypeParam::destroy(&this->me, false), 0U);
    });
    EXPECT_EQ(other.status, 0) << other.out;
    EXPECT_EQ(bytes[someSize - 1], '!');
    EXPECT_EQ(TypeParam::destroy(&mine, true), 0U);
    EXPECT_EQ(mine, nullptr);
    EXPECT_FALSE(this->isThere());
}

TYPED_TEST(RegionTest, anExistingOneIsAFailureOrTakenAndResized)
{
    typename TypeParam::Object* first = nullptr;
    typename TypeParam::Object* second = nullptr;
    ASSERT_EQ(this->create(&first), 0U);
    strcpy(this->address(first), "kept");
    EXPECT_EQ(support::failureOf([&] { return this->create(&second, 27); }), this->cannotCreate(194, "0660", EEXIST));
    EXPECT_EQ(second, nullptr);
    ASSERT_EQ(this->create(&second, 0, true, 4096), 0U);
    EXPECT_STREQ(this->address(second), "kept");
    EXPECT_EQ(this->status().st_size, 4096);
    EXPECT_EQ(this->size(first), someSize);
    EXPECT_EQ(TypeParam::destroy(&second, false), 0U);
    EXPECT_TRUE(this->isThere());
    EXPECT_EQ(TypeParam::destroy(&first, true), 0U);
}

TYPED_TEST(RegionTest, permissionsBecomeTheModeLessTheUmask)
{
    struct {
        uint32_t flags;
        mode_t mask;
        mode_t mode;
    } const cases[] = {{0, 0, 0777},  {1, 0, 0400},   {2, 0, 0200}, {4, 0, 0100},   {8, 0, 040},
                       {16, 0, 020},  {32, 0, 010},   {64, 0, 04},  {128, 0, 02},   {256, 0, 01},
                       {27, 0, 0660}, {511, 0, 0777}, {512, 0, 0},  {0, 027, 0750}, {511, 077, 0700}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.flags);
        umask(one.mask);
        ASSERT_EQ(this->create(&this->me, one.flags), 0U);
        EXPECT_EQ(this->status().st_mode & 07777, one.mode);
        EXPECT_EQ(this->tell(TypeParam::permissionsOf, this->me), one.flags);
        EXPECT_EQ(TypeParam::destroy(&this->me, true), 0U);
    }
}

TYPED_TEST(RegionTest, anOpenedOneTellsItsLastPermissionItsOwnerAndItsSize)
{
    ASSERT_EQ(this->create(&this->me), 0U);
    EXPECT_EQ(descriptorFlags(this->path), FD_CLOEXEC);
    EXPECT_EQ(TypeParam::destroy(&this->me, false), 0U);
    struct {
        mode_t mode;
        uint32_t flag;
    } const cases[] = {{0660, 16}, {0644, 64}, {0600, 2}, {0700, 4}, {0640, 8}, {0610, 32}, {0606, 128}, {0777, 256}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.mode);
        EXPECT_EQ(descriptorFlags(this->path), -1);
        ASSERT_EQ(chmod(this->path.c_str(), one.mode), 0);
        ASSERT_EQ(this->open(&this->me), 0U);
        EXPECT_EQ(descriptorFlags(this->path), FD_CLOEXEC);
        EXPECT_EQ(this->tell(TypeParam::permissionsOf, this->me), one.flag);
        EXPECT_EQ(this->size(this->me), someSize);
        EXPECT_EQ(cu_String_get(this->tell(TypeParam::nameOf, this->me)), this->name);
        uint32_t id = ~0U;
        EXPECT_EQ(cu_User_getID(this->tell(TypeParam::userOf, this->me), &id), 0U);
        EXPECT_EQ(id, geteuid());
        EXPECT_EQ(cu_Group_getID(this->tell(TypeParam::groupOf, this->me), &id), 0U);
        EXPECT_EQ(id, getegid());
        EXPECT_EQ(TypeParam::destroy(&this->me, false), 0U);
    }
}

TYPED_TEST(RegionTest, onlyUserAndGroupTogetherChangeTheOwnership)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may give files away";
    cu_User* user = nullptr;
    cu_Group* group = nullptr;
    ASSERT_EQ(cu_User_fromID(&user, nobody, nullptr), 0U);
    ASSERT_EQ(cu_Group_fromID(&group, nobody, nullptr), 0U);
    for (const auto& [giveUser, giveGroup] : {std::pair{false, false}, {true, false}, {false, true}, {true, true}}) {
        ASSERT_EQ(TypeParam::create(&this->me, this->name.c_str(), someSize, giveUser ? user : nullptr,
                                    giveGroup ? group : nullptr, 0, false, nullptr),
                  0U);
        EXPECT_EQ(this->status().st_uid, giveUser && giveGroup ? nobody : 0U);
        EXPECT_EQ(this->status().st_gid, giveUser && giveGroup ? nobody : getegid());
        EXPECT_EQ(this->tell(TypeParam::userOf, this->me) != nullptr, giveUser);
        EXPECT_NE(this->tell(TypeParam::userOf, this->me), user) << "the caller keeps his own";
        EXPECT_EQ(TypeParam::destroy(&this->me, true), 0U);
    }
    cu_User_delete(&user);
    cu_Group_delete(&group);
}

TYPED_TEST(RegionTest, missingPermissionsKeepOthersOut)
{
    ASSERT_EQ(this->create(&this->me, 1), 0U);
    const auto outcome = support::outcomeOf([&] {
        if (geteuid() == 0 && setuid(nobody) != 0)
            _exit(1);
        typename TypeParam::Object* theirs = nullptr;
        EXPECT_EQ(support::failureOf([&] { return this->open(&theirs); }), this->cannotOpen(EACCES));
        EXPECT_EQ(support::failureOf([&] { return this->create(&theirs, 511, true); }),
                  this->cannotCreate(66, "0777", EACCES));
        EXPECT_EQ(theirs, nullptr);
    });
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    EXPECT_EQ(TypeParam::destroy(&this->me, true), 0U);
}

TYPED_TEST(RegionTest, everyStepHasItsReportAndLeavesNothingBehindButTheRegion)
{
    using Region = typename TypeParam::Object;
    support::WatchfulAllocator cloned;
    cu_User* user = nullptr;
    cu_Group* group = nullptr;
    ASSERT_EQ(cu_User_current(&user, cloned.get()), 0U);
    ASSERT_EQ(cu_Group_current(&group, cloned.get()), 0U);
    const std::size_t live = cloned.live();
    const auto create = [&](Region** handle, cu_allocator* allocator) {
        return TypeParam::create(handle, this->name.c_str(), someSize, user, group, 0, true, allocator);
    };
    const auto open = [&](Region** handle, cu_allocator* allocator) { return this->open(handle, allocator); };
    const auto destroy = [](Region** handle) { return TypeParam::destroy(handle, false); };
    support::sweep<Region>(this->text("create").c_str(), create, destroy);
    support::sweep<Region>(this->text("open").c_str(), open, destroy);
    EXPECT_EQ(cloned.live(), live);

    for (unsigned nth = 1; nth <= 6; ++nth) {
        cloned.refuse(nth);
        EXPECT_EQ(create(&this->me, nullptr), cu_ErrorCode{cu_ERROR_COM_MALLOC_FAILED});
        EXPECT_EQ(cloned.live(), live);
    }
    struct {
        const char* call;
        std::string description;
        bool creates;
    } const cases[] = {
        {"fchown", "Failed to change ownership of " + std::string(TypeParam::longKind) + ": " + strerror(EIO) + " [5]",
         true},
        {"ftruncate64", "Failed to call ftruncate. Errno" + reason(EIO), true},
        {"mmap64", "Failed to call mmap. Errno" + reason(EIO), true},
        {"fstat64", "Failed to call fstat. Errno" + reason(EIO), false},
        {"mmap64", "Failed to call mmap. Errno" + reason(EIO), false},
    };
    for (const auto& one : cases) {
        const support::Injection injection(one.call, EIO);
        EXPECT_SYSTEM_FAILURE(one.creates ? create(&this->me, nullptr) : open(&this->me, nullptr),
                              one.creates ? TypeParam::createFailed : TypeParam::openFailed, EIO,
                              this->text(one.creates ? "create" : "open"), TypeParam::file, one.description);
        EXPECT_TRUE(this->isThere());
    }
    cu_User_delete(&user);
    cu_Group_delete(&group);
}

TYPED_TEST(RegionTest, aDeleteThatFailsCanBeRepeated)
{
    support::WatchfulAllocator allocator;
    const auto create = [&] { return this->create(&this->me, 0, true, someSize, allocator.get()); };
    ASSERT_EQ(create(), 0U);
    auto* const before = this->me;
    {
        const support::Injection stuck("close", EIO);
        EXPECT_SYSTEM_FAILURE(TypeParam::destroy(&this->me, true), cu_ERROR_SHM_CLOSE_FAILED, EIO, this->text("delete"),
                              TypeParam::file, "");
    }
    EXPECT_EQ(this->me, before);
    EXPECT_EQ(this->address(this->me), nullptr);
    EXPECT_TRUE(this->isThere());
    EXPECT_NE(descriptorFlags(this->path), -1);
    EXPECT_EQ(this->size(this->me), 0U);
    void* inside = nullptr;
    EXPECT_REFUSED(TypeParam::addressAt(this->me, &inside, 1), std::string(TypeParam::addressName) + "WithOffset",
                   TypeParam::file);
    EXPECT_EQ(TypeParam::destroy(&this->me, false), 0U);
    EXPECT_EQ(descriptorFlags(this->path), -1);

    ASSERT_EQ(create(), 0U);
    void* const old = this->address(this->me);
    ASSERT_EQ(unlink(this->path.c_str()), 0);
    cu_Error_clear(cu_getErrorLocation());
    EXPECT_EQ(TypeParam::destroy(&this->me, true), rawMinusOne);
    EXPECT_EQ(ku_getErrorCode(), 0U) << "the raw result is not reported";
    EXPECT_EQ(support::trace().find(this->text("delete  -  ") + TypeParam::file), 0U);
    ASSERT_NE(this->me, nullptr);
    // What is mapped there since is not the region's.
    ASSERT_EQ(mmap(old, someSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0),
              old);
    *static_cast<char*>(old) = 'f';
    EXPECT_EQ(TypeParam::destroy(&this->me, true), rawMinusOne);
    EXPECT_EQ(TypeParam::destroy(&this->me, false), 0U);
    EXPECT_EQ(this->me, nullptr);
    EXPECT_EQ(*static_cast<volatile char*>(old), 'f');
    munmap(old, someSize);
}

TYPED_TEST(RegionTest, longNamesWorkUpToTheSystemsLimit)
{
    const std::string shortName = this->name;
    for (const std::size_t length : {254U, 255U, 256U, 257U, 4095U, 4096U, 10000U}) {
        SCOPED_TRACE(length);
        this->name = TypeParam::lengthen(shortName, length - shortName.size());
        const auto create = [&] { return this->create(&this->me, 511, true); };
        if (length <= TypeParam::longest) {
            ASSERT_EQ(create(), 0U);
            EXPECT_EQ(TypeParam::destroy(&this->me, false), 0U);
            ASSERT_EQ(this->open(&this->me), 0U);
            EXPECT_EQ(TypeParam::destroy(&this->me, true), 0U);
        } else {
            ASSERT_EQ(TypeParam::openDirectly((TypeParam::systemPrefix + this->name).c_str()), -1);
            const int error = errno; // ENAMETOOLONG or, from some versions of the C library, EINVAL
            EXPECT_EQ(support::failureOf(create), this->cannotCreate(66, "0777", error));
            EXPECT_EQ(support::failureOf([&] { return this->open(&this->me); }), this->cannotOpen(error));
        }
        EXPECT_EQ(this->me, nullptr);
    }
}

TYPED_TEST(RegionTest, sizesOfGibibytesWorkOrFailCleanly)
{
    const unsigned descriptors = support::openDescriptors();
    for (const uint32_t size : {0x7FFFF000U, 0x80000000U, 0xFFFFF000U}) {
        SCOPED_TRACE(size);
        if (const cu_ErrorCode code = this->create(&this->me, 0, true, size); code != 0) {
            ASSERT_EQ(sizeof(void*), 4U) << ku_getErrorMessage();
            EXPECT_EQ(code, TypeParam::createFailed);
            EXPECT_EQ(ku_getErrorMessage(), "Failed to call mmap. Errno" + reason(ENOMEM));
            EXPECT_EQ(this->me, nullptr);
        } else {
            void* last = nullptr;
            EXPECT_EQ(TypeParam::addressAt(this->me, &last, size - 1), 0U);
            *static_cast<char*>(last) = 'x';
            EXPECT_EQ(TypeParam::destroy(&this->me, false), 0U);
            ASSERT_EQ(this->open(&this->me), 0U);
            EXPECT_EQ(this->size(this->me), size);
            EXPECT_EQ(this->address(this->me)[size - 1], 'x');
            EXPECT_EQ(TypeParam::destroy(&this->me, false), 0U);
        }
        EXPECT_EQ(this->status().st_size, static_cast<off_t>(size));
        EXPECT_EQ(support::openDescriptors(), descriptors);
    }
    for (const auto& [size, error] : {std::pair{off_t{5} << 30, EOVERFLOW}, {off_t{0}, EINVAL}}) {
        SCOPED_TRACE(size);
        ASSERT_EQ(truncate(this->path.c_str(), size), 0);
        EXPECT_SYSTEM_FAILURE(this->open(&this->me), TypeParam::openFailed, error, this->text("open"), TypeParam::file,
                              "Failed to call mmap. Errno" + reason(error));
        EXPECT_EQ(this->me, nullptr);
        EXPECT_EQ(support::openDescriptors(), descriptors);
    }
}

TYPED_TEST(RegionTest, badArgumentsAreRefused)
{
    typename TypeParam::Object* none = nullptr;
    ASSERT_EQ(this->create(&this->me), 0U);
    void* address = nullptr;
    uint32_t number = 0;
    const cu_String* stored = nullptr;
    const cu_User* user = nullptr;
    const cu_Group* group = nullptr;
    const std::tuple good(&none, this->me, "x", &address, &number, &stored, &user, &group, uint32_t{4096});
    const auto refuses = [&](const std::string& function, auto call) {
        support::expectNullsRefused(function, TypeParam::file, good, call);
    };
    const std::string at = std::string(TypeParam::addressName) + "WithOffset";
    refuses(this->text("create"), TypeParam::create);
    refuses(this->text("open"), TypeParam::open);
    refuses(at, TypeParam::addressAt);
    refuses(TypeParam::addressName, TypeParam::addressOf);
    refuses(this->text("getMappedSize"), TypeParam::sizeOf);
    refuses(this->text("getPermissions"), TypeParam::permissionsOf);
    refuses(this->text("getName"), TypeParam::nameOf);
    refuses(this->text("getUser"), TypeParam::userOf);
    refuses(this->text("getGroup"), TypeParam::groupOf);
    support::expectNullsRefused(this->text("delete"), TypeParam::file, std::tuple(&this->me), TypeParam::destroy);
    for (const auto& bad : {std::pair{"", 4096U}, {"x", 0U}})
        EXPECT_REFUSED(TypeParam::create(&none, bad.first, bad.second, nullptr, nullptr, 0, true, nullptr),
                       this->text("create"), TypeParam::file);
    EXPECT_REFUSED(TypeParam::open(&none, "", nullptr), this->text("open"), TypeParam::file);
    for (const uint32_t beyond : {someSize, ~0U})
        EXPECT_REFUSED(TypeParam::addressAt(this->me, &address, beyond), at, TypeParam::file);
    EXPECT_EQ(TypeParam::destroy(&this->me, true), 0U);
}

using SharedMemoryTest = RegionTest<SharedMemory>;

TEST_F(SharedMemoryTest, theSizeIsAskedFromTheSystemEachTime)
{
    uint32_t size = 0;
    ASSERT_EQ(create(&me), 0U);
    for (const uint32_t now : {4096U, 0xFFFFFFFFU}) {
        ASSERT_EQ(truncate(path.c_str(), now), 0);
        EXPECT_EQ(cu_SharedMemory_getSHMSize(me, &size), 0U);
        EXPECT_EQ(size, now);
        EXPECT_EQ(this->size(me), someSize);
    }
    EXPECT_NULLS_REFUSED(SharedMemory::file, (std::tuple{me, &size}), cu_SharedMemory_getSHMSize);
    EXPECT_EQ(size, 0xFFFFFFFFU);
    ASSERT_EQ(truncate(path.c_str(), off_t{1} << 32), 0);
    EXPECT_SYSTEM_FAILURE(cu_SharedMemory_getSHMSize(me, &size), cu_ERROR_SHM_FSTAT, EOVERFLOW,
                          "cu_SharedMemory_getSHMSize", SharedMemory::file,
                          "Call fo fstat failed. Errno=Value too large for defined data type [75]");
    EXPECT_EQ(size, 0U);
    size = 7;
    const support::Injection failing("fstat64", EIO);
    EXPECT_SYSTEM_FAILURE(cu_SharedMemory_getSHMSize(me, &size), cu_ERROR_SHM_FSTAT, EIO, "cu_SharedMemory_getSHMSize",
                          SharedMemory::file, "Call fo fstat failed. Errno=Input/output error [5]");
    EXPECT_EQ(size, 0U);
    EXPECT_EQ(cu_SharedMemory_delete(&me, true), 0U);
}

TEST_F(SharedMemoryTest, theNameIsBuiltAnewForTheUnlinkAndItsFailureKeepsTheObject)
{
    support::WatchfulAllocator allocator;
    ASSERT_EQ(create(&me, 0, false, 1, allocator.get()), 0U);
    allocator.refuse(1);
    EXPECT_FAILURE(cu_SharedMemory_delete(&me, true), cu_ERROR_COM_MALLOC_FAILED, "refusal", "test", "");
    EXPECT_EQ(support::trace().find("createSHMName  -  src/cUtil/sharedMemory.linux:"), 0U);
    EXPECT_NE(support::trace().find("\ncu_SharedMemory_delete  -  "), std::string::npos);
    EXPECT_EQ(cu_SharedMemory_delete(&me, true), 0U);
    EXPECT_FALSE(isThere());
}

TEST(PageSize, isTheSystemsOrAFatalError)
{
    int32_t size = 0;
    for (const auto call : {cu_getSystemGranularity, cu_getPageSize}) {
        EXPECT_EQ(call(&size), 0U);
        EXPECT_EQ(std::exchange(size, 7), sysconf(_SC_PAGESIZE));
    }
    const char text[] = "sysconf failed with error 22 [Invalid argument]";
    support::expectSystemFailures(
        SharedMemory::file,
        {{"sysconf", EINVAL, cu_ERROR_CUTIL_FATAL, "cu_getSystemGranularity", text,
          [&] { return cu_getSystemGranularity(&size); }},
         {"sysconf", EINVAL, cu_ERROR_CUTIL_FATAL, "cu_getPageSize", text, [&] { return cu_getPageSize(&size); }}});
    EXPECT_EQ(size, 7);
    EXPECT_NULLS_REFUSED(SharedMemory::file, std::tuple{&size}, cu_getSystemGranularity, cu_getPageSize);
}

using MappedFileTest = RegionTest<MappedFile>;

TEST_F(MappedFileTest, isCreatedInWholePagesButOpenedAsItIs)
{
    for (const uint32_t size : {1U, 4095U, 4097U, 0xFFFFFFFFU})
        EXPECT_REFUSED(create(&me, 0, false, size), "cu_MappedFile_create", MappedFile::file);
    std::ofstream(path) << "five!";
    ASSERT_EQ(open(&me), 0U);
    EXPECT_EQ(std::string(address(me), size(me)), "five!");
    address(me)[0] = 'F';
    EXPECT_EQ(cu_MappedFile_delete(&me, false), 0U);
    std::string text;
    std::getline(std::ifstream(path), text, '\0');
    EXPECT_EQ(text, "Five!");
}

} // namespace
