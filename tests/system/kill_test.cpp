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

    // That the road works once more, from end to end.
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

    // A commit is delivered only where the daemon is connected; an interface can only be created there.
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

INSTANTIATE_TEST_SUITE_P(Each, Kill,
                         testing::Values(Stage{"cdbd", Victim::kCdbd}, Stage{"manager", Victim::kManager},
                                         Stage{"daemon", Victim::kDaemon}),
                         StageName);

}  // namespace

}  // namespace system_tests
