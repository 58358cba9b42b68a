#include "network/messages.h"
#include "programs/background.h"

#include <cUtil/fifo.h>
#include <cUtil/sharedMemory.h>
#include <cUtil/variant.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <map>
#include <memory>

namespace
{

using namespace support;
using namespace std::string_literals;
using testing::AllOf;
using testing::ContainsRegex;
using testing::FieldsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

struct Summary {
    unsigned taken = 0;
    unsigned lost = 0;
    double median = -1;
    double percentile = -1;
    double maximum = -1;

    explicit Summary(const std::string& output)
    {
        const std::size_t start = output.rfind('\n', output.find(" records taken")) + 1; // 0 in the first line
        sscanf(output.c_str() + start,
               "%u records taken, %u lost from put to take: median %lf us, 99th percentile %lf us, maximum %lf us",
               &taken, &lost, &median, &percentile, &maximum);
    }
};

class Telemetry : public testing::Test
{
protected:
    void TearDown() override
    {
        EXPECT_TRUE(region == nullptr || cu_SharedMemory_delete(&region, false) == 0);
        run("rm -f /dev/shm/" + name + ' ' + log);
    }

    std::string sample() const { return telemetry + "sample --interval 20 --name " + name; }
    std::string serve() const { return telemetry + "serve --name " + name + at + " --log " + log; }
    std::string watch() const { return telemetry + "watch" + at; }
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
    const std::string log = testing::TempDir() + name + ".log";
    const uint16_t port = freePort();
    const std::string at = " --port " + std::to_string(port);
    cu_SharedMemory* region = nullptr;
};

TEST_F(Telemetry, DrawsInPlaceOnATerminal)
{
    Background sampler(sample());
    Background server(serve());
    const Result plain = run("LC_ALL=C TERM=xterm script -qec '" + watch() + " --seconds 4' /dev/null");
    EXPECT_THAT(plain.output, HasSubstr("\033[10A")) << "one line for up to twelve cores, nine for the rest";
    EXPECT_THAT(plain.output, AllOf(HasSubstr("processor  ["), HasSubstr("memory     [")));
    EXPECT_THAT(plain.output, ContainsRegex("\n  minute( {61}[_.:=+*#-]{2}| {60}[_.:=+*#-]{3}| {59}[_.:=+*#-]{4})\033"))
        << "a character for each second";
    const Result drawn = run("LC_ALL=C.UTF-8 TERM=xterm script -qec '" + watch() + " --seconds 1' /dev/null");
    EXPECT_THAT(drawn.output, HasSubstr("\xE2\x96"));
}

TEST_F(Telemetry, EachGoesOnWithTheSuccessorOfOneThatWasKilled)
{
    auto sampler = std::make_unique<Background>(sample());
    auto server = std::make_unique<Background>(serve());
    const Background watcher(watch());
    ASSERT_TRUE(watcher.says("%"));
    sampler->kill();
    EXPECT_TRUE(server->says("telemetry: the sampler (process " + sampler->number() + ") has died: waiting"));
    sampler = std::make_unique<Background>(sample());
    EXPECT_TRUE(sampler->says("replacing the region '" + name + "'"));
    EXPECT_TRUE(watcher.saysMore("%", 2));
    server->kill();
    server = std::make_unique<Background>(serve());
    EXPECT_TRUE(watcher.says("telemetry: the server has ended: connecting again\n"));
    EXPECT_TRUE(watcher.saysMore("%", 2));
    for (Background* each : {server.get(), sampler.get()}) {
        each->interrupt();
        EXPECT_EQ(each->wait(), 0);
    }
    EXPECT_GT(Summary(server->output()).taken, 0u);
    EXPECT_FALSE(regionExists());
}

TEST_F(Telemetry, CountsWhatAFullQueueLoses)
{
    Background sampler(sample());
    queue(capacity);
    std::this_thread::sleep_for(200ms); // ten more; a sampler that is late makes up for it
    Background server(serve() + " --seconds 1");
    EXPECT_EQ(server.wait(), 0);
    const Summary summary(server.output());
    EXPECT_GE(summary.taken, uint32_t{capacity});
    EXPECT_GE(summary.lost, 1u);
    EXPECT_GE(summary.maximum, 200'000) << "the first record waited at least as long as the queue was full";
}

TEST_F(Telemetry, NobodyHangsWhenSomebodyDiedInATransaction)
{
    Background sampler(sample());
    void* entry = nullptr;
    ASSERT_EQ(cu_Fifo_put(queue(), &entry), 0u); // and never ends it
    Background server(serve());
    for (Background* each : {&sampler, &server}) {
        EXPECT_EQ(each->wait(), 1);
        EXPECT_THAT(each->output(), HasSubstr("the queue stays locked"));
    }
}

TEST_F(Telemetry, LeavesARegionAloneThatIsInUse)
{
    {
        Background sampler(sample());
        Background server(serve());
        queue();
        ASSERT_TRUE(Background(watch()).says("%"));
        EXPECT_THAT(run(sample() + " 2>&1"),
                    FieldsAre(1, HasSubstr("a sampler (process " + sampler.number() + ") fills the region")));
        EXPECT_THAT(run(serve() + " --port " + std::to_string(freePort()) + " 2>&1"),
                    FieldsAre(1, HasSubstr("another server (process " + server.number() + ")")));
        sampler.interrupt();
        EXPECT_EQ(sampler.wait(), 0);
        EXPECT_EQ(sampler.output(), "");
    }
    run("echo something else >/dev/shm/" + name);
    for (const std::string& command : {sample(), serve()})
        EXPECT_THAT(run(command + " 2>&1"), FieldsAre(1, HasSubstr("is none of a sampler's")));
    EXPECT_EQ(run("cat /dev/shm/" + name).output, "something else\n");
}

TEST_F(Telemetry, AnswersAnyNumberOfWatchersEachOfWhichMayEndAtAnyTime)
{
    Background sampler(sample());
    Background server(serve());
    Background first(watch());
    Background second(watch() + " --seconds 2");
    EXPECT_TRUE(first.says("%"));
    Background viewer(cutil + "log watch 127.0.0.1 " + std::to_string(port + 1));
    EXPECT_TRUE(viewer.says("Debug"));
    first.kill();
    EXPECT_EQ(second.wait(), 0);
    EXPECT_THAT(second.output(), ContainsRegex("^time .*\n[0-9:]+ .*%"));
    EXPECT_TRUE(viewer.says("has gone"));
    EXPECT_THAT(viewer.output(), ContainsRegex(" Debug: [0-9]+ records, 0 lost, busy [0-9.]+ %\n"));
    Background last(watch());
    EXPECT_TRUE(last.says("%"));
    last.interrupt(SIGTERM);
    EXPECT_EQ(last.wait(), 0) << last.output();
    sampler.interrupt();
    EXPECT_EQ(sampler.wait(), 0);
    EXPECT_TRUE(server.says("the sampler has ended: waiting for another one\n"));
    EXPECT_FALSE(regionExists());
    server.interrupt();
    EXPECT_EQ(server.wait(), 0);
    EXPECT_THAT(run("cat " + log).output, ContainsRegex("watcher [0-9]+ has gone\n"));
}

/// A text behind its length, on the wire.
std::string wire(const std::string& text)
{
    return bigEndian(static_cast<uint32_t>(text.size())) + text;
}

TEST_F(Telemetry, TellsAsMuchHistoryAsIsAskedForAndLeavesNonsenseUnanswered)
{
    Background sampler(sample());
    Background server(serve());
    MSGClient client;
    ASSERT_TRUE(comesTrue([&] { return cu_MSGClient_new(&client, CU_IP_ADDRESS_LOCAL, port, nullptr) == 0; }));
    EXPECT_EQ(cu_MSGClient_send(client, Message("abc")), 0u);
    const auto ask = [&](uint32_t seconds) {
        const Message answer;
        EXPECT_EQ(cu_MSGClient_send(client, Message(bigEndian(seconds))), 0u);
        EXPECT_EQ(cu_MSGClient_receive(client, answer), 0u);
        return contentOf(answer);
    };
    const std::string list = wire("history.sent") + bigEndian(cu_VARIANT_VECTOR);
    EXPECT_TRUE(comesTrue([&] { return ask(60).find(list + bigEndian(3)) != std::string::npos; }));
    EXPECT_THAT(ask(2), HasSubstr(list + bigEndian(2)));
    EXPECT_THAT(ask(0), Not(HasSubstr("history.sent")));
    server.interrupt();
    EXPECT_EQ(server.wait(), 0);
    EXPECT_THAT(run("cat " + log).output, ContainsRegex("Warning: endpoint [0-9]+ sent something that is no request"));
}

TEST_F(Telemetry, WatcherTellsOfAnswersThatMakeNoSense)
{
    const std::string number = bigEndian(cu_VARIANT_UINT64) + "12345678";
    const std::string list = bigEndian(cu_VARIANT_VECTOR);
    const std::string one = bigEndian(1);
    MSGServer server;
    ASSERT_EQ(cu_MSGServer_new(&server, CU_IP_ADDRESS_LOCAL, port, nullptr), 0u);
    for (const std::string& answer :
         {"abc"s, one, bigEndian(2) + wire("time") + number, one + wire("") + number, one + bigEndian(~0U) + "time",
          one + wire("time") + bigEndian(99) + "12345678", one + wire("cores") + list + bigEndian(0),
          one + wire("cores") + list + bigEndian(~0U) + number,
          one + wire("cores") + list + one + list + one + number}) {
        Background watcher(watch());
        uint32_t endpoint = 0;
        ASSERT_EQ(cu_MSGServer_receive(server, &endpoint, Message()), 0u);
        EXPECT_EQ(cu_MSGServer_send(server, endpoint, Message(answer)), 0u);
        EXPECT_EQ(watcher.wait(), 1);
        EXPECT_EQ(watcher.output(), "telemetry: the server's answer makes no sense\n");
    }
}

TEST_F(Telemetry, WatcherEndsAlthoughTheServerHangsInTheMiddleOfAnAnswer)
{
    TCPServerSocket server;
    ASSERT_EQ(cu_TCPServerSocket_new(&server, port, CU_IP_ADDRESS_LOCAL, 1, false, nullptr), 0u);
    Background watcher(watch());
    TCPSocket connection;
    ASSERT_EQ(cu_TCPServerSocket_accept(server, &connection), 0u);
    const std::string half = frameOf("answer").substr(0, 14);
    ASSERT_EQ(cu_TCPSocket_send(connection, half.data(), static_cast<uint32_t>(half.size()), false), 0u);
    EXPECT_EQ(watcher.wait(), 1);
    EXPECT_EQ(watcher.output(), "telemetry: the server hangs in the middle of an answer\n");
}

/// The parts run as child processes of the program that is tested.
class Supervised : public Telemetry
{
protected:
    void SetUp() override
    {
        if (UNDER_EMULATOR)
            GTEST_SKIP() << "the emulator cannot start a program that starts itself again";
    }

    std::string command(const std::string& which) const
    {
        return telemetry + which + " --interval 100 --name " + name + at + " --log " + log;
    }

    /// What runs, by its command.
    std::map<std::string, int> processes() const
    {
        std::map<std::string, int> found;
        for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
            std::ifstream file(entry.path() / "cmdline");
            std::string words{std::istreambuf_iterator<char>(file), {}};
            std::replace(words.begin(), words.end(), '\0', ' ');
            if (words.find(' ' + name + ' ') == std::string::npos && words.find(at + ' ') == std::string::npos)
                continue;
            std::string path;
            std::string which;
            std::istringstream(words) >> path >> which;
            found[which] = std::stoi(entry.path().filename());
        }
        return found;
    }
};

TEST_F(Supervised, DemoPrintsPlainLinesAndASummaryThatAddsUp)
{
    const Result result = run(command("demo") + " --seconds 5 2>&1");
    EXPECT_EQ(result.status, 0) << result.output;
    EXPECT_THAT(result.output, AllOf(HasSubstr("serving at 127.0.0.1, port " + std::to_string(port) + ';'),
                                     ContainsRegex("\n[0-9:]+  \\[[#.]+\\] +[0-9.]+%"),
                                     ContainsRegex("\n[1-9][0-9]* requests answered\n"),
                                     ContainsRegex("\nbusiest, mean/peak: cpu[0-9]+ [0-9]+/[0-9]+ %"),
                                     Not(HasSubstr("\033")), Not(ContainsRegex("\n[0-9:]+  \\[[^\n]{71}"))));
    EXPECT_THAT(run("cat " + log).output, ContainsRegex(" Info: watcher [0-9]+ has come, 1 there\n"));
    const Summary summary(result.output);
    EXPECT_THAT(summary.taken, AllOf(testing::Ge(5U), testing::Le(55U)));
    EXPECT_EQ(summary.lost, 0u);
    EXPECT_GT(summary.median, 0);
    EXPECT_LE(summary.median, summary.percentile);
    EXPECT_LE(summary.percentile, summary.maximum);
    EXPECT_FALSE(regionExists());
}

TEST_F(Supervised, StartsAgainWhatWasKilledAndLeavesNothingBehind)
{
    Background demo(command("demo --seconds 100"));
    ASSERT_TRUE(demo.says("%"));
    for (const auto& [which, role] : {std::pair{"sample", "sampler"}, {"serve", "server"}}) {
        kill(processes()[which], SIGKILL);
        EXPECT_TRUE(demo.says("telemetry: the "s + role + " was ended by signal 9 (Killed): it is started again"));
        EXPECT_TRUE(demo.saysMore("%", 2)) << "one may have been on its way";
    }
    demo.interrupt(SIGTERM);
    EXPECT_EQ(demo.wait(), 0);
    EXPECT_THAT(processes(), testing::IsEmpty());
    EXPECT_FALSE(regionExists());
    const std::string output = demo.output();
    double all = 0;
    for (const auto& [role, starts] : {std::pair{"\n  sampler ", 2}, {"\n  server ", 2}, {"\n  watcher ", 1}}) {
        double own = 0;
        double system = 0;
        int told = 0;
        const std::size_t place = output.find(role);
        ASSERT_NE(place, std::string::npos) << output;
        sscanf(output.c_str() + place + strlen(role), "%lf s %lf s %d", &own, &system, &told);
        EXPECT_EQ(told, starts) << role;
        all += own + system;
    }
    EXPECT_GT(all, 0);
}

TEST_F(Supervised, GivesUpOnAPartThatAlwaysDiesAndTellsWhy)
{
    TCPServerSocket occupied;
    ASSERT_EQ(cu_TCPServerSocket_new(&occupied, port, CU_IP_ADDRESS_LOCAL, 1, false, nullptr), 0u);
    EXPECT_THAT(support::run(command("run") + " 2>&1"),
                FieldsAre(1, AllOf(HasSubstr("telemetry: starting the service: "),
                                   HasSubstr("the server ended with status 1, the 6th time in a row: giving up\n"))));
    EXPECT_THAT(processes(), testing::IsEmpty());
    EXPECT_FALSE(regionExists());
}

TEST_F(Supervised, PartsEndWithASupervisorThatIsKilled)
{
    Background demo(command("demo --seconds 100"));
    ASSERT_TRUE(demo.says("%"));
    EXPECT_EQ(processes().size(), 4u);
    demo.kill();
    EXPECT_TRUE(comesTrue([this] { return processes().empty(); }));
    EXPECT_FALSE(regionExists());
}

TEST_F(Telemetry, AnswersWrongUsageWithStatus2)
{
    for (const std::string words :
         {"", "bogus", "sample --bogus", "watch --name x", "serve --interval 5", "serve --port 65535", "watch --port 0",
          "demo --seconds", "demo --seconds 1x", "sample --interval 1001", "sample --name a/b", "sample --name ''"}) {
        EXPECT_EQ(run(telemetry + words + " 2>/dev/null").output, "") << words;
        EXPECT_EQ(run(telemetry + words + " 2>&1 >/dev/null").status, 2) << words;
    }
    EXPECT_THAT(run(telemetry + "--help").output, StartsWith("usage: telemetry"));
}

} // namespace
