// SPDX-License-Identifier: Apache-2.0
// Confirmed commits over a restart of cdbd and over jumps of the clock, and those that can't be rolled back.

#include <optional>
#include <string>

#include "agent/netconf/confirmed_world.h"

namespace agent_tests {
namespace {

using std::chrono::seconds;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

constexpr std::int64_t kSecondUs = 1'000'000;

class ConfirmedCommitsAfterARestart : public ConfirmedCommits {
protected:
    /// `away`: how long cdbd is not there, by the clock.
    void Restart(seconds away = seconds(0))
    {
        *m_clock.us += away.count() * kSecondUs;
        m_world.Restart();
    }
};

TEST_F(ConfirmedCommitsAfterARestart, ThatArePersistentWaitForWhatIsLeftOfTheirTime)
{
    Begin(2, {.timeout = "60", .persist = "token"});
    m_world.Advance(seconds(20));
    Restart(seconds(30));
    EXPECT_EQ(RunningPort(), "2");
    EXPECT_THAT(Pending(), AllOf(HasSubstr("<commit>2</commit>"), HasSubstr("<persistent>true</persistent>"),
                                 HasSubstr("<time-left>30</time-left>")));
    auto client = m_world.Connect();
    Refused(client, netconf::Commit(), "in-use");
    m_world.Advance(seconds(29));
    EXPECT_EQ(RunningPort(), "2");
    m_world.Advance(seconds(1));
    AwaitPort("1");
    EXPECT_EQ(m_world.Store().History(1).at(0).comment, "commit 2: not confirmed in 60 s");
    // And it is over.
    Restart();
    EXPECT_EQ(RunningPort(), "1");
    EXPECT_EQ(m_world.Store().LastCommit(), 3U);
}

TEST_F(ConfirmedCommitsAfterARestart, ThatArePersistentAreConfirmedAndCancelled)
{
    Begin(2, {.timeout = "60", .persist = "token"});
    Restart();
    auto client = m_world.Connect();
    Refused(client, CommitWith("<persist-id>other</persist-id>"), "invalid-value");
    Do(client, netconf::ConfirmCommit("token"));
    m_world.Advance(seconds(3600));
    Restart(seconds(3600));
    EXPECT_EQ(RunningPort(), "2");
    auto again = m_world.Connect();
    Do(again, Port(3));
    Do(again, netconf::CommitConfirmed({.timeout = "60", .persist = "token"}));
    Restart();
    auto last = m_world.Connect();
    Do(last, netconf::CancelCommit("token"));
    EXPECT_EQ(RunningPort(), "2");
}

TEST_F(ConfirmedCommitsAfterARestart, WhoseTimeIsOverAreRolledBackBeforeAnyClientIsThere)
{
    Begin(2, {.timeout = "60", .persist = "token"});
    Restart(seconds(60));
    EXPECT_EQ(m_world.Store().LastCommit(), 3U);
    EXPECT_EQ(RunningPort(), "1");
    Process process(m_world, "sflow-app");
    process.Subscribe(1, 1, "/config/oam/sflow");
    EXPECT_EQ(process.Ready().commit(), 3U);
    EXPECT_EQ(Pending(), "");
    auto client = m_world.Connect();
    Do(client, Subscription("<startTime>2026-11-21T03:20:11Z</startTime>"));
    EXPECT_THAT(Next(client), AllOf(HasSubstr("<netconf-config-change"), HasSubstr("<server>")));
    EXPECT_THAT(Next(client), HasSubstr("<confirm-event>timeout</confirm-event>"));
}

TEST_F(ConfirmedCommitsAfterARestart, OfASessionAreRolledBackAtOnce)
{
    Begin(2, {.timeout = "60"});
    Restart();
    EXPECT_EQ(RunningPort(), "1");
    EXPECT_EQ(m_world.Store().History(1).at(0).comment, "commit 2: cdbd ended before a confirmation");
    auto client = m_world.Connect();
    Do(client, netconf::Commit());
}

TEST_F(ConfirmedCommitsAfterARestart, WaitNoLongerThanTheyWereAskedToIfTheClockWasSetBack)
{
    Begin(2, {.timeout = "60", .persist = "token"});
    Restart(seconds(-1'000'000));
    EXPECT_THAT(Pending(), HasSubstr("<time-left>60</time-left>"));
    m_world.Advance(seconds(60));
    AwaitPort("1");
}

TEST_F(ConfirmedCommitsAfterARestart, DoNotHeedTheClockWithoutOne)
{
    Begin(2, {.timeout = "60"});
    *m_clock.us += 86'400 * kSecondUs;
    m_world.Advance(seconds(59));
    EXPECT_EQ(RunningPort(), "2");
    *m_clock.us -= 2 * 86'400 * kSecondUs;
    EXPECT_THAT(Pending(), HasSubstr("<time-left>1</time-left>"));
    m_world.Advance(seconds(1));
    AwaitPort("1");
}

TEST_F(ConfirmedCommitsAfterARestart, AreKeptWhereAnotherVersionHasCommittedAfterThem)
{
    Begin(2, {.timeout = "60"});
    auto record = m_world.Store().Pending();
    Do(m_owner, netconf::Commit());
    EXPECT_EQ(CommitPort(m_other, 3), 3U);
    EXPECT_EQ(m_world.Store().SetPending(record), std::nullopt);
    Restart(seconds(3600));
    EXPECT_EQ(RunningPort(), "3");
    EXPECT_EQ(m_world.Store().Pending(), std::nullopt);
    EXPECT_EQ(m_world.Store().LastCommit(), 3U);
}

// ---- what can't be rolled back ----

TEST_F(ConfirmedCommitsAfterARestart, ThatCantBeRolledBackSayWhyAndAnyCommitEndsThem)
{
    BreakUndo(m_world);
    Restart();
    EXPECT_THAT(Pending(), AllOf(HasSubstr("<problem>commit 2 was made by an older version"),
                                 HasSubstr("<time-left>0</time-left>")));
    EXPECT_EQ(RunningPort(), "1");
    // Tried again, to the same end.
    m_world.Advance(seconds(10));
    EXPECT_THAT(Pending(), HasSubstr("<problem>"));
    auto client = m_world.Connect();
    Refused(client, netconf::CancelCommit(), "operation-failed");
    Refused(client, netconf::CancelCommit("x"), "invalid-value");
    EXPECT_EQ(CommitPort(client, 5), 3U);
    EXPECT_EQ(Pending(), "");
    m_world.Advance(seconds(3600));
    Restart(seconds(3600));
    EXPECT_EQ(RunningPort(), "5");
}

TEST_F(ConfirmedCommitsAfterARestart, ThatCantBeRolledBackAreConfirmedByAnySession)
{
    BreakUndo(m_world);
    Restart();
    auto client = m_world.Connect();
    Do(client, netconf::ConfirmCommit());
    EXPECT_EQ(Pending(), "");
    EXPECT_EQ(m_world.Store().Pending(), std::nullopt);
}

TEST_F(ConfirmedCommitsAfterARestart, AreRolledBackWhenThatCanBeDone)
{
    const auto key =
        m_world.Store().StoredKey({Schema().Table().Find("/config/oam/sflow/collector"), {"c1"}});
    BreakUndo(m_world);
    Restart();
    EXPECT_THAT(Pending(), HasSubstr("<problem>"));
    m_world.Advance(seconds(9));
    BreakUndo(m_world, {{key, std::nullopt}});  // the collector was not there before commit 2
    EXPECT_EQ(RunningPort(), "1");
    m_world.Advance(seconds(1));
    AwaitPort("none");
    EXPECT_EQ(Pending(), "");
    EXPECT_EQ(m_world.Store().LastCommit(), 3U);
}

// ---- events (RFC 6470) ----

TEST_F(ConfirmedCommits, AreToldAsEvents)
{
    const std::string filter =
        "<filter type=\"subtree\"><netconf-confirmed-commit "
        "xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-notifications\"/></filter>";
    auto subscriber = m_world.Connect();
    Do(subscriber, Subscription(filter));
    const std::string session = "<session-id>" + std::to_string(m_owner.SessionId()) + "</session-id>";
    const auto expect = [&](const std::string& event, const std::string& more) {
        const std::string told = Next(subscriber);
        ExpectValid(told);
        EXPECT_THAT(told, AllOf(HasSubstr("<confirm-event>" + event + "</confirm-event>"), HasSubstr(more)));
        return told;
    };
    Begin(2, {.timeout = "60"});
    EXPECT_THAT(expect("start", "<timeout>60</timeout>"), HasSubstr(session));
    Begin(3, {.timeout = "70"});
    EXPECT_THAT(expect("extend", "<timeout>70</timeout>"), HasSubstr(session));
    m_world.Advance(seconds(70));
    EXPECT_THAT(expect("timeout", ""), Not(HasSubstr("<username>")));
    Begin(4, {.timeout = "60"});
    expect("start", session);
    Do(m_owner, netconf::CancelCommit());
    EXPECT_THAT(expect("cancel", session), Not(HasSubstr("<timeout>")));
    Begin(5, {.timeout = "60"});
    expect("start", session);
    Do(m_owner, netconf::Commit());
    expect("complete", session);
    Do(m_owner, netconf::CommitConfirmed({}));
    expect("start", "<timeout>600</timeout>");
    Do(m_owner, netconf::CloseSession());
    expect("cancel", session);
}

TEST_F(ConfirmedCommits, TheRollBackIsToldAsAChangeByTheServer)
{
    auto subscriber = m_world.Connect();
    Begin(2, {.timeout = "60"});
    Do(subscriber, Subscription(ChangesOnly()));
    m_world.Advance(seconds(60));
    const std::string told = Next(subscriber);
    ExpectValid(told);
    EXPECT_THAT(told, AllOf(HasSubstr("<server>"), HasSubstr("commit 2: not confirmed in 60 s")));
}

}  // namespace
}  // namespace agent_tests
