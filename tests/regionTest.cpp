#include "support/made.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/mappedFile.h>
#include <cUtil/sharedMemory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace
{

/// The words and the limits of a kind of regions.
struct Texts {
    const char *prefix, *file, *kind, *longKind, *opener, *addressOperation, *names, *folder, *systemPrefix;
    std::size_t longestName;
    cu_ErrorCode createFailed, openFailed;
};

template <typename T>
struct Functions {
    template <typename Value>
    using Getter = cu_ErrorCode (*)(const T*, Value*);

    int (*openDirectly)(const char*, int, mode_t);
    cu_ErrorCode (*create)(T**, const char*, uint32_t, const cu_User*, const cu_Group*, uint32_t, bool, cu_allocator*);
    cu_ErrorCode (*open)(T**, const char*, cu_allocator*);
    cu_ErrorCode (*destroy)(T**, bool);
    cu_ErrorCode (*addressAt)(const T*, void**, uint32_t);
    Getter<void*> addressOf;
    Getter<uint32_t> sizeOf, permissionsOf;
    Getter<const cu_String*> nameOf;
    Getter<const cu_User*> userOf;
    Getter<const cu_Group*> groupOf;
};

template <typename T>
struct Calls : Texts, Functions<T> {
    using Object = T;
};
using SharedMemory = Calls<cu_SharedMemory>;
using MappedFile = Calls<cu_MappedFile>;

constexpr auto openFile = [](const char* path, int flags, mode_t mode) { return open(path, flags, mode); };

constexpr std::tuple kinds = {
    SharedMemory{{"cu_SharedMemory_", "src/cUtil/sharedMemory.linux", "SHM", "shared memory", "shm_open", "getShared",
                  "cuRegionTest.", "/dev/shm/", "/", 255, cu_ERROR_SHM_CREATE_FAILED, cu_ERROR_SHM_OPEN_FAILED},
                 {shm_open, cu_SharedMemory_create, cu_SharedMemory_open, cu_SharedMemory_delete,
                  cu_SharedMemory_getSharedWithOffset, cu_SharedMemory_getShared, cu_SharedMemory_getMappedSize,
                  cu_SharedMemory_getPermissions, cu_SharedMemory_getName, cu_SharedMemory_getUser,
                  cu_SharedMemory_getGroup}},
    MappedFile{{"cu_MappedFile_", "src/cUtil/mappedFile.linux", "file", "file", "open", "getPointer",
                "/tmp/cuRegionTest.", "", "", 4095, cu_ERROR_FILE_CREATE_FAILED, cu_ERROR_FILE_OPEN_FAILED},
               {openFile, cu_MappedFile_create, cu_MappedFile_open, cu_MappedFile_delete,
                cu_MappedFile_getPointerWithOffset, cu_MappedFile_getPointer, cu_MappedFile_getMappedSize,
                cu_MappedFile_getPermissions, cu_MappedFile_getName, cu_MappedFile_getUser, cu_MappedFile_getGroup}}};

constexpr uint32_t someSize = 8192;
constexpr uint32_t nobody = 65534;

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
template <typename Kind>
class RegionTest : public testing::Test
{
protected:
    using Object = typename Kind::Object;
    static constexpr const Kind& my = std::get<Kind>(kinds);

    RegionTest() : mask_(umask(0)) {}
    ~RegionTest() override
    {
        unlink(path.c_str());
        umask(mask_);
    }

    static std::string text(const char* operation) { return std::string(my.prefix) + operation; }

    cu_ErrorCode create(uint32_t permissions = 0, bool openExisting = false, uint32_t size = someSize)
    {
        return my.create(&me, name.c_str(), size, nullptr, nullptr, permissions, openExisting, nullptr);
    }
    cu_ErrorCode open() { return my.open(&me, name.c_str(), nullptr); }
    void end(bool unlink)
    {
        EXPECT_EQ(my.destroy(&me, unlink), 0U);
        EXPECT_EQ(me, nullptr);
    }

    /// What a create or an open is that the system refuses.
    static support::Failure failure(const char* operation, const std::string& what, int error)
    {
        const std::string description = what + "='" + strerror(error) + "' [" + std::to_string(error) + "]";
        return {operation == std::string("open") ? my.openFailed : my.createFailed, text(operation), my.file,
                description.substr(0, 999), error};
    }
    support::Failure cannotCreate(const char* options, int error) const
    {
        return failure("create",
                       std::string("Unable to create the requested ") + my.kind + " '" + my.systemPrefix + name +
                           "' with the options '" + options + "'. " + my.opener + " failed with errno",
                       error);
    }

    struct stat status() const
    {
        struct stat result = {};
        EXPECT_EQ(stat(path.c_str(), &result), 0) << path;
        return result;
    }

    template <typename Value, typename From>
    static Value tell(cu_ErrorCode (*getter)(const From*, Value*), const From* object)
    {
        Value value = {};
        EXPECT_EQ(getter(object, &value), 0U);
        return value;
    }
    char* address() const { return static_cast<char*>(tell(my.addressOf, me)); }
    uint32_t size() const { return tell(my.sizeOf, me); }

    std::string name = my.names + std::to_string(getpid());
    const std::string path = my.folder + name;
    Object* me = nullptr;

private:
    mode_t mask_;
};

struct Name {
    template <typename Kind>
    static std::string GetName(int)
    {
        return std::get<Kind>(kinds).opener;
    }
};
using Both = testing::Types<SharedMemory, MappedFile>;
TYPED_TEST_SUITE(RegionTest, Both, Name);

TYPED_TEST(RegionTest, anExistingOneIsAFailureOrTakenAndResized)
{
    ASSERT_EQ(this->create(), 0U);
    strcpy(this->address(), "kept");
    auto* first = std::exchange(this->me, nullptr);
    EXPECT_EQ(support::failureOf([&] { return this->create(27); }),
              this->cannotCreate("194' and openmode '0660", EEXIST));
    ASSERT_EQ(this->me, nullptr);
    ASSERT_EQ(this->create(0, true, 4096), 0U);
    EXPECT_STREQ(this->address(), "kept");
    EXPECT_EQ(this->status().st_size, 4096);
    EXPECT_EQ(this->tell(this->my.sizeOf, first), someSize);
    this->end(false);
    EXPECT_EQ(this->my.destroy(&first, true), 0U) << "it is still there";
}

TYPED_TEST(RegionTest, permissionsBecomeTheModeLessTheUmaskAndAnOpenedOneTellsTheLast)
{
    struct {
        uint32_t flags;
        mode_t mask, mode;
        uint32_t last; ///< with read and write for the owner
    } const cases[] = {{0, 0, 0777, 256}, {1, 0, 0400, 2},   {2, 0, 0200, 2},    {4, 0, 0100, 4},    {8, 0, 040, 8},
                       {16, 0, 020, 16},  {32, 0, 010, 32},  {64, 0, 04, 64},    {128, 0, 02, 128},  {256, 0, 01, 256},
                       {512, 0, 0, 2},    {27, 0, 0660, 16}, {0, 027, 0750, 32}, {511, 077, 0700, 4}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.flags);
        umask(one.mask);
        ASSERT_EQ(this->create(one.flags), 0U);
        EXPECT_EQ(this->status().st_mode & 07777, one.mode);
        EXPECT_EQ(this->tell(this->my.permissionsOf, this->me), one.flags);
        EXPECT_EQ(descriptorFlags(this->path), FD_CLOEXEC);
        this->end(false);
        EXPECT_EQ(descriptorFlags(this->path), -1);
        ASSERT_EQ(chmod(this->path.c_str(), one.mode | 0600), 0);
        ASSERT_EQ(this->open(), 0U);
        EXPECT_EQ(this->tell(this->my.permissionsOf, this->me), one.last);
        EXPECT_EQ(descriptorFlags(this->path), FD_CLOEXEC);
        EXPECT_EQ(this->size(), someSize);
        EXPECT_EQ(cu_String_get(this->tell(this->my.nameOf, this->me)), this->name);
        EXPECT_EQ(this->tell(cu_User_getID, this->tell(this->my.userOf, this->me)), geteuid());
        EXPECT_EQ(this->tell(cu_Group_getID, this->tell(this->my.groupOf, this->me)), getegid());
        this->end(true);
    }
}

TYPED_TEST(RegionTest, onlyUserAndGroupTogetherChangeTheOwnership)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may give files away";
    const support::Made<cu_User_fromID, cu_User_delete> user(nobody);
    const support::Made<cu_Group_fromID, cu_Group_delete> group(nobody);
    for (const auto& [giveUser, giveGroup] : {std::pair{false, false}, {true, false}, {false, true}, {true, true}}) {
        ASSERT_EQ(this->my.create(&this->me, this->name.c_str(), someSize, giveUser ? user.get() : nullptr,
                                  giveGroup ? group.get() : nullptr, 0, false, nullptr),
                  0U);
        EXPECT_EQ(this->status().st_uid, giveUser && giveGroup ? nobody : 0U);
        EXPECT_EQ(this->status().st_gid, giveUser && giveGroup ? nobody : getegid());
        EXPECT_EQ(this->tell(this->my.userOf, this->me) != nullptr, giveUser);
        EXPECT_NE(this->tell(this->my.userOf, this->me), user) << "the caller keeps his own";
        this->end(true);
    }
}

TYPED_TEST(RegionTest, everyStepHasItsReportAndLeavesNothingBehindButTheRegion)
{
    support::WatchfulAllocator cloned;
    cu_User* user = nullptr;
    cu_Group* group = nullptr;
    ASSERT_EQ(cu_User_current(&user, cloned.get()), 0U);
    ASSERT_EQ(cu_Group_current(&group, cloned.get()), 0U);
    const std::size_t live = cloned.live();
    using Region = typename TypeParam::Object;
    const auto create = [&](Region** handle, cu_allocator* allocator) {
        return this->my.create(handle, this->name.c_str(), someSize, user, group, 0, true, allocator);
    };
    const auto open = [&](Region** handle, cu_allocator* allocator) {
        return this->my.open(handle, this->name.c_str(), allocator);
    };
    const auto destroy = [&](Region** handle) { return this->my.destroy(handle, false); };
    support::sweep<Region>(this->text("create").c_str(), create, destroy);
    support::sweep<Region>(this->text("open").c_str(), open, destroy);
    EXPECT_EQ(cloned.live(), live);

    const char* const cases[][3] = {{"open", "fstat64", "Failed to call fstat. Errno"},
                                    {"open", "mmap64", "Failed to call mmap. Errno"},
                                    {"create", "ftruncate64", "Failed to call ftruncate. Errno"},
                                    {"create", "mmap64", "Failed to call mmap. Errno"}};
    for (const auto& one : cases) {
        const support::Injection injection(one[1], EIO);
        EXPECT_EQ(support::failureOf(
                      [&] { return one[0][0] == 'o' ? open(&this->me, nullptr) : create(&this->me, nullptr); }),
                  this->failure(one[0], one[2], EIO));
        EXPECT_EQ(this->status().st_size, someSize);
    }
    const support::Injection injection("fchown", EIO);
    EXPECT_SYSTEM_FAILURE(create(&this->me, nullptr), this->my.createFailed, EIO, this->text("create"), this->my.file,
                          std::string("Failed to change ownership of ") + this->my.longKind +
                              ": Input/output error [5]");
    cu_User_delete(&user);
    cu_Group_delete(&group);
}

TYPED_TEST(RegionTest, aDeleteThatFailsCanBeRepeated)
{
    const unsigned descriptors = support::openDescriptors();
    ASSERT_EQ(this->create(), 0U);
    void* const old = this->address();
    {
        const support::Injection stuck("close", EIO);
        EXPECT_SYSTEM_FAILURE(this->my.destroy(&this->me, true), cu_ERROR_SHM_CLOSE_FAILED, EIO, this->text("delete"),
                              this->my.file, "");
    }
    EXPECT_EQ(this->address(), nullptr);
    EXPECT_EQ(this->size(), 0U);
    ASSERT_EQ(unlink(this->path.c_str()), 0);
    // What is mapped there since is not the region's.
    ASSERT_EQ(mmap(old, someSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0),
              old);
    *static_cast<char*>(old) = 'f';
    cu_Error_clear(cu_getErrorLocation());
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(this->my.destroy(&this->me, true), 0xFFFFFFFFU);
        EXPECT_EQ(ku_getErrorCode(), 0U) << "the raw result is not reported";
        EXPECT_EQ(support::trace().find(this->text("delete  -  ") + this->my.file), 0U);
        EXPECT_EQ(support::openDescriptors(), descriptors);
    }
    this->end(false);
    EXPECT_EQ(*static_cast<volatile char*>(old), 'f');
    munmap(old, someSize);
}

TYPED_TEST(RegionTest, longNamesWorkUpToTheSystemsLimit)
{
    const char filler = this->my.folder[0] == '/' ? 'x' : '/'; // more slashes do not make another file of it
    this->name.insert(0, this->my.longestName - this->name.size(), filler);
    ASSERT_EQ(this->create(), 0U);
    this->end(false);
    ASSERT_EQ(this->open(), 0U);
    this->end(true);
    for (const std::size_t longer : {1U, 5000U}) {
        this->name.insert(0, longer, filler);
        ASSERT_EQ(this->my.openDirectly((this->my.systemPrefix + this->name).c_str(), O_RDWR, 0), -1);
        const int error = errno; // ENAMETOOLONG or, from some versions of the C library, EINVAL
        EXPECT_EQ(support::failureOf([&] { return this->create(511, true); }),
                  this->cannotCreate("66' and openmode '0777", error));
        EXPECT_EQ(
            support::failureOf([&] { return this->open(); }),
            this->failure("open",
                          "Requested to open '" + (this->my.systemPrefix + this->name) + "' with options '2'. Errno",
                          error));
        EXPECT_EQ(this->me, nullptr);
    }
}

TYPED_TEST(RegionTest, sizesOfGibibytesWorkOrFailCleanly)
{
    const unsigned descriptors = support::openDescriptors();
    for (const uint32_t size : {0x80000000U, 0xFFFFF000U}) {
        const support::Failure created = support::failureOf([&] { return this->create(0, true, size); });
        if (created.code != 0) {
            ASSERT_EQ(sizeof(void*), 4U) << created;
            EXPECT_EQ(created, this->failure("create", "Failed to call mmap. Errno", ENOMEM));
        } else {
            void* last = nullptr;
            EXPECT_EQ(this->my.addressAt(this->me, &last, size - 1), 0U);
            *static_cast<char*>(last) = 'x';
            this->end(false);
            ASSERT_EQ(this->open(), 0U);
            EXPECT_EQ(this->size(), size);
            EXPECT_EQ(this->address()[size - 1], 'x');
            this->end(false);
        }
        EXPECT_EQ(this->status().st_size, static_cast<off_t>(size));
    }
    for (const auto& one : {std::pair{off_t{5} << 30, EOVERFLOW}, {off_t{0}, EINVAL}}) {
        ASSERT_EQ(truncate(this->path.c_str(), one.first), 0);
        EXPECT_EQ(support::failureOf([&] { return this->open(); }),
                  this->failure("open", "Failed to call mmap. Errno", one.second));
        EXPECT_EQ(this->me, nullptr);
    }
    EXPECT_EQ(support::openDescriptors(), descriptors);
}

TYPED_TEST(RegionTest, badArgumentsAreRefused)
{
    const auto& calls = this->my;
    typename TypeParam::Object* none = nullptr;
    ASSERT_EQ(this->create(), 0U);
    void* address = nullptr;
    uint32_t number = 0;
    const cu_String* stored = nullptr;
    const cu_User* user = nullptr;
    const cu_Group* group = nullptr;
    const std::tuple good(&none, this->me, "x", &address, &number, &stored, &user, &group, uint32_t{4096});
    const std::string addressAt = calls.addressOperation + std::string("WithOffset");
    std::string names;
    for (const char* operation : {"create", "open", "getMappedSize", "getPermissions", "getName", "getUser", "getGroup",
                                  calls.addressOperation, addressAt.c_str()})
        names += this->text(operation) + ", ";
    support::expectAllNullsRefused(names, calls.file, good, calls.create, calls.open, calls.sizeOf, calls.permissionsOf,
                                   calls.nameOf, calls.userOf, calls.groupOf, calls.addressOf, calls.addressAt);
    support::expectNullsRefused(this->text("delete"), calls.file, std::tuple(&this->me), calls.destroy);
    for (const auto& bad : {std::pair{"", 4096U}, {"x", 0U}})
        EXPECT_REFUSED(calls.create(&none, bad.first, bad.second, nullptr, nullptr, 0, true, nullptr),
                       this->text("create"), calls.file);
    EXPECT_REFUSED(calls.open(&none, "", nullptr), this->text("open"), calls.file);
    for (const uint32_t beyond : {someSize, ~0U})
        EXPECT_REFUSED(calls.addressAt(this->me, &address, beyond), this->text(addressAt.c_str()), calls.file);
    this->end(true);
}

using SharedMemoryTest = RegionTest<SharedMemory>;

TEST_F(SharedMemoryTest, theSizeIsAskedFromTheSystemEachTime)
{
    uint32_t size = 0;
    ASSERT_EQ(create(), 0U);
    EXPECT_NULLS_REFUSED(my.file, (std::tuple{me, &size}), cu_SharedMemory_getSHMSize);
    ASSERT_EQ(truncate(path.c_str(), 0xFFFFFFFFU), 0);
    EXPECT_EQ(cu_SharedMemory_getSHMSize(me, &size), 0U);
    EXPECT_EQ(size, 0xFFFFFFFFU);
    EXPECT_EQ(this->size(), someSize);
    ASSERT_EQ(truncate(path.c_str(), off_t{1} << 32), 0);
    const auto expectFailure = [&](int error, const char* text) {
        size = 7;
        EXPECT_SYSTEM_FAILURE(cu_SharedMemory_getSHMSize(me, &size), cu_ERROR_SHM_FSTAT, error,
                              "cu_SharedMemory_getSHMSize", my.file, text);
        EXPECT_EQ(size, 0U);
    };
    expectFailure(EOVERFLOW, "Call fo fstat failed. Errno=Value too large for defined data type [75]");
    const support::Injection failing("fstat64", EIO);
    expectFailure(EIO, "Call fo fstat failed. Errno=Input/output error [5]");
    end(true);
}

TEST(PageSize, isTheSystemsOrAFatalError)
{
    constexpr char file[] = "src/cUtil/sharedMemory.linux";
    int32_t size = 0;
    EXPECT_NULLS_REFUSED(file, std::tuple{&size}, cu_getSystemGranularity, cu_getPageSize);
    for (const auto& one :
         {std::pair{&cu_getSystemGranularity, "cu_getSystemGranularity"}, {&cu_getPageSize, "cu_getPageSize"}}) {
        EXPECT_EQ(one.first(&size), 0U);
        EXPECT_EQ(std::exchange(size, 7), sysconf(_SC_PAGESIZE));
        const support::Injection failing("sysconf", EINVAL);
        EXPECT_SYSTEM_FAILURE(one.first(&size), cu_ERROR_CUTIL_FATAL, EINVAL, one.second, file,
                              "sysconf failed with error 22 [Invalid argument]");
        EXPECT_EQ(size, 7);
    }
}

using MappedFileTest = RegionTest<MappedFile>;

TEST_F(MappedFileTest, isCreatedInWholePagesButOpenedAsItIs)
{
    for (const uint32_t size : {1U, 4095U, 4097U, 0xFFFFFFFFU})
        EXPECT_REFUSED(create(0, false, size), "cu_MappedFile_create", my.file);
    std::ofstream(path) << "five!";
    ASSERT_EQ(open(), 0U);
    EXPECT_EQ(std::string(address(), size()), "five!");
    address()[0] = 'F';
    end(false);
    std::string text;
    std::getline(std::ifstream(path), text, '\0');
    EXPECT_EQ(text, "Five!");
}

} // namespace
