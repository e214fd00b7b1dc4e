// SPDX-License-Identifier: Apache-2.0
// The node's role in a redundant pair: told to the processes when it is asked for and to each that connects
// later, kept in the store, shown in the state. What a process does with its role is its own matter.

#ifndef AGENT_NETCONF_HA_ROLE_H
#define AGENT_NETCONF_HA_ROLE_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "agent/clients/clients.h"
#include "agent/netconf/workbench.h"
#include "agent/state/state.h"
#include "base/timers.h"
#include "cdb/model/history.h"
#include "cdb/store/store.h"
#include "netconf/rpc_error.h"

namespace agent {

class HaRole {
public:
    struct Services {
        base::Timers& timers;
        cdb::Store& store;
        const Clients& clients;
        StateSource& state;
        Workbench& changes;                 // for the write
        std::function<std::int64_t()> now;  // microseconds since the epoch
        std::chrono::milliseconds timeout;  // of a process, for its answer
    };
    /// Reads the role from the store. What the services refer to must outlive this; `changes` need not have
    /// been constructed yet.
    explicit HaRole(Services services);

    /// Called with a warning for each process that has not taken the role, and one if the role could not be
    /// kept.
    using Done = std::function<void(const std::vector<netconf::RpcError>& warnings)>;

    /// Tells the role to all processes at once and writes it beside the loop; calls `done` when all have
    /// answered, gone or taken too long and the write has ended. A role that the node has already keeps its
    /// time, and is told again.
    void Take(cdb::Role role, const std::string& user, Done done);

    /// Tells the role to a process that has connected; does nothing if none has been asked for.
    void Tell(Client& client);

    [[nodiscard]] cdb::Role Current() const { return m_role.role; }

private:
    using Answered = std::function<void(const std::vector<Answer>& answers)>;
    void TellAll(const std::vector<ClientPtr>& clients, Answered answered);
    [[nodiscard]] std::vector<netconf::RpcError> Warnings(const std::vector<Answer>& answers) const;

    Services m_services;
    cdb::NodeRole m_role;
};

/// What has kept a process from answering.
const char* Explain(Outcome outcome);

}  // namespace agent

#endif
