// SPDX-License-Identifier: Apache-2.0
// Private candidates on the real switch: swcli beside NETCONF sessions, conflicts between them, and restarts.

#include "system/system_test.h"

namespace system_tests {
namespace {

using testing::AllOf;

class PrivateCandidates : public SystemTest {
protected:
    PrivateCandidates() { TheWorld().Start(scenario::Usual()); }

    static std::string Set(int rate)
    {
        return "set oam sflow interface eth1 sampling-rate " + std::to_string(rate);
    }
    std::string Candidate() { return Connect().Call(netconf::GetConfig("candidate")).data; }
};

TEST_F(PrivateCandidates, AreUsedByOneCallOfTheShell)
{
    const std::string before = Running();
    EXPECT_EQ(
        TheWorld().CliDone("configure private; " + Set(301) + "; compare"),
        "- oam sflow interface eth1 sampling-rate 1024\n+ oam sflow interface eth1 sampling-rate 301\n");
    // What was not committed is gone with the call, which says so.
    const auto dropped = TheWorld().Cli("configure private; " + Set(301));
    EXPECT_EQ(dropped.status, 0);
    EXPECT_THAT(dropped.errors, AllOf(HasSubstr("warning"), HasSubstr("1 edit"), HasSubstr("dropped")));
    EXPECT_EQ(Candidate(), before);
    EXPECT_EQ(TheWorld().CliDone("configure private; " + Set(302) + "; commit; compare"), "");
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>302<"));
    // After exit, the commands are about the shared one.
    const auto left = TheWorld().Cli("configure private; " + Set(303) + "; exit; " + Set(304));
    EXPECT_THAT(left.errors, HasSubstr("dropped"));
    EXPECT_THAT(TheWorld().CliDone("compare"), HasSubstr("+ oam sflow interface eth1 sampling-rate 304"));
    EXPECT_THAT(TheWorld().CliDone("show system candidates"), HasSubstr("Edits of the shared candidate"));
    TheWorld().CliDone("discard");
    EXPECT_THAT(TheWorld().CliDone("show system candidates"), HasSubstr("has no edits"));
    AwaitSettled();
}

TEST_F(PrivateCandidates, ConflictBetweenTwoSessionsIsToldAndDecided)
{
    auto session = Connect();
    Do(session, netconf::OpenPrivateCandidate());
    Do(session, netconf::EditConfig(Rate("eth1", 401)));
    Do(session, netconf::EditConfig(Rate("eth2", 402)));
    // Another operator commits from a private candidate and from the shared one.
    TheWorld().CliDone("configure private; " + Set(403) + "; commit");
    TheWorld().CliDone("set oam sflow interface eth2 polling-interval 9; commit");
    EXPECT_THAT(TheWorld().CliDone("show system candidates"), HasSubstr("Private candidates"));
    auto reply = session.Call(netconf::Commit());
    ASSERT_EQ(reply.errors.size(), 2U) << reply.xml;
    EXPECT_THAT(reply.errors[0].message, HasSubstr("eth1"));
    EXPECT_THAT(reply.errors[1].message, HasSubstr("eth2"));
    // One more edit, one more commit.
    Do(session, netconf::EditConfig(Rate("eth1", 403)));
    reply = session.Call(netconf::Commit());
    ASSERT_EQ(reply.errors.size(), 1U) << reply.xml;
    EXPECT_TRUE(session.Call(netconf::UpdateCandidate(true)).ok);
    Do(session, netconf::EditConfig(Rate("eth2", 404)));
    Do(session, netconf::Commit());
    const std::string running = Running();
    EXPECT_THAT(running, AllOf(HasSubstr("<sampling-rate>403<"), HasSubstr("<sampling-rate>404<"),
                               HasSubstr("<polling-interval>9<")));
    AwaitSettled();
    TheWorld().Cdbd().Kill();
    TheWorld().StartCdbd();
    EXPECT_EQ(Running(), running);
    EXPECT_EQ(Candidate(), running);
    AwaitSettled();
}

TEST_F(PrivateCandidates, ConflictInTheShellNamesEntryAndRemedy)
{
    // The shared candidate's own conflict: its edit is older than the commit of the private one.
    TheWorld().CliDone(Set(501));
    TheWorld().CliDone("configure private; " + Set(502) + "; commit");
    const auto refused = TheWorld().Cli("commit");
    EXPECT_EQ(refused.status, 1);
    EXPECT_THAT(refused.errors, AllOf(HasSubstr("interface eth1 sampling-rate"), HasSubstr("in commit"),
                                      HasSubstr("update")));
    const auto updated = TheWorld().Cli("update running; compare; commit");
    EXPECT_EQ(updated.status, 0);
    EXPECT_THAT(updated.errors, HasSubstr("warning"));
    EXPECT_EQ(updated.output, "");
    EXPECT_THAT(Running(), HasSubstr("<sampling-rate>502<"));
    AwaitSettled();
}

class PrivateShortHistory : public SystemTest {
protected:
    PrivateShortHistory() : SystemTest({{"--history-limit", "2"}}) { TheWorld().Start(scenario::Usual()); }
};

TEST_F(PrivateShortHistory, ACandidateWhoseBaseIsNotKeptIsDiscarded)
{
    auto shared = Connect();
    auto late = Connect();
    auto busy = Connect();
    Do(shared, netconf::EditConfig(Rate("eth1", 601)));
    Do(late, netconf::OpenPrivateCandidate());
    Do(late, netconf::EditConfig(Rate("eth1", 602)));
    Do(busy, netconf::OpenPrivateCandidate());
    for (unsigned rate = 700; rate < 704; ++rate) {
        Do(busy, netconf::EditConfig(Rate("eth2", rate)));
        Do(busy, netconf::Commit());
    }
    for (const auto& operation : {netconf::Commit(), netconf::Validate(), netconf::GetConfig("candidate"),
                                  netconf::EditConfig(Rate("eth1", 603)), netconf::UpdateCandidate()})
        EXPECT_THAT(Refused(late, operation, "operation-failed").message, HasSubstr("discard")) << operation;
    Do(late, netconf::DiscardChanges());
    EXPECT_EQ(late.Call(netconf::GetConfig("candidate")).data, Running());
    // The shared one has learnt of each commit in time.
    Do(shared, netconf::Commit());
    EXPECT_THAT(Running(), AllOf(HasSubstr("<sampling-rate>601<"), HasSubstr("<sampling-rate>703<")));
    AwaitSettled();
}

}  // namespace
}  // namespace system_tests
