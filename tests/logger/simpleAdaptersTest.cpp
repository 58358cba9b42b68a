#include "logger/recorder.h"
#include "support/made.h"
#include "support/process.h"
#include "support/sweep.h"

#include <cUtil/logger/consoleLoggingAdapter.h>
#include <cUtil/logger/fileLoggingAdapter.h>
#include <cUtil/logger/syslogLoggingAdapter.h>

#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace
{

using testing::HasSubstr;
using namespace std::string_literals;

void log(cu_logger_Adapter* adapter, uint32_t level, const std::string& text)
{
    EXPECT_EQ(cu_logger_Adapter_logMessage(adapter, level, text.c_str()), 0U);
}

using Console = support::Made<cu_logger_ConsoleLoggingAdapter_new, cu_logger_Adapter_destruct>;
using File = support::Made<cu_logger_FileLoggingAdapter_new, cu_logger_Adapter_destruct>;
using Syslog = support::Made<cu_logger_SyslogLoggingAdapter_new, cu_logger_Adapter_destruct>;

constexpr time_t thirdOfApril = 1775192829; // 2026-04-03 05:07:09 UTC

class LogFile : public testing::Test
{
protected:
    ~LogFile() override { std::filesystem::remove(path); }

    std::string content() const
    {
        std::ostringstream text;
        text << std::ifstream(path).rdbuf();
        return text.str();
    }

    const std::string path =
        (std::filesystem::temp_directory_path() / ("loggerTest." + std::to_string(getpid()))).string();
    File adapter{path.c_str()};
};

TEST_F(LogFile, constructorsLeaveNothingBehind)
{
    EXPECT_CLEAN_FAILURES(cu_logger_ConsoleLoggingAdapter_new, cu_logger_Adapter_destruct);
    EXPECT_CLEAN_FAILURES(cu_logger_FileLoggingAdapter_new, cu_logger_Adapter_destruct, path.c_str());
    EXPECT_CLEAN_FAILURES(cu_logger_SyslogLoggingAdapter_new, cu_logger_Adapter_destruct, "ident");
}

TEST_F(LogFile, badArgumentsAreRefused)
{
    constexpr char consoleSource[] = "src/cUtil/logger/consoleLoggingAdapter";
    constexpr char fileSource[] = "src/cUtil/logger/fileLoggingAdapter";
    constexpr char syslogSource[] = "src/cUtil/logger/syslogLoggingAdapter.linux";
    const Console console;
    const Syslog syslog("ident");
    support::expectRefusals(console, "cu_logger_ConsoleLoggingAdapter_", consoleSource);
    support::expectRefusals(adapter, "cu_logger_FileLoggingAdapter_", fileSource);
    support::expectRefusals(syslog, "cu_logger_SyslogLoggingAdapter_", syslogSource);
    for (const cu_logger_Adapter* each : {console.get(), adapter.get(), syslog.get()})
        EXPECT_EQ(each->logMessage(each->context, 4, "x"), cu_ERROR_COM_INVALID_ARGUMENT);
    cu_logger_Adapter* none = nullptr;
    const std::tuple good(&none, "text");
    EXPECT_NULLS_REFUSED(consoleSource, good, cu_logger_ConsoleLoggingAdapter_new);
    EXPECT_NULLS_REFUSED(fileSource, good, cu_logger_FileLoggingAdapter_new);
    EXPECT_NULLS_REFUSED(syslogSource, good, cu_logger_SyslogLoggingAdapter_new);
    EXPECT_EQ(cu_logger_FileLoggingAdapter_new(&none, "", nullptr), cu_ERROR_COM_INVALID_ARGUMENT);
    EXPECT_EQ(cu_logger_SyslogLoggingAdapter_new(&none, "", nullptr), cu_ERROR_COM_INVALID_ARGUMENT);
    EXPECT_SYSTEM_FAILURE(cu_logger_FileLoggingAdapter_new(&none, "/no/such/folder", nullptr), cu_ERROR_FILEOPEN_FAILED,
                          ENOENT, "cu_logger_FileLoggingAdapter_new", fileSource, "");
}

TEST_F(LogFile, consoleLinesAreFlushedOneByOne)
{
    const support::Outcome outcome = support::outcomeOf([] {
        setenv("TZ", "UTC", 1);
        const support::ClockReading reading({thirdOfApril, 0});
        const Console console;
        log(console, 2, "text");
        EXPECT_EQ(lseek(STDOUT_FILENO, 0, SEEK_CUR), 32);
        log(console, 0, "100% %s\n");
    });
    EXPECT_EQ(outcome.status, 0);
    EXPECT_EQ(outcome.out, "[03.04.2026 5:07:09] Info: text\n[03.04.2026 5:07:09] Error: 100% %s\n\n");
}

TEST_F(LogFile, linesTellTheLocalTimeOfEachSecond)
{
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
    tzset();
    support::ClockReading clock({0, 0});
    const std::pair<time_t, std::string> cases[] = {
        {thirdOfApril, "[03.04.2026 7:07:09] "},
        {thirdOfApril + 1, "[03.04.2026 7:07:10] "},
        {1774745999, "[29.03.2026 1:59:59] "},
        {1774746000, "[29.03.2026 3:00:00] "},
        {0, "[01.01.1970 1:00:00] "},
        {1798757999, "[31.12.2026 23:59:59] "},
    };
    const char* const names[] = {"Error: x\n", "Warning: x\n", "Info: x\n", "Debug: x\n"};
    std::string expected;
    for (const auto& [second, stamp] : cases)
        for (uint32_t level = 0; level < 4; ++level) {
            clock.set({second, 999'999'999});
            log(adapter, level, "x");
            expected += stamp + names[level];
        }
    EXPECT_EQ(content(), ""); // the stream's buffer has room
    adapter.end();
    EXPECT_EQ(content(), expected);

    File again(path.c_str()); // appends
    log(again, 0, "x");
    again.end();
    EXPECT_EQ(content(), expected + cases[5].second + names[0]);
}

TEST_F(LogFile, linesReachTheFileWholeBeforeTheEnd)
{
    std::size_t sizes = 0;
    for (const std::size_t length : {1000U, 1500U, 1500U, 3U, 4067U, 9000U, 1U, 4000U, 4000U}) {
        log(adapter, 2, std::string(length, 'x'));
        const std::string reached = content();
        sizes += reached.size();
        EXPECT_TRUE(reached.empty() || reached.back() == '\n') << length;
    }
    EXPECT_GT(sizes, 0U);
}

TEST_F(LogFile, aFailingClockLosesTheLineOnly)
{
    for (const unsigned nth : {1U, 2U}) { // the second one is for the date
        const support::Injection injection("clock_gettime", EINVAL, nth);
        EXPECT_EQ(cu_logger_Adapter_logMessage(adapter, 0, "lost"), cu_ERROR_TIME_GET_FAILED);
        EXPECT_THAT(support::trace(), HasSubstr("cu_logger_FileLoggingAdapter_logMessage  -  "));
    }
    log(adapter, 0, "kept");
    adapter.end();
    EXPECT_THAT(content(), testing::MatchesRegex("\\[[^]]*\\] Error: kept\n"));
}

TEST_F(LogFile, linesOfManyThreadsDoNotMix)
{
    std::vector<std::thread> threads;
    for (const char letter : std::string("abcdefgh"))
        threads.emplace_back([this, letter] {
            for (int n = 0; n < 300; ++n)
                log(adapter, 1, std::string(299, letter));
        });
    for (std::thread& thread : threads)
        thread.join();
    adapter.end();
    std::map<std::string, int> bodies;
    std::istringstream text(content());
    for (std::string line; std::getline(text, line);)
        ++bodies[line.substr(line.find("Warning: ") + 9)];
    EXPECT_THAT(bodies, testing::AllOf(testing::SizeIs(8), testing::Each(testing::Pair(testing::SizeIs(299), 300))));
}

TEST(LogSyslog, linesReachTheSystemsLog)
{
    const support::Outcome outcome = support::outcomeOf([] {
        // A namespace where the log's socket is ours.
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
            mount("none", "/dev", "tmpfs", 0, nullptr) != 0) {
            printf("%s", strerror(errno));
            fflush(stdout);
            _exit(77);
        }
        const int daemon = socket(AF_UNIX, SOCK_DGRAM, 0);
        const sockaddr_un address = {AF_UNIX, "/dev/log"};
        EXPECT_EQ(bind(daemon, static_cast<const sockaddr*>(static_cast<const void*>(&address)), sizeof(address)), 0);
        const Syslog adapter("board");
        const char* const lines[][2] = {{"<27>", "Error"}, {"<28>", "Warning"}, {"<30>", "Info"}, {"<31>", "Debug"}};
        for (uint32_t level = 0; level < 4; ++level) {
            log(adapter, level, "100% %s");
            char line[200] = {};
            EXPECT_GT(recv(daemon, line, sizeof(line) - 1, MSG_DONTWAIT), 0);
            EXPECT_THAT(line, testing::StartsWith(lines[level][0]));
            EXPECT_THAT(line, HasSubstr(" board: "s + lines[level][1] + ": 100% %s"));
        }
    });
    if (outcome.status == 77)
        GTEST_SKIP() << "no mount namespace of one's own: " << outcome.out;
    EXPECT_EQ(outcome.status, 0) << outcome.out;
}

} // namespace
