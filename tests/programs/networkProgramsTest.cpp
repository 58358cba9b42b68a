#include "programs/background.h"
#include "support/made.h"

#include <cUtil/logger/tcpLoggingAdapter.h>

#include <gmock/gmock.h>

#include <algorithm>

namespace
{

using namespace support;
using testing::AllOf;
using testing::ContainsRegex;
using testing::FieldsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

class CutilMsg : public testing::Test
{
protected:
    const uint16_t port = freePort();
    const std::string send = cutil + "msg send 127.0.0.1 " + std::to_string(port) + ' ';
    const std::string serve = cutil + "msg serve " + std::to_string(port) + ' ';
    const std::string path = testing::TempDir() + uniqueName("message");

    bool canConnect() const
    {
        return comesTrue([&] { return run(send + "</dev/null 2>&1").status == 0; });
    }
};

TEST_F(CutilMsg, PrintsWhatClientsSendUntilItIsInterrupted)
{
    for (const int signal : {SIGINT, SIGTERM}) {
        Background server(serve);
        ASSERT_TRUE(canConnect());
        EXPECT_EQ(run("printf 'hello\\n\\nend' | " + send).status, 0);
        EXPECT_TRUE(server.says(" | end"));
        EXPECT_THAT(server.output(), AllOf(ContainsRegex("^client [0-9]+, 5 bytes:\nAddress .* \\| hello\n"),
                                           ContainsRegex("\nclient [0-9]+, 0 bytes:\n")));
        server.interrupt(signal);
        EXPECT_EQ(server.wait(), 0);
    }
    Background server(serve + "--json");
    ASSERT_TRUE(canConnect());
    EXPECT_EQ(run("printf 'a\\377\\0\"\\n\\n' | " + send).status, 0);
    EXPECT_TRUE(server.says(", \"size\": 0, \"hex\": \"\", \"text\": \"\"}\n"));
    EXPECT_THAT(server.output(), ContainsRegex("^\\{\"client\": [0-9]+, \"size\": 4, \"hex\": \"61ff0022\", "
                                               "\"text\": \"a\\\\udcff\\\\u0000\\\\\"\"}\n"));
}

TEST_F(CutilMsg, AnEchoGivesMessagesOfAnySizeBack)
{
    Background server(serve + "--echo");
    ASSERT_TRUE(canConnect());
    run("head -c 3000000 /dev/urandom >" + path + "; : >" + path + ".empty");
    EXPECT_THAT(run(send + "-a " + path + ' ' + path + ".empty " + path + " >" + path + ".out && cat " + path + ' ' +
                    path + " | cmp - " + path + ".out"),
                FieldsAre(0, ""));
    EXPECT_THAT(run("printf 'one\\n\\nthree\\n' | " + send + "--answers"), FieldsAre(0, "one\n\nthree\n"));
    EXPECT_THAT(run("printf 'one\\ntwo\\n' | " + send + "--answers --json | jq -c ."),
                FieldsAre(0, "{\"size\":3,\"hex\":\"6f6e65\",\"text\":\"one\"}\n"
                             "{\"size\":3,\"hex\":\"74776f\",\"text\":\"two\"}\n"));
    run("rm " + path + ' ' + path + ".empty " + path + ".out");
    EXPECT_EQ(server.output(), "");
}

// Who hangs up while answers are on their way may make the other side lose what it has not read.
TEST_F(CutilMsg, NothingIsLostWhenNobodyWaitsForAnswers)
{
    constexpr int count = 20000;
    MSGServer server;
    const Message message;
    ASSERT_EQ(cu_MSGServer_new(&server, CU_IP_ADDRESS_LOCAL, port, nullptr), 0u);
    Background sender("seq " + std::to_string(count) + " | " + send);
    int received = 0;
    for (bool waits = true; waits && received < count; received += waits ? 1 : 0) {
        uint32_t client = 0;
        ASSERT_EQ(cu_Selectable_waitReadReady(cu_MSGServer_getSelectable(server), 20'000'000, &waits), 0u);
        if (waits) {
            ASSERT_EQ(cu_MSGServer_receive(server, &client, message), 0u);
            ASSERT_EQ(cu_MSGServer_send(server, client, message), 0u);
        }
    }
    EXPECT_EQ(received, count);
    EXPECT_EQ(sender.wait(), 0) << sender.output();
}

class CutilLog : public testing::Test
{
protected:
    /// Logs to a viewer, once it is there. It has seen what was logged before "end".
    void log(const Background& viewer, std::initializer_list<std::pair<uint32_t, const char*>> lines,
             const char* last = "Error: end")
    {
        EXPECT_TRUE(comesTrue([&] {
            EXPECT_EQ(cu_logger_Adapter_logMessage(adapter, 0, "begin"), 0u);
            return viewer.output().find("begin") != std::string::npos;
        }));
        for (const auto& [level, text] : lines)
            EXPECT_EQ(cu_logger_Adapter_logMessage(adapter, level, text), 0u);
        EXPECT_EQ(cu_logger_Adapter_logMessage(adapter, 0, "end"), 0u);
        EXPECT_TRUE(viewer.says(last));
    }

    const uint16_t port = freePort();
    const std::string watch = cutil + "log watch 127.0.0.1 " + std::to_string(port) + ' ';
    Made<cu_logger_TCPLoggingAdapter_new, cu_logger_Adapter_destruct> adapter{CU_IP_ADDRESS_LOCAL, port};
};

TEST_F(CutilLog, PrintsWhatIsLoggedDownToALevelUntilItIsInterruptedOrTheProcessEnds)
{
    for (const bool interrupted : {true, false}) {
        Background viewer(watch + "--level warning");
        log(viewer, {{1, "first"}, {2, "second"}, {1, "\033[5mthird"}});
        EXPECT_THAT(viewer.output(), AllOf(ContainsRegex("\n\\[[0-9. :]+\\] Warning: first\n"),
                                           Not(HasSubstr("second")), HasSubstr("Warning: \033[5mthird\n")));
        interrupted ? viewer.interrupt() : adapter.end();
        EXPECT_EQ(viewer.wait(), interrupted ? 0 : 1);
        EXPECT_THAT(viewer.output(), testing::EndsWith(interrupted ? "Error: end\n" : "has another viewer\n"));
    }
}

TEST_F(CutilLog, GivesALineAsAnObject)
{
    Background viewer(watch + "--json --level info");
    log(viewer, {{1, "a \"word\"\033\xff"}, {3, "detail"}}, "\"text\": \"end\"}");
    EXPECT_THAT(viewer.output(),
                AllOf(ContainsRegex("\\{\"time\": \"[-0-9]{10}T[:0-9]{8}\\.[0-9]{3}Z\", \"level\": \"warning\", "
                                    "\"text\": \"a \\\\\"word\\\\\"\\\\u001b\\\\udcff\"}\n"),
                      Not(HasSubstr("detail"))));
}

TEST_F(CutilLog, HasColoursOnATerminalWhichTheLogCannotSteer)
{
    Background viewer("env -u NO_COLOR TERM=xterm script -qec '" + watch + "' /dev/null");
    log(viewer, {{1, "warned"}, {3, "\033[5mdetail"}, {4, "beyond"}});
    EXPECT_THAT(viewer.output(), AllOf(ContainsRegex("\033\\[33m[^\n]* Warning: warned\r\n\033\\[m"),
                                       ContainsRegex("\033\\[2m[^\n]* Debug: \\.\\[5mdetail\r\n"),
                                       Not(HasSubstr("\033[5m")), Not(HasSubstr("beyond"))));
}

TEST(CutilNetwork, ListsTheLoopbackInterfaceAndTellsHowItIsUsed)
{
    EXPECT_THAT(run(cutil + "net"), FieldsAre(0, ContainsRegex("lo +127\\.0\\.0\\.1 /8 +255\\.0\\.0\\.0\n")));
    for (const std::string command : {"net", "msg", "log"})
        EXPECT_THAT(run(cutil + command + " --help"), FieldsAre(0, StartsWith("usage: cutil " + command)));

    std::istringstream wrong("net x|msg|msg bogus|msg serve|msg serve a b c|msg serve x|msg serve 0|msg serve 65536"
                             "|msg serve '' 7|msg serve 7 -a|msg send 127.0.0.1|msg send 127.0.0.1 7 -e|log|log watch a"
                             "|log bogus 127.0.0.1 7|log watch 127.0.0.1 0|log watch 127.0.0.1 7 --level bogus");
    for (std::string words; std::getline(wrong, words, '|');)
        EXPECT_THAT(run(cutil + words + " 2>&1"), FieldsAre(2, HasSubstr("--help"))) << words;

    const std::string port = std::to_string(freePort());
    for (const std::string& words : {"msg send 127.0.0.1 " + port, "log watch 127.0.0.1 " + port,
                                     "msg send host.invalid " + port, "msg serve 192.0.2.1 " + port})
        EXPECT_THAT(run(cutil + words + " 2>&1 </dev/null"), FieldsAre(1, StartsWith("cutil: "))) << words;
}

} // namespace
