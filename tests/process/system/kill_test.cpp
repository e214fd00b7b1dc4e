// SPDX-License-Identifier: Apache-2.0
// Each process killed at each stage: afterwards the manager has what the configuration says, and what
// a commit has answered is there.

#include <csignal>

#include "system/system_test.h"

namespace system_tests {

namespace {

enum class Victim { kCdbd, kManager, kDaemon };

struct Stage {
    std::string name;
    Victim victim;
};

void PrintTo(const Stage& stage, std::ostream* out) { *out << stage.name; }

std::string StageName(const testing::TestParamInfo<Stage>& stage) { return stage.param.name; }

class Kill : public SystemTest, public testing::WithParamInterface<Stage> {
protected:
    void KillAndRestart()
    {
        switch (GetParam().victim) {
        case Victim::kCdbd:
            TheWorld().Cdbd().Kill();
            TheWorld().StartCdbd();
            break;
        case Victim::kManager:
            TheWorld().Manager().Kill();
            TheWorld().StartManager();
            break;
        case Victim::kDaemon:
            TheWorld().Daemon().Kill();
            TheWorld().StartDaemon();
            break;
        }
    }

    // Checks that a commit reaches the manager again.
    void ExpectAlive()
    {
        AwaitDaemon();
        Commit(scenario::SflowXml("<agent><ipv4>203.0.113.77</ipv4></agent>"));
        AwaitSettled();
    }

    // That a session which does not wait for the commit sees it in the running configuration.
    void AwaitCommitted(const std::string& rate)
    {
        Await("the commit to be readable",
              [&] { return Running().find(">" + rate + "<") != std::string::npos; });
    }

    // A commit is delivered only if the daemon is connected; an interface can only be created there.
    void AwaitDaemon()
    {
        Await("the daemon to serve its callpoint", [this] {
            auto client = Connect();
            const auto reply = client.Call(
                netconf::EditConfig(scenario::SflowXml("<interface><name>probe</name></interface>")));
            client.Call(netconf::DiscardChanges());
            return reply.ok;
        });
    }
};

TEST_P(Kill, WhileEverythingStarts)
{
    ASSERT_EQ(0, TheWorld().Initialize(scenario::Usual()).status);
    TheWorld().StartCdbd();
    TheWorld().StartManager();
    TheWorld().StartDaemon();
    KillAndRestart();
    AwaitSettled();
    ExpectAlive();
}

TEST_P(Kill, WhileTheDaemonIsAway)
{
    ASSERT_EQ(0, TheWorld().Initialize(scenario::Usual()).status);
    TheWorld().StartCdbd();
    TheWorld().StartManager();
    TheWorld().StartDaemon();
    TheWorld().Daemon().Freeze();
    KillAndRestart();
    TheWorld().Daemon().Thaw();
    AwaitSettled();
    ExpectAlive();
}

TEST_P(Kill, BetweenDeliveryAndAcknowledgement)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().Daemon().Freeze();
    auto client = Connect();
    Do(client, netconf::EditConfig(Rate("eth1", 77)));
    client.Send(netconf::Commit());
    AwaitCommitted("77");
    KillAndRestart();
    TheWorld().Daemon().Thaw();
    AwaitSettled();
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>77</sampling-rate>"));
    ExpectAlive();
}

TEST_P(Kill, WhileTheManagerTakesNothing)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().Manager().Freeze();
    Commit(Rate("eth1", 78));
    KillAndRestart();
    TheWorld().Manager().Thaw();
    AwaitSettled();
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>78</sampling-rate>"));
    ExpectAlive();
}

TEST_P(Kill, AfterACommit)
{
    TheWorld().Start(scenario::Usual());
    Commit(Rate("eth1", 79));
    KillAndRestart();
    AwaitSettled();
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>79</sampling-rate>"));
    ExpectAlive();
}

TEST_P(Kill, WithAnUncommittedEdit)
{
    TheWorld().Start(scenario::Usual());
    {
        auto client = Connect();
        Do(client, netconf::EditConfig(Rate("eth1", 80)));
    }
    KillAndRestart();
    AwaitSettled();
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>1024</sampling-rate>"));
    ExpectAlive();
}

// Large enough that the kill comes in the middle.
std::string ManyInterfaces(unsigned count)
{
    std::string interfaces;
    for (unsigned i = 0; i < count; ++i)
        interfaces += std::string(i == 0 ? "" : ",") + R"({"name":"eth)" + std::to_string(i) +
                      R"(","flow-sampling-collector":[{"name":"c1"}]})";
    return scenario::Switch(R"("collector":[{"name":"c1","ip":"198.51.100.1"}],"interface":[)" + interfaces +
                            "]");
}

TEST_P(Kill, InTheMiddleOfTheInitialLoad)
{
    ASSERT_EQ(0, TheWorld().Initialize(ManyInterfaces(3000)).status);
    TheWorld().StartCdbd();
    TheWorld().StartManager();
    TheWorld().StartDaemon();
    Await("the load to begin", [this] { return TheWorld().ManagerJournal().All().size() > 10; });
    KillAndRestart();
    AwaitSettled();
    ExpectAlive();
}

TEST_P(Kill, RightAfterTheRequestToCommitManyChanges)
{
    TheWorld().Start(ManyInterfaces(500));
    const auto before = Running();
    auto client = Connect();
    std::string changes;
    for (unsigned i = 0; i < 500; ++i)
        changes += "<interface><name>eth" + std::to_string(i) +
                   "</name><sampling-rate>7</sampling-rate></interface>";
    Do(client, netconf::EditConfig(scenario::SflowXml(changes)));
    client.Send(netconf::Commit());
    KillAndRestart();
    // Reads do not wait for a commit that is under way.
    if (GetParam().victim != Victim::kCdbd) client.Receive();
    AwaitSettled();
    // Whole or not at all.
    const auto after = Running();
    std::size_t changed = 0;
    for (auto at = after.find(">7<"); at != std::string::npos; at = after.find(">7<", at + 1)) ++changed;
    EXPECT_TRUE(after == before || changed == 500) << changed << " of 500 changed";
    ExpectAlive();
}

INSTANTIATE_TEST_SUITE_P(Each, Kill,
                         testing::Values(Stage{"cdbd", Victim::kCdbd}, Stage{"manager", Victim::kManager},
                                         Stage{"daemon", Victim::kDaemon}),
                         StageName);

}  // namespace

}  // namespace system_tests
