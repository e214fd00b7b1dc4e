// SPDX-License-Identifier: Apache-2.0
// The walk: edits and commits in peace.

#include "soak/walk.h"

namespace soak {

namespace {

constexpr char kCallpoint[] = "sflow-set-sampling-rate";

}  // namespace

void Walk::Edit(bool sensible)
{
    const auto holder = m_locks.find("candidate");
    const auto client = m_dice.Draw(kClients);
    const auto edit = sensible ? DrawEdit(m_dice, m_candidate) : DrawNonsense(m_dice);
    if (m_changesEnabled && edit.changesEnabled) return;
    if (holder != m_locks.end() && holder->second != client) {
        Expect(false, Call(client, netconf::EditConfig(edit.config), "edit of what another has locked"),
               "an edit of what another session has locked");
        return;
    }
    Carry(client, edit);
}

void Walk::Carry(std::size_t client, const soak::Edit& edit)
{
    auto reply = Call(client, netconf::EditConfig(edit.config), edit.what);
    // A new interface's rate is asked of the daemon, which may be on its way back.
    if (edit.after && !reply.ok && reply.xml.find(kCallpoint) != std::string::npos)
        (void)support::Becomes([&] {
            reply = Client(client).Call(netconf::EditConfig(edit.config));
            return reply.ok || reply.xml.find(kCallpoint) == std::string::npos;
        });
    Expect(edit.after.has_value(), reply, edit.what);
    if (!edit.after) return;
    m_candidate = *edit.after;
    m_touched = true;
    m_changesEnabled |= edit.changesEnabled;
}

void Walk::Committed()
{
    ++m_tally.commits;
    m_running = m_candidate;
    m_touched = m_changesEnabled = false;
}

void Walk::Commit()
{
    const auto client = m_dice.Draw(kClients);
    bool allowed = true;
    for (const auto& [datastore, holder] : m_locks) allowed &= holder == client;
    Expect(allowed, Call(client, netconf::Commit(), "commit"), "the commit");
    if (!allowed) return;
    Committed();
    Settle();
}

void Walk::Discard()
{
    const auto client = m_dice.Draw(kClients);
    const auto holder = m_locks.find("candidate");
    const bool allowed = holder == m_locks.end() || holder->second == client;
    Expect(allowed, Call(client, netconf::DiscardChanges(), "discard"), "the discard");
    if (!allowed) return;
    Reset();
}

void Walk::Validate()
{
    Expect(true, Call(m_dice.Draw(kClients), netconf::Validate(), "validate"), "the validation");
}

// Set without a test, refused by the commit, and taken back.
void Walk::CommitWhatIsInvalid()
{
    const auto client = Editor();
    const auto edit = netconf::EditConfig(
        R"(<config xmlns="urn:switch:yang:switch-config"><oam xmlns="urn:switch:yang:switch-oam-sflow"><sflow>)"
        "<collector><name>without-address</name></collector></sflow></oam></config>",
        {.defaultOperation = {}, .testOption = "set", .errorOption = {}});
    Expect(true, Call(client, edit, "a collector without address, untested"), "an edit that is not tested");
    Expect(false, Call(client, netconf::Validate(), "validate"), "the validation of what is invalid");
    Expect(false, Call(client, netconf::Commit(), "commit"), "the commit of what is invalid");
    Expect(true, Call(client, netconf::DiscardChanges(), "discard"), "the discard");
    Reset();
}

// So that there is something to commit.
void Walk::PrepareCommit(std::size_t client)
{
    if (m_candidate == m_running || m_dice.OneIn(3)) Carry(client, ChangeAgent(m_dice, m_candidate));
}

void Walk::AgentCommit()
{
    const auto client = Editor();
    Carry(client, ChangeAgent(m_dice, m_candidate));
    Expect(true, Call(client, netconf::Commit(), "commit"), "the commit");
    Committed();
}

}  // namespace soak
