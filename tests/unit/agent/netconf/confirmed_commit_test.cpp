// SPDX-License-Identifier: Apache-2.0
// Confirmed commits (RFC 6241, section 8.4): who may confirm, extend and cancel them, when they are rolled
// back, and what is told of it. Time is the test's.

#include <memory>
#include <string>

#include "agent/netconf/confirmed_world.h"
#include "agent/other_user.h"

namespace agent_tests {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;

TEST_F(ConfirmedCommits, AreAnnounced)
{
    EXPECT_TRUE(m_owner.ServerHello().Has("urn:ietf:params:netconf:capability:confirmed-commit:1.1"));
}

TEST_F(ConfirmedCommits, AreRolledBackWhenTheTimeIsOver)
{
    Begin(2, {.timeout = "60"});
    EXPECT_EQ(RunningPort(), "2");
    m_world.Advance(milliseconds(59'999));
    EXPECT_EQ(RunningPort(), "2");
    m_world.Advance(milliseconds(1));
    AwaitPort("1");
    EXPECT_EQ(m_world.Store().LastCommit(), 3U);
    const auto entry = m_world.Store().History(1).at(0);
    EXPECT_EQ(entry.user, "cdbd");
    EXPECT_EQ(entry.source, "rollback");
    EXPECT_EQ(entry.comment, "commit 2: not confirmed in 60 s");
    EXPECT_EQ(Pending(), "");
    // One more commit, one more start.
    EXPECT_EQ(CommitPort(m_other, 3), 4U);
    m_world.Restart();
    auto later = m_world.Connect();
    EXPECT_THAT(Config(later, "running"), HasSubstr("<port>3</port>"));
    EXPECT_EQ(m_world.Store().Pending(), std::nullopt);
}

TEST_F(ConfirmedCommits, HaveTenMinutesUnlessToldOtherwise)
{
    Begin(2);
    m_world.Advance(seconds(599));
    EXPECT_EQ(RunningPort(), "2");
    m_world.Advance(seconds(1));
    AwaitPort("1");
}

TEST_F(ConfirmedCommits, AreConfirmedByACommitWithOrWithoutChanges)
{
    Begin(2, {.timeout = "60"});
    Do(m_owner, netconf::Commit());
    EXPECT_EQ(m_world.Store().LastCommit(), 2U);
    EXPECT_EQ(m_world.Store().Pending(), std::nullopt);
    Begin(3, {.timeout = "60"});
    EXPECT_EQ(CommitPort(m_owner, 4), 4U);
    m_world.Advance(seconds(3600));
    Do(m_other, netconf::Commit());
    EXPECT_EQ(RunningPort(), "4");
    EXPECT_EQ(m_world.Store().LastCommit(), 4U);
}

TEST_F(ConfirmedCommits, AreExtendedAndGoTogether)
{
    Begin(2, {.timeout = "60"});
    m_world.Advance(seconds(50));
    Begin(3, {.timeout = "100"});
    m_world.Advance(seconds(50));
    Do(m_owner, netconf::CommitConfirmed({.timeout = "70"}));  // of nothing
    m_world.Advance(seconds(69));
    EXPECT_EQ(RunningPort(), "3");
    EXPECT_THAT(Pending(), AllOf(HasSubstr("<commit>3</commit>"), HasSubstr("<return-to>1</return-to>"),
                                 HasSubstr("<time-left>1</time-left>")));
    m_world.Advance(seconds(1));
    AwaitPort("1");
    EXPECT_EQ(m_world.Store().History(1).at(0).comment, "commits 2 to 3: not confirmed in 70 s");
}

TEST_F(ConfirmedCommits, OfNothingHaveNothingToUndo)
{
    Do(m_owner, netconf::CommitConfirmed({.timeout = "60"}));
    EXPECT_THAT(Pending(), AllOf(HasSubstr("<return-to>1</return-to>"), Not(HasSubstr("<commit>"))));
    Refused(m_other, netconf::Commit(), "in-use");
    m_world.Advance(seconds(60));
    support::Await("the end", [&] { return Pending().empty(); });
    EXPECT_EQ(m_world.Store().LastCommit(), 1U);
    EXPECT_EQ(m_world.Store().Pending(), std::nullopt);
    // Its extension may have something.
    Do(m_owner, netconf::CommitConfirmed({.timeout = "60"}));
    Begin(2, {.timeout = "60"});
    m_world.Advance(seconds(60));
    AwaitPort("1");
}

TEST_F(ConfirmedCommits, KeepOtherSessionsFromCommitting)
{
    Begin(2, {.timeout = "60"});
    Do(m_other, Port(3));
    const auto refused = Refused(m_other, netconf::Commit(), "in-use");
    EXPECT_THAT(refused.message, AllOf(HasSubstr("commit 2 by"), HasSubstr("waits for its confirmation")));
    Refused(m_other, netconf::CommitConfirmed({}), "in-use");
    Refused(m_other, netconf::ConfirmCommit(), "in-use");
    Refused(m_other, netconf::CancelCommit(), "in-use");
    EXPECT_THAT(Refused(m_other, CommitWith("<persist-id>x</persist-id>"), "invalid-value").info,
                ElementsAre(Pair("bad-element", "persist-id")));
    Refused(m_other, netconf::CancelCommit("x"), "invalid-value");
    // The owner has given no token, so it has none to give.
    Refused(m_owner, CommitWith("<persist-id>x</persist-id>"), "invalid-value");
    EXPECT_EQ(RunningPort(), "2");
    Do(m_owner, netconf::ConfirmCommit());
    // What the other session has edited was not committed with it.
    EXPECT_EQ(RunningPort(), "2");
    Do(m_other, netconf::Commit());
    EXPECT_EQ(RunningPort(), "3");
}

TEST_F(ConfirmedCommits, KeepOtherSessionsFromLockingRunning)
{
    Begin(2, {.timeout = "60"});
    EXPECT_THAT(Refused(m_other, netconf::Lock("running"), "lock-denied").info,
                ElementsAre(Pair("session-id", std::to_string(m_owner.SessionId()))));
    Do(m_other, netconf::Lock("candidate"));
    Do(m_other, netconf::Unlock("candidate"));
    Do(m_owner, netconf::Lock("running"));
    m_world.Advance(seconds(60));
    AwaitPort("1");
    Do(m_owner, netconf::Unlock("running"));
    Do(m_other, netconf::Lock("running"));
}

TEST_F(ConfirmedCommits, ThatArePersistentKeepThePlaceOfNoSession)
{
    {
        auto gone = m_world.Connect();
        Do(gone, Port(2));
        Do(gone, netconf::CommitConfirmed({.timeout = "60", .persist = "token"}));
        EXPECT_THAT(Refused(m_other, netconf::Lock("running"), "lock-denied").info,
                    ElementsAre(Pair("session-id", std::to_string(gone.SessionId()))));
        Do(gone, netconf::CloseSession());
    }
    EXPECT_THAT(Refused(m_other, netconf::Lock("running"), "lock-denied").info,
                ElementsAre(Pair("session-id", "0")));
    EXPECT_THAT(Pending(), AllOf(HasSubstr("<persistent>true</persistent>"), Not(HasSubstr("token")),
                                 Not(HasSubstr("<session>"))));
    EXPECT_EQ(RunningPort(), "2");
    m_world.Advance(seconds(60));
    AwaitPort("1");
}

TEST_F(ConfirmedCommits, ThatArePersistentAreConfirmedByTheirTokenFromAnySession)
{
    Begin(2, {.timeout = "60", .persist = "token"});
    Refused(m_other, netconf::Commit(), "in-use");
    EXPECT_THAT(Refused(m_owner, netconf::Commit(), "invalid-value").message,
                HasSubstr("give its persist-id"));
    EXPECT_THAT(Refused(m_other, CommitWith("<persist-id>tokem</persist-id>"), "invalid-value").info,
                ElementsAre(Pair("bad-element", "persist-id")));
    Refused(m_owner, CommitWith("<persist-id/>"), "invalid-value");
    Do(m_other, CommitWith("<persist-id>token</persist-id>"));
    EXPECT_EQ(Pending(), "");
    m_world.Advance(seconds(3600));
    Do(m_other, netconf::Commit());
    EXPECT_EQ(RunningPort(), "2");
}

TEST_F(ConfirmedCommits, ThatArePersistentAreExtendedByTheirTokenAndMayGetAnother)
{
    Begin(2, {.timeout = "60", .persist = "one"});
    Do(m_other, Port(3));
    Do(m_other, netconf::CommitConfirmed({.timeout = "60", .persist = "two", .persistId = "one"}));
    Refused(m_owner, CommitWith("<persist-id>one</persist-id>"), "invalid-value");
    // Without a new one it keeps its token.
    Do(m_owner, netconf::CommitConfirmed({.timeout = "60", .persistId = "two"}));
    Do(m_other, netconf::CancelCommit("two"));
    EXPECT_EQ(RunningPort(), "1");
    EXPECT_EQ(m_world.Store().LastCommit(), 4U);
    // One that belongs to a session becomes persistent.
    Begin(5, {.timeout = "60"});
    Do(m_owner, netconf::CommitConfirmed({.timeout = "60", .persist = "three"}));
    Do(m_owner, netconf::CloseSession());
    Do(m_other, netconf::ConfirmCommit("three"));
    EXPECT_EQ(RunningPort(), "5");
}

TEST_F(ConfirmedCommits, AreCancelled)
{
    Begin(2, {.timeout = "60"});
    const auto reply = m_owner.Call(netconf::CancelCommit());
    EXPECT_TRUE(reply.ok) << reply.xml;
    EXPECT_EQ(reply.commit, 3U);
    EXPECT_EQ(RunningPort(), "1");
    const auto entry = m_world.Store().History(1).at(0);
    EXPECT_NE(entry.user, "cdbd");
    EXPECT_EQ(entry.comment, "commit 2: cancelled");
    // A commit of nothing, too.
    Do(m_owner, netconf::CommitConfirmed({}));
    const auto nothing = m_owner.Call(netconf::CancelCommit());
    EXPECT_THAT(nothing.xml, HasSubstr("<ok/>"));
    EXPECT_EQ(nothing.commit, std::nullopt);
    EXPECT_EQ(Pending(), "");
}

TEST_F(ConfirmedCommits, ThatDoNotWaitAreNeitherConfirmedNorCancelled)
{
    for (const auto& operation : {netconf::CancelCommit(), netconf::ConfirmCommit()})
        EXPECT_THAT(Refused(m_owner, operation, "operation-failed").message,
                    HasSubstr("no commit waits for its confirmation"));
    for (const auto& operation :
         {netconf::CancelCommit("x"), netconf::ConfirmCommit("x"), CommitWith("<persist-id>x</persist-id>"),
          netconf::CommitConfirmed({.persistId = "x"})})
        EXPECT_THAT(Refused(m_owner, operation, "invalid-value").info,
                    ElementsAre(Pair("bad-element", "persist-id")));
    EXPECT_EQ(Pending(), "");
}

TEST_F(ConfirmedCommits, RefuseParametersThatMeanNothing)
{
    for (const char* parameters : {"<persist>x</persist>", "<confirm-timeout>60</confirm-timeout>",
                                   "<persist-id>x</persist-id><persist>y</persist>"})
        EXPECT_THAT(Refused(m_owner, CommitWith(parameters), "missing-element").info,
                    ElementsAre(Pair("bad-element", "confirmed")));
    for (const auto& token : {std::string(), std::string(256, 'x')})
        EXPECT_THAT(
            Refused(m_owner, CommitWith("<confirmed/><persist>" + token + "</persist>"), "invalid-value")
                .info,
            ElementsAre(Pair("bad-element", "persist")));
    for (const char* timeout : {"0", "-1", "4294967296", "soon", ""})
        Refused(m_owner,
                CommitWith("<confirmed/><confirm-timeout>" + std::string(timeout) + "</confirm-timeout>"),
                "invalid-value");
    EXPECT_EQ(Pending(), "");
    Do(m_owner, netconf::CommitConfirmed({.timeout = "4294967295", .persist = std::string(255, 'x')}));
    EXPECT_THAT(Pending(), HasSubstr("<time-left>4294967295</time-left>"));
    m_world.Advance(seconds(4'294'967'294));
    EXPECT_THAT(Pending(), HasSubstr("<time-left>1</time-left>"));
}

// ---- the end of the session ----

TEST_F(ConfirmedCommits, GoWithTheirSession)
{
    for (const char* how : {"close", "kill", "lost"}) {
        auto own = std::make_unique<netconf::Client>(m_world.Connect());
        Do(*own, Port(2));
        Do(*own, netconf::CommitConfirmed({.timeout = "60"}));
        EXPECT_EQ(RunningPort(), "2") << how;
        if (std::string(how) == "close") Do(*own, netconf::CloseSession());
        if (std::string(how) == "kill") Do(m_other, netconf::KillSession(own->SessionId()));
        own.reset();
        AwaitPort("1");
        EXPECT_THAT(m_world.Store().History(1).at(0).comment, HasSubstr("the session ended")) << how;
        EXPECT_EQ(Pending(), "") << how;
    }
    EXPECT_EQ(m_world.Store().LastCommit(), 7U);
}

TEST_F(ConfirmedCommits, WhoseSessionIsClosedAreGoneForTheNextCommit)
{
    Begin(2, {.timeout = "60"});
    Do(m_owner, netconf::CloseSession());
    EXPECT_EQ(CommitPort(m_other, 3), 4U);
    EXPECT_EQ(RunningPort(), "3");
}

/// The session ends while its commit waits for a subscriber, or before that.
TEST_F(ConfirmedCommits, GoWithASessionThatEndsBeforeTheAnswer)
{
    Process process(m_world, "sflow-app");
    process.Subscribe(1, 1, "/config/oam/sflow");
    process.Ready();
    Do(m_owner, Port(2));
    m_owner.Send(netconf::CommitConfirmed({.timeout = "60"}));
    const auto there = process.ReceiveChangeSet();
    EXPECT_EQ(there.commit(), 2U);
    Do(m_other, netconf::KillSession(m_owner.SessionId()));
    // One at a time: the roll-back waits for the acknowledgement of the commit.
    process.Acknowledge(2);
    EXPECT_EQ(process.ReceiveChangeSet().commit(), 3U);
    process.Acknowledge(3);
    AwaitPort("1");
}

// ---- what others do meanwhile ----

TEST_F(ConfirmedCommits, LeaveTheCandidateOfOthersAsTheyAreRolledBack)
{
    Begin(2, {.timeout = "60"});
    Do(m_other, netconf::EditConfig(Sflow(Collector("c2", "<ip>192.0.2.2</ip>"))));
    m_world.Advance(seconds(60));
    AwaitPort("1");
    EXPECT_THAT(Config(m_other, "running"), Not(HasSubstr("c2")));
    Do(m_other, netconf::Commit());
    EXPECT_THAT(Config(m_other, "running"), HasSubstr("c2"));
    EXPECT_EQ(RunningPort(), "1");
}

TEST_F(ConfirmedCommits, AreRolledBackUnderALockedCandidate)
{
    Begin(2, {.timeout = "60"});
    Do(m_other, netconf::Lock("candidate"));
    m_world.Advance(seconds(60));
    AwaitPort("1");
    Do(m_other, Port(3));
    Do(m_other, netconf::Commit());
    EXPECT_EQ(RunningPort(), "3");
}

TEST_F(ConfirmedCommits, SubscribersAreToldOfTheRollBackAsOfAnyCommit)
{
    Process process(m_world, "sflow-app");
    process.Subscribe(1, 1, "/config/oam/sflow");
    process.Ready();
    Do(m_owner, Port(2));
    m_owner.Send(netconf::CommitConfirmed({.timeout = "60"}));
    process.ReceiveChangeSet();
    process.Acknowledge(2);
    EXPECT_TRUE(m_owner.Receive().ok);
    m_world.Advance(seconds(60));
    EXPECT_EQ(process.ReceiveChangeSet().commit(), 3U);
    // One that does not answer is disconnected as by any commit, and nothing waits for it for ever.
    Do(m_other, Port(4));
    m_other.Send(netconf::Commit());
    m_world.Advance(seconds(10));
    EXPECT_TRUE(m_other.Receive().ok);
    EXPECT_EQ(RunningPort(), "4");
}

TEST_F(ConfirmedCommits, ACommitThatWasThereBeforeTheTimeWasOverConfirms)
{
    Process process(m_world, "sflow-app");
    process.Subscribe(1, 1, "/config/oam/sflow");
    process.Ready();
    Do(m_owner, Port(2));
    m_owner.Send(netconf::CommitConfirmed({.timeout = "3", .persist = "token"}));
    process.ReceiveChangeSet();
    // While the process takes its time, the confirmation comes, and then the time is over.
    m_other.Send(CommitWith("<persist-id>token</persist-id>"));
    const std::string counters =
        "<netconf-state xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\"><sessions><session>"
        "<session-id>" +
        std::to_string(m_other.SessionId()) + "</session-id><in-rpcs/></session></sessions></netconf-state>";
    auto watcher = m_world.Connect();
    support::Await("the request", [&] {
        return watcher.Call(netconf::Get(counters)).data.find("<in-rpcs>1<") != std::string::npos;
    });
    m_world.Advance(seconds(4));
    process.Acknowledge(2);
    EXPECT_TRUE(m_owner.Receive().ok);
    EXPECT_TRUE(m_other.Receive().ok);
    Do(m_other, netconf::Commit());
    EXPECT_EQ(RunningPort(), "2");
    EXPECT_EQ(m_world.Store().LastCommit(), 2U);
}

// ---- access ----

/// Root, and a user who may create collectors, but not delete them, nor execute cancel-commit.
class ConfirmedCommitsOfABoundUser : public BoundByRules {
protected:
    ConfirmedCommitsOfABoundUser()
        : BoundByRules(
              "<rule><name>c</name><path>/c:config/s:oam/s:sflow/s:collector</"
              "path><access-operations>create</access-operations><action>permit</action></rule>"
              "<rule><name>x</name><rpc-name>cancel-commit</rpc-name><access-operations>exec</"
              "access-operations><action>deny</action></rule>")
    {
    }
};

TEST_F(ConfirmedCommitsOfABoundUser, AreRolledBackThoughTheUserMayNotDelete)
{
    Do(*m_bound, Port(1));
    Do(*m_bound, netconf::CommitConfirmed({.timeout = "60"}));
    Refused(*m_bound, netconf::CancelCommit(), "access-denied");
    EXPECT_THAT(Config(m_root, "running"), HasSubstr("c1"));
    m_world.Advance(seconds(60));
    support::Await("the end", [&] { return Config(m_root, "running").empty(); });
}

TEST_F(ConfirmedCommitsOfABoundUser, AreConfirmedWithWhatTheUserMayWriteOnly)
{
    Do(*m_bound, Port(1));
    Do(*m_bound, netconf::CommitConfirmed({.timeout = "60"}));
    Do(m_root, netconf::EditConfig(Sflow("<agent><ipv4>192.0.2.7</ipv4></agent>")));
    Refused(*m_bound, netconf::Commit(), "access-denied");
    EXPECT_NE(m_world.Store().Pending(), std::nullopt);
    Do(*m_bound, netconf::ConfirmCommit());
    EXPECT_EQ(m_world.Store().Pending(), std::nullopt);
    EXPECT_THAT(Config(m_root, "running"), Not(HasSubstr("192.0.2.7")));
}

TEST_F(ConfirmedCommitsOfABoundUser, ThatCantBeRolledBackAreNotForTheUserToEnd)
{
    Do(m_root, Port(1));
    Do(m_root, netconf::Commit());
    BreakUndo(m_world);
    m_world.Restart();
    OpenToAll(m_world);
    auto root = m_world.Connect();
    const OtherUser other;
    ASSERT_TRUE(other.Done());
    auto bound = m_world.Connect();
    Refused(bound, netconf::Commit(), "in-use");
    Refused(bound, netconf::ConfirmCommit(), "in-use");
    EXPECT_NE(m_world.Store().Pending(), std::nullopt);
    Do(root, netconf::ConfirmCommit());
}

}  // namespace
}  // namespace agent_tests
