#include "support/process.h"
#include "support/refusal.h"
#include "support/sweep.h"
#include "support/systemFailure.h"

#include <cUtil/uuid.h>

#include <array>
#include <bit>
#include <cerrno>
#include <numeric>
#include <set>
#include <sys/syscall.h>
#include <vector>

namespace
{

constexpr char file[] = "src/cUtil/uuid";
constexpr char counted[] = "000102030405060708090A0B0C0D0E0F";

std::string textOf(const cu_UUID& uuid)
{
    char text[CU_UUID_TEXT_SIZE + 1] = {};
    text[CU_UUID_TEXT_SIZE] = '!';
    EXPECT_EQ(cu_UUID_toString(&uuid, text), 0U);
    EXPECT_EQ(text[CU_UUID_TEXT_SIZE], '!');
    return text;
}

cu_UUID created()
{
    cu_UUID uuid = {};
    EXPECT_EQ(cu_UUID_create(&uuid), 0U);
    return uuid;
}

TEST(Uuid, textAndBytesTellTheSame)
{
    cu_UUID uuid = {};
    for (const char* text : {counted, "000102030405060708090a0b0c0d0e0f"}) {
        ASSERT_EQ(cu_UUID_fromString(&uuid, text), 0U);
        EXPECT_EQ(textOf(uuid), counted);
    }
    ASSERT_EQ(cu_UUID_fromString(&uuid, "FEdcBA9876543210fEDCba9876543210"), 0U);
    EXPECT_EQ(textOf(uuid), "FEDCBA9876543210FEDCBA9876543210");
    for (const char* text : {"", "000102030405060708090A0B0C0D0E0", "000102030405060708090A0B0C0D0E0F0"})
        EXPECT_REFUSED(cu_UUID_fromString(&uuid, text), "cu_UUID_fromString", file);
    EXPECT_EQ(textOf(uuid), "FEDCBA9876543210FEDCBA9876543210");
}

TEST(Uuid, aCharacterThatIsNoDigitIsNamedAndTheBytesBeforeItStay)
{
    for (const char bad : {'g', 'G', '/', ':', '@', '`', ' ', '\xB0'}) {
        cu_UUID uuid;
        memset(&uuid, 0xEE, sizeof(uuid));
        const std::string text = std::string("00010") + bad + "060708090A0B0C0D0E0F00010Z"; // the first one is told
        EXPECT_FAILURE(cu_UUID_fromString(&uuid, text.c_str()), cu_ERROR_COM_INVALID_ARGUMENT, "cu_UUID_fromString",
                       file, std::string("The ASCII character '") + bad + "' can't be converted to hex!");
        EXPECT_EQ(textOf(uuid), "0001EEEEEEEEEEEEEEEEEEEEEEEEEEEE");
    }
}

TEST(Uuid, bytesAreCopiedWhenThereAre16AndSilentlyNotOtherwise)
{
    std::array<uint8_t, 20> bytes{};
    std::iota(bytes.begin(), bytes.end(), uint8_t{0});
    cu_UUID uuid = {};
    for (const uint32_t size : {1U, 8U, 15U, 17U, UINT32_MAX}) {
        EXPECT_EQ(cu_UUID_fromData(&uuid, bytes.data(), size), 0U);
        EXPECT_EQ(textOf(uuid), std::string(32, '0')) << size;
    }
    EXPECT_EQ(cu_UUID_fromData(&uuid, bytes.data(), CU_UUID_SIZE), 0U);
    EXPECT_EQ(textOf(uuid), counted);
    cu_UUID* copy = nullptr;
    ASSERT_EQ(cu_UUID_clone(&copy, &uuid), 0U);
    const uint8_t* data = nullptr;
    EXPECT_EQ(cu_UUID_getData(copy, &data), 0U);
    EXPECT_EQ(data, copy->data);
    int32_t result = 1;
    EXPECT_EQ(cu_UUID_compare(copy, &uuid, &result), 0U);
    EXPECT_EQ(result, 0);
    copy->data[15] = 0xF0; // bytes count without a sign, the first ones most
    EXPECT_EQ(cu_UUID_compare(copy, &uuid, &result), 0U);
    EXPECT_GT(result, 0);
    uuid.data[0] = 0x80;
    EXPECT_EQ(cu_UUID_compare(copy, &uuid, &result), 0U);
    EXPECT_LT(result, 0);
    EXPECT_EQ(cu_UUID_delete(&copy), 0U);
    EXPECT_EQ(copy, nullptr);
}

TEST(Uuid, badArgumentsAndExhaustedMemoryAreToldAndLeaveNothing)
{
    cu_UUID uuid = {};
    cu_UUID* none = nullptr;
    cu_UUID* some = &uuid;
    const uint8_t* data = nullptr;
    char text[CU_UUID_TEXT_SIZE];
    int32_t result = 0;
    EXPECT_NULLS_REFUSED(file, (std::tuple{some, &data, static_cast<char*>(text), &result}), cu_UUID_create,
                         cu_UUID_fromString, cu_UUID_fromData, cu_UUID_getData, cu_UUID_toString, cu_UUID_compare);
    EXPECT_NULLS_REFUSED(file, std::tuple{&none}, cu_UUID_new, cu_UUID_clone);
    EXPECT_NULLS_REFUSED(file, std::tuple{&some}, cu_UUID_delete);
    EXPECT_REFUSED(cu_UUID_fromData(&uuid, text, 0), "cu_UUID_fromData", file);
    // The copy is made before the source is looked at, and is gone again (a leak check would tell).
    EXPECT_REFUSED(cu_UUID_clone(&none, nullptr), "cu_UUID_fromData", file);
    EXPECT_EQ(support::trace().find("cu_UUID_clone  -  "), 0U);
    EXPECT_EQ(none, nullptr);

    support::sweep<cu_UUID>(
        "cu_UUID_new", [](auto handle, auto) { return cu_UUID_new(handle); }, cu_UUID_delete);
    support::sweep<cu_UUID>(
        "cu_UUID_clone", [&](auto handle, auto) { return cu_UUID_clone(handle, &uuid); }, cu_UUID_delete);
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
    std::vector<std::thread> threads;
    for (std::size_t party = 2; party < parties; ++party)
        threads.emplace_back([&, party] { createSome(party); });
    for (std::thread& thread : threads)
        thread.join();

    std::set<std::string> different;
    for (std::size_t i = 0; i < parties * each; ++i)
        different.insert(textOf(made[i]));
    EXPECT_EQ(different.size(), parties * each);
}

} // namespace
