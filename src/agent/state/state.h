// SPDX-License-Identifier: Apache-2.0
// Operational state for <get>: what cdbd knows itself, and what the providers answer when asked. A warning
// names what is missing.

#ifndef AGENT_STATE_STATE_H
#define AGENT_STATE_STATE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <boost/asio/io_context.hpp>

#include "agent/access/access.h"
#include "agent/clients/clients.h"
#include "agent/clients/provider_node.h"
#include "agent/data/data_source.h"
#include "agent/state/netconf_state.h"
#include "agent/state/provided_state.h"
#include "agent/state/state_selection.h"
#include "agent/state/system_state.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"
#include "netconf/rpc_error.h"

namespace agent {

struct CollectedState {
    std::shared_ptr<DataSource> data;  // never null; may hold more than the filter selects
    std::size_t bytes = 0;             // an estimate of its text
    std::vector<netconf::RpcError> warnings;
};

class StateSource {
public:
    /// `timeout`: how long a provider may take for the next part of its answer; then its state is left out.
    /// All references must outlive this.
    StateSource(boost::asio::io_context& loop, base::Timers& timers, const cdb::Schema& schema,
                const cdb::Store& store, const Clients& clients, const Access& access,
                std::chrono::milliseconds timeout);

    using Done = std::function<void(CollectedState state)>;

    /// The containers that have a provider or should have one: those that Collect looks at.
    [[nodiscard]] std::vector<const lysc_node*> Containers() const;

    /// Collects what is selected. Calls `done` once, from inside Collect if it asks no provider.
    void Collect(StateSelections& selections, const Done& done);

    /// Where /netconf-state comes from. Null, as at first: there is none.
    void SetNetconf(std::function<NetconfFacts()> facts) { m_netconfFacts = std::move(facts); }
    /// Where the confirmed commit that waits comes from. Null, as at first: there is none.
    void SetUnconfirmed(std::function<std::optional<PendingConfirmation>()> facts)
    {
        m_unconfirmed = std::move(facts);
    }
    /// State of cdbd itself beside /state/system: `add` adds what is in the container at the path, such as
    /// "/netconf/streams". Does nothing if the modules have no such container.
    using AddOwn = std::function<void(const lysc_node* container, StateTree& tree)>;
    void Provide(const std::string& path, AddOwn add);

    /// The node's role in a redundant pair.
    void SetRole(cdb::NodeRole role) { m_role = std::move(role); }

private:
    /// A client that has not answered a question in time, and nothing since.
    struct Silence {
        std::weak_ptr<Client> client;
        std::chrono::steady_clock::time_point since;  // when an answer was awaited first
        std::chrono::steady_clock::time_point asked;  // when it was asked last
    };

    [[nodiscard]] std::vector<StateQuestion> Questions(StateSelections& selections,
                                                       CollectedState& collected);
    void AddMissing(StateSelections& selections, CollectedState& collected);
    void AddSystem(StateSelections& selections, StateTree& tree) const;
    void AddServer(StateSelections& selections, StateTree& tree) const;
    void Add(StateOutcome& outcome, StateTree& tree, CollectedState& collected);
    /// Whether the client is to be asked: it is not silent, or it is time to try it again.
    [[nodiscard]] bool MayAsk(const ClientPtr& client);
    [[nodiscard]] Silence* SilenceOf(const Client& client);
    /// Remembers that the client is silent.
    void Remember(const StateOutcome& late);
    /// The client has answered, or its connection has ended.
    void ForgetSilence(const Client* client);
    /// Adds the warning that the client does not answer, and since when.
    void WarnOfSilence(const std::string& path, const Client& client, CollectedState& collected);

    /// Adds a warning that the state at the path, or a part of it, is missing. Logs it once for each cause
    /// until the state is whole again; if the cause is empty, the message is the cause.
    void Warn(const std::string& path, const std::string& message, CollectedState& collected,
              const std::string& cause = {});
    /// The state at the path is whole: logs it after a warning.
    void Told(const std::string& path);

    boost::asio::io_context& m_loop;
    base::Timers& m_timers;
    const cdb::Schema& m_schema;
    const cdb::Store& m_store;
    const Clients& m_clients;
    const Access& m_access;
    std::chrono::milliseconds m_timeout;
    cdb::NodeRole m_role;
    std::function<NetconfFacts()> m_netconfFacts;
    std::function<std::optional<PendingConfirmation>()> m_unconfirmed;
    const lysc_node* m_system;
    const lysc_node* m_netconf;
    std::vector<const lysc_node*> m_libraries;
    std::vector<std::pair<const lysc_node*, AddOwn>> m_own;
    std::vector<ExpectedProcess> m_expected;
    std::vector<Silence> m_silences;
    const bool m_hasUnits;  // a service manager has started cdbd, so its units start the others
    std::map<std::string, std::set<std::string>> m_logged;  // by path: the causes of missing state
};

}  // namespace agent

#endif
