// What users and groups both do. Each suite instantiates the cases with its own calls.
#pragma once

#include "support/refusal.h"
#include "support/sweep.h"

#include <cUtil/tools/string.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <thread>
#include <vector>

namespace accounts
{

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

TYPED_TEST_SUITE_P(AccountTest);

TYPED_TEST_P(AccountTest, nameAndIdLeadToTheSameEntryOfTheDatabase)
{
    support::WatchfulAllocator allocator;
    TypeParam::eachEntry([&](const std::string& name, uint32_t id) {
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
        for (auto** object : {&byName, &byID, &copy}) {
            EXPECT_EQ(TypeParam::destroy(object), 0U);
            EXPECT_EQ(*object, nullptr);
        }
    });

    typename TypeParam::Object* mine = nullptr;
    ASSERT_EQ(TypeParam::current(&mine, nullptr), 0U);
    EXPECT_EQ(this->idOf(mine), TypeParam::ownID());
    EXPECT_EQ(TypeParam::destroy(&mine), 0U);
}

TYPED_TEST_P(AccountTest, badArgumentsAreRefused)
{
    typename TypeParam::Object* none = nullptr;
    typename TypeParam::Object* object = nullptr;
    ASSERT_EQ(TypeParam::current(&object, nullptr), 0U);
    auto* const before = object;
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
    EXPECT_EQ(object, before);
    EXPECT_EQ(none, nullptr);
    EXPECT_EQ(TypeParam::destroy(&object), 0U);
}

TYPED_TEST_P(AccountTest, aMissTellsTheReasonAndHoldsNothing)
{
    support::WatchfulAllocator allocator;
    typename TypeParam::Object* object = nullptr;
    EXPECT_FAILURE(TypeParam::fromName(&object, "no such account", allocator.get()), TypeParam::invalid,
                   this->text("fromName"), TypeParam::file, this->missed(0, "Success"));
    EXPECT_FAILURE(TypeParam::fromID(&object, 0x7FFFFFF3, allocator.get()),
                   static_cast<cu_ErrorCode>(cu_ERROR_USER_INVALID), this->text("fromID"), TypeParam::file,
                   this->missed(0, "Success"));
    {
        const support::Injection unreadable(TypeParam::byName, EIO);
        EXPECT_SYSTEM_FAILURE(TypeParam::fromName(&object, "root", allocator.get()), TypeParam::invalid, EIO,
                              this->text("fromName"), TypeParam::file, this->missed(EIO, "Input/output error"));
    }
    {
        const support::Injection unreadable(TypeParam::byID, EIO);
        EXPECT_SYSTEM_FAILURE(TypeParam::current(&object, allocator.get()), TypeParam::invalid, EIO,
                              this->text("current"), TypeParam::file, this->missed(EIO, "Input/output error"));
    }
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(allocator.live(), 0U);

    typename TypeParam::Object* original = nullptr;
    ASSERT_EQ(TypeParam::current(&original, allocator.get()), 0U);
    const std::size_t live = allocator.live();
    {
        const support::Injection removed(TypeParam::byID, ENOENT);
        EXPECT_SYSTEM_FAILURE(TypeParam::clone(&object, original), static_cast<cu_ErrorCode>(cu_ERROR_USER_INVALID),
                              ENOENT, this->text("fromID"), TypeParam::file,
                              this->missed(ENOENT, "No such file or directory"));
    }
    EXPECT_EQ(support::trace().find(this->text("clone  -  ") + TypeParam::file), 0U);
    EXPECT_EQ(object, nullptr);
    EXPECT_EQ(allocator.live(), live);
    EXPECT_EQ(TypeParam::destroy(&original), 0U);
}

TYPED_TEST_P(AccountTest, aLongEntryGetsARoomierBuffer)
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

TYPED_TEST_P(AccountTest, everyFailingStepLeavesNothingBehind)
{
    const auto sweep = [](const char* operation, auto create, auto... given) {
        support::sweepCall(TestFixture::text(operation).c_str(), create, TypeParam::destroy, given...);
    };
    sweep("current", TypeParam::current);
    sweep("fromName", TypeParam::fromName, "root");
    sweep("fromID", TypeParam::fromID, 0U);
}

TYPED_TEST_P(AccountTest, severalThreadsLookUpAtOnce)
{
    std::vector<std::pair<std::string, uint32_t>> entries;
    TypeParam::eachEntry([&](const std::string& name, uint32_t id) { entries.emplace_back(name, id); });
    std::vector<std::thread> threads;
    for (std::size_t number = 0; number < 4; ++number)
        threads.emplace_back([&, number] {
            for (std::size_t round = 0; round < 100; ++round) {
                const auto& [name, id] = entries[(round + number) % entries.size()];
                typename TypeParam::Object* object = nullptr;
                ASSERT_EQ(TypeParam::fromName(&object, name.c_str(), nullptr), 0U);
                EXPECT_EQ(this->nameOf(object), name);
                EXPECT_EQ(this->idOf(object), id);
                TypeParam::destroy(&object);
            }
        });
    for (std::thread& thread : threads)
        thread.join();
}

REGISTER_TYPED_TEST_SUITE_P(AccountTest, nameAndIdLeadToTheSameEntryOfTheDatabase, badArgumentsAreRefused,
                            aMissTellsTheReasonAndHoldsNothing, aLongEntryGetsARoomierBuffer,
                            everyFailingStepLeavesNothingBehind, severalThreadsLookUpAtOnce);

} // namespace accounts
