// SPDX-License-Identifier: Apache-2.0
// Locks: what each session may do while a datastore is locked, and what happens to the candidate.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>

#include <unistd.h>

#include "agent/agent_world.h"
#include "base/user.h"

namespace agent_tests {
namespace {

using netconf::Lock;
using netconf::Unlock;
using testing::ElementsAre;
using testing::Pair;

class Locks : public testing::Test {
protected:
    World m_world;
    netconf::Client m_holder = m_world.Connect();
    netconf::Client m_other = m_world.Connect();
    const std::string m_edit = netconf::EditConfig(Sflow(Collector("c1")));

    /// Repeats the request until the other session's end has taken effect.
    void AwaitLock(const std::string& target)
    {
        support::Await("the lock", [&] { return m_other.Call(Lock(target)).ok; });
    }
};

TEST_F(Locks, AreDeniedWithTheHoldersSession)
{
    for (const char* target : {"candidate", "running"}) {
        Do(m_holder, Lock(target));
        const auto error = Refused(m_other, Lock(target), "lock-denied");
        EXPECT_EQ(error.type, "protocol");
        EXPECT_EQ(error.message, std::string(target) + " is locked by " + base::UserName(::getuid()) +
                                     " (session " + std::to_string(m_holder.SessionId()) +
                                     ", on the switch) for 0 s");
        EXPECT_THAT(error.info, ElementsAre(Pair("session-id", std::to_string(m_holder.SessionId()))));
        Refused(m_holder, Lock(target), "lock-denied");
        Do(m_holder, Unlock(target));
        Do(m_other, Lock(target));
        Do(m_other, Unlock(target));
    }
}

TEST_F(Locks, OnCandidateKeepOthersFromChangingIt)
{
    Do(m_holder, Lock("candidate"));
    Refused(m_other, m_edit, "in-use");
    Refused(m_other, netconf::DiscardChanges(), "in-use");
    Refused(m_other, netconf::Commit(), "in-use");
    Do(m_other, netconf::Validate());
    EXPECT_EQ(Config(m_other, "candidate"), "");
    Do(m_holder, m_edit);
    Do(m_holder, netconf::Commit());
}

TEST_F(Locks, OnRunningKeepOthersFromCommitting)
{
    Do(m_holder, Lock("running"));
    Do(m_other, m_edit);
    Refused(m_other, netconf::Commit(), "in-use");
    EXPECT_EQ(Config(m_other, "running"), "");
    Do(m_holder, netconf::Commit());
    EXPECT_NE(Config(m_other, "running"), "");
}

TEST_F(Locks, OnCandidateAreDeniedWhileItHasChanges)
{
    Do(m_other, m_edit);
    const auto error = Refused(m_holder, Lock("candidate"), "lock-denied");
    EXPECT_THAT(error.info, ElementsAre(Pair("session-id", "0")));
    Do(m_holder, Lock("running"));
    Do(m_holder, netconf::DiscardChanges());
    Do(m_holder, Lock("candidate"));
}

TEST_F(Locks, TakeUncommittedChangesWithThem)
{
    Do(m_holder, Lock("candidate"));
    Do(m_holder, m_edit);
    EXPECT_NE(Config(m_other, "candidate"), "");
    Do(m_holder, Unlock("candidate"));
    EXPECT_EQ(Config(m_other, "candidate"), "");
}

TEST_F(Locks, OnRunningLeaveTheCandidateAlone)
{
    Do(m_holder, Lock("running"));
    Do(m_holder, m_edit);
    Do(m_holder, Unlock("running"));
    EXPECT_NE(Config(m_other, "candidate"), "");
}

TEST_F(Locks, AreReleasedByTheirHolderOnly)
{
    Refused(m_holder, Unlock("candidate"), "operation-failed");
    Do(m_holder, Lock("candidate"));
    Refused(m_other, Unlock("candidate"), "operation-failed");
    Do(m_holder, Unlock("candidate"));
    Refused(m_holder, Unlock("candidate"), "operation-failed");
}

TEST_F(Locks, EndWithTheSessionThatCloses)
{
    Do(m_holder, Lock("candidate"));
    Do(m_holder, Lock("running"));
    Do(m_holder, m_edit);
    Do(m_holder, netconf::CloseSession());
    AwaitLock("candidate");
    AwaitLock("running");
    EXPECT_EQ(Config(m_other, "candidate"), "");
}

TEST_F(Locks, EndWithTheConnection)
{
    {
        netconf::Client brief = m_world.Connect();
        Do(brief, Lock("candidate"));
        Do(brief, m_edit);
    }
    AwaitLock("candidate");
    EXPECT_EQ(Config(m_other, "candidate"), "");
}

TEST_F(Locks, EndWithTheSessionThatIsKilled)
{
    Do(m_holder, Lock("candidate"));
    Do(m_holder, m_edit);
    Do(m_other, netconf::KillSession(m_holder.SessionId()));
    AwaitLock("candidate");
    EXPECT_EQ(Config(m_other, "candidate"), "");
}

TEST_F(Locks, OfOthersStayWhenASessionEnds)
{
    Do(m_holder, Lock("candidate"));
    Do(m_holder, m_edit);
    Do(m_other, netconf::CloseSession());
    netconf::Client third = m_world.Connect();
    Refused(third, Lock("candidate"), "lock-denied");
    EXPECT_NE(Config(m_holder, "candidate"), "");
}

}  // namespace
}  // namespace agent_tests
