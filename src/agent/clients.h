// The processes connected to cdb.sock: lets them in, knows who holds what, keeps their faults.

#ifndef AGENT_CLIENTS_H
#define AGENT_CLIENTS_H

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/client.h"
#include "cdb/schema.h"
#include "cdb/store.h"

namespace agent {

class Clients final : public ClientHost {
public:
    /// `now`: microseconds since the epoch.
    Clients(const cdb::Schema& schema, cdb::Store& store, std::function<std::int64_t()> now);
    ~Clients() override;
    Clients(const Clients&) = delete;
    Clients& operator=(const Clients&) = delete;

    void Add(std::shared_ptr<ipc::Channel> channel);

    /// Ends all connections, which answers every question that is open.
    void DisconnectAll(const std::string& reason);

    /// In the order of their connecting. Those that have not said hello are left out.
    [[nodiscard]] std::vector<ClientPtr> Known() const;
    /// Those that work already.
    [[nodiscard]] std::vector<ClientPtr> Ready() const;
    /// Who works for the callpoint; null: nobody.
    [[nodiscard]] ClientPtr CallpointHolder(const std::string& name) const;

    // ClientHost
    std::optional<Refusal> CheckSubscription(const ipc::cdb::Subscribe& wanted, cdb::NodeId& point) override;
    std::optional<Refusal> CheckCallpoint(const Client& client, const std::string& name) override;
    std::optional<Refusal> CheckProvider(const Client& client, const StateProvision& wanted) override;
    ipc::cdb::Welcome MakeWelcome() override;
    void OnFault(const ipc::cdb::FaultReport& fault) override;
    void OnGone(const ClientPtr& client) override;

private:
    const cdb::Schema& m_schema;
    cdb::Store& m_store;
    std::function<std::int64_t()> m_now;
    std::vector<ClientPtr> m_clients;
};

}  // namespace agent

#endif
