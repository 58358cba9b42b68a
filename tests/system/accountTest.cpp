#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/system/group.h>
#include <cUtil/system/user.h>
#include <cUtil/tools/string.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <unistd.h>

namespace
{

struct Texts {
    const char *prefix, *file, *database, *byName, *byID;
    cu_ErrorCode invalid;
};

template <typename T>
struct Functions {
    uint32_t (*ownID)();
    cu_ErrorCode (*current)(T**, cu_allocator*);
    cu_ErrorCode (*fromName)(T**, const char*, cu_allocator*);
    cu_ErrorCode (*fromID)(T**, uint32_t, cu_allocator*);
    cu_ErrorCode (*clone)(T**, const T*);
    cu_ErrorCode (*destroy)(T**);
    cu_ErrorCode (*getName)(const T*, const cu_String**);
    cu_ErrorCode (*getID)(const T*, uint32_t*);
};

template <typename T>
struct Calls : Texts, Functions<T> {
    using Object = T;
};
using User = Calls<cu_User>;
using Group = Calls<cu_Group>;

constexpr std::tuple kinds = {
    User{{"cu_User_", "src/cUtil/system/user.linux", "passwd", "getpwnam_r", "getpwuid_r", cu_ERROR_USER_INVALID},
         {[]() -> uint32_t { return getuid(); }, cu_User_current, cu_User_fromName, cu_User_fromID, cu_User_clone,
          cu_User_delete, cu_User_getName, cu_User_getID}},
    Group{{"cu_Group_", "src/cUtil/system/group.linux", "group", "getgrnam_r", "getgrgid_r", cu_ERROR_GROUP_INVALID},
          {getgid, cu_Group_current, cu_Group_fromName, cu_Group_fromID, cu_Group_clone, cu_Group_delete,
           cu_Group_getName, cu_Group_getID}}};

template <typename Kind>
class AccountTest : public testing::Test
{
protected:
    using Object = typename Kind::Object;
    static constexpr const Kind& my = std::get<Kind>(kinds);

    static std::string text(const char* operation) { return std::string(my.prefix) + operation; }

    static void expectAccount(const Object* object, const std::string& name, uint32_t id)
    {
        const cu_String* itsName = nullptr;
        uint32_t itsID = ~0U;
        EXPECT_EQ(my.getName(object, &itsName), 0U);
        EXPECT_EQ(my.getID(object, &itsID), 0U);
        EXPECT_EQ(cu_String_get(itsName), name);
        EXPECT_EQ(itsID, id);
    }
};

struct Name {
    template <typename Kind>
    static std::string GetName(int)
    {
        return std::get<Kind>(kinds).database;
    }
};
using Both = testing::Types<User, Group>;
TYPED_TEST_SUITE(AccountTest, Both, Name);

TYPED_TEST(AccountTest, nameAndIdLeadToTheSameEntryOfTheDatabase)
{
    std::map<uint32_t, std::string> entries; // the first one of an id
    std::ifstream database(std::string("/etc/") + this->my.database);
    for (std::string line, name, secret, id; std::getline(database, line);) {
        std::istringstream fields(line);
        if (std::getline(fields, name, ':') && std::getline(fields, secret, ':') && std::getline(fields, id, ':'))
            entries.emplace(std::stoul(id), name);
    }
    EXPECT_FALSE(entries.empty());
    support::WatchfulAllocator allocator;
    for (const auto& [id, name] : entries) {
        typename TypeParam::Object* made[3] = {};
        ASSERT_EQ(this->my.fromName(&made[0], name.c_str(), allocator.get()), 0U);
        ASSERT_EQ(this->my.fromID(&made[1], id, allocator.get()), 0U);
        const std::size_t live = allocator.live();
        ASSERT_EQ(this->my.clone(&made[2], made[1]), 0U);
        EXPECT_GT(allocator.live(), live) << "the copy must come from the allocator of the original";
        for (auto*& object : made) {
            this->expectAccount(object, name, id);
            EXPECT_EQ(this->my.destroy(&object), 0U);
        }
    }
}

TYPED_TEST(AccountTest, badArgumentsAreRefused)
{
    const auto& calls = this->my;
    typename TypeParam::Object* none = nullptr;
    typename TypeParam::Object* object = nullptr;
    ASSERT_EQ(calls.current(&object, nullptr), 0U);
    const cu_String* name = nullptr;
    uint32_t id = 0;
    EXPECT_EQ(calls.getID(object, &id), 0U);
    EXPECT_EQ(id, calls.ownID());
    std::string names;
    for (const char* operation : {"current", "fromName", "fromID", "clone", "getName", "getID"})
        names += this->text(operation) + ", ";
    support::expectAllNullsRefused(names, calls.file, std::tuple(&none, object, "root", &name, &id), calls.current,
                                   calls.fromName, calls.fromID, calls.clone, calls.getName, calls.getID);
    support::expectNullsRefused(this->text("delete"), calls.file, std::tuple(&object), calls.destroy);
    EXPECT_REFUSED(calls.fromName(&none, "", nullptr), this->text("fromName"), calls.file);
    EXPECT_EQ(calls.destroy(&object), 0U);
    EXPECT_EQ(object, nullptr);
}

TYPED_TEST(AccountTest, aMissTellsTheReasonAndHoldsNothing)
{
    const auto& calls = this->my;
    support::WatchfulAllocator allocator;
    typename TypeParam::Object* object = nullptr;
    typename TypeParam::Object* original = nullptr;
    ASSERT_EQ(calls.current(&original, allocator.get()), 0U);
    const std::size_t live = allocator.live();
    const std::string missed = std::string("Unable to retrieve ") + calls.database + " structure. Errno(";
    const auto expectMiss = [&](const char* operation, cu_ErrorCode code, const std::string& reason, auto call) {
        const int error = std::stoi(reason);
        const support::Failure failure = {code, this->text(operation), calls.file, missed + reason, error};
        EXPECT_EQ(support::failureOf(call), failure);
    };
    const auto fromName = [&] { return calls.fromName(&object, "no such account", allocator.get()); };
    const auto fromID = [&] { return calls.fromID(&object, 0x7FFFFFF3, allocator.get()); };
    expectMiss("fromName", calls.invalid, "0)='Success'", fromName);
    expectMiss("fromID", cu_ERROR_USER_INVALID, "0)='Success'", fromID);
    {
        const support::Injection failing(calls.byName, EIO);
        expectMiss("fromName", calls.invalid, "5)='Input/output error'", fromName);
    }
    const support::Injection failing = support::Injection::ofEvery(calls.byID, ENOENT);
    const std::string noEntry = "2)='No such file or directory'";
    expectMiss("current", calls.invalid, noEntry, [&] { return calls.current(&object, allocator.get()); });
    expectMiss("fromID", cu_ERROR_USER_INVALID, noEntry, [&] { return calls.clone(&object, original); });
    EXPECT_EQ(support::trace().find(this->text("clone  -  ") + calls.file), 0U);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(allocator.live(), live);
    EXPECT_EQ(calls.destroy(&original), 0U);
}

TYPED_TEST(AccountTest, everyFailingStepLeavesNothingBehindAlsoOfALongEntryWithItsRoomierBuffer)
{
    const auto& calls = this->my;
    support::sweepCall(this->text("fromName").c_str(), calls.fromName, calls.destroy, "root");
    // None is refused; then the record, the buffer, the string and its text.
    for (unsigned nth = 0; nth <= 4; ++nth) {
        typename TypeParam::Object* object = nullptr;
        support::WatchfulAllocator allocator(nth);
        const support::Injection tooLong(calls.byName, ERANGE);
        const cu_ErrorCode code = calls.fromName(&object, "root", allocator.get());
        if (nth == 0) {
            EXPECT_STREQ(tooLong.fired(), calls.byName);
            EXPECT_EQ(allocator.requests()[1], 2048U);
            this->expectAccount(object, "root", 0);
            EXPECT_EQ(calls.destroy(&object), 0U);
        } else {
            EXPECT_EQ(code, cu_ErrorCode{cu_ERROR_COM_MALLOC_FAILED});
            EXPECT_NE(support::trace().find(this->text("fromName  -  ") + calls.file), std::string::npos);
        }
        EXPECT_EQ(object, nullptr);
    }
}

} // namespace
