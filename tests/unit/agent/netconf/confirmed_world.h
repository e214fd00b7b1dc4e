// SPDX-License-Identifier: Apache-2.0
// What the tests of confirmed commits share: a collector whose port tells which configuration is running, and
// two sessions.

#ifndef AGENT_NETCONF_CONFIRMED_WORLD_H
#define AGENT_NETCONF_CONFIRMED_WORLD_H

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>
#include <vector>

#include "agent/agent_world.h"
#include "agent/events/notifications.h"

namespace agent_tests {

inline std::string Port(int port)
{
    return netconf::EditConfig(
        Sflow(Collector("c1", "<ip>192.0.2.1</ip><port>" + std::to_string(port) + "</port>")));
}

/// Edits and commits; returns the commit's number.
inline std::uint64_t CommitPort(netconf::Client& client, int port)
{
    Do(client, Port(port));
    const auto reply = client.Call(netconf::Commit());
    EXPECT_TRUE(reply.ok) << reply.xml;
    return reply.commit.value_or(0);
}

inline std::string CommitWith(const std::string& parameters) { return "<commit>" + parameters + "</commit>"; }

/// Writes a commit 2 that waits, and that can't be undone by these rows if there are none.
inline void BreakUndo(World& world, std::vector<cdb::UndoRow> undo = {})
{
    cdb::HistoryEntry entry;
    entry.commit = 2;
    entry.undoRows = std::move(undo);
    auto transaction = world.Store().Begin();
    transaction.Append(entry);
    transaction.SetPending(cdb::PendingCommit{.returnTo = 1, .last = 2, .user = "another"});
    const auto error = transaction.Commit();
    EXPECT_EQ(error, std::nullopt);
}

class ConfirmedCommits : public testing::Test {
protected:
    ConfirmedCommits() { EXPECT_EQ(CommitPort(m_owner, 1), 1U); }

    /// Edits and commits confirmed, in the owner's session.
    void Begin(int port, const netconf::Confirmed& options = {})
    {
        Do(m_owner, Port(port));
        Do(m_owner, netconf::CommitConfirmed(options));
    }

    /// Asked in a session of its own, since the others may have ended.
    std::string RunningPort()
    {
        auto client = m_world.Connect();
        const std::string config = Config(client, "running");
        const auto begin = config.find("<port>");
        if (begin == std::string::npos) return "none";
        const auto end = config.find("</port>");
        return config.substr(begin + 6, end - begin - 6);
    }

    void AwaitPort(const std::string& port)
    {
        support::Await("port " + port, [&] { return RunningPort() == port; });
    }

    /// The state of what waits; empty if nothing does.
    std::string Pending()
    {
        auto client = m_world.Connect();
        return client
            .Call(netconf::Get("<state xmlns=\"urn:switch:yang:switch-state\"><system><history "
                               "xmlns=\"urn:switch:yang:switch-history\"><pending-confirmation/></history>"
                               "</system></state>"))
            .data;
    }

    const Clock m_clock;
    World m_world{m_clock.Options()};
    netconf::Client m_owner = m_world.Connect();
    netconf::Client m_other = m_world.Connect();
};

}  // namespace agent_tests

#endif
