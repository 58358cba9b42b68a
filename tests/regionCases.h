// What shared memory and mapped files both do. Each suite instantiates the cases with its own calls.
#pragma once

#include "support/process.h"
#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/system/group.h>
#include <cUtil/system/user.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace regions
{

constexpr uint32_t someSize = 8192;
constexpr uint32_t nobody = 65534;
constexpr cu_ErrorCode rawMinusOne = 0xFFFFFFFF;

inline std::string reason(int error)
{
    return std::string("='") + strerror(error) + "' [" + std::to_string(error) + "]";
}

/// The flags of the open descriptor that leads to a file, or -1 when none does.
inline int descriptorFlags(const std::string& path)
{
    int flags = -1;
    DIR* folder = opendir("/proc/self/fd");
    while (const dirent* entry = readdir(folder)) {
        char target[4096] = {};
        if (readlinkat(dirfd(folder), entry->d_name, target, sizeof(target) - 1) > 0 && path == target)
            flags = fcntl(atoi(entry->d_name), F_GETFD);
    }
    closedir(folder);
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

    cu_ErrorCode create(Object** me, uint32_t permissions = 0, bool openExisting = false, uint32_t size = someSize)
    {
        return Calls::create(me, name.c_str(), size, nullptr, nullptr, permissions, openExisting, nullptr);
    }

    struct stat status() const
    {
        struct stat result = {};
        EXPECT_EQ(stat(path.c_str(), &result), 0) << path;
        return result;
    }

    bool isThere() const { return access(path.c_str(), F_OK) == 0; }

    static char* address(const Object* me)
    {
        void* result = nullptr;
        EXPECT_EQ(Calls::addressOf(me, &result), 0U);
        return static_cast<char*>(result);
    }

    static uint32_t permissions(const Object* me)
    {
        uint32_t result = ~0U;
        EXPECT_EQ(Calls::permissionsOf(me, &result), 0U);
        return result;
    }

    static uint32_t size(const Object* me)
    {
        uint32_t result = ~0U;
        EXPECT_EQ(Calls::sizeOf(me, &result), 0U);
        return result;
    }

    const std::string name = Calls::freshName();
    const std::string path = Calls::pathOf(name);

private:
    mode_t mask_;
};

TYPED_TEST_SUITE_P(RegionTest);

TYPED_TEST_P(RegionTest, processesSeeEachOthersWrites)
{
    typename TypeParam::Object* mine = nullptr;
    ASSERT_EQ(this->create(&mine), 0U);
    char* bytes = this->address(mine);
    EXPECT_EQ(std::string(bytes, someSize), std::string(someSize, '\0'));
    strcpy(bytes, "question");
    support::Process other([&] {
        typename TypeParam::Object* theirs = nullptr;
        if (TypeParam::open(&theirs, this->name.c_str(), nullptr) != 0 || this->size(theirs) != someSize ||
            strcmp(this->address(theirs), "question") != 0)
            return 1;
        void* last = nullptr;
        if (TypeParam::addressAt(theirs, &last, someSize - 1) != 0)
            return 2;
        *static_cast<char*>(last) = '!';
        return TypeParam::destroy(&theirs, false) == 0 ? 0 : 3;
    });
    EXPECT_EQ(other.wait(), 0);
    EXPECT_EQ(bytes[someSize - 1], '!');
    EXPECT_EQ(TypeParam::destroy(&mine, true), 0U);
    EXPECT_EQ(mine, nullptr);
    EXPECT_FALSE(this->isThere());
}

TYPED_TEST_P(RegionTest, anExistingOneIsAFailureOrTakenAndResized)
{
    typename TypeParam::Object* first = nullptr;
    typename TypeParam::Object* second = nullptr;
    ASSERT_EQ(this->create(&first), 0U);
    strcpy(this->address(first), "kept");
    EXPECT_SYSTEM_FAILURE(this->create(&second, 27), TypeParam::createFailed, EEXIST, this->text("create"),
                          TypeParam::file, TypeParam::cannotCreate(this->name, 194, "0660") + reason(EEXIST));
    EXPECT_EQ(second, nullptr);
    ASSERT_EQ(this->create(&second, 0, true, 4096), 0U);
    EXPECT_STREQ(this->address(second), "kept");
    EXPECT_EQ(this->status().st_size, 4096);
    EXPECT_EQ(this->size(first), someSize);
    EXPECT_EQ(TypeParam::destroy(&second, false), 0U);
    EXPECT_TRUE(this->isThere());
    EXPECT_EQ(TypeParam::destroy(&first, true), 0U);
}

TYPED_TEST_P(RegionTest, permissionsBecomeTheModeLessTheUmask)
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
        typename TypeParam::Object* me = nullptr;
        umask(one.mask);
        ASSERT_EQ(this->create(&me, one.flags), 0U);
        EXPECT_EQ(this->status().st_mode & 07777, one.mode);
        EXPECT_EQ(this->permissions(me), one.flags);
        EXPECT_EQ(TypeParam::destroy(&me, true), 0U);
    }
}

TYPED_TEST_P(RegionTest, anOpenedOneTellsItsLastPermissionItsOwnerAndItsSize)
{
    typename TypeParam::Object* creator = nullptr;
    ASSERT_EQ(this->create(&creator), 0U);
    struct {
        mode_t mode;
        uint32_t flag;
    } const cases[] = {{0660, 16}, {0644, 64}, {0600, 2}, {0700, 4}, {0640, 8}, {0610, 32}, {0606, 128}, {0777, 256}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.mode);
        typename TypeParam::Object* me = nullptr;
        ASSERT_EQ(chmod(this->path.c_str(), one.mode), 0);
        ASSERT_EQ(TypeParam::open(&me, this->name.c_str(), nullptr), 0U);
        EXPECT_EQ(this->permissions(me), one.flag);
        EXPECT_EQ(this->size(me), someSize);
        const cu_String* given = nullptr;
        const cu_User* user = nullptr;
        const cu_Group* group = nullptr;
        uint32_t id = ~0U;
        EXPECT_EQ(TypeParam::nameOf(me, &given), 0U);
        EXPECT_EQ(cu_String_get(given), this->name);
        EXPECT_EQ(TypeParam::userOf(me, &user), 0U);
        EXPECT_EQ(cu_User_getID(user, &id), 0U);
        EXPECT_EQ(id, geteuid());
        EXPECT_EQ(TypeParam::groupOf(me, &group), 0U);
        EXPECT_EQ(cu_Group_getID(group, &id), 0U);
        EXPECT_EQ(id, getegid());
        EXPECT_EQ(TypeParam::destroy(&me, false), 0U);
    }
    EXPECT_EQ(TypeParam::destroy(&creator, true), 0U);
}

TYPED_TEST_P(RegionTest, onlyUserAndGroupTogetherChangeTheOwnership)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root may give files away";
    cu_User* user = nullptr;
    cu_Group* group = nullptr;
    ASSERT_EQ(cu_User_fromID(&user, nobody, nullptr), 0U);
    ASSERT_EQ(cu_Group_fromID(&group, nobody, nullptr), 0U);
    for (int given = 0; given < 4; ++given) {
        SCOPED_TRACE(given);
        typename TypeParam::Object* me = nullptr;
        ASSERT_EQ(TypeParam::create(&me, this->name.c_str(), someSize, (given & 1) != 0 ? user : nullptr,
                                    (given & 2) != 0 ? group : nullptr, 0, false, nullptr),
                  0U);
        EXPECT_EQ(this->status().st_uid, given == 3 ? nobody : 0U);
        EXPECT_EQ(this->status().st_gid, given == 3 ? nobody : getegid());
        const cu_User* stored = nullptr;
        EXPECT_EQ(TypeParam::userOf(me, &stored), 0U);
        EXPECT_EQ(stored != nullptr, (given & 1) != 0);
        EXPECT_NE(stored, user) << "the caller keeps his own";
        EXPECT_EQ(TypeParam::destroy(&me, true), 0U);
    }
    cu_User_delete(&user);
    cu_Group_delete(&group);
}

TYPED_TEST_P(RegionTest, missingPermissionsKeepOthersOut)
{
    typename TypeParam::Object* me = nullptr;
    ASSERT_EQ(this->create(&me, 1), 0U);
    const auto outcome = support::outcomeOf([&] {
        if (geteuid() == 0 && setuid(nobody) != 0)
            _exit(1);
        typename TypeParam::Object* theirs = nullptr;
        EXPECT_SYSTEM_FAILURE(TypeParam::open(&theirs, this->name.c_str(), nullptr), TypeParam::openFailed, EACCES,
                              this->text("open"), TypeParam::file,
                              "Requested to open '" + TypeParam::systemName(this->name) + "' with options '2'. Errno" +
                                  reason(EACCES));
        EXPECT_SYSTEM_FAILURE(this->create(&theirs, 511, true), TypeParam::createFailed, EACCES, this->text("create"),
                              TypeParam::file, TypeParam::cannotCreate(this->name, 66, "0777") + reason(EACCES));
        EXPECT_EQ(theirs, nullptr);
    });
    EXPECT_EQ(outcome.status, 0) << outcome.out;
    EXPECT_EQ(TypeParam::destroy(&me, true), 0U);
}

TYPED_TEST_P(RegionTest, descriptorsAreNotInherited)
{
    typename TypeParam::Object* me = nullptr;
    ASSERT_EQ(this->create(&me), 0U);
    EXPECT_EQ(descriptorFlags(this->path), FD_CLOEXEC);
    EXPECT_EQ(TypeParam::destroy(&me, false), 0U);
    EXPECT_EQ(descriptorFlags(this->path), -1);
    ASSERT_EQ(TypeParam::open(&me, this->name.c_str(), nullptr), 0U);
    EXPECT_EQ(descriptorFlags(this->path), FD_CLOEXEC);
    EXPECT_EQ(TypeParam::destroy(&me, true), 0U);
}

TYPED_TEST_P(RegionTest, everyStepHasItsReportAndTheRegionStays)
{
    cu_User* user = nullptr;
    cu_Group* group = nullptr;
    ASSERT_EQ(cu_User_current(&user, nullptr), 0U);
    ASSERT_EQ(cu_Group_current(&group, nullptr), 0U);
    const unsigned descriptors = support::openDescriptors();
    typename TypeParam::Object* me = nullptr;
    struct {
        const char* call;
        std::string description;
        bool creates;
    } const cases[] = {
        {"fchown", TypeParam::cannotGive + std::string(": ") + strerror(EIO) + " [5]", true},
        {"ftruncate64", "Failed to call ftruncate. Errno" + reason(EIO), true},
        {"mmap64", "Failed to call mmap. Errno" + reason(EIO), true},
        {"fstat64", "Failed to call fstat. Errno" + reason(EIO), false},
        {"mmap64", "Failed to call mmap. Errno" + reason(EIO), false},
    };
    for (const auto& one : cases) {
        support::WatchfulAllocator allocator;
        const support::Injection injection(one.call, EIO);
        if (one.creates) {
            EXPECT_SYSTEM_FAILURE(
                TypeParam::create(&me, this->name.c_str(), someSize, user, group, 0, true, allocator.get()),
                TypeParam::createFailed, EIO, this->text("create"), TypeParam::file, one.description);
        } else {
            EXPECT_SYSTEM_FAILURE(TypeParam::open(&me, this->name.c_str(), allocator.get()), TypeParam::openFailed, EIO,
                                  this->text("open"), TypeParam::file, one.description);
        }
        EXPECT_EQ(me, nullptr);
        EXPECT_TRUE(this->isThere());
        EXPECT_EQ(support::openDescriptors(), descriptors);
    }
    cu_User_delete(&user);
    cu_Group_delete(&group);
}

TYPED_TEST_P(RegionTest, everyFailingStepLeavesNothingBehind)
{
    using Region = typename TypeParam::Object;
    support::WatchfulAllocator cloned;
    cu_User* user = nullptr;
    cu_Group* group = nullptr;
    ASSERT_EQ(cu_User_current(&user, cloned.get()), 0U);
    ASSERT_EQ(cu_Group_current(&group, cloned.get()), 0U);
    const std::size_t live = cloned.live();
    const auto destroy = [](Region** me) { return TypeParam::destroy(me, false); };
    support::sweep<Region>(
        this->text("create").c_str(),
        [&](Region** me, cu_allocator* allocator) {
            return TypeParam::create(me, this->name.c_str(), someSize, user, group, 0, true, allocator);
        },
        destroy);
    EXPECT_EQ(cloned.live(), live);
    for (unsigned nth = 1; nth <= 6; ++nth) {
        Region* me = nullptr;
        cloned.refuse(nth);
        EXPECT_EQ(TypeParam::create(&me, this->name.c_str(), someSize, user, group, 0, true, nullptr),
                  static_cast<cu_ErrorCode>(cu_ERROR_COM_MALLOC_FAILED));
        EXPECT_EQ(cloned.live(), live);
    }
    support::sweep<Region>(
        this->text("open").c_str(),
        [&](Region** me, cu_allocator* allocator) { return TypeParam::open(me, this->name.c_str(), allocator); },
        destroy);
    cu_User_delete(&user);
    cu_Group_delete(&group);
}

TYPED_TEST_P(RegionTest, aDeleteThatFailsCanBeRepeated)
{
    support::WatchfulAllocator allocator;
    typename TypeParam::Object* me = nullptr;
    const auto create = [&] {
        return TypeParam::create(&me, this->name.c_str(), someSize, nullptr, nullptr, 0, true, allocator.get());
    };
    ASSERT_EQ(create(), 0U);
    auto* const before = me;
    {
        const support::Injection stuck("close", EIO);
        EXPECT_SYSTEM_FAILURE(TypeParam::destroy(&me, true), cu_ERROR_SHM_CLOSE_FAILED, EIO, this->text("delete"),
                              TypeParam::file, "");
    }
    EXPECT_EQ(me, before);
    EXPECT_EQ(this->address(me), nullptr);
    EXPECT_TRUE(this->isThere());
    EXPECT_NE(descriptorFlags(this->path), -1);
    EXPECT_EQ(this->size(me), 0U);
    void* inside = nullptr;
    EXPECT_REFUSED(TypeParam::addressAt(me, &inside, 1), std::string(TypeParam::addressName) + "WithOffset",
                   TypeParam::file);
    EXPECT_EQ(TypeParam::destroy(&me, false), 0U);
    EXPECT_EQ(descriptorFlags(this->path), -1);

    ASSERT_EQ(create(), 0U);
    ASSERT_EQ(unlink(this->path.c_str()), 0);
    cu_Error_clear(cu_getErrorLocation());
    EXPECT_EQ(TypeParam::destroy(&me, true), rawMinusOne);
    EXPECT_EQ(ku_getErrorCode(), 0U) << "the raw result is not reported";
    EXPECT_EQ(support::trace().find(this->text("delete  -  ") + TypeParam::file), 0U);
    ASSERT_NE(me, nullptr);
    EXPECT_EQ(TypeParam::destroy(&me, true), rawMinusOne);
    EXPECT_EQ(TypeParam::destroy(&me, false), 0U);
    EXPECT_EQ(me, nullptr);
}

TYPED_TEST_P(RegionTest, aSecondDeleteLeavesForeignMappingsAlone)
{
    typename TypeParam::Object* me = nullptr;
    ASSERT_EQ(this->create(&me), 0U);
    void* const old = this->address(me);
    ASSERT_EQ(unlink(this->path.c_str()), 0);
    EXPECT_EQ(TypeParam::destroy(&me, true), rawMinusOne);
    void* const foreign =
        mmap(old, someSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED_NOREPLACE, -1, 0);
    ASSERT_EQ(foreign, old);
    *static_cast<char*>(foreign) = 'f';
    EXPECT_EQ(TypeParam::destroy(&me, false), 0U);
    EXPECT_EQ(*static_cast<volatile char*>(foreign), 'f');
    munmap(foreign, someSize);
}

TYPED_TEST_P(RegionTest, longNamesWorkUpToTheSystemsLimit)
{
    for (const auto& [length, fits] : TypeParam::lengths()) {
        SCOPED_TRACE(length);
        const std::string longName = TypeParam::nameOfLength(length);
        ASSERT_EQ(longName.size(), length);
        typename TypeParam::Object* me = nullptr;
        const auto create = [&] {
            return TypeParam::create(&me, longName.c_str(), someSize, nullptr, nullptr, 511, true, nullptr);
        };
        if (fits) {
            ASSERT_EQ(create(), 0U);
            EXPECT_EQ(TypeParam::destroy(&me, false), 0U);
            ASSERT_EQ(TypeParam::open(&me, longName.c_str(), nullptr), 0U);
            EXPECT_EQ(TypeParam::destroy(&me, true), 0U);
        } else {
            ASSERT_EQ(TypeParam::openDirectly(TypeParam::systemName(longName).c_str()), -1);
            const int error = errno; // ENAMETOOLONG or, from some versions of the C library, EINVAL
            const std::string cannot = TypeParam::cannotCreate(longName, 66, "0777") + reason(error);
            EXPECT_SYSTEM_FAILURE(create(), TypeParam::createFailed, error, this->text("create"), TypeParam::file,
                                  cannot.substr(0, 999));
            EXPECT_EQ(TypeParam::open(&me, longName.c_str(), nullptr), TypeParam::openFailed);
        }
        EXPECT_EQ(me, nullptr);
    }
}

TYPED_TEST_P(RegionTest, sizesOfGibibytesWorkOrFailCleanly)
{
    const unsigned descriptors = support::openDescriptors();
    typename TypeParam::Object* me = nullptr;
    for (const uint32_t size : {0x7FFFF000U, 0x80000000U, 0xFFFFF000U}) {
        SCOPED_TRACE(size);
        if (const cu_ErrorCode code = this->create(&me, 0, true, size); code != 0) {
            ASSERT_EQ(sizeof(void*), 4U) << ku_getErrorMessage();
            EXPECT_EQ(code, TypeParam::createFailed);
            EXPECT_EQ(ku_getErrorMessage(), "Failed to call mmap. Errno" + reason(ENOMEM));
            EXPECT_EQ(me, nullptr);
        } else {
            void* last = nullptr;
            EXPECT_EQ(TypeParam::addressAt(me, &last, size - 1), 0U);
            *static_cast<char*>(last) = 'x';
            EXPECT_EQ(TypeParam::destroy(&me, false), 0U);
            ASSERT_EQ(TypeParam::open(&me, this->name.c_str(), nullptr), 0U);
            EXPECT_EQ(this->size(me), size);
            EXPECT_EQ(this->address(me)[size - 1], 'x');
            EXPECT_EQ(TypeParam::destroy(&me, false), 0U);
        }
        EXPECT_EQ(this->status().st_size, static_cast<off_t>(size));
        EXPECT_EQ(support::openDescriptors(), descriptors);
    }
    for (const auto& [size, error] : {std::pair{off_t{5} << 30, EOVERFLOW}, {off_t{0}, EINVAL}}) {
        SCOPED_TRACE(size);
        ASSERT_EQ(truncate(this->path.c_str(), size), 0);
        EXPECT_SYSTEM_FAILURE(TypeParam::open(&me, this->name.c_str(), nullptr), TypeParam::openFailed, error,
                              this->text("open"), TypeParam::file, "Failed to call mmap. Errno" + reason(error));
        EXPECT_EQ(me, nullptr);
        EXPECT_EQ(support::openDescriptors(), descriptors);
    }
}

TYPED_TEST_P(RegionTest, badArgumentsAreRefused)
{
    typename TypeParam::Object* none = nullptr;
    typename TypeParam::Object* me = nullptr;
    ASSERT_EQ(this->create(&me), 0U);
    auto* const before = me;
    const std::string file = TypeParam::file;
    const auto create = [&](const char* given, uint32_t size) {
        return TypeParam::create(&none, given, size, nullptr, nullptr, 0, true, nullptr);
    };
    EXPECT_REFUSED(create("", 4096), this->text("create"), file);
    EXPECT_REFUSED(create("x", 0), this->text("create"), file);
    EXPECT_REFUSED(TypeParam::open(&none, "", nullptr), this->text("open"), file);

    void* address = nullptr;
    uint32_t number = 0;
    const cu_String* stored = nullptr;
    const cu_User* user = nullptr;
    const cu_Group* group = nullptr;
    const auto refuses = [](const std::string& function, const auto& good, auto call) {
        support::expectNullsRefused(function, TypeParam::file, good, call);
    };
    const std::string at = std::string(TypeParam::addressName) + "WithOffset";
    const std::tuple good(&none, me, "x", &address, &number, &stored, &user, &group, uint32_t{4096});
    refuses(this->text("create"), good, TypeParam::create);
    refuses(this->text("open"), good, TypeParam::open);
    refuses(at, good, TypeParam::addressAt);
    refuses(TypeParam::addressName, good, TypeParam::addressOf);
    refuses(this->text("getMappedSize"), good, TypeParam::sizeOf);
    refuses(this->text("getPermissions"), good, TypeParam::permissionsOf);
    refuses(this->text("getName"), good, TypeParam::nameOf);
    refuses(this->text("getUser"), good, TypeParam::userOf);
    refuses(this->text("getGroup"), good, TypeParam::groupOf);
    refuses(this->text("delete"), std::tuple(&me), TypeParam::destroy);
    EXPECT_REFUSED(TypeParam::addressAt(me, &address, someSize), at, file);
    EXPECT_REFUSED(TypeParam::addressAt(me, &address, ~0U), at, file);
    EXPECT_EQ(address, nullptr);
    EXPECT_EQ(me, before);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(TypeParam::destroy(&me, true), 0U);
}

REGISTER_TYPED_TEST_SUITE_P(RegionTest, processesSeeEachOthersWrites, anExistingOneIsAFailureOrTakenAndResized,
                            permissionsBecomeTheModeLessTheUmask, anOpenedOneTellsItsLastPermissionItsOwnerAndItsSize,
                            onlyUserAndGroupTogetherChangeTheOwnership, missingPermissionsKeepOthersOut,
                            descriptorsAreNotInherited, everyStepHasItsReportAndTheRegionStays,
                            everyFailingStepLeavesNothingBehind, aDeleteThatFailsCanBeRepeated,
                            aSecondDeleteLeavesForeignMappingsAlone, longNamesWorkUpToTheSystemsLimit,
                            sizesOfGibibytesWorkOrFailCleanly, badArgumentsAreRefused);

} // namespace regions
