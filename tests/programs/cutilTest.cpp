#include "programs/command.h"

#include <cUtil/errorCodes.h>
#include <cUtil/fifo.h>
#include <cUtil/sharedMemory.h>
#include <cUtil/time/time.h>
#include <cUtil/tools/hexDump.h>
#include <cUtil/version.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <sys/resource.h>

namespace
{

using namespace support;
using testing::HasSubstr;
using testing::StartsWith;

TEST(CutilError, TellsAboutCodesAndNamesAlike)
{
    const Result byName = run(cutil + "error cu_ERROR_SHM_FSTAT");
    EXPECT_EQ(byName.status, 0);
    EXPECT_EQ(byName.output, "code:         0x0100002F (16777263)\n"
                             "name:         cu_ERROR_SHM_FSTAT\n"
                             "category:     CUtilities\n"
                             "description:  Call to fstat(...) failed.\n");
    for (const char* code : {"16777263", "0x0100002F", "0x100002f"})
        EXPECT_EQ(run(cutil + "error " + code).output, byName.output) << code;

    const Result two = run(cutil + "error 0 cu_ERROR_SHM_FSTAT");
    EXPECT_THAT(two.output, HasSubstr("cu_ERROR_COM_SUCCESS"));
    EXPECT_THAT(two.output, HasSubstr("\n\n" + byName.output));
}

TEST(CutilError, RefusesUnknownCodesAndTellsAboutTheOthers)
{
    for (const std::string unknown : {"9", "0x0100004E", "0x02000000", "4294967296", "cu_ERROR_COM_", "0x", "1x"}) {
        const Result result = run(cutil + "error " + unknown + " 1 2>&1");
        EXPECT_EQ(result.status, 1) << unknown;
        EXPECT_THAT(result.output, HasSubstr("cutil: unknown error code: " + unknown + '\n'));
        EXPECT_THAT(result.output, HasSubstr("cu_ERROR_COM_INVALID_ARGUMENT"));
    }
}

TEST(CutilError, ListsTheWholeCatalogue)
{
    const Result all = run(cutil + "error --all");
    EXPECT_EQ(all.status, 0);
    EXPECT_THAT(all.output, HasSubstr("0x01000001  cu_ERROR_TIME_GET_FAILED "));
    EXPECT_THAT(all.output, HasSubstr(" Failed to read current time.\n"));
    std::ptrdiff_t codes = 0;
#define EXPECT_LISTED(number, name, description)                                                                       \
    EXPECT_THAT(all.output, HasSubstr("  " #name " "));                                                                \
    ++codes;
    CU_COMMON_ERRORS(EXPECT_LISTED)
    CU_LIBRARY_ERRORS(EXPECT_LISTED)
    EXPECT_EQ(std::count(all.output.begin(), all.output.end(), '\n'), codes);
}

TEST(CutilHexdump, DumpsLikeTheLibrary)
{
    // Repeats at the start and before the end; lengths around the ends of lines.
    std::string bytes(48, '\0');
    for (int i = 0; i < 300; ++i)
        bytes += static_cast<char>(i);
    bytes += std::string(80, 'x');
    const std::string path = testing::TempDir() + uniqueName("hexdump");
    for (const uint32_t length : {0u, 1u, 16u, 47u, 48u, 49u, 400u, 416u, 427u, 428u}) {
        std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(length));
        char expected[8192];
        ASSERT_EQ(cu_printHexDump(bytes.data(), length, expected, sizeof(expected), nullptr), 0u);
        EXPECT_EQ(run(cutil + "hexdump " + path).output, expected) << length;
        EXPECT_EQ(run("cat " + path + " | " + cutil + "hexdump").output, expected) << length;
    }
    remove(path.c_str());

    // A pipe that gives its bytes in pieces.
    const Result pieces = run("(printf abc; sleep 0.1; printf 'defghijklmnopqr') | " + cutil + "hexdump -");
    EXPECT_EQ(pieces.output, "Address  |  0  1  2  3  4  5  6  7  8  9  A  B  C  D  E  F | Dump\n"
                             "-----------------------------------------------------------------------------\n"
                             "00000000 | 61 62 63 64 65 66 67 68 69 6A 6B 6C 6D 6E 6F 70 | abcdefghijklmnop\n"
                             "00000010 | 71 72                                           | qr\n");
}

TEST(CutilHexdump, NeedsNoMoreMemoryForMoreBytes)
{
    // 4 MiB that give a line each, and 128 MiB that shrink to a star.
    const Result result =
        run("(head -c 4M /dev/urandom; head -c 128M /dev/zero; printf end) | " + cutil + "hexdump | tail -n 2");
    EXPECT_EQ(result.output, "*\n08400000 | 65 6E 64" + std::string(39, ' ') + " | end\n");
    rusage usage{};
    ASSERT_EQ(getrusage(RUSAGE_CHILDREN, &usage), 0);
    EXPECT_LT(usage.ru_maxrss, 96 * 1024); // KiB; a sanitizer alone takes its share
}

class CutilShm : public testing::Test
{
protected:
    void TearDown() override { EXPECT_EQ(cu_SharedMemory_delete(&region, true), 0u); }

    void* create(uint32_t size)
    {
        void* base = nullptr;
        EXPECT_EQ(cu_SharedMemory_create(&region, name.c_str(), size, nullptr, nullptr,
                                         CU_PERMISSION_OWNER_READ | CU_PERMISSION_OWNER_WRITE, false, nullptr),
                  0u);
        EXPECT_EQ(cu_SharedMemory_getShared(region, &base), 0u);
        return base;
    }

    const std::string name = uniqueName("shm");
    cu_SharedMemory* region = nullptr;
};

TEST_F(CutilShm, ShowsTheFifoInARegion)
{
    constexpr uint32_t capacity = 8;
    const uint64_t initial = 0;
    const uint32_t size = cu_Fifo_getBlockSize(capacity, sizeof(initial));
    void* block = create(size);
    ASSERT_EQ(cu_Fifo_init(block, capacity, sizeof(initial), &initial), 0u);
    for (int i = 0; i < 3; ++i) {
        void* entry = nullptr;
        ASSERT_EQ(cu_Fifo_put(block, &entry), 0u);
        ASSERT_EQ(cu_Fifo_putCommit(block), 0u);
    }

    const Result shown = run(cutil + "shm show " + name);
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.output, "name:        " + name + "\nsize:        " + std::to_string(size) +
                                " bytes\nowner:       " + run("id -un").output +
                                "group:       " + run("id -gn").output +
                                "mode:        0600\n"
                                "FIFO:        8 entries of 8 bytes\n"
                                "  used:      3\n"
                                "  free:      5\n");
    const Result listed = run(cutil + "shm list");
    EXPECT_EQ(listed.status, 0);
    EXPECT_THAT(listed.output, HasSubstr(' ' + name + '\n'));
    EXPECT_THAT(listed.output, HasSubstr(' ' + std::to_string(size) + "  0600  "));

    // The same block, but the entries that it tells of would not fit in.
    static_cast<uint32_t*>(block)[0] = 2 * capacity;
    EXPECT_THAT(run(cutil + "shm show " + name).output, HasSubstr("FIFO:        none\n"));
    EXPECT_EQ(cu_Fifo_cleanup(block), 0u);
}

TEST_F(CutilShm, ShowsARegionWithoutAFifo)
{
    create(10); // not even room for a header
    const Result shown = run(cutil + "shm show " + name);
    EXPECT_EQ(shown.status, 0);
    EXPECT_THAT(shown.output, HasSubstr("size:        10 bytes\n"));
    EXPECT_THAT(shown.output, HasSubstr("FIFO:        none\n"));
}

TEST(CutilClock, ListsTheClocks)
{
    cu_TimeValue now{};
    ASSERT_EQ(cu_getTime(&now, 0), 0u);
    const Result result = run(cutil + "clock");
    EXPECT_EQ(result.status, 0);
    long long shown = 0;
    const std::size_t line = result.output.find("\n    0  real time ");
    ASSERT_NE(line, std::string::npos);
    ASSERT_EQ(sscanf(result.output.c_str() + line, " 0 real time %*s ns %lld", &shown), 1) << result.output;
    EXPECT_GE(shown, now.tv_sec);
    EXPECT_LE(shown, now.tv_sec + 60);
    EXPECT_THAT(result.output, HasSubstr("\n    1  monotonic "));
}

TEST(Cutil, TellsHowItIsUsed)
{
    EXPECT_EQ(run(cutil + "--version").output, "cutil " CU_VERSION_STRING "\n");
    EXPECT_THAT(run(cutil + "--help").output, StartsWith("usage: cutil COMMAND"));
    for (const std::string command : {"error", "hexdump", "shm", "clock"}) {
        const Result help = run(cutil + command + " --help 2>/dev/null");
        EXPECT_EQ(help.status, 0) << command;
        EXPECT_THAT(help.output, StartsWith("usage: cutil " + command));
    }
}

TEST(Cutil, AnswersWrongUsageOnTheErrorStreamWithStatus2)
{
    for (const std::string words :
         {"", "bogus", "--bogus", "error", "error --all 1", "error --bogus", "hexdump a b", "hexdump --bogus", "shm",
          "shm bogus", "shm list x", "shm show", "shm show a b", "clock x"}) {
        EXPECT_EQ(run(cutil + words + " 2>/dev/null").output, "") << words;
        const Result result = run(cutil + words + " 2>&1 >/dev/null");
        EXPECT_EQ(result.status, 2) << words;
        EXPECT_NE(result.output, "") << words;
    }
}

TEST(Cutil, AnswersFailureOnTheErrorStreamWithStatus1)
{
    for (const std::string words :
         {"hexdump /nonexistent", "hexdump /", "shm show nonexistent-region", "error 9", "error --all >/dev/full"}) {
        const Result result = run('(' + cutil + words + ") 2>&1");
        EXPECT_EQ(result.status, 1) << words;
        EXPECT_THAT(result.output, HasSubstr("cutil: ")) << words;
    }
    EXPECT_THAT(run(cutil + "shm show nonexistent-region 2>&1").output,
                HasSubstr("Requested to open '/nonexistent-region' with options '2'"));
}

} // namespace
