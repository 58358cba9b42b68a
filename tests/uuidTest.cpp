#include "support/made.h"
#include "support/process.h"
#include "support/refusal.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/uuid.h>

#include <array>
#include <cerrno>
#include <numeric>
#include <set>
#include <sys/syscall.h>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/uuid";
std::string textOf(const cu_UUID& uuid)
{
    char text[CU_UUID_TEXT_SIZE] = {};
    EXPECT_EQ(cu_UUID_toString(&uuid, text), 0U);
    return text;
}

cu_UUID created()
{
    cu_UUID uuid = {};
    EXPECT_EQ(cu_UUID_create(&uuid), 0U);
    return uuid;
}

TEST(Uuid, bytesAreCopiedWhenThereAre16AndSilentlyNotOtherwise)
{
    std::array<uint8_t, 20> bytes{};
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    cu_UUID uuid = {};
    for (const uint32_t size : {1U, 15U, 17U, UINT32_MAX}) {
        EXPECT_EQ(cu_UUID_fromData(&uuid, bytes.data(), size), 0U);
        EXPECT_EQ(textOf(uuid), std::string(32, '0')) << size;
    }
    EXPECT_EQ(cu_UUID_fromData(&uuid, bytes.data(), CU_UUID_SIZE), 0U);
    EXPECT_EQ(textOf(uuid), "000102030405060708090A0B0C0D0E0F");
    const support::Made<cu_UUID_clone, cu_UUID_delete> copy{&uuid};
    const uint8_t* data = nullptr;
    EXPECT_EQ(cu_UUID_getData(copy, &data), 0U);
    EXPECT_EQ(data, copy->data);
    const auto difference = [&] {
        int32_t result = 1;
        EXPECT_EQ(cu_UUID_compare(copy, &uuid, &result), 0U);
        return result;
    };
    EXPECT_EQ(difference(), 0);
    copy->data[15] = 0xF0; // bytes count without a sign, the first ones most
    EXPECT_GT(difference(), 0);
    uuid.data[0] = 0x80;
    EXPECT_LT(difference(), 0);
}

TEST(Uuid, badArgumentsAndExhaustedMemoryAreToldAndLeaveNothing)
{
    cu_UUID uuid = {};
    cu_UUID* none = nullptr;
    EXPECT_NULLS_REFUSED(file, std::tuple{support::Anything{}}, cu_UUID_create, cu_UUID_fromString, cu_UUID_fromData,
                         cu_UUID_getData, cu_UUID_toString, cu_UUID_compare);
    EXPECT_NULLS_REFUSED(file, std::tuple{&none}, cu_UUID_new, cu_UUID_clone);
    EXPECT_NULLS_REFUSED(file, std::tuple{support::Anything{{&none}}}, cu_UUID_delete);
    EXPECT_REFUSED(cu_UUID_fromData(&uuid, file, 0), "cu_UUID_fromData", file);
    EXPECT_REFUSED(cu_UUID_fromString(&uuid, "0123"), "cu_UUID_fromString", file);
    EXPECT_FAILURE(cu_UUID_fromString(&uuid, "000102030405060708090A0B0C0D0Eg0"), cu_ERROR_COM_INVALID_ARGUMENT,
                   "cu_UUID_fromString", file, "The ASCII character 'g' can't be converted to hex!");
    // The copy is made before the source is looked at, and is gone again (a leak check would tell).
    EXPECT_REFUSED(cu_UUID_clone(&none, nullptr), "cu_UUID_fromData", file);
    EXPECT_EQ(support::trace().find("cu_UUID_clone  -  "), 0U);
    EXPECT_EQ(none, nullptr);
    EXPECT_CLEAN_FAILURES(cu_UUID_new, cu_UUID_delete);
    EXPECT_CLEAN_FAILURES(cu_UUID_clone, cu_UUID_delete, &uuid);
}

// A bit that never changes among 256 identifiers was not read: in 2^247 runs it happens once.
void expectAllBitsRandom()
{
    cu_UUID everSet = {};
    cu_UUID everClear = {};
    for (int i = 0; i < 256; ++i) {
        const cu_UUID uuid = created();
        for (std::size_t byte = 0; byte < CU_UUID_SIZE; ++byte) {
            everSet.data[byte] = static_cast<uint8_t>(everSet.data[byte] | uuid.data[byte]);
            everClear.data[byte] = static_cast<uint8_t>(everClear.data[byte] | ~uuid.data[byte]);
        }
    }
    EXPECT_EQ(textOf(everSet), std::string(32, 'F'));
    EXPECT_EQ(textOf(everClear), std::string(32, 'F'));
}

// Runs in a process of its own, where nothing has been read ahead.
void expectInFreshProcess(void (*check)())
{
    support::Process process([check] {
        check();
        return testing::Test::HasFailure() ? 1 : 0;
    });
    EXPECT_EQ(process.wait(), 0);
}

TEST(Uuid, randomBytesComeWholeThroughInterruptionsAndShortReads)
{
    const unsigned descriptors = support::openDescriptors();
    expectAllBitsRandom();
    expectInFreshProcess([] {
        const support::ShortReads threes(3);
        const support::Injection interrupted("read", EINTR, 2);
        expectAllBitsRandom();
        EXPECT_STREQ(interrupted.fired(), "read");
    });
    EXPECT_EQ(support::openDescriptors(), descriptors);
}

TEST(Uuid, onlyADeviceThatCannotBeOpenedIsReplacedByRand)
{
    expectInFreshProcess([] {
        const support::Injection missing = support::Injection::ofEvery("open64", ENOENT);
        for (int i = 0; i < 2; ++i) {
            cu_UUID expected;
            srand(7);
            for (uint8_t& byte : expected.data)
                byte = static_cast<uint8_t>(rand());
            srand(7);
            EXPECT_EQ(textOf(created()), textOf(expected));
        }
    });
    expectInFreshProcess([] {
        const unsigned descriptors = support::openDescriptors();
        cu_UUID uuid = {};
        support::expectSystemFailures(file, {{"read", EIO, cu_ERROR_INVALID_FILE, "cu_UUID_create",
                                              "errno[5]='Input/output error'", [&] { return cu_UUID_create(&uuid); }}});
        {
            const support::ShortReads empty(0);
            EXPECT_SYSTEM_FAILURE(cu_UUID_create(&uuid), cu_ERROR_INVALID_FILE, ENODATA, "cu_UUID_create", file,
                                  "errno[61]='No data available'");
        }
        EXPECT_EQ(support::openDescriptors(), descriptors);
        expectAllBitsRandom();
    });
}

TEST(Uuid, neitherThreadsNorChildProcessesShareIdentifiers)
{
    constexpr std::size_t each = 1000;
    constexpr std::size_t parties = 5;
    support::Shared<cu_UUID> made(parties * each);
    const auto createSome = [&](std::size_t party) {
        for (std::size_t i = 0; i < each; ++i)
            EXPECT_EQ(cu_UUID_create(&made[party * each + i]), 0U);
        return testing::Test::HasFailure() ? 1 : 0;
    };
    created(); // so that there may be something to inherit
    // A child that the C library does not know of.
    const auto cloned = static_cast<pid_t>(syscall(SYS_clone, SIGCHLD, nullptr, nullptr, nullptr, nullptr));
    if (cloned == 0)
        _exit(createSome(0));
    createSome(1);
    int status = -1;
    EXPECT_EQ(waitpid(cloned, &status, 0), cloned);
    EXPECT_EQ(status, 0);
    {
        std::vector<std::jthread> threads;
        for (std::size_t party = 2; party < parties; ++party)
            threads.emplace_back([&, party] { createSome(party); });
    }
    std::set<std::string> different;
    for (std::size_t i = 0; i < parties * each; ++i)
        different.insert(textOf(made[i]));
    EXPECT_EQ(different.size(), parties * each);
}

} // namespace
