// SPDX-License-Identifier: Apache-2.0
// Delivers a commit's change set to the subscribers that it touches, one after the other in the order of
// their lowest touched priority, and waits for each acknowledgement.
//
// The recipients are fixed when the delivery begins: the subscribers that were told an older commit when they
// became ready. A process that was told the new one reads it all from the store.
//
// A subscriber that does not acknowledge in time is disconnected, so that it connects again and loads
// everything. One that missed Misses::kMostAwaited commits in a row is sent change sets, but not waited for
// until it has loaded.
//
// The committer is told of changes that no connected process subscribes to: of each container that the
// modules expect a subscriber for, and otherwise of the commit as a whole.

#ifndef AGENT_CLIENTS_DELIVERY_H
#define AGENT_CLIENTS_DELIVERY_H

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "agent/clients/acknowledgement.h"
#include "agent/clients/clients.h"
#include "base/timers.h"
#include "cdb/model/change_set.h"
#include "cdb/schema/schema.h"

namespace agent {

/// A commit's changes, serialized for the subscribers, which takes time for a large commit.
struct WrittenChanges {
    cdb::ChangeSet changes;
    std::string root;  // changes.root as an ipc::cdb::ChangeNode
};

/// Any thread may call it.
WrittenChanges WriteOut(cdb::ChangeSet changes);

class Delivery {
public:
    /// `times`: how long one subscriber may take. All references must outlive this.
    Delivery(base::Timers& timers, const cdb::Schema& schema, Clients& clients, AckTimes times);

    /// What became of a commit's changes.
    struct Result {
        /// A text for each change that no process subscribes to and one for each subscriber that has not
        /// acknowledged, is not waited for, or went with commits missed and is not back.
        std::vector<std::string> warnings;
        std::vector<Acknowledgement> acknowledged;  // in the order of the delivery
    };
    using Done = std::function<void(Result)>;

    /// Calls `done` once. If there is no subscriber, calls it from inside Deliver; also if all have gone. One
    /// delivery at a time.
    void Deliver(const WrittenChanges& written, Done done);

    using OnStuck = std::function<void(const Client& client, std::uint64_t commit)>;
    /// Called from the loop for a subscriber that does not acknowledge the commit in time.
    void TellStuck(OnStuck onStuck) { m_onStuck = std::move(onStuck); }

private:
    /// A container for which the modules expect a subscriber.
    struct Expected {
        cdb::NodeId container;
        std::string path;
        std::string process;
    };
    [[nodiscard]] std::vector<std::string> Unheard(const cdb::ChangeSet& changes) const;
    /// Counts the commit for the missing subscribers that it touches; a text for each.
    [[nodiscard]] std::vector<std::string> CountMissing(const cdb::ChangeSet& changes) const;

    base::Timers& m_timers;
    const cdb::SchemaTable& m_schema;
    std::vector<Expected> m_expected;
    Clients& m_clients;
    AckTimes m_times;
    OnStuck m_onStuck;
};

}  // namespace agent

#endif
