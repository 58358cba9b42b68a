#include "programs/command.h"
#include "support/process.h"

#include <cUtil/fifo.h>
#include <cUtil/sharedMemory.h>

#include <gmock/gmock.h>

#include <csignal>
#include <fstream>
#include <sstream>

namespace
{

using namespace support;
using testing::ContainsRegex;
using testing::FieldsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A program in the background; both its streams go to a file.
class Background : Pinned
{
public:
    explicit Background(const std::string& command)
        : path_(testing::TempDir() + uniqueName("output") + '-' + std::to_string(++count_)), process_([&] {
              const std::string line = "exec " + command + " >" + path_ + " 2>&1";
              execl("/bin/sh", "sh", "-c", line.c_str(), nullptr);
              return 127;
          })
    {
    }
    ~Background() { remove(path_.c_str()); }

    std::string output() const
    {
        std::ostringstream text;
        text << std::ifstream(path_).rdbuf();
        return text.str();
    }
    bool says(const char* text) const
    {
        return comesTrue([&] { return output().find(text) != std::string::npos; });
    }
    void interrupt() const { ::kill(process_.id(), SIGINT); }
    void kill() { process_.kill(); }
    int wait(std::chrono::milliseconds limit = 60s) { return process_.wait(limit); }
    std::string number() const { return std::to_string(process_.id()); }

private:
    static inline int count_ = 0;
    std::string path_;
    Process process_;
};

struct Summary {
    unsigned taken = 0;
    unsigned lost = 0;
    double median = -1;
    double percentile = -1;
    double maximum = -1;
};

Summary summaryOf(const std::string& output)
{
    Summary summary;
    const std::size_t start = output.rfind('\n', output.find(" records taken")) + 1; // 0 in the first line
    sscanf(output.c_str() + start,
           "%u records taken, %u lost from put to take: median %lf us, 99th percentile %lf us, maximum %lf us",
           &summary.taken, &summary.lost, &summary.median, &summary.percentile, &summary.maximum);
    return summary;
}

class Telemetry : public testing::Test
{
protected:
    void TearDown() override
    {
        EXPECT_TRUE(region == nullptr || cu_SharedMemory_delete(&region, false) == 0);
        run("rm -f /dev/shm/" + name);
    }

    std::string sample() const { return telemetry + "sample --interval 20 --name " + name; }
    std::string report() const { return telemetry + "report --name " + name; }
    bool regionExists() const { return run("test -e /dev/shm/" + name).status == 0; }

    /// The queue of the sampler's region, once there are so many records in it.
    void* queue(int32_t records = 1)
    {
        EXPECT_TRUE(comesTrue([&] { return cu_SharedMemory_open(&region, name.c_str(), nullptr) == 0; }));
        void* base = nullptr;
        EXPECT_EQ(cu_SharedMemory_getShared(region, &base), 0u);
        EXPECT_TRUE(comesTrue([&] {
            uint32_t size = 0;
            int32_t free = 0;
            int32_t used = 0;
            return cu_Fifo_getLengthInfos(base, &size, &free, &used) == 0 && used >= records;
        }));
        return base;
    }

    static constexpr int32_t capacity = 32;
    const std::string name = uniqueName("telemetry");
    cu_SharedMemory* region = nullptr;
};

TEST_F(Telemetry, DemoPrintsPlainLinesAndASummaryThatAddsUp)
{
    if (UNDER_EMULATOR)
        GTEST_SKIP() << "the emulator cannot start a program that starts itself again";
    const Result result = run(telemetry + "demo --seconds 2 --name " + name + " 2>&1");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_THAT(result.output, StartsWith("time "));
    EXPECT_THAT(result.output, ContainsRegex("\n[0-9:]+  \\[[#.]+\\] +[0-9.]+%"));
    EXPECT_THAT(result.output, ContainsRegex("\nbusiest, mean/peak: cpu[0-9]+ [0-9]+/[0-9]+ %"));
    EXPECT_THAT(result.output, Not(HasSubstr("\033")));
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);)
        EXPECT_LE(line.size(), 80u) << line;

    const Summary summary = summaryOf(result.output);
    EXPECT_GE(summary.taken, 5u);
    EXPECT_LE(summary.taken, 25u);
    EXPECT_EQ(summary.lost, 0u);
    EXPECT_GT(summary.median, 0);
    EXPECT_LE(summary.median, summary.percentile);
    EXPECT_LE(summary.percentile, summary.maximum);
    EXPECT_FALSE(regionExists());
}

TEST_F(Telemetry, DrawsInPlaceOnATerminal)
{
    Background sampler(sample());
    const Result result = run("TERM=xterm script -qec '" + report() + " --seconds 1' /dev/null");
    EXPECT_THAT(result.output, HasSubstr("\033[6A")) << "one line for up to twelve cores, five for the rest";
    EXPECT_THAT(result.output, HasSubstr("processor  ["));
    EXPECT_THAT(result.output, HasSubstr("memory     ["));
    EXPECT_GT(summaryOf(result.output).taken, 0u);
    EXPECT_EQ(sampler.wait(), 0);
}

TEST_F(Telemetry, ReporterTellsOfAKilledSamplerWhoseRegionIsReplaced)
{
    Background sampler(sample());
    Background reporter(report());
    ASSERT_TRUE(reporter.says("%"));
    sampler.kill();
    EXPECT_EQ(reporter.wait(), 1);
    EXPECT_THAT(reporter.output(), HasSubstr("the sampler (process " + sampler.number() + ") has died\n"));
    EXPECT_GT(summaryOf(reporter.output()).taken, 0u);
    EXPECT_TRUE(regionExists());

    Background nextReporter(report() + " --seconds 1"); // does not fall for the stale region
    Background nextSampler(sample());
    EXPECT_EQ(nextReporter.wait(), 0);
    EXPECT_GT(summaryOf(nextReporter.output()).taken, 0u);
    EXPECT_EQ(nextSampler.wait(), 0);
    EXPECT_EQ(nextSampler.output(), "telemetry: replacing the region '" + name + "' that an earlier run left behind\n");
    EXPECT_FALSE(regionExists());
}

TEST_F(Telemetry, SamplerTellsOfAKilledReporter)
{
    Background sampler(sample());
    Background reporter(report());
    ASSERT_TRUE(reporter.says("%"));
    reporter.kill();
    EXPECT_EQ(sampler.wait(), 1);
    EXPECT_EQ(sampler.output(), "telemetry: the reporter (process " + reporter.number() + ") has died\n");
    EXPECT_FALSE(regionExists());
}

TEST_F(Telemetry, EndsInOrderOnCtrlC)
{
    Background sampler(sample());
    Background reporter(report());
    ASSERT_TRUE(reporter.says("%"));
    sampler.interrupt();
    EXPECT_EQ(sampler.wait(), 0);
    EXPECT_EQ(reporter.wait(), 0);
    EXPECT_THAT(reporter.output(), HasSubstr("the sampler has ended\n"));
    EXPECT_GT(summaryOf(reporter.output()).taken, 0u);
    EXPECT_FALSE(regionExists());
}

TEST_F(Telemetry, NamesItsThreadsAndEndsThemWhenTheTimeIsOver)
{
    Background sampler(sample() + " --seconds 2 --interval 1000"); // the ticks are slow, the end is not
    Background reporter(report());
    for (const auto& [number, thread] : {std::pair{sampler.number(), "telemetry-sampl"},
                                         {sampler.number(), "telemetry-tick"},
                                         {reporter.number(), "cu-pool-1"}}) {
        const std::string look = "grep -qx " + std::string(thread) + " /proc/" + number + "/task/*/comm";
        EXPECT_TRUE(comesTrue([&] { return run(look).status == 0; })) << thread;
    }
    EXPECT_EQ(sampler.wait(5s), 0);
    EXPECT_EQ(reporter.wait(5s), 0);
    EXPECT_EQ(summaryOf(reporter.output()).lost, 0u);
    EXPECT_FALSE(regionExists());
}

TEST_F(Telemetry, CountsWhatAFullQueueLoses)
{
    Background sampler(sample());
    queue(capacity);
    std::this_thread::sleep_for(200ms); // ten more; a sampler that is late makes up for it
    Background reporter(report() + " --seconds 1");
    EXPECT_EQ(reporter.wait(), 0);
    const Summary summary = summaryOf(reporter.output());
    EXPECT_GE(summary.taken, uint32_t{capacity});
    EXPECT_GE(summary.lost, 1u);
    EXPECT_GE(summary.maximum, 200'000) << "the first record waited at least as long as the queue was full";
    EXPECT_EQ(sampler.wait(), 0);
}

TEST_F(Telemetry, NobodyHangsWhenSomebodyDiedInATransaction)
{
    Background sampler(sample());
    void* entry = nullptr;
    ASSERT_EQ(cu_Fifo_put(queue(), &entry), 0u); // and never ends it
    Background reporter(report());
    for (Background* each : {&sampler, &reporter}) {
        EXPECT_EQ(each->wait(), 1);
        EXPECT_THAT(each->output(), HasSubstr("the queue stays locked"));
    }
}

TEST_F(Telemetry, LeavesARegionAloneThatIsInUse)
{
    {
        Background sampler(sample());
        queue();
        Background reporter(report());
        ASSERT_TRUE(reporter.says("%"));
        EXPECT_THAT(run(sample() + " 2>&1"),
                    FieldsAre(1, HasSubstr("a sampler (process " + sampler.number() + ") fills the region")));
        EXPECT_THAT(run(report() + " 2>&1"),
                    FieldsAre(1, HasSubstr("another reporter (process " + reporter.number() + ")")));
        reporter.interrupt();
        EXPECT_EQ(reporter.wait(), 0);
        EXPECT_GT(summaryOf(reporter.output()).taken, 0u);
        EXPECT_EQ(sampler.wait(), 0);
        EXPECT_EQ(sampler.output(), "");
    }
    run("echo something else >/dev/shm/" + name);
    for (const std::string& command : {sample(), report()})
        EXPECT_THAT(run(command + " 2>&1"), FieldsAre(1, HasSubstr("is none of a sampler's")));
    EXPECT_EQ(run("cat /dev/shm/" + name).output, "something else\n");
}

TEST_F(Telemetry, ReplacesARegionWhoseCreatorDiedBeforeItHadASize)
{
    EXPECT_EQ(run(report() + " 2>&1").output, "telemetry: no sampler fills the region '" + name + "'\n");
    run(": >/dev/shm/" + name);
    Background sampler(sample());
    ASSERT_TRUE(sampler.says("replacing the region"));
    EXPECT_EQ(run(report() + " --seconds 1").status, 0);
    EXPECT_EQ(sampler.wait(), 0);
}

TEST_F(Telemetry, AnswersWrongUsageWithStatus2)
{
    for (const std::string words :
         {"", "bogus", "sample --bogus", "report --interval 5", "demo --seconds", "demo --seconds 0",
          "demo --seconds 1x", "sample --interval 1001", "sample --name a/b", "sample --name ''"}) {
        EXPECT_EQ(run(telemetry + words + " 2>/dev/null").output, "") << words;
        EXPECT_EQ(run(telemetry + words + " 2>&1 >/dev/null").status, 2) << words;
    }
    EXPECT_THAT(run(telemetry + "--help").output, StartsWith("usage: telemetry"));
}

} // namespace
