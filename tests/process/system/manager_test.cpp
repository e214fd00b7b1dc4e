// SPDX-License-Identifier: Apache-2.0
// The manager lost and found, asked to take everything anew, and told about a second client.

#include <csignal>

#include "ipc/manager.pb.h"
#include "support/frames.h"
#include "support/proto_text.h"
#include "system/system_test.h"

namespace system_tests {

namespace {

class Manager : public SystemTest {
protected:
    static Calls UsualLoad()
    {
        for (const auto& load : scenario::Loads())
            if (load.name == "the usual configuration") return load.calls;
        throw std::logic_error("no such load");
    }

    static Calls Session(Calls calls)
    {
        calls.insert(calls.begin(), "SessionOpened");
        calls.emplace_back("SessionLoaded");
        return calls;
    }
};

TEST_F(Manager, GetsEverythingWhenItComesLater)
{
    ASSERT_EQ(0, TheWorld().Initialize(scenario::Usual()).status);
    TheWorld().StartCdbd();
    TheWorld().StartDaemon();
    TheWorld().AwaitLog("sflow-app", "Manager is not available yet, wait for server found");
    TheWorld().StartManager();
    EXPECT_THAT(TheWorld().AwaitLoad(), ElementsAreArray(Session(UsualLoad())));
}

TEST_F(Manager, GetsNothingOfACommitThatItMissedButTheWholeOnItsReturn)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().Manager().Kill();
    TheWorld().AwaitLog("sflow-app", "SFlowMgr server lost");
    Commit(Rate("eth1", 99));
    TheWorld().StartManager();
    auto expected = Session(UsualLoad());
    for (auto& call : expected)
        if (call == "UpdateInterface eth1 c1 - 1024 2 128 20") call = "UpdateInterface eth1 c1 - 99 2 128 20";
    EXPECT_THAT(TheWorld().AwaitLoad(), ElementsAreArray(expected));
}

TEST_F(Manager, IsSentEverythingAgainOnResync)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().CliDone("request sflow resync");
    auto expected = Session(UsualLoad());
    expected.insert(expected.begin(), "SessionClosed");
    EXPECT_THAT(TheWorld().AwaitLoad(), ElementsAreArray(expected));
}

TEST_F(Manager, IsSentEverythingAgainByARestartedDaemon)
{
    TheWorld().Start(scenario::Usual());
    EXPECT_EQ(0, TheWorld().Daemon().Terminate());
    EXPECT_THAT(TheWorld().ManagerJournal().Until("SessionClosed"), ElementsAre("SessionClosed"));
    TheWorld().StartDaemon();
    EXPECT_THAT(TheWorld().AwaitLoad(), ElementsAreArray(Session(UsualLoad())));
    AwaitSettled();
}

TEST_F(Manager, ForgetsWhatWasDeletedWhileTheDaemonWasAway)
{
    TheWorld().Start(scenario::Usual());
    EXPECT_EQ(0, TheWorld().Daemon().Terminate());
    EXPECT_THAT(TheWorld().CliDone("show sflow interfaces | json"), HasSubstr("eth1"));
    TheWorld().CliDone("delete oam sflow interface eth1; commit");
    TheWorld().StartDaemon();
    TheWorld().AwaitLoad();
    AwaitSettled();
    Await("the sweep", [this] {
        return TheWorld().CliDone("show sflow interfaces | json").find("eth1") == std::string::npos;
    });
    EXPECT_THAT(TheWorld().CliDone("show sflow interfaces | json"), HasSubstr("eth2"));
}

TEST_F(Manager, WritesItsJournalAsDocumented)
{
    TheWorld().Start(
        scenario::Switch(R"("agent":{"ipv4":"192.0.2.9"},"collector":[{"name":"c1","ip":"192.0.2.1"}],
        "interface":[{"name":"eth1","counter-sampling-collector":[{"name":"c1"}]}])"));
    EXPECT_EQ(0, TheWorld().Daemon().Terminate());
    TheWorld().ManagerJournal().Until("SessionClosed");
    EXPECT_EQ(R"({"op":"SessionOpened"}
{"op":"SetAgentAddress","args":["192.0.2.9"]}
{"op":"AddCollector","args":["c1","192.0.2.1",6343,1400]}
{"op":"UpdateInterface","args":["eth1","","c1",4096,2,128,20]}
{"op":"SessionLoaded"}
{"op":"SessionClosed"}
)",
              support::ReadFile(TheWorld().Dir() / "journal-1"));
}

TEST_F(Manager, RefusesASecondClientAndNamesTheFirst)
{
    TheWorld().Start(scenario::Usual());
    support::FrameClient second(TheWorld().ManagerSocket());
    ipc::manager::ClientMessage hello;
    hello.mutable_hello()->set_protocol(1);
    hello.mutable_hello()->set_process("test");
    hello.mutable_hello()->set_pid(getpid());
    second.Send(hello);
    ipc::manager::ServerMessage answer;
    ASSERT_TRUE(second.Receive(answer));
    ASSERT_TRUE(answer.has_refused()) << support::TextOf(answer);
    EXPECT_EQ(TheWorld().Daemon().Pid(), answer.refused().holder_pid());
    EXPECT_TRUE(second.AwaitEnd());
    Commit(Rate("eth1", 5));
    EXPECT_THAT(TheWorld().ManagerJournal().Until("UpdateInterface eth1 - - 5 2 128 20"),
                ElementsAre("UpdateInterface eth1 - - 5 2 128 20"));
}

TEST_F(Manager, StoppedForAWhileGetsWhatWasCommittedMeanwhile)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().Manager().Freeze();
    Commit(Rate("eth1", 6));
    Commit(Rate("eth2", 7));
    TheWorld().Manager().Thaw();
    EXPECT_THAT(TheWorld().ManagerJournal().Until("UpdateInterface eth2 - - 7 2 128 20"),
                ElementsAre("UpdateInterface eth1 - - 6 2 128 20", "UpdateInterface eth2 - - 7 2 128 20"));
}

}  // namespace

}  // namespace system_tests
