#include "support/refusal.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/system/group.h>
#include <cUtil/system/user.h>
#include <cUtil/tools/string.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <grp.h>
#include <pwd.h>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

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

template <typename Calls>
class AccountTest : public testing::Test
{
protected:
    using Object = typename Calls::Object;

    static std::string text(const char* operation) { return std::string(Calls::prefix) + operation; }

    static std::string nameOf(const Object* object)
    {
        const cu_String* name = nullptr;
        EXPECT_EQ(Calls::getName(object, &name), 0U);
        return cu_String_get(name);
    }

    static uint32_t idOf(const Object* object)
    {
        uint32_t id = ~0U;
        EXPECT_EQ(Calls::getID(object, &id), 0U);
        return id;
    }

    static std::string missed(int error, const char* reason)
    {
        return "Unable to retrieve " + std::string(Calls::database) + " structure. Errno(" + std::to_string(error) +
               ")='" + reason + "'";
    }
};

struct Name {
    template <typename Calls>
    static std::string GetName(int)
    {
        return Calls::database;
    }
};
using Both = testing::Types<User, Group>;
TYPED_TEST_SUITE(AccountTest, Both, Name);

TYPED_TEST(AccountTest, nameAndIdLeadToTheSameEntryOfTheDatabaseInSeveralThreadsAtOnce)
{
    std::vector<std::pair<std::string, uint32_t>> entries;
    TypeParam::eachEntry([&](const std::string& name, uint32_t id) { entries.emplace_back(name, id); });
    const auto lookUp = [&](std::size_t number) {
        support::WatchfulAllocator allocator;
        for (std::size_t round = 0; round < 100 + entries.size(); ++round) {
            const auto& [name, id] = entries[(round + number) % entries.size()];
            typename TypeParam::Object* byName = nullptr;
            typename TypeParam::Object* byID = nullptr;
            typename TypeParam::Object* copy = nullptr;
            ASSERT_EQ(TypeParam::fromName(&byName, name.c_str(), allocator.get()), 0U);
            EXPECT_EQ(this->nameOf(byName), name);
            EXPECT_EQ(this->idOf(byName), id);
            ASSERT_EQ(TypeParam::fromID(&byID, id, allocator.get()), 0U);
            EXPECT_EQ(this->idOf(byID), id);
            const std::size_t live = allocator.live();
            ASSERT_EQ(TypeParam::clone(&copy, byID), 0U);
            EXPECT_GT(allocator.live(), live) << "the copy must come from the allocator of the original";
            EXPECT_EQ(this->nameOf(copy), this->nameOf(byID));
            EXPECT_EQ(this->idOf(copy), id);
            for (auto** object : {&byName, &byID, &copy})
                EXPECT_EQ(TypeParam::destroy(object), 0U);
        }
    };
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < 4; ++number)
        threads.emplace_back(lookUp, number);
    for (std::thread& thread : threads)
        thread.join();
}

TYPED_TEST(AccountTest, badArgumentsAreRefused)
{
    typename TypeParam::Object* none = nullptr;
    typename TypeParam::Object* object = nullptr;
    ASSERT_EQ(TypeParam::current(&object, nullptr), 0U);
    EXPECT_EQ(this->idOf(object), TypeParam::ownID());
    const cu_String* name = nullptr;
    uint32_t id = 0;
    const auto refuses = [](const char* operation, const auto& good, auto call) {
        support::expectNullsRefused(TestFixture::text(operation), TypeParam::file, good, call);
    };
    const std::tuple good(&none, object, "root", &name, &id);
    refuses("current", good, TypeParam::current);
    refuses("fromName", good, TypeParam::fromName);
    refuses("fromID", good, TypeParam::fromID);
    refuses("clone", good, TypeParam::clone);
    refuses("getName", good, TypeParam::getName);
    refuses("getID", good, TypeParam::getID);
    refuses("delete", std::tuple(&object), TypeParam::destroy);
    EXPECT_REFUSED(TypeParam::fromName(&none, "", nullptr), this->text("fromName"), TypeParam::file);
    EXPECT_EQ(TypeParam::destroy(&object), 0U);
    EXPECT_EQ(object, nullptr);
}

TYPED_TEST(AccountTest, aMissTellsTheReasonAndHoldsNothing)
{
    support::WatchfulAllocator allocator;
    typename TypeParam::Object* object = nullptr;
    typename TypeParam::Object* original = nullptr;
    ASSERT_EQ(TypeParam::current(&original, allocator.get()), 0U);
    const std::size_t live = allocator.live();
    EXPECT_FAILURE(TypeParam::fromName(&object, "no such account", allocator.get()), TypeParam::invalid,
                   this->text("fromName"), TypeParam::file, this->missed(0, "Success"));
    EXPECT_FAILURE(TypeParam::fromID(&object, 0x7FFFFFF3, allocator.get()), cu_ErrorCode{cu_ERROR_USER_INVALID},
                   this->text("fromID"), TypeParam::file, this->missed(0, "Success"));
    const std::string fromName = this->text("fromName"), current = this->text("current"), fromID = this->text("fromID");
    support::expectSystemFailures(
        TypeParam::file,
        {{TypeParam::byName, EIO, TypeParam::invalid, fromName.c_str(), this->missed(EIO, "Input/output error"),
          [&] { return TypeParam::fromName(&object, "root", allocator.get()); }},
         {TypeParam::byID, EIO, TypeParam::invalid, current.c_str(), this->missed(EIO, "Input/output error"),
          [&] { return TypeParam::current(&object, allocator.get()); }},
         {TypeParam::byID, ENOENT, cu_ERROR_USER_INVALID, fromID.c_str(),
          this->missed(ENOENT, "No such file or directory"), [&] { return TypeParam::clone(&object, original); }}});
    EXPECT_EQ(support::trace().find(this->text("clone  -  ") + TypeParam::file), 0U);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(allocator.live(), live);
    EXPECT_EQ(TypeParam::destroy(&original), 0U);
}

TYPED_TEST(AccountTest, aLongEntryGetsARoomierBuffer)
{
    typename TypeParam::Object* object = nullptr;
    {
        support::WatchfulAllocator allocator;
        const support::Injection tooLong(TypeParam::byName, ERANGE);
        ASSERT_EQ(TypeParam::fromName(&object, "root", allocator.get()), 0U);
        EXPECT_STREQ(tooLong.fired(), TypeParam::byName);
        EXPECT_EQ(this->nameOf(object), "root");
        EXPECT_EQ(TypeParam::destroy(&object), 0U);
    }
    // The record, the buffer, the string and its text.
    for (unsigned nth = 1; nth <= 4; ++nth) {
        support::WatchfulAllocator allocator(nth);
        const support::Injection tooLong(TypeParam::byName, ERANGE);
        EXPECT_EQ(TypeParam::fromName(&object, "root", allocator.get()),
                  static_cast<cu_ErrorCode>(cu_ERROR_COM_MALLOC_FAILED));
        EXPECT_EQ(object, nullptr);
        EXPECT_NE(support::trace().find(this->text("fromName  -  ") + TypeParam::file), std::string::npos);
    }
}

TYPED_TEST(AccountTest, everyFailingStepLeavesNothingBehind)
{
    const auto sweep = [](const char* operation, auto create, auto... given) {
        support::sweepCall(TestFixture::text(operation).c_str(), create, TypeParam::destroy, given...);
    };
    sweep("current", TypeParam::current);
    sweep("fromName", TypeParam::fromName, "root");
    sweep("fromID", TypeParam::fromID, 0U);
}

} // namespace
