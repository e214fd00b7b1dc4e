// SPDX-License-Identifier: Apache-2.0
// Sessions with private candidates over NETCONF: what each operation works on, locks, conflicts, the end of
// the session, callpoints, the state, and users with limited rights.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "agent/agent_world.h"
#include "agent/other_user.h"

namespace agent_tests {
namespace {

using netconf::ClosePrivateCandidate;
using netconf::Lock;
using netconf::OpenPrivateCandidate;
using netconf::Unlock;
using netconf::UpdateCandidate;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::Pair;
using testing::SizeIs;

constexpr const char* kPrivateNs = "urn:switch:yang:switch-private-candidate";

std::string EditOf(const std::string& content) { return netconf::EditConfig(Sflow(content)); }

std::string PortOf(const std::string& collector, int port)
{
    return EditOf(Collector(collector, "<ip>192.0.2.1</ip><port>" + std::to_string(port) + "</port>"));
}

std::string AgentAddress() { return Sflow("<agent><ipv4>192.0.2.99</ipv4></agent>"); }

std::string DeletionOf(const std::string& collector)
{
    return EditOf("<collector nc:operation=\"delete\"><name>" + collector + "</name></collector>");
}

class PrivateCandidate : public testing::Test {
protected:
    PrivateCandidate()
    {
        Do(m_other, EditOf(Collector("c1") + Collector("c2")));
        Do(m_other, netconf::Commit());
        Do(m_own, OpenPrivateCandidate());
    }

    std::string State()
    {
        return m_other
            .Call(netconf::Get("<state xmlns=\"urn:switch:yang:switch-state\"><system><candidates xmlns=\"" +
                               std::string(kPrivateNs) + "\"/></system></state>"))
            .data;
    }

    World m_world;
    netconf::Client m_own = m_world.Connect();
    netconf::Client m_other = m_world.Connect();
};

TEST_F(PrivateCandidate, IsAnnounced)
{
    bool isThere = false;
    for (const std::string& each : m_own.ServerHello().capabilities)
        isThere = isThere || each.starts_with(std::string(kPrivateNs) + "?module=switch-private-candidate");
    EXPECT_TRUE(isThere);
}

TEST_F(PrivateCandidate, IsWhatTheSessionsOperationsWorkOn)
{
    Do(m_own, EditOf(Collector("c3")));
    EXPECT_THAT(Config(m_own, "candidate"), HasSubstr("c3"));
    EXPECT_EQ(Config(m_other, "candidate"), Config(m_other, "running"));
    EXPECT_THAT(Config(m_own, "running"), Not(HasSubstr("c3")));
    EXPECT_THAT(m_own.Call(netconf::GetTouched("candidate")).data,
                AllOf(HasSubstr("c3"), Not(HasSubstr("c1"))));
    Do(m_own, netconf::Validate());
    EXPECT_THAT(m_own.Call(netconf::CompareWith({"0", false})).output["after"], HasSubstr("c3"));
    EXPECT_THAT(m_other.Call(netconf::CompareWith({"0", false})).output["after"], Not(HasSubstr("c3")));
    Do(m_own, netconf::DiscardChanges());
    EXPECT_EQ(Config(m_own, "candidate"), Config(m_own, "running"));
    Do(m_own, "<copy-config><target><candidate/></target><source><config>" + Sflow(Collector("c4")) +
                  "</config></source></copy-config>");
    EXPECT_THAT(Config(m_own, "candidate"), AllOf(HasSubstr("c4"), Not(HasSubstr("c1"))));
    EXPECT_THAT(Config(m_other, "candidate"), Not(HasSubstr("c4")));
    Do(m_own, "<copy-config><target><candidate/></target><source><running/></source></copy-config>");
    EXPECT_EQ(Config(m_own, "candidate"), Config(m_own, "running"));
    Do(m_own, netconf::RollBack({"1", false}));
    EXPECT_EQ(Config(m_own, "candidate"), "");
    EXPECT_THAT(Config(m_other, "candidate"), HasSubstr("c1"));
    const auto reply = m_own.Call(netconf::Commit("away with it"));
    EXPECT_EQ(reply.commit, 2U);
    EXPECT_EQ(Config(m_other, "running"), "");
    // The shared candidate had no edits: it is running again.
    EXPECT_EQ(Config(m_other, "candidate"), "");
}

TEST_F(PrivateCandidate, IsOpenedAndClosedOnce)
{
    EXPECT_THAT(Refused(m_own, OpenPrivateCandidate(), "operation-failed").message, HasSubstr("close it"));
    Do(m_own, EditOf(Collector("c3")));
    const auto reply = m_own.Call(ClosePrivateCandidate());
    EXPECT_TRUE(reply.ok);
    ASSERT_THAT(reply.errors, SizeIs(1));
    EXPECT_TRUE(reply.errors[0].IsWarning());
    EXPECT_THAT(reply.errors[0].message, HasSubstr("1 edit"));
    EXPECT_EQ(Config(m_own, "candidate"), Config(m_own, "running"));
    Refused(m_own, ClosePrivateCandidate(), "operation-failed");
    // Without edits there is nothing to be warned of.
    Do(m_own, OpenPrivateCandidate());
    Do(m_own, ClosePrivateCandidate());
    // From here on the session works on the shared one.
    Do(m_own, EditOf(Collector("c5")));
    EXPECT_THAT(Config(m_other, "candidate"), AllOf(HasSubstr("c5"), Not(HasSubstr("c3"))));
}

TEST_F(PrivateCandidate, EndsWithItsSession)
{
    Do(m_own, EditOf(Collector("c3")));
    EXPECT_THAT(State(), HasSubstr("<private>"));
    Do(m_other, netconf::KillSession(m_own.SessionId()));
    support::Await("the end", [&] { return State().find("<private>") == std::string::npos; });
    EXPECT_THAT(Config(m_other, "candidate"), Not(HasSubstr("c3")));
    netconf::Client next = m_world.Connect();
    EXPECT_THAT(Config(next, "candidate"), Not(HasSubstr("c3")));
}

TEST_F(PrivateCandidate, IsNotConcernedByALockOfTheSharedOne)
{
    Do(m_other, Lock("candidate"));
    Do(m_other, EditOf(Collector("c8")));
    Do(m_own, EditOf(Collector("c3")));
    Do(m_own, netconf::Commit());
    EXPECT_THAT(Config(m_other, "running"), AllOf(HasSubstr("c3"), Not(HasSubstr("c8"))));
    // Opening does not need the shared one either.
    Do(m_own, ClosePrivateCandidate());
    Refused(m_own, EditOf(Collector("c4")), "in-use");
    Do(m_own, OpenPrivateCandidate());
    Do(m_own, EditOf(Collector("c4")));
    // The holder's edits stand, and are committed beside.
    Do(m_other, netconf::Commit());
    EXPECT_THAT(Config(m_other, "running"), AllOf(HasSubstr("c3"), HasSubstr("c8"), Not(HasSubstr("c4"))));
}

TEST_F(PrivateCandidate, IsNotCommittedWhileAnotherSessionLocksRunning)
{
    Do(m_own, EditOf(Collector("c3")));
    Do(m_other, Lock("running"));
    Refused(m_own, netconf::Commit(), "in-use");
    Do(m_own, EditOf(Collector("c4")));
    Do(m_other, Unlock("running"));
    Do(m_own, netconf::Commit());
    EXPECT_THAT(Config(m_other, "running"), AllOf(HasSubstr("c3"), HasSubstr("c4")));
}

TEST_F(PrivateCandidate, IsLockedByItsSessionWithoutEffectOnOthers)
{
    Do(m_own, Lock("candidate"));
    EXPECT_THAT(Refused(m_own, Lock("candidate"), "lock-denied").info,
                ElementsAre(Pair("session-id", std::to_string(m_own.SessionId()))));
    Do(m_other, Lock("candidate"));
    Do(m_other, Unlock("candidate"));
    Do(m_own, EditOf(Collector("c3")));
    Do(m_own, Unlock("candidate"));
    EXPECT_EQ(Config(m_own, "candidate"), Config(m_own, "running"));  // the edit went with the lock
    Refused(m_own, Unlock("candidate"), "operation-failed");
    Do(m_own, EditOf(Collector("c3")));
    Refused(m_own, Lock("candidate"), "lock-denied");
}

TEST_F(PrivateCandidate, IsNotOpenedByTheHolderOfTheSharedOnesLock)
{
    Do(m_other, Lock("candidate"));
    EXPECT_THAT(Refused(m_other, OpenPrivateCandidate(), "operation-failed").message, HasSubstr("unlock"));
    Do(m_other, Unlock("candidate"));
    Do(m_other, OpenPrivateCandidate());
}

TEST_F(PrivateCandidate, ConflictsAreNamedAndDecided)
{
    Do(m_own, PortOf("c1", 7));
    Do(m_own, DeletionOf("c2"));
    Do(m_own, EditOf(Collector("c3")));
    Do(m_other, PortOf("c1", 8));
    Do(m_other, PortOf("c2", 8));
    Do(m_other, netconf::Commit());
    const std::string candidate = Config(m_own, "candidate");
    const auto reply = m_own.Call(netconf::Commit());
    EXPECT_FALSE(reply.ok);
    ASSERT_THAT(reply.errors, SizeIs(2));
    EXPECT_EQ(reply.errors[0].appTag, "conflict");
    EXPECT_THAT(reply.errors[0].path, AllOf(HasSubstr("='c1']"), HasSubstr("port")));
    EXPECT_THAT(reply.errors[0].message, HasSubstr("in commit 2"));
    EXPECT_THAT(reply.errors[1].path, HasSubstr("='c2']"));
    EXPECT_EQ(Config(m_own, "candidate"), candidate);
    EXPECT_EQ(m_own.Call(netconf::Validate()).errors.size(), 2U);
    EXPECT_EQ(m_own.Call(UpdateCandidate()).errors.size(), 2U);
    // One more edit and one more commit.
    Do(m_own, EditOf(Collector("c4")));
    EXPECT_EQ(m_own.Call(netconf::Commit()).errors.size(), 2U);
    const auto updated = m_own.Call(UpdateCandidate(true));
    EXPECT_TRUE(updated.ok);
    ASSERT_THAT(updated.errors, SizeIs(2));
    EXPECT_TRUE(updated.errors[0].IsWarning());
    Do(m_own, netconf::Commit());
    const std::string running = Config(m_own, "running");
    EXPECT_THAT(running,
                AllOf(HasSubstr("<port>8</port>"), HasSubstr("c2"), HasSubstr("c3"), HasSubstr("c4")));
    m_world.Restart();
    m_own = m_world.Connect();
    EXPECT_EQ(Config(m_own, "running"), running);
    EXPECT_EQ(Config(m_own, "candidate"), running);
}

TEST_F(PrivateCandidate, ACommitOfItMakesConflictsForTheSharedOneToo)
{
    Do(m_other, PortOf("c1", 8));
    Do(m_own, PortOf("c1", 7));
    Do(m_own, netconf::Commit());
    EXPECT_THAT(Config(m_other, "candidate"), HasSubstr("<port>8</port>"));
    EXPECT_EQ(Refused(m_other, netconf::Commit(), "operation-failed").appTag, "conflict");
    EXPECT_TRUE(m_other.Call(UpdateCandidate(true)).ok);
    EXPECT_EQ(Config(m_other, "candidate"), Config(m_other, "running"));
    EXPECT_THAT(Config(m_other, "running"), HasSubstr("<port>7</port>"));
}

TEST_F(PrivateCandidate, AnUpdateOfTheSharedOneRespectsItsLock)
{
    netconf::Client third = m_world.Connect();
    Do(m_other, Lock("candidate"));
    Refused(third, UpdateCandidate(), "in-use");
    Do(m_own, UpdateCandidate());
}

TEST_F(PrivateCandidate, AnEditThatWaitsForACallpointDelaysNoOther)
{
    Process daemon(m_world, "sflow-app");
    daemon.RegisterCallpoint();
    daemon.Ready();
    netconf::Client third = m_world.Connect();
    Do(third, OpenPrivateCandidate());
    m_own.Send(EditOf(Interface("eth1")));
    const auto ofOwn = daemon.ReceiveRequest();
    third.Send(EditOf(Interface("eth1")));
    const auto ofThird = daemon.ReceiveRequest();
    Do(m_other, EditOf(Collector("c3")));
    Do(m_other, netconf::Commit());
    daemon.Answer(ofThird, 2048);
    EXPECT_TRUE(third.Receive().ok);
    daemon.Answer(ofOwn, 1024);
    EXPECT_TRUE(m_own.Receive().ok);
    EXPECT_THAT(Config(m_own, "candidate"), AllOf(HasSubstr("1024"), Not(HasSubstr("c3"))));
    EXPECT_THAT(Config(third, "candidate"), HasSubstr("2048"));
    // A session that ends while it waits takes only its own question back.
    m_own.Send(EditOf(Interface("eth2")));
    const auto unanswered = daemon.ReceiveRequest();
    third.Send(EditOf(Interface("eth3")));
    const auto answered = daemon.ReceiveRequest();
    Do(m_other, netconf::KillSession(m_own.SessionId()));
    daemon.Answer(unanswered, 512);
    daemon.Answer(answered, 512);
    EXPECT_TRUE(third.Receive().ok);
    EXPECT_THAT(Config(third, "candidate"), AllOf(HasSubstr("eth3"), Not(HasSubstr("eth2"))));
}

TEST_F(PrivateCandidate, IsShownWithItsEditsInTheState)
{
    const std::string own = "<session-id>" + std::to_string(m_own.SessionId()) + "</session-id>";
    const std::string other = "<session-id>" + std::to_string(m_other.SessionId()) + "</session-id>";
    EXPECT_THAT(State(), AllOf(HasSubstr("<private>" + own), HasSubstr("<base-commit>1</base-commit>"),
                               HasSubstr("<edits>0</edits>"), Not(HasSubstr("<editor>"))));
    Do(m_own, PortOf("c1", 7));
    Do(m_own, PortOf("c1", 8));
    Do(m_other, PortOf("c2", 8));
    EXPECT_THAT(State(), AllOf(HasSubstr("<edits>2</edits>"), HasSubstr("<editor>" + other)));
    Do(m_other, netconf::Commit());
    EXPECT_THAT(State(), AllOf(HasSubstr("<base-commit>1</base-commit>"), Not(HasSubstr("<editor>"))));
    Do(m_own, UpdateCandidate());
    EXPECT_THAT(State(), AllOf(HasSubstr("<base-commit>2</base-commit>"), HasSubstr("<edits>2</edits>")));
    Do(m_own, netconf::Commit());
    EXPECT_THAT(State(), AllOf(HasSubstr("<base-commit>3</base-commit>"), HasSubstr("<edits>0</edits>")));
    // An edit that only tests, or that fails, is none.
    Do(m_other, netconf::EditConfig(Sflow(Collector("c7")), {"", "test-only", ""}));
    Refused(m_other, DeletionOf("c7"), "data-missing");
    EXPECT_THAT(State(), Not(HasSubstr("<editor>")));
}

TEST_F(PrivateCandidate, LeavesTheCommitsOfOthersToTheirReaders)
{
    // get-config of running, also with touched-only, tells running as the candidate knows it.
    Do(m_own, PortOf("c1", 7));
    Do(m_other, PortOf("c2", 8));
    Do(m_other, netconf::Commit());
    EXPECT_THAT(Config(m_own, "running"), HasSubstr("<port>8</port>"));
    EXPECT_THAT(m_own.Call(netconf::GetTouched("running")).data, Not(HasSubstr("<port>")));
    EXPECT_THAT(m_own.Call(netconf::GetTouched("candidate")).data,
                AllOf(HasSubstr("<port>7</port>"), Not(HasSubstr("<port>8</port>"))));
}

class LimitedPrivateCandidate : public BoundByRules {
protected:
    /// All may execute everything, read everything, and change collectors, but no interfaces.
    LimitedPrivateCandidate()
        : BoundByRules(
              "<rule><name>c</name><path>/c:config/s:oam/s:sflow/s:collector</path><access-operations>*</"
              "access-operations><action>permit</action></rule>")
    {
    }
};

TEST_F(LimitedPrivateCandidate, IsBoundByTheSameRules)
{
    Do(*m_bound, OpenPrivateCandidate());
    Do(*m_bound, EditOf(Collector("c1")));
    Refused(*m_bound, netconf::EditConfig(AgentAddress()), "access-denied");
    Do(*m_bound, netconf::Commit());
    // What a roll-back would change has to be permitted, whoever has made it.
    Do(m_root, netconf::EditConfig(AgentAddress()));
    Do(m_root, netconf::Commit());
    Refused(*m_bound, netconf::RollBack({"1", false}), "access-denied");
    EXPECT_THAT(Config(*m_bound, "candidate"), Not(HasSubstr("192.0.2.99")));
    // What others have committed is no change of this user's.
    Do(*m_bound, EditOf(Collector("c2")));
    Do(*m_bound, netconf::Commit());
    EXPECT_THAT(Config(m_root, "running"), AllOf(HasSubstr("192.0.2.99"), HasSubstr("c2")));
    // The user can take such changes in and discard the own ones.
    Do(*m_bound, UpdateCandidate(true));
    Do(*m_bound, ClosePrivateCandidate());
}

}  // namespace
}  // namespace agent_tests
