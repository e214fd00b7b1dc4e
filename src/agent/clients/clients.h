// SPDX-License-Identifier: Apache-2.0
// The processes connected to cdb.sock: admits them, knows what each holds, keeps their faults. And the way to
// ask several of them one question.

#ifndef AGENT_CLIENTS_CLIENTS_H
#define AGENT_CLIENTS_CLIENTS_H

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/clients/client.h"
#include "agent/clients/fault_intake.h"
#include "base/timers.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"
#include "ipc/trust.h"
#include "ipc/user_quota.h"

namespace agent {

class Clients final : public ClientHost {
public:
    struct Options {
        std::function<std::int64_t()> now;  // microseconds since the epoch
        ipc::Trust trust{"cdbd"};
        /// Keeps faults. Called from the loop, never with an empty vector.
        FaultIntake::Keep keepFaults;
        std::chrono::milliseconds helloTimeout{5'000};
        std::size_t maxPerUser = 64;  // connections; root is not counted
        /// A client has become ready; the connection of one that was ready has ended. May be null.
        std::function<void(Client& client)> onReady{};
        std::function<void(const Client& client, const std::string& reason)> onLost{};
        /// A provider of state tells what has begun and ended to be wrong. May be null.
        std::function<void(const ipc::cdb::ProblemChanges& changes)> onProblems{};
    };
    /// All arguments but the options must outlive this.
    Clients(const cdb::Schema& schema, const cdb::Store& store, base::Timers& timers, Options options);
    ~Clients() override;
    Clients(const Clients&) = delete;
    Clients& operator=(const Clients&) = delete;

    /// Admits the client of a new connection, or tells it why not.
    void Add(std::shared_ptr<ipc::Channel> channel);

    /// Ends all connections, which answers every open question.
    void DisconnectAll(const std::string& reason);

    /// The clients that have said hello, in the order in which they connected.
    [[nodiscard]] std::vector<ClientPtr> Greeted() const;
    /// The clients that are ready, in the same order.
    [[nodiscard]] std::vector<ClientPtr> Ready() const;
    /// The subscribers that missed commits and have not come back, in the order in which they were lost.
    [[nodiscard]] const std::vector<MissingSubscriber>& Missing() const { return m_missing; }
    /// Counts a commit for each of them that `misses` holds for, and calls it once for each.
    void AddMisses(const std::function<bool(const MissingSubscriber&)>& misses);
    /// The ready client that serves the callpoint; null if there is none.
    [[nodiscard]] ClientPtr CallpointHolder(const std::string& name) const;

    // ClientHost
    std::optional<Refusal> CheckRole(const Client& client, ipc::Role role) override;
    std::optional<Refusal> CheckSubscription(const ipc::cdb::Subscribe& wanted, cdb::NodeId& point) override;
    std::optional<Refusal> CheckCallpoint(const Client& client, const std::string& name) override;
    std::optional<Refusal> CheckProvider(const Client& client, const StateProvision& wanted) override;
    ipc::cdb::Welcome MakeWelcome() override;
    Misses TakeMisses(const Client& client) override;
    [[nodiscard]] std::int64_t NowUs() const override { return m_options.now(); }
    void OnFault(const Client& client, const ipc::cdb::FaultReport& report) override;
    void OnProblems(const ipc::cdb::ProblemChanges& changes) override;
    void OnReady(Client& client) override;
    void OnGone(const ClientPtr& client, const std::string& reason) override;

private:
    void RememberMissing(const Client& client);

    const cdb::Schema& m_schema;
    const cdb::Store& m_store;
    base::Timers& m_timers;
    Options m_options;
    ipc::UserQuota m_quota;
    FaultIntake m_faults;
    std::vector<ClientPtr> m_clients;
    std::vector<MissingSubscriber> m_missing;
};

struct OutgoingRequest {
    Client::AnswerKey key;
    std::shared_ptr<ipc::cdb::ServerMessage> message = std::make_shared<ipc::cdb::ServerMessage>();
    /// Sent instead of `message` if not null: a message that was serialized before.
    std::shared_ptr<const google::protobuf::MessageLite> written{};

    [[nodiscard]] const google::protobuf::MessageLite& Content() const
    {
        return written ? *written : *message;
    }
};

enum class Outcome : std::uint8_t { kAnswered, kGone, kLate };

struct Answer {
    ClientPtr client;
    Outcome outcome = Outcome::kLate;
    ipc::cdb::ClientMessage message;  // if answered
};

/// Asks all clients at once. Calls `done` once, when each has answered or gone, or the time is over; from
/// inside RequestAll if all have gone. The answers are in the order of the clients.
void RequestAll(base::Timers& timers, const std::vector<ClientPtr>& clients,
                const std::function<OutgoingRequest(Client& client)>& makeRequest,
                std::chrono::milliseconds timeout,
                std::function<void(const std::vector<Answer>& answers)> done);

}  // namespace agent

#endif
