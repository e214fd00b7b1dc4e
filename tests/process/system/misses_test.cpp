// SPDX-License-Identifier: Apache-2.0
// Processes that are stopped and continued (SIGSTOP, SIGCONT) at different moments of commits: who waits,
// what is told, and that what they have is the configuration afterwards, one more commit and one more restart
// later.

#include <string>

#include "system/system_test.h"

namespace system_tests {

namespace {

// cdbd waits half a second for the daemon, and a quarter of one for others.
class Misses : public SystemTest {
protected:
    Misses()
        : SystemTest({.cdbdArguments = {"--ack-timeout", "sflow-app=500", "--ack-timeout", "250"},
                      .logLevel = 10,
                      .stateDir = {}})
    {
        TheWorld().Start(scenario::Usual());
    }

    /// The texts of the commit's warnings, one a line; expects that it stands.
    static std::string CommitText(netconf::Client& client, const std::string& config)
    {
        Do(client, netconf::EditConfig(config));
        return WarningsOf(client.Call(netconf::Commit()));
    }

    static std::string WarningsOf(const netconf::Reply& reply)
    {
        EXPECT_TRUE(reply.ok) << reply.xml;
        std::string text;
        for (const auto& error : reply.errors) text += error.message + "\n";
        return text;
    }

    static std::string SubAgent(unsigned number)
    {
        std::string config = scenario::SflowXml("");
        config.insert(config.rfind("</oam>"),
                      "<sflow-manager xmlns=\"urn:switch:yang:switch-oam-sflow-manager\"><sub-agent>" +
                          std::to_string(number) + "</sub-agent></sflow-manager>");
        return config;
    }

    std::string Shown() { return TheWorld().CliDone("show system processes | json"); }

    void AwaitWell()
    {
        Await("all to be connected and well", [this] {
            const std::string shown = Shown();
            return shown.find("not-awaited") == std::string::npos &&
                   shown.find("late") == std::string::npos && shown.find("sflow-app") != std::string::npos &&
                   shown.find("sflow-mgr") != std::string::npos;
        });
    }

    /// The manager has the configuration; also after one more commit, and after one more start of the daemon.
    void ExpectWhole(unsigned rate)
    {
        AwaitWell();
        AwaitSettled();
        Commit(Rate("eth1", rate));
        AwaitSettled();
        TheWorld().Daemon().Kill();
        TheWorld().StartDaemon();
        AwaitWell();
        AwaitSettled();
    }
};

TEST_F(Misses, OfADaemonStoppedBeforeACommitEndWithItsLoad)
{
    auto client = Connect();
    TheWorld().Daemon().Freeze();
    EXPECT_THAT(CommitText(client, Rate("eth1", 61)), HasSubstr("500 ms"));
    EXPECT_THAT(Shown(), HasSubstr("\"late\""));
    for (unsigned rate = 62; rate < 67; ++rate)
        EXPECT_THAT(
            CommitText(client, Rate("eth1", rate)),
            testing::AllOf(HasSubstr("sflow-app (process " + std::to_string(TheWorld().Daemon().Pid())),
                           HasSubstr("missed " + std::to_string(rate - 60) + " commits")));
    EXPECT_THAT(Shown(), HasSubstr("\"not-awaited\""));
    EXPECT_THAT(TheWorld().CliDone("show system processes"), HasSubstr("not waited for"));
    TheWorld().Daemon().Thaw();
    ExpectWhole(67);
}

TEST_F(Misses, InTheMiddleOfADeliveryAndTwiceEndWithItsLoad)
{
    auto client = Connect();
    for (unsigned round = 0; round < 3; ++round) {
        Do(client, netconf::EditConfig(Rate("eth1", 70 + round)));
        client.Send(netconf::Commit());  // stopped while it is on its way, before, or after
        TheWorld().Daemon().Freeze();
        WarningsOf(client.Receive());
        CommitText(client, Rate("eth1", 80 + round));
        TheWorld().Daemon().Thaw();
        if (round == 1) AwaitWell();
    }
    ExpectWhole(90);
}

TEST_F(Misses, OfTwoProcessesAtOnceAreToldOfEach)
{
    auto client = Connect();
    TheWorld().Daemon().Freeze();
    TheWorld().Manager().Freeze();
    Do(client, netconf::EditConfig(SubAgent(7)));
    EXPECT_THAT(CommitText(client, Rate("eth1", 91)),
                testing::AllOf(HasSubstr("sflow-app (process"), HasSubstr("sflow-mgr (process"),
                               HasSubstr("250 ms"), HasSubstr("500 ms")));
    Do(client, netconf::EditConfig(SubAgent(8)));
    EXPECT_THAT(CommitText(client, Rate("eth1", 92)),
                testing::AllOf(HasSubstr("sflow-app (process"), HasSubstr("sflow-mgr (process"),
                               HasSubstr("missed 2 commits"), Not(HasSubstr("subscribes"))));
    TheWorld().Daemon().Thaw();
    TheWorld().Manager().Thaw();
    AwaitWell();
    // The daemon may give up a service that did not answer, and loads when it has it again.
    ExpectWhole(93);
    Await("the manager to have its own settings", [this] {
        return TheWorld().CliDone("show sflow agent | json").find("\"sub-agent\": 8") != std::string::npos ||
               TheWorld().CliDone("show sflow agent | json").find("\"sub-agent\":8") != std::string::npos;
    });
}

TEST_F(Misses, OfAManagerDoNotHoldUpCommitsOfOthers)
{
    auto client = Connect();
    TheWorld().Manager().Freeze();
    EXPECT_THAT(CommitText(client, SubAgent(3)), HasSubstr("250 ms"));
    EXPECT_THAT(CommitText(client, SubAgent(4)), HasSubstr("missed 2 commits"));
    const auto transition = client.Call(netconf::HaTransition("active"));
    EXPECT_THAT(WarningsOf(transition), HasSubstr("sflow-mgr (process"));
    EXPECT_FALSE(client.Call(netconf::SflowResync()).ok);
    TheWorld().Manager().Thaw();
    ExpectWhole(94);
}

TEST_F(Misses, AreLoggedOnceNotByCommit)
{
    auto client = Connect();
    TheWorld().Daemon().Freeze();
    for (unsigned rate = 100; rate < 110; ++rate) CommitText(client, Rate("eth1", rate));
    TheWorld().Daemon().Thaw();
    AwaitWell();
    const std::string log = TheWorld().Log("cdbd");
    const auto count = [&log](const std::string& text) {
        std::size_t found = 0;
        for (auto at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++found;
        return found;
    };
    EXPECT_EQ(1U, count("has not acknowledged commit")) << log;
    EXPECT_EQ(1U, count("commits do not wait for it")) << log;
    EXPECT_EQ(1U, count("has loaded the configuration; it had missed 10 commits")) << log;
}

TEST_F(Misses, TheEndOfTheDatabaseDoesNotWaitForAStoppedProcess)
{
    auto client = Connect();
    TheWorld().Daemon().Freeze();
    Do(client, netconf::EditConfig(Rate("eth1", 120)));
    client.Send(netconf::Commit());
    Await("the commit to be readable", [this] { return Running().find(">120<") != std::string::npos; });
    EXPECT_EQ(0, TheWorld().Cdbd().Terminate());
    TheWorld().StartCdbd();
    TheWorld().Daemon().Thaw();
    ExpectWhole(121);
}

}  // namespace

}  // namespace system_tests
