// SPDX-License-Identifier: Apache-2.0
// Delivers a commit's change set to the subscribers that it touches, one after the other in the order of
// their lowest touched priority, and waits for each acknowledgement.
//
// The recipients are fixed when the delivery begins: the subscribers that were told an older commit when they
// became ready. A process that was told the new one reads it all from the store.

#ifndef AGENT_CLIENTS_DELIVERY_H
#define AGENT_CLIENTS_DELIVERY_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "agent/clients/clients.h"
#include "base/timers.h"
#include "cdb/model/change_set.h"

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
    /// `timeout`: how long one subscriber may take. All references must outlive this.
    Delivery(base::Timers& timers, const cdb::SchemaTable& schema, const Clients& clients,
             std::chrono::milliseconds timeout);

    /// Calls `done` once, with a text for each subscriber that has not acknowledged. If there is no
    /// subscriber, calls it from inside Deliver, with one text; also if all have gone. One delivery at a
    /// time.
    void Deliver(const WrittenChanges& written, std::function<void(const std::vector<std::string>&)> done);

private:
    base::Timers& m_timers;
    const cdb::SchemaTable& m_schema;
    const Clients& m_clients;
    std::chrono::milliseconds m_timeout;
};

}  // namespace agent

#endif
