// Operational state for <get>: what cdbd knows itself, and what the providers answer when asked.

#ifndef AGENT_STATE_H
#define AGENT_STATE_H

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include <boost/asio/io_context.hpp>

#include "agent/clients.h"
#include "agent/subtree_filter.h"
#include "agent/yang_tree.h"
#include "cdb/datastore.h"
#include "cdb/schema.h"
#include "cdb/store.h"

namespace agent {

enum class Role : std::uint8_t { kUnknown, kActive, kStandby };

class StateSource {
public:
    /// `timeout`: how long a provider may take; then the state goes without its part.
    StateSource(boost::asio::io_context& loop, const cdb::Schema& schema, const cdb::Store& store,
                const cdb::Datastore& datastore, const Clients& clients, std::chrono::milliseconds timeout);

    /// Collects what the filter may select (none: everything). `done` is called once with the tree's
    /// first sibling, which may be null; from inside Collect where no provider needs to be asked.
    void Collect(const std::optional<SubtreeFilter>& filter, std::function<void(const Tree&)> done);

    /// The role that processes were last told to take.
    void SetRole(Role role) { m_role = role; }

private:
    [[nodiscard]] std::vector<ClientPtr> ProvidersFor(const std::optional<SubtreeFilter>& filter) const;
    [[nodiscard]] Tree MakeSystemState() const;

    boost::asio::io_context& m_loop;
    const cdb::Schema& m_schema;
    const cdb::Store& m_store;
    const cdb::Datastore& m_datastore;
    const Clients& m_clients;
    std::chrono::milliseconds m_timeout;
    Role m_role = Role::kUnknown;
};

}  // namespace agent

#endif
