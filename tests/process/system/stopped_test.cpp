// SPDX-License-Identifier: Apache-2.0
// What operators are told while a process is stopped (SIGSTOP), and that no other session waits for it. What
// the processes have afterwards is looked at by misses_test.cpp too.

#include <string>

#include "system/system_test.h"

namespace system_tests {
namespace {

using testing::AllOf;

class Stopped : public SystemTest {
protected:
    explicit Stopped(const std::string& daemonsTime)
        : SystemTest({.cdbdArguments = {"--ack-timeout", daemonsTime}})
    {
        TheWorld().Start(scenario::Usual());
    }
    static std::string Named(const std::string& name, Process& process)
    {
        return name + " (process " + std::to_string(process.Pid()) + ")";
    }
};

// The daemon's time is longer than any test: what is answered while it is stopped has not waited for it.
class StoppedDaemon : public Stopped {
protected:
    StoppedDaemon() : Stopped("sflow-app=600000") {}
};

TEST_F(StoppedDaemon, HoldsUpItsOwnCommitAndNoOtherSession)
{
    auto committer = Connect();
    auto other = Connect();
    Do(committer, netconf::EditConfig(Rate("eth1", 61)));
    TheWorld().Daemon().Freeze();
    committer.Send(netconf::Commit());
    Await("the commit to stand", [&] { return Running().find(">61<") != std::string::npos; });

    EXPECT_THAT(TheWorld().CliDone("show configuration running oam sflow interface eth1"),
                HasSubstr("sampling-rate 61"));
    EXPECT_THAT(TheWorld().CliDone("show sflow collectors"), HasSubstr("c1"));
    EXPECT_THAT(TheWorld().CliDone("show history"), HasSubstr("netconf"));
    Do(other, netconf::Lock("candidate"));
    Do(other, netconf::EditConfig(Rate("eth1", 62)));
    Do(other, netconf::Validate("candidate"));
    Do(other, netconf::DiscardChanges());
    Do(other, netconf::Unlock("candidate"));

    TheWorld().Daemon().Thaw();
    const auto reply = committer.Receive();
    EXPECT_TRUE(reply.ok && reply.errors.empty()) << reply.xml;
    AwaitSettled();
}

class StoppedDaemonForAWhile : public Stopped {
protected:
    StoppedDaemonForAWhile() : Stopped("sflow-app=500") {}
};

TEST_F(StoppedDaemonForAWhile, IsNamedInTheAnswerToACommitAndToAnEditThatNeedsIt)
{
    TheWorld().Daemon().Freeze();
    const std::string name = Named("sflow-app", TheWorld().Daemon());
    const auto edit = TheWorld().Cli("set oam sflow interface eth77 sampling-rate 5");
    EXPECT_EQ(1, edit.status);
    EXPECT_THAT(edit.errors, AllOf(HasSubstr("{eth77}"), HasSubstr(name + " has not answered for"),
                                   HasSubstr("restart it")));

    const auto commit = TheWorld().Cli("set oam sflow interface eth1 sampling-rate 63; commit");
    EXPECT_EQ(0, commit.status) << "it stands";
    EXPECT_THAT(commit.errors,
                AllOf(HasSubstr("warning: " + name + " has not acknowledged commit"), HasSubstr("500 ms"),
                      testing::ContainsRegex("commit [0-9]+: 1 change\n")));
    const auto second = TheWorld().Cli("set oam sflow interface eth1 sampling-rate 64; commit");
    EXPECT_EQ(0, second.status);
    EXPECT_THAT(second.errors, HasSubstr("missed 2 commits"));
    TheWorld().Daemon().Thaw();
    Await("the daemon to be awaited again", [&] {
        return TheWorld().Cli("show system processes").output.find("not waited for") == std::string::npos;
    });
    AwaitSettled();
}

class StoppedManager : public Stopped {
protected:
    StoppedManager() : Stopped("sflow-app=600000") {}
};

TEST_F(StoppedManager, DelaysNoCommitAndIsNamedWhereItIsNeeded)
{
    auto other = Connect();
    TheWorld().Manager().Freeze();
    const std::string name = Named("sflow-mgr", TheWorld().Manager());
    const auto commit = TheWorld().Cli("set oam sflow interface eth1 sampling-rate 65; commit");
    EXPECT_EQ(0, commit.status);
    EXPECT_THAT(commit.errors, AllOf(HasSubstr("acknowledged by sflow-app"),
                                     HasSubstr("warning: " + name + " does not answer")));
    for (const std::string command :
         {"show sflow", "show interfaces", "show sflow interface eth1", "show sflow drops"}) {
        const auto shown = TheWorld().Cli(command);
        EXPECT_EQ(1, shown.status) << command;
        EXPECT_THAT(shown.errors, HasSubstr(name + " does not answer")) << command;
        EXPECT_EQ("", shown.output) << command;
    }
    // A request waits for it; what another session asks meanwhile does not.
    auto asking = Connect();
    asking.Send(netconf::SflowTestCollector("c1"));
    Do(other, netconf::EditConfig(Rate("eth1", 66)));
    Do(other, netconf::Commit());
    EXPECT_THAT(Running(), HasSubstr(">66<"));
    const auto tested = asking.Receive();
    EXPECT_FALSE(tested.ok);
    ASSERT_EQ(1U, tested.errors.size());
    EXPECT_THAT(tested.errors[0].message, HasSubstr(name + " has not answered in time"));
    const auto cleared = TheWorld().Cli("clear sflow statistics");
    EXPECT_EQ(1, cleared.status);
    EXPECT_THAT(cleared.errors, HasSubstr(name));

    TheWorld().Manager().Thaw();
    Await("its state", [&] { return TheWorld().Cli("show sflow interface eth1").status == 0; });
    AwaitSettled();
    EXPECT_THAT(TheWorld().CliDone("show sflow interface eth1 | json"), HasSubstr("66"));
}

}  // namespace
}  // namespace system_tests
