#include "programs/command.h"

#include <cUtil/errorCodes.h>
#include <cUtil/fifo.h>
#include <cUtil/ringBuffer.h>
#include <cUtil/rpcChannel.h>
#include <cUtil/rpcQueue.h>
#include <cUtil/sharedMemory.h>
#include <cUtil/tools/hexDump.h>
#include <cUtil/version.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <sstream>
#include <sys/resource.h>

namespace
{

using namespace support;
using testing::AllOf;
using testing::EndsWith;
using testing::FieldsAre;
using testing::HasSubstr;
using testing::StartsWith;

TEST(CutilError, TellsAboutCodesAndNamesAlikeAndOnlyRefusesTheUnknown)
{
    const std::string told = "code:         0x0100002F (16777263)\n"
                             "name:         cu_ERROR_SHM_FSTAT\n"
                             "category:     CUtilities\n"
                             "description:  Call to fstat(...) failed.\n";
    for (const char* code : {"cu_ERROR_SHM_FSTAT", "16777263", "0x0100002F", "0x100002f"})
        EXPECT_THAT(run(cutil + "error " + code), FieldsAre(0, told)) << code;
    EXPECT_THAT(run(cutil + "error 0 cu_ERROR_SHM_FSTAT").output,
                AllOf(HasSubstr("cu_ERROR_COM_SUCCESS"), EndsWith("\n\n" + told)));
    for (const std::string unknown : {"9", "0x0100004E", "0x02000000", "4294967296", "cu_ERROR_COM_", "0x", "1x"})
        EXPECT_THAT(run(cutil + "error " + unknown + " cu_ERROR_SHM_FSTAT 2>&1"),
                    FieldsAre(1, AllOf(HasSubstr("cutil: unknown error code: " + unknown + '\n'), HasSubstr(told))));
}

TEST(CutilError, ListsTheWholeCatalogue)
{
    const auto [status, all] = run(cutil + "error --all");
    EXPECT_EQ(status, 0);
    EXPECT_THAT(all, HasSubstr("0x01000001  cu_ERROR_TIME_GET_FAILED "));
    EXPECT_THAT(all, HasSubstr(" Failed to read current time.\n"));
#define PLUS_ONE(number, name, description) +1
    EXPECT_EQ(std::count(all.begin(), all.end(), '\n'), 0 CU_COMMON_ERRORS(PLUS_ONE) CU_LIBRARY_ERRORS(PLUS_ONE));
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
    EXPECT_EQ(run("(printf abc; sleep 0.1; printf 'defghijklmnopqr') | " + cutil + "hexdump -").output,
              run("printf abcdefghijklmnopqr | " + cutil + "hexdump").output);
}

TEST(Cutil, NeedsNoMoreMemoryForMoreBytes)
{
    // 4 MiB that give a line each, and 128 MiB that shrink to a star.
    EXPECT_THAT(
        run("(head -c 4M /dev/urandom; head -c 128M /dev/zero; printf end) | " + cutil + "hexdump | tail -n 2").output,
        StartsWith("*\n08400000 | 65 6E 64 "));
    EXPECT_EQ(run("head -c 128M /dev/zero | " + cutil + "md5").output, "fde9e0818281836e4fc0edfede2b8762  -\n");
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

    Result show() const { return run(cutil + "shm show " + name); }

    const std::string name = uniqueName("shm");
    cu_SharedMemory* region = nullptr;
};

TEST_F(CutilShm, ShowsTheFifoInARegion)
{
    const uint64_t initial = 0;
    const uint32_t size = cu_Fifo_getBlockSize(8, sizeof(initial));
    void* block = create(size);
    ASSERT_EQ(cu_Fifo_init(block, 8, sizeof(initial), &initial), 0u);
    void* entry = nullptr;
    ASSERT_EQ(cu_Fifo_put(block, &entry), 0u);
    ASSERT_EQ(cu_Fifo_putCommit(block), 0u);

    EXPECT_THAT(show(), FieldsAre(0, "name:        " + name + "\nsize:        " + std::to_string(size) +
                                         " bytes\nowner:       " + run("id -un").output +
                                         "group:       " + run("id -gn").output +
                                         "mode:        0600\n"
                                         "FIFO:        8 entries of 8 bytes\n"
                                         "  used:      1\n"
                                         "  free:      7\n"));
    EXPECT_THAT(run(cutil + "shm list"),
                FieldsAre(0, AllOf(HasSubstr(' ' + name + '\n'), HasSubstr(' ' + std::to_string(size) + "  0600  "))));

    // The same block, but the entries that it tells of would not fit in.
    static_cast<uint32_t*>(block)[0] = 16;
    EXPECT_THAT(show().output, EndsWith("FIFO:        none\n"));
    EXPECT_THAT(run(cutil + "ring cat " + name + " 2>&1").output, HasSubstr("there is no ring buffer in the region"));
}

TEST_F(CutilShm, ShowsARegionWithoutRoomForAHeader)
{
    create(10);
    EXPECT_THAT(show(), FieldsAre(0, AllOf(HasSubstr("size:        10 bytes\n"), EndsWith("FIFO:        none\n"))));
}

TEST_F(CutilShm, ShowsARingBuffer)
{
    constexpr uint32_t ringSize = 1024;
    void* base = create(cu_RingBuffer_getRegionSize(ringSize));
    cu_RingBuffer* ring = nullptr;
    ASSERT_EQ(cu_RingBuffer_create(&ring, base, ringSize, false, true, nullptr), 0u);
    bool written = false;
    ASSERT_EQ(cu_RingBuffer_put(ring, "hello", 5, &written), 0u);
    EXPECT_THAT(show().output, EndsWith("ring buffer: 1024 bytes\n"
                                        "  used:      5\n"
                                        "  free:      1018\n"
                                        "  locks:     writer\n"));
    // Larger than the region, and no power of two: neither is read.
    for (const uint32_t size : {2 * ringSize, ringSize + 1}) {
        static_cast<uint32_t*>(base)[2] = size;
        EXPECT_THAT(show().output,
                    HasSubstr("ring buffer: damaged; " + std::to_string(size) + " bytes by its header\n"));
        EXPECT_THAT(run(cutil + "ring cat --once " + name + " 2>&1"),
                    FieldsAre(1, HasSubstr("the ring buffer is damaged")));
    }
    EXPECT_EQ(cu_RingBuffer_delete(&ring), 0u);
}

TEST_F(CutilShm, ShowsAnRpcQueueAndAnRpcChannel)
{
    void* base = create(16384);
    cu_RPCQueue* queue = nullptr;
    ASSERT_EQ(cu_RPCQueue_create(&queue, base, 16384, nullptr), 0u);
    ASSERT_EQ(cu_RPCQueue_signal(queue), 0u);
    EXPECT_THAT(show().output,
                EndsWith("RPC queue:   12288 bytes of payload, from the looks of it (it carries no mark)\n"
                         "  signals:   1\n"));
    // The size alone does not make a queue.
    static_cast<char*>(base)[4095] = 1;
    EXPECT_THAT(show().output, HasSubstr("FIFO:        none\n"));
    ASSERT_EQ(cu_RPCQueue_delete(&queue), 0u);

    cu_RPCChannel* channel = nullptr;
    ASSERT_EQ(cu_RPCChannel_create(&channel, base, 16384, nullptr), 0u);
    ASSERT_EQ(cu_RPCChannel_signalTx(channel), 0u);
    EXPECT_THAT(show().output,
                EndsWith("RPC channel: twice 4096 bytes of payload, from the looks of it (it carries no mark)\n"
                         "  signals:   0 to the side that created it, 1 to the other one\n"));
    ASSERT_EQ(cu_RPCChannel_delete(&channel), 0u);
}

class CutilRing : public testing::Test
{
protected:
    void TearDown() override { run("rm -f /dev/shm/" + name + ' ' + path); }

    const std::string name = uniqueName("ring");
    const std::string path = testing::TempDir() + name;
    const std::string put = cutil + "ring put " + name;
    const std::string cat = cutil + "ring cat " + name;
};

TEST_F(CutilRing, TakesAndGivesWhatIsThere)
{
    EXPECT_EQ(run("printf hello | " + put + " --size 16 && printf ' world' | " + put + " --size 64").status, 0);
    EXPECT_THAT(run(cutil + "shm show " + name).output, EndsWith("ring buffer: 16 bytes\n"
                                                                 "  used:      11\n"
                                                                 "  free:      4\n"
                                                                 "  locks:     reader and writer\n"));
    EXPECT_EQ(run(cat + " --once; " + cutil + "ring -o cat " + name).output, "hello world");
}

TEST_F(CutilRing, CarriesAStreamThroughAShellPipeUntilItIsInterrupted)
{
    // Far more than the ring holds: both sides wait for each other time and again.
    ASSERT_EQ(run(": | " + put + " --size 4096").status, 0);
    const std::string out = path + ".out";
    EXPECT_EQ(run("head -c 300000 /dev/urandom >" + path + "; " + cat + " >" + out + " & reader=$!; " + put + " <" +
                  path + " && while [ $(stat -c %s " + out +
                  ") -lt 300000 ]; do sleep 0.01; done; kill -INT $reader; " + "wait $reader; echo $?; cmp " + path +
                  ' ' + out + "; rm " + out)
                  .output,
              "0\n");
}

TEST_F(CutilRing, AnInterruptedPutTellsWhatFoundNoRoom)
{
    const std::string pipe = path + ".pipe";
    EXPECT_EQ(run("mkfifo " + pipe + "; " + put + " --size 8 <" + pipe + " >" + path + " 2>&1 & putter=$!; exec 3>" +
                  pipe + "; printf 0123456789 >&3; until " + cutil + "shm show " + name +
                  " 2>&1 | grep -q 'used: *7$'; do sleep 0.01; done; kill $putter; wait $putter; cat " + path + "; " +
                  cat + " --once; rm " + pipe)
                  .output,
              "cutil: " + name + ": interrupted with 3 bytes that found no room\n0123456");
}

TEST(CutilClock, ListsTheClocks)
{
    const auto [status, told] = run("date +%s; " + cutil + "clock | grep -e ' real time ' -e ' 1  monotonic '");
    long long now = 0;
    long long shown = 0;
    ASSERT_EQ(sscanf(told.c_str(), "%lld 0 real time %*s ns %lld", &now, &shown), 2) << told;
    EXPECT_GE(shown, now);
    EXPECT_LE(shown, now + 60);
    EXPECT_EQ(std::count(told.begin(), told.end(), '\n'), 3);
}

TEST(CutilConvert, PrintsTheValueOrWhyThereIsNone)
{
    const char* const cases[][2] = {{"bool True", "1\n"},
                                    {"char -h", "-\n"},
                                    {"sint8 -0x80", "-128\n"},
                                    {"-b 36 sint64 -zz.0", "-1295\n"},
                                    {"uint64 18446744073709551615", "18446744073709551615\n"},
                                    {"ieee32 0.1", "0.100000001\n"},
                                    {"ieee64 -1e-1", "-0.10000000000000001\n"}};
    for (const auto& [words, output] : cases)
        EXPECT_THAT(run(cutil + "convert " + words + " 2>&1"), FieldsAre(0, output)) << words;
    EXPECT_THAT(run(cutil + "convert --base 16 uint8 100.0 2>&1"),
                FieldsAre(1, "cutil: uint8: source='100.0' base='16 (cu_ERROR_CONVERSION_FAILED)\n"));
}

class CutilMd5 : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_EQ(run("mkdir " + folder).status, 0);
        for (const auto& [name, content] :
             {std::pair("a b", "abc"), std::pair("back\\slash", "y"), std::pair("cr\rx", "z"), std::pair("empty", ""),
              std::pair("new\nline", "x")})
            std::ofstream(folder + '/' + name) << content;
    }
    void TearDown() override { run("rm -r " + folder); }

    /// In the folder.
    Result md5(const std::string& words, const std::string& before = "")
    {
        return run("export LC_ALL=C; cd " + folder + "; " + before + cutil + "md5 " + words);
    }

    const std::string folder = testing::TempDir() + uniqueName("md5");
    const std::string sums = "900150983cd24fb0d6963f7d28e17f72  a b\n"
                             "\\415290769594460e2e485922904f345d  back\\\\slash\n"
                             "\\fbade9e36a3f36d3d676c1b808451dd7  cr\\rx\n"
                             "d41d8cd98f00b204e9800998ecf8427e  empty\n"
                             "\\9dd4e461268c8034f5c8564e155c67a6  new\\nline\n";
};

TEST_F(CutilMd5, PrintsTheDigestsOfFilesAndStreamsInTheFormOfMd5sumAndChecksThem)
{
    EXPECT_THAT(md5("*"), FieldsAre(0, sums));
    std::ofstream(folder + "/list") << sums;
    for (const Result& result : {md5("--check list"), md5("--check", "cat list | "), md5("--check - <list")})
        EXPECT_THAT(result, FieldsAre(0, "a b: OK\nback\\slash: OK\ncr\rx: OK\nempty: OK\n\\new\\nline: OK\n"));
    EXPECT_EQ(md5("empty -", "(printf a; sleep 0.1; printf bc) | ").output,
              "d41d8cd98f00b204e9800998ecf8427e  empty\n900150983cd24fb0d6963f7d28e17f72  -\n");

    EXPECT_THAT(md5("missing empty . 2>&1"),
                FieldsAre(1, AllOf(HasSubstr("cutil: missing: No such file or directory\n"),
                                   HasSubstr("cutil: .: Is a directory\n"),
                                   HasSubstr("d41d8cd98f00b204e9800998ecf8427e  empty\n"))));
}

TEST_F(CutilMd5, TellsWhatDoesNotMatchCannotBeReadOrIsNoSum)
{
    std::ofstream(folder + "/list") << "# a comment\n\n"
                                       "900150983cd24fb0d6963f7d28e17f73  a b\n"
                                       "D41D8CD98F00B204E9800998ECF8427E *empty\r\n"
                                       "d41d8cd98f00b204e9800998ecf8427e  missing\n"
                                       "d41d8cd98f00b204e9800998ecf8427e empty\n"
                                       "d41d8cd98f00b204e9800998ecf8427  empty\n"
                                       "d41d8cd98f00b204e9800998ecf8427ef  empty\n"
                                       "d41d8cd98f00b204e9800998ecf8427e  \n"
                                       "\\d41d8cd98f00b204e9800998ecf8427e  a\\xb\n"
                                       "\\d41d8cd98f00b204e9800998ecf8427e  a\\\n"
                                       "\t d41d8cd98f00b204e9800998ecf8427e  empty";
    EXPECT_THAT(md5("--check list 2>/dev/null"),
                FieldsAre(1, "a b: FAILED\nempty: OK\nmissing: FAILED open or read\nempty: OK\n"));
    EXPECT_EQ(md5("--check list 2>&1 >/dev/null").output, "cutil: missing: No such file or directory\n"
                                                          "cutil: WARNING: 6 lines are improperly formatted\n"
                                                          "cutil: WARNING: 1 listed file could not be read\n"
                                                          "cutil: WARNING: 1 computed checksum did NOT match\n");
    // The standard input cannot be the list and a file in it.
    EXPECT_THAT(md5("--check 2>&1", "printf 'd41d8cd98f00b204e9800998ecf8427e  -\n' | "),
                FieldsAre(1, "cutil: standard input: no properly formatted checksum lines found\n"));
}

TEST(CutilUuid, PrintsAsManyDifferentIdentifiersAsAreAskedFor)
{
    const auto different = [](const std::string& count) {
        return run(cutil + "uuid " + count + " | sort -u | grep -cx '[0-9A-F]\\{32\\}'").output;
    };
    EXPECT_EQ(different(""), "1\n");
    EXPECT_EQ(different("1000"), "1000\n");
}

/// What "cutil help" lists.
std::vector<std::string> commandNames()
{
    std::istringstream lines(run(cutil + "help | sed -n '/^commands:/,/^$/s/^  \\([a-z0-9]*\\) .*/\\1/p'").output);
    return {std::istream_iterator<std::string>(lines), {}};
}

TEST(Cutil, EveryCommandTellsHowItIsUsed)
{
    EXPECT_EQ(run(cutil + "--version").output, "cutil " CU_VERSION_STRING "\n");
    EXPECT_EQ(run(cutil + "--help").output, run(cutil + "help").output);
    const std::vector<std::string> commands = commandNames();
    EXPECT_THAT(commands, testing::IsSupersetOf({"error", "convert", "md5", "log", "help"}));
    for (const std::string& command : commands) {
        const Result help = run(cutil + "help " + command);
        EXPECT_THAT(help, FieldsAre(0, AllOf(StartsWith("usage: cutil " + command), HasSubstr("\noptions:\n"))));
        EXPECT_EQ(run(cutil + command + " --help").output, help.output);
        if (command != "convert") { // takes everything behind the type as it is
            EXPECT_EQ(run(cutil + command + " word -h").output, help.output) << command;
        }
    }
}

#ifdef MANUAL_PAGES
TEST(Cutil, EveryCommandHasAManualPageThatIsWellFormedAndTellsWhatItsHelpTells)
{
    EXPECT_THAT(run("mandoc -Tlint -Wwarning " MANUAL_PAGES "*.1 2>&1"), FieldsAre(0, ""));
    const auto shown = [](const std::string& page) {
        return run("mandoc -Tascii -Owidth=1000 " MANUAL_PAGES + page + ".1 | sed 's/.\\x08//g'").output;
    };
    EXPECT_THAT(shown("telemetry"), AllOf(HasSubstr(" telemetry - shows "), HasSubstr("\n       telemetry watch ")));
    EXPECT_THAT(shown("cutil"), HasSubstr("cutil-error(1), "));
    for (const std::string& command : commandNames()) {
        const std::string page = shown("cutil-" + command);
        EXPECT_THAT(page, HasSubstr(" cutil-" + command + " - "));
        std::istringstream words(run(cutil + "help " + command + " | grep -v ^options").output);
        words.ignore(6); // "usage:"
        for (std::string word; words >> word;)
            EXPECT_THAT(page, HasSubstr(word)) << command;
    }
}
#endif

TEST(Cutil, JsonIsReadByOthers)
{
    const std::string region = uniqueName("json");
    const std::string file = testing::TempDir() + region;
    ASSERT_EQ(run("printf hello | " + cutil + "ring put --size 16 " + region + " && printf abc >" + file + " && " +
                  cutil + "md5 " + file + " /dev/null | sed 's/^d/0/' >" + file + ".list")
                  .status,
              0);
    const std::string aRegion = "{name: \"" + region + "\", owner: $user, mode: \"0600\"}";
    const std::pair<std::string, std::string> cases[] = {
        {"error --json 1 cu_ERROR_SHM_FSTAT",
         "map(.code) == [1, 16777263] and (.[1] == {code: 16777263, name: \"cu_ERROR_SHM_FSTAT\","
         " category: \"CUtilities\", description: \"Call to fstat(...) failed.\"})"},
        {"error --json --all", "length > 80 and all(.[]; .description | type == \"string\")"},
        {"shm list --json", "any(.[]; contains(" + aRegion + ") and .size > 16)"},
        {"shm show --json " + region,
         "length == 1 and (.[0] | contains(" + aRegion +
             " + {contents: \"ring buffer\", bytes: 16, used: 5, free: 10, readerLock: true, writerLock: true}))"},
        {"clock --json", ".[0].clock == 0 and .[0].resolutionNanoseconds == 1 and (.[0].seconds - now | fabs) < 60"
                         " and all(.[]; .available == has(\"seconds\"))"},
        {"convert --json sint32 -5", ". == [{type: \"sint32\", text: \"-5\", value: -5}]"},
        {"convert --json bool true", ".[0].value == true"},
        {"convert --json ieee64 -1.5e300", ".[0].value == -1.5e300"},
        {"convert --json ieee32 -inf", ".[0].value == \"-inf\""},
        {"uuid --json 3", "map(.uuid | test(\"^[0-9A-F]{32}$\")) == [true, true, true]"},
        {"md5 --json " + file, ". == [{file: \"" + file + "\", md5: \"900150983cd24fb0d6963f7d28e17f72\"}]"},
        {"md5 --json --check " + file + ".list", "map(.verdict) == [\"OK\", \"FAILED\"]"},
        {"net --json", "any(.[]; . == {interface: \"lo\", address: \"127.0.0.1\", prefix: 8, netmask: \"255.0.0.0\"})"},
    };
    for (const auto& [words, truth] : cases) {
        const std::string line = cutil + words + " 2>/dev/null | jq -es --arg user \"$(id -un)\" '" + truth + "'";
        EXPECT_THAT(run(line), FieldsAre(0, "true\n")) << run(cutil + words).output;
    }
    run(cutil + "ring cat --once " + region + "; rm /dev/shm/" + region + ' ' + file + ' ' + file + ".list");
}

// Overlong forms, halves of surrogates, what is beyond Unicode, a character that ends too early, one without a start.
TEST(Cutil, JsonKeepsBytesThatAreNoText)
{
    const std::string name = "x\"\\\n\x01\x7f\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"
                             "\xc0\x80\xe0\x9f\x80\xed\xa0\x80\xf4\x90\x80\x80\xf5\xe2\x82x\x80\xc3";
    const std::string folder = testing::TempDir() + uniqueName("bytes");
    ASSERT_EQ(run("mkdir " + folder).status, 0);
    std::ofstream(folder + '/' + name) << "abc";
    const std::string json = "cd " + folder + "; " + cutil + "md5 --json *";
    EXPECT_EQ(run(json).output,
              "{\"file\": \"x\\\"\\\\\\u000a\\u0001\x7f\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"
              "\\udcc0\\udc80\\udce0\\udc9f\\udc80\\udced\\udca0\\udc80\\udcf4\\udc90\\udc80\\udc80"
              "\\udcf5\\udce2\\udc82x\\udc80\\udcc3\", \"md5\": \"900150983cd24fb0d6963f7d28e17f72\"}\n");
    EXPECT_THAT(run(json + " | jq -r .file").output, StartsWith("x\"\\\n\x01\x7f\xc3\xa9\xe2\x82\xac\xf0\x9f\x98\x80"));
    run("rm -r " + folder);
}

TEST(Cutil, HasColoursOnATerminalUnlessToldOtherwise)
{
    const std::string list = testing::TempDir() + uniqueName("list");
    std::ofstream(list) << "900150983cd24fb0d6963f7d28e17f73  /dev/null\n";
    const auto check = [&](const std::string& environment, const std::string& option, bool onTerminal) {
        const std::string line = cutil + "md5 --check " + option + ' ' + list;
        return run("env -u NO_COLOR TERM=xterm " + environment + ' ' +
                   (onTerminal ? "script -qec '" + line + "' /dev/null" : line) + " 2>/dev/null")
            .output;
    };
    const auto isRed = HasSubstr("/dev/null: \033[31mFAILED\033[m");
    const auto isNot = AllOf(HasSubstr("/dev/null: FAILED"), testing::Not(HasSubstr("\033")));
    EXPECT_THAT(check("", "", true), isRed);
    EXPECT_THAT(check("NO_COLOR=1", "", true), isNot);
    EXPECT_THAT(check("TERM=dumb", "", true), isNot);
    EXPECT_THAT(check("", "--color=never", true), isNot);
    EXPECT_THAT(check("", "", false), isNot);
    EXPECT_THAT(check("NO_COLOR=1", "--color always", false), isRed);
    remove(list.c_str());
}

TEST(Cutil, BashCompletesItsCommandLines)
{
    const std::string region = uniqueName("complete");
    ASSERT_EQ(run(": | " + cutil + "ring put --size 16 " + region + "; : >'/dev/shm/" + region + "$(boo)'").status, 0);
    const std::string script = "cutil() { " + cutil + "\"$@\"; }; . " CUTIL_COMPLETION;
    const std::pair<std::string, std::string> cases[] = {
        {"cl", "clock"},
        {"help ri", "ring"},
        {"-", "--help --version"},
        {"bogus \"\"", ""},
        {"error cu_ERROR_SHM_FS", "cu_ERROR_SHM_FSTAT"},
        {"shm \"\"", "list show"},
        {"shm show " + region.substr(0, region.size() - 1), region},
        {"shm list \"\"", ""},
        {"ring cat --once " + region, region},
        {"ring put --size \"\"", ""},
        {"ring put --size 16 " + region, region},
        {"ring put --", "--help --size"},
        {"ring -o cat -", "--help --once"},
        {"convert -b 10 ieee", "ieee32 ieee64"},
        {"convert bool \"\"", ""},
        {"log watch host 7071 --level d", "debug"},
        {"md5 --check --color = n", "never"},
        {"md5 --color =", "auto always never"},
        {"md5 --ch", "--check"},
        {"md5 a b \"\"", "-o default|"},
        {"msg send host 7 \"\"", "-o default|"},
        {"msg serve host \"\"", ""},
    };
    for (const auto& [words, expected] : cases) {
        EXPECT_EQ(run("bash -c '" + script + "; compopt() { printf \"%s|\" \"$*\"; }; COMP_WORDS=(cutil " + words +
                      "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _cutil cutil; echo \"${COMPREPLY[*]}\"' 2>&1")
                      .output,
                  expected + '\n')
            << words;
    }

    // As it is typed.
    const std::string path = testing::TempDir() + region;
    std::ofstream(path + ".typed") << script << "\ncutil md5 --j\t" + path + ".ty\t\nexit\n";
    EXPECT_THAT(run("script -qec 'bash --norc --noprofile -i' /dev/null <" + path + ".typed").output,
                HasSubstr("{\"file\": \"" + path + ".typed\", "));
    run("rm " + path + ".typed '/dev/shm/" + region + "' '/dev/shm/" + region + "$(boo)'");
}

TEST(Cutil, AnswersWrongUsageOnTheErrorStreamWithStatus2)
{
    std::istringstream lines(
        "|bogus|--bogus|error|error --all 1|-x|--|error --bogus|error -ax|hexdump a b|hexdump --bogus"
        "|shm|shm bogus|shm list x|shm show|shm show a b|ring|ring bogus|ring cat|ring cat a b"
        "|ring cat a --size 8|ring put a --once|ring put a --size|ring put a -s|ring put a --size --once"
        "|ring put a --size 9|ring put a --size 1|ring put a --size 2147483648|clock x|md5 --bogus"
        "|uuid x|uuid 0|uuid 1 2|uuid 4294967296|convert|convert sint8|convert sint8 1 2|convert sint9 1"
        "|convert --base 37 sint8 1|convert --base 1x sint8 1");
    for (std::string words; std::getline(lines, words, '|');) {
        EXPECT_THAT(run(cutil + words + " 2>/dev/null"), FieldsAre(2, "")) << words;
        EXPECT_NE(run(cutil + words + " 2>&1 >/dev/null").output, "") << words;
    }
}

TEST(Cutil, AnswersFailureOnTheErrorStreamWithStatus1)
{
    for (const std::string words :
         {"hexdump /nonexistent", "hexdump /", "shm show nonexistent-region", "ring cat nonexistent-region",
          "ring put nonexistent-region", "ring cat -o -- --once", "error 9", "error --all >/dev/full",
          "md5 /nonexistent", "md5 -c /dev/null", "md5 --check /nonexistent", "uuid 9999 >/dev/full"}) {
        EXPECT_THAT(run('(' + cutil + words + ") 2>&1"), FieldsAre(1, HasSubstr("cutil: "))) << words;
    }
    EXPECT_THAT(run(cutil + "shm show nonexistent-region 2>&1").output,
                HasSubstr("Requested to open '/nonexistent-region' with options '2'"));
}

} // namespace
