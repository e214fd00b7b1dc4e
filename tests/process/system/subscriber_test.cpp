// SPDX-License-Identifier: Apache-2.0
// The daemon as cdbd's subscriber: stuck, absent, twice.

#include <unistd.h>

#include <csignal>
#include <sstream>

#include "ipc/cdb.pb.h"
#include "support/frames.h"
#include "system/system_test.h"

namespace system_tests {

namespace {

// cdbd waits half a second for an acknowledgement instead of ten.
class StuckSubscriber : public SystemTest {
protected:
    StuckSubscriber()
        : SystemTest({.cdbdArguments = {"--ack-timeout", "500"}, .logLevel = 10, .stateDir = {}})
    {
    }
};

TEST_F(StuckSubscriber, CommitStandsWithAWarningThatNamesIt)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().Daemon().Freeze();
    auto client = Connect();
    Do(client, netconf::EditConfig(Rate("eth1", 55)));
    const auto reply = client.Call(netconf::Commit());
    EXPECT_TRUE(reply.ok) << reply.xml;
    ASSERT_EQ(1U, reply.errors.size()) << reply.xml;
    EXPECT_EQ("warning", reply.errors[0].severity);
    EXPECT_THAT(reply.errors[0].message, HasSubstr("sflow-app"));
    EXPECT_THAT(reply.errors[0].message, HasSubstr(std::to_string(TheWorld().Daemon().Pid())));
    EXPECT_THAT(TheWorld().Log("cdbd"), HasSubstr("sflow-app"));

    // The others go on: another session reads, edits and commits.
    auto other = Connect();
    Do(other, netconf::EditConfig(scenario::SflowXml("<agent><ipv4>192.0.2.55</ipv4></agent>")));
    const auto next = other.Call(netconf::Commit());
    EXPECT_TRUE(next.ok) << next.xml;
    ASSERT_EQ(1U, next.errors.size()) << next.xml;
    EXPECT_THAT(next.errors[0].message, HasSubstr("is not waited for: it has missed 2 commits"));

    // And the stuck one loads everything when it goes on.
    TheWorld().Daemon().Thaw();
    AwaitSettled();
    EXPECT_THAT(Running(), HasSubstr("192.0.2.55"));
}

TEST_F(StuckSubscriber, ShellShowsTheWarningAndEndsWithZero)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().Daemon().Freeze();
    const auto result = TheWorld().Cli("set oam sflow interface eth1 sampling-rate 56; commit");
    EXPECT_EQ(0, result.status);
    EXPECT_THAT(result.errors, HasSubstr("sflow-app"));
}

TEST_F(StuckSubscriber, ReadsDoNotWaitForIt)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().Daemon().Freeze();
    auto committer = Connect();
    Do(committer, netconf::EditConfig(Rate("eth1", 57)));
    committer.Send(netconf::Commit());
    auto reader = Connect();
    const auto reply = reader.Call(netconf::GetConfig("running"));
    EXPECT_TRUE(reply.ok) << reply.xml;
    committer.Receive();
}

class Subscriber : public SystemTest {
protected:
    std::size_t LinesWith(const std::string& process, const std::string& text)
    {
        std::istringstream log(TheWorld().Log(process));
        std::size_t count = 0;
        for (std::string line; std::getline(log, line);)
            count += line.find(text) != std::string::npos ? 1 : 0;
        return count;
    }
};

TEST_F(Subscriber, KilledDuringACommitIsNamedInTheWarning)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().Daemon().Freeze();
    auto client = Connect();
    Do(client, netconf::EditConfig(Rate("eth1", 58)));
    client.Send(netconf::Commit());
    Await("the commit to be readable", [this] { return Running().find(">58<") != std::string::npos; });
    TheWorld().Daemon().Kill();
    const auto reply = client.Receive();
    EXPECT_TRUE(reply.ok) << reply.xml;
    ASSERT_EQ(1U, reply.errors.size()) << reply.xml;
    EXPECT_TRUE(reply.errors[0].IsWarning());
    EXPECT_THAT(reply.errors[0].message, HasSubstr("sflow-app"));
}

TEST_F(Subscriber, SecondDaemonIsRefusedWithTheFirstsIdAndTakesOver)
{
    TheWorld().Start(scenario::Usual());
    const auto second = TheWorld().Spawn("sflow-app", {}, "second");
    TheWorld().AwaitLog("second", std::to_string(TheWorld().Daemon().Pid()));
    EXPECT_TRUE(second->Running());
    TheWorld().ManagerJournal().Skip();

    TheWorld().Daemon().Kill();
    const auto calls = TheWorld().AwaitLoad();
    EXPECT_THAT(calls, testing::Contains("UpdateInterface eth1 c1 - 1024 2 128 20"));
    Commit(Rate("eth1", 59));
    AwaitSettled();
    EXPECT_EQ(0, second->Terminate());
}

TEST_F(Subscriber, RefusalOfASecondDaemonIsLoggedOnce)
{
    TheWorld().Start(scenario::Usual());
    const auto second = TheWorld().Spawn("sflow-app", {}, "second");
    const auto pid = std::to_string(TheWorld().Daemon().Pid());
    TheWorld().AwaitLog("second", pid);
    // Its attempts go on with a back-off; cdbd notes each of them.
    Await("three refused attempts", [this] { return LinesWith("cdbd", "refused") >= 3; });
    EXPECT_EQ(1U, LinesWith("second", pid)) << TheWorld().Log("second");
}

TEST_F(Subscriber, WithoutItsDaemonACallpointRefusesTheCreationOnly)
{
    ASSERT_EQ(0, TheWorld().Initialize(scenario::Usual()).status);
    TheWorld().StartCdbd();
    auto client = Connect();
    const auto before = client.Call(netconf::GetConfig("candidate")).data;
    const auto error =
        Refused(client, netconf::EditConfig(scenario::SflowXml("<interface><name>eth9</name></interface>")),
                "operation-failed");
    EXPECT_THAT(error.message, HasSubstr("sflow-set-sampling-rate"));
    EXPECT_EQ(before, client.Call(netconf::GetConfig("candidate")).data);

    Do(client, netconf::EditConfig(Rate("eth1", 60)));
    Do(client, netconf::Commit());
    const auto result = TheWorld().Cli("set oam sflow interface eth9 sampling-rate 1");
    EXPECT_EQ(1, result.status);
    EXPECT_THAT(result.errors, HasSubstr("sflow-set-sampling-rate"));
}

TEST_F(Subscriber, ThatNeverAnswersItsCallpointMakesTheCreationFail)
{
    TheWorld().Start(scenario::Usual());
    TheWorld().Daemon().Freeze();
    auto client = Connect();
    const auto error =
        Refused(client, netconf::EditConfig(scenario::SflowXml("<interface><name>eth9</name></interface>")),
                "operation-failed");
    EXPECT_THAT(error.message, HasSubstr("sflow-set-sampling-rate"));
    TheWorld().Daemon().Thaw();
    Await("the daemon to serve again", [&] {
        return client
            .Call(netconf::EditConfig(scenario::SflowXml("<interface><name>eth9</name></interface>")))
            .ok;
    });
    Do(client, netconf::Commit());
    AwaitSettled();
}

}  // namespace

}  // namespace system_tests
