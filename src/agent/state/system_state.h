// SPDX-License-Identifier: Apache-2.0
// The state that cdbd provides itself: the connected processes, the faults, the history, and the denials.
// Used by state.cpp.

#ifndef AGENT_STATE_SYSTEM_STATE_H
#define AGENT_STATE_SYSTEM_STATE_H

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "agent/access/access.h"
#include "agent/clients/clients.h"
#include "agent/data/value_check.h"
#include "agent/state/state_tree.h"
#include "cdb/store/store.h"

struct ly_ctx;
struct lysc_node;

namespace agent {

/// A confirmed commit that waits for its confirmation (RFC 6241, section 8.4).
struct PendingConfirmation {
    std::uint64_t returnTo = 0;  // the commit whose configuration comes back without one
    std::uint64_t last = 0;      // the last commit that goes then; as returnTo: none
    std::string user;            // who has begun it
    std::uint32_t session = 0;   // whose it is; 0: of none that is open
    bool isPersistent = false;
    std::int64_t deadlineUs = 0;  // since the epoch, by the clock of the commit
    std::uint64_t secondsLeft = 0;
    std::string problem;  // why it could not be rolled back; empty: that was not tried, or not yet
};

/// Fills in /state/system.
class SystemState {
public:
    /// `tree` must outlive this.
    SystemState(const ly_ctx* context, const lysc_node* system, StateTree& tree);

    /// That of cdbd.
    void AddVersion();
    void AddRole(const cdb::NodeRole& role);
    void AddProcesses(const Clients& clients);
    void AddFaults(const cdb::Store& store);
    /// The commits, the checkpoints, and the confirmed commit that waits, if one does.
    void AddHistory(const cdb::Store& store, const std::optional<PendingConfirmation>& pending);
    void AddDenials(const Access::Denials& denials);

private:
    void AddProcess(const Client& client);
    void AddMissing(const MissingSubscriber& missing);
    void AddHealth(StateTree::Node& entry, const Misses& misses, std::int64_t acknowledgedUs);
    void AddFault(const cdb::Fault& fault);
    void AddPending(StateTree::Node& history, const lysc_node* schema, const PendingConfirmation& pending);
    void AddCommit(StateTree::Node& history, const cdb::HistoryEntry& entry,
                   const std::vector<cdb::Checkpoint>& checkpoints);
    /// Appends an entry with these keys; null if the last one has the same or greater keys, or there is no
    /// such list.
    StateTree::Node* Entry(const char* list, std::initializer_list<std::string> keys);
    /// Adds a leaf. Leaves out a value that the schema does not take.
    void Leaf(StateTree::Node& node, const char* parent, const char* name, std::string_view value);
    void Leaf(StateTree::Node& node, const lysc_node* leaf, std::string_view value);

    const lysc_node* m_system;
    StateTree& m_tree;
    ValueChecker m_checker;
};

/// "2026-11-21T03:20:11.123456Z". `timeUs`: microseconds since the epoch.
std::string DateAndTime(std::int64_t timeUs);

}  // namespace agent

#endif
