// SPDX-License-Identifier: Apache-2.0
// Takes a commit's change set to the subscribers that it touches, one after the other in the order of
// their lowest touched priority, each until it has acknowledged.
//
// Who is to get it is settled when the delivery begins: those that were told an older commit's number when
// they became ready. A process that was told the new one reads it all from the store.

#ifndef AGENT_CLIENTS_DELIVERY_H
#define AGENT_CLIENTS_DELIVERY_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/clients/clients.h"
#include "cdb/model/change_set.h"

namespace agent {

/// A commit's changes, written out for the subscribers: for a large one that takes time.
struct WrittenChanges {
    cdb::ChangeSet changes;
    std::string root;  // changes.root as an ipc::cdb::ChangeNode
};

/// May be called in any thread.
WrittenChanges WriteOut(cdb::ChangeSet changes);

class Delivery {
public:
    /// `timeout`: how long one subscriber may take.
    Delivery(boost::asio::io_context& loop, const cdb::SchemaTable& schema, const Clients& clients,
             std::chrono::milliseconds timeout);

    /// `done` is called once, with a text for each subscriber that has not acknowledged, and one where there
    /// is none; from inside Deliver then. One delivery at a time.
    void Deliver(const WrittenChanges& written, std::function<void(const std::vector<std::string>&)> done);

private:
    boost::asio::io_context& m_loop;
    const cdb::SchemaTable& m_schema;
    const Clients& m_clients;
    std::chrono::milliseconds m_timeout;
};

}  // namespace agent

#endif
