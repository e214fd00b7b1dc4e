// Takes a commit's change set to the subscribers that it touches, one after the other in the order of
// their lowest touched priority, each until it has acknowledged.
//
// Who is to get it is settled when the delivery begins, in the same turn of the loop as the commit: a
// process that becomes ready later is told the new commit's number and reads it all from the store.

#ifndef AGENT_DELIVERY_H
#define AGENT_DELIVERY_H

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/clients.h"
#include "cdb/change_set.h"

namespace agent {

class Delivery {
public:
    /// `timeout`: how long one subscriber may take.
    Delivery(boost::asio::io_context& loop, const cdb::SchemaTable& schema, const Clients& clients,
             std::chrono::milliseconds timeout);

    /// `done` is called once, with a text for each subscriber that has not acknowledged; from inside
    /// Deliver where there is no subscriber. One delivery at a time.
    void Deliver(const cdb::ChangeSet& changes, std::function<void(const std::vector<std::string>&)> done);

private:
    boost::asio::io_context& m_loop;
    const cdb::SchemaTable& m_schema;
    const Clients& m_clients;
    std::chrono::milliseconds m_timeout;
};

}  // namespace agent

#endif
