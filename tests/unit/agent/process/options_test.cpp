// SPDX-License-Identifier: Apache-2.0
// The command line and environment of cdbd.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "agent/process/program_options.h"
#include "base/options/options.h"

namespace {

using agent::ProgramOptions;

ProgramOptions Parse(std::vector<const char*> arguments,
                     const std::map<std::string, std::string>& variables = {})
{
    arguments.insert(arguments.begin(), "cdbd");
    return agent::ParseOptions(static_cast<int>(arguments.size()), arguments.data(),
                               "/opt/nowhere/build/bin/cdbd",
                               [&variables](const char* name) -> std::optional<std::string> {
                                   const auto found = variables.find(name);
                                   if (found == variables.end()) return std::nullopt;
                                   return found->second;
                               });
}

TEST(Options, HaveDefaults)
{
    const ProgramOptions options = Parse({});
    EXPECT_EQ(options.runDirectory, "/run/sflow-switch");
    EXPECT_EQ(options.stateDirectory, "/var/lib/sflow-switch");
    EXPECT_EQ(options.ackTimes.general, std::chrono::seconds(10));
    EXPECT_EQ(options.callpointTimeout, std::chrono::seconds(5));
    EXPECT_EQ(options.historyLimit, 500U);
    EXPECT_EQ(options.historyBytes, std::size_t{64} << 20);
    EXPECT_EQ(options.historyDays, 0U);
    EXPECT_EQ(options.mapSize, std::size_t{1} << 30);
    EXPECT_TRUE(options.initFile.empty());
    EXPECT_FALSE(options.check);
    EXPECT_EQ(options.maxSessions, 128U);
    EXPECT_EQ(options.maxSessionsPerUser, 64U);
    EXPECT_EQ(options.maxMessage, std::size_t{64} << 20);
    EXPECT_EQ(options.maxElements, 2'000'000U);
    EXPECT_EQ(options.maxFilter, 32'768U);
    EXPECT_EQ(options.maxUnread, std::size_t{256} << 20);
    EXPECT_EQ(options.helloTimeout, std::chrono::seconds(30));
    EXPECT_EQ(options.idleTimeout, std::chrono::seconds(0));
    EXPECT_EQ(options.adminGroup, "sflow-admin");
    EXPECT_EQ(options.switchGroup, "sflow-switch");
    EXPECT_TRUE(options.allow.empty());
}

TEST(Options, SayWhoMayDoWhat)
{
    const ProgramOptions options =
        Parse({"--access", "a.xml", "--admin-group=root", "--switch-group", "4711", "--allow",
               "callpoint=root,@root", "--allow", "state=0", "--max-sessions", "7",
               "--max-sessions-per-user=3", "--hello-timeout", "5", "--idle-timeout", "1800"});
    EXPECT_EQ(options.accessFile, "a.xml");
    EXPECT_EQ(options.adminGroup, "root");
    EXPECT_EQ(options.switchGroup, "4711");
    EXPECT_THAT(options.allow, testing::ElementsAre("callpoint=root,@root", "state=0"));
    EXPECT_EQ(options.maxSessions, 7U);
    EXPECT_EQ(options.maxSessionsPerUser, 3U);
    EXPECT_EQ(options.helloTimeout, std::chrono::seconds(5));
    EXPECT_EQ(options.idleTimeout, std::chrono::minutes(30));
    EXPECT_EQ(Parse({"--idle-timeout", "0"}).idleTimeout, std::chrono::seconds(0));
}

TEST(Options, BoundWhatClientsSendAndLeaveUnread)
{
    const ProgramOptions options = Parse(
        {"--max-message", "128M", "--max-elements=3000000", "--max-filter", "200000", "--max-unread=1G"});
    EXPECT_EQ(options.maxMessage, std::size_t{128} << 20);
    EXPECT_EQ(options.maxElements, 3'000'000U);
    EXPECT_EQ(options.maxFilter, 200'000U);
    EXPECT_EQ(options.maxUnread, std::size_t{1} << 30);
    EXPECT_EQ(Parse({"--max-message", "64K"}).maxMessage, 65'536U);
    EXPECT_EQ(Parse({"--max-message=1G"}).maxMessage, std::size_t{1} << 30);
}

TEST(Options, SayTheirRange)
{
    const auto problem = [](const char* option, const char* value) -> std::string {
        try {
            Parse({option, value});
        } catch (const base::UsageError& error) {
            return error.what();
        }
        return "";
    };
    EXPECT_EQ(problem("--max-message", "1K"),
              "--max-message needs a size from 65536 bytes to 1G, such as 64M, not \"1K\"");
    EXPECT_EQ(problem("--max-message", "1025M"),
              "--max-message needs a size from 65536 bytes to 1G, such as 64M, not \"1025M\"");
    EXPECT_EQ(problem("--max-elements", "999"),
              "--max-elements needs a number from 1000 to 86400000, not \"999\"");
    EXPECT_EQ(problem("--max-filter", "0"), "--max-filter needs a number from 1 to 86400000, not \"0\"");
    EXPECT_EQ(problem("--max-unread", "many"),
              "--max-unread needs a size from 1048576 bytes to 1024G, such as 64M, not \"many\"");
    EXPECT_EQ(problem("--max-unread", "1023K"),
              "--max-unread needs a size from 1048576 bytes to 1024G, such as 64M, not \"1023K\"");
}

TEST(Options, TakeTheEnvironmentAndPutTheCommandLineFirst)
{
    const std::map<std::string, std::string> variables{
        {"SFLOW_RUN_DIR", "/r"}, {"SFLOW_STATE_DIR", "/s"}, {"SFLOW_YANG_DIR", "/y"}};
    const ProgramOptions environment = Parse({}, variables);
    EXPECT_EQ(environment.runDirectory, "/r");
    EXPECT_EQ(environment.stateDirectory, "/s");
    EXPECT_EQ(environment.yangDirectory, "/y");
    const ProgramOptions given = Parse({"--run-dir", "/a", "--state-dir=/b", "--yang-dir", "/c"}, variables);
    EXPECT_EQ(given.runDirectory, "/a");
    EXPECT_EQ(given.stateDirectory, "/b");
    EXPECT_EQ(given.yangDirectory, "/c");
}

TEST(Options, AreTaken)
{
    const ProgramOptions options =
        Parse({"--init", "f.json", "--ack-timeout", "500", "--callpoint-timeout=20", "--history-limit", "3"});
    EXPECT_EQ(options.initFile, "f.json");
    EXPECT_EQ(options.ackTimes.general, std::chrono::milliseconds(500));
    EXPECT_EQ(options.callpointTimeout, std::chrono::milliseconds(20));
    EXPECT_EQ(options.historyLimit, 3U);
    EXPECT_TRUE(Parse({"--help"}).help);
    EXPECT_TRUE(Parse({"--version"}).version);
}

TEST(Options, AckTimesAreOfTheNamedProcessOrGeneral)
{
    const auto times =
        Parse({"--ack-timeout", "sflow-app=30000", "--ack-timeout=a=b=7", "--ack-timeout", "500"}).ackTimes;
    EXPECT_EQ(times.Of("sflow-app"), std::chrono::seconds(30));
    EXPECT_EQ(times.Of("a=b"), std::chrono::milliseconds(7));
    EXPECT_EQ(times.Of("sflow-mgr"), std::chrono::milliseconds(500));
}

TEST(Options, OfTheStoreAreTaken)
{
    const ProgramOptions options =
        Parse({"--history-bytes", "5000", "--history-days=30", "--map-size", "16M", "--check"});
    EXPECT_EQ(options.historyBytes, 5000U);
    EXPECT_EQ(options.historyDays, 30U);
    EXPECT_EQ(options.mapSize, std::size_t{16} << 20);
    EXPECT_TRUE(options.check);
    EXPECT_EQ(Parse({"--map-size", "2G"}).mapSize, std::size_t{2} << 30);
    EXPECT_EQ(Parse({"--history-bytes=4K"}).historyBytes, 4096U);
    EXPECT_EQ(Parse({"--import", "a"}).importFile, "a");
    EXPECT_EQ(Parse({"--export", "-"}).exportFile, "-");
}

TEST(Options, ThatMakeNoSenseAreNamed)
{
    for (const auto& arguments :
         std::vector<std::vector<const char*>>{{"--bogus"},
                                               {"--bogus", "x"},
                                               {"--bogus=x"},
                                               {"bogus"},
                                               {"--init"},
                                               {"--init", ""},
                                               {"--admin-group", "no-such-group"},
                                               {"--switch-group", "no-such-group"},
                                               {"--allow", "tea=root"},
                                               {"--allow", "callpoint=no-such-user"},
                                               {"--max-sessions", "0"},
                                               {"--hello-timeout", "0"},
                                               {"--idle-timeout", "-1"},
                                               {"--ack-timeout", "0"},
                                               {"--ack-timeout", "-1"},
                                               {"--ack-timeout", "5s"},
                                               {"--ack-timeout", "=5"},
                                               {"--ack-timeout", "sflow-app="},
                                               {"--ack-timeout", "sflow-app=0"},
                                               {"--ack-timeout", "99999999999999999999"},
                                               {"--map-size", "1023K"},
                                               {"--map-size", "1025G"},
                                               {"--map-size", "99999999999999999999"},
                                               {"--map-size", "M"},
                                               {"--map-size", "5MB"},
                                               {"--history-bytes", "4095"},
                                               {"--history-days", "0"},
                                               {"--import", "a", "--check"},
                                               {"--init", "a", "--export", "-"}}) {
        const std::string name = std::string(arguments[0]).substr(0, std::string(arguments[0]).find('='));
        EXPECT_THAT([&] { Parse(arguments); },
                    testing::ThrowsMessage<base::UsageError>(testing::HasSubstr(name)));
    }
}

}  // namespace
