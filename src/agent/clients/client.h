// SPDX-License-Identifier: Apache-2.0
// One process connected to cdb.sock: its registrations, and the questions that it still has to answer. Its
// host decides which registrations it gets. Does not know what the questions mean.

#ifndef AGENT_CLIENTS_CLIENT_H
#define AGENT_CLIENTS_CLIENT_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "agent/clients/misses.h"
#include "base/timers.h"
#include "cdb/model/history.h"
#include "cdb/model/schema_table.h"
#include "ipc/cdb.pb.h"
#include "ipc/peer.h"
#include "ipc/trust.h"

namespace ipc {
class Channel;
}

namespace agent {

class Client;

struct Subscription {
    std::uint32_t id = 0;
    std::int32_t priority = 0;
    cdb::NodeId point = cdb::kNoNode;
    std::string path;
};

/// State that a client answers for.
struct StateProvision {
    std::string path;
};

/// Why a client is turned away, and the process id of the holder of what it wants (0 if there is none).
struct Refusal {
    std::string reason;
    std::int64_t holder = 0;
};

/// What a client needs of the owner of the clients.
class ClientHost {
public:
    virtual ~ClientHost() = default;
    /// Why the user of the client's process may not have the role; nullopt if it may.
    virtual std::optional<Refusal> CheckRole(const Client& client, ipc::Role role) = 0;
    /// Sets `point` to the subscription's schema node; else returns why there is none.
    virtual std::optional<Refusal> CheckSubscription(const ipc::cdb::Subscribe& wanted,
                                                     cdb::NodeId& point) = 0;
    virtual std::optional<Refusal> CheckCallpoint(const Client& client, const std::string& name) = 0;
    virtual std::optional<Refusal> CheckProvider(const Client& client, const StateProvision& wanted) = 0;
    virtual ipc::cdb::Welcome MakeWelcome() = 0;
    /// What a client that becomes ready has missed before.
    virtual Misses TakeMisses(const Client& client) = 0;
    /// Microseconds since the epoch.
    [[nodiscard]] virtual std::int64_t NowUs() const = 0;
    virtual void OnFault(const Client& client, const ipc::cdb::FaultReport& fault) = 0;
    /// What has begun and ended to be wrong in what the client provides state of.
    virtual void OnProblems(const ipc::cdb::ProblemChanges& changes) = 0;
    /// The client is ready; called once, from the loop.
    virtual void OnReady(Client& client) = 0;
    /// The connection has ended; called once, from the loop.
    virtual void OnGone(const std::shared_ptr<Client>& client, const std::string& reason) = 0;
};

class Client : public std::enable_shared_from_this<Client> {
public:
    /// The kind and number of the message that answers a question.
    using AnswerKey = std::pair<ipc::cdb::ClientMessage::BodyCase, std::uint64_t>;
    /// `answer` is null if the connection has ended.
    using AnswerHandler = std::function<void(const ipc::cdb::ClientMessage* answer)>;

    enum class Phase : std::uint8_t { kNew, kRegistering, kReady, kEnded };

    Client(std::shared_ptr<ipc::Channel> channel, ClientHost& host, std::int64_t connectedUs);
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    /// Begins to read. Disconnects a client that has not sent its registrations, up to Ready, in that time.
    void Start(base::Timers& timers, std::chrono::milliseconds helloTimeout);

    [[nodiscard]] Phase CurrentPhase() const { return m_phase; }
    /// Whether it is ready or was before its connection ended.
    [[nodiscard]] bool HasBeenReady() const { return m_wasReady; }
    [[nodiscard]] const std::string& Process() const { return m_process; }
    [[nodiscard]] std::int64_t Pid() const { return m_pid; }
    /// Of its program; empty if it has not said.
    [[nodiscard]] const std::string& Version() const { return m_version; }
    /// "sflow-app (process 1234)"
    [[nodiscard]] std::string Name() const;
    [[nodiscard]] const ipc::PeerCredentials& Peer() const;
    [[nodiscard]] std::int64_t ConnectedUs() const { return m_connectedUs; }
    [[nodiscard]] const std::vector<Subscription>& Subscriptions() const { return m_subscriptions; }
    [[nodiscard]] const std::vector<std::string>& Callpoints() const { return m_callpoints; }
    [[nodiscard]] const std::vector<StateProvision>& Providers() const { return m_providers; }
    [[nodiscard]] bool IsApplying() const { return m_applying; }
    /// The commit of running that the client was told when it became ready.
    [[nodiscard]] std::uint64_t WelcomeCommit() const { return m_welcomeCommit; }

    /// What it has missed since it last acknowledged in time or loaded, an earlier connection included.
    [[nodiscard]] const Misses& Missed() const { return m_misses; }
    /// When it last acknowledged a commit, in time or not; 0: it has not.
    [[nodiscard]] std::int64_t AcknowledgedUs() const { return m_acknowledgedUs; }
    /// The subscriber has not acknowledged a commit in time, or is not waited for.
    void AddMiss();

    /// The node's role that the client has taken: the last one that it was told and says it has handled.
    [[nodiscard]] cdb::Role TakenRole() const { return m_role; }
    /// It is being told this role by the transition with this number.
    void TellRole(std::uint64_t request, cdb::Role role)
    {
        m_roleRequest = request;
        m_roleTold = role;
    }

    /// A number for the next request to this client.
    std::uint64_t NextRequest() { return ++m_lastRequest; }

    /// Sends a message; calls the handler once with the answer, unless Forget comes first, and never from
    /// inside Ask. Returns false, and does not call the handler, if the connection has ended.
    [[nodiscard]] bool Ask(AnswerKey key, const google::protobuf::MessageLite& message,
                           AnswerHandler handler);
    /// Sends a commit's change set without awaiting the acknowledgement. No effect if the connection has
    /// ended.
    void SendChanges(std::uint64_t commit, const google::protobuf::MessageLite& message);
    void Forget(AnswerKey key) { m_questions.erase(key); }
    /// Awaits a further answer to a question: calls the handler as after Ask.
    void Expect(AnswerKey key, AnswerHandler handler) { m_questions[key] = std::move(handler); }

    [[nodiscard]] std::size_t QueuedBytes() const;

    /// Whether a change set is with the client; for the state shown.
    void SetApplying(bool applying) { m_applying = applying; }

    /// Ends the connection.
    void Disconnect(const std::string& reason);

private:
    void OnFrame(std::string_view frame);
    void Handle(const ipc::cdb::ClientMessage& message);
    void OnHello(const ipc::cdb::Hello& hello);
    void OnRegistration(const ipc::cdb::ClientMessage& message);
    void OnSubscribe(const ipc::cdb::Subscribe& wanted);
    void OnCallpoint(const std::string& name);
    void OnProvider(const StateProvision& wanted);
    void OnReady();
    void OnAcknowledged(std::uint64_t commit);
    void OnLoaded();
    void OnFault(const ipc::cdb::FaultReport& fault);
    void OnProblems(const ipc::cdb::ProblemChanges& changes);
    void OnTransition(const ipc::cdb::HaReply& reply);
    void OnAnswer(AnswerKey key, const ipc::cdb::ClientMessage& message);
    /// Turns the client away, and returns true, if it may not have the role.
    bool RefuseRole(ipc::Role role);
    void Refuse(const Refusal& refusal);
    void End(const std::string& reason);

    std::shared_ptr<ipc::Channel> m_channel;
    ClientHost& m_host;
    Phase m_phase = Phase::kNew;
    bool m_wasReady = false;
    bool m_applying = false;
    std::string m_process;
    std::string m_version;
    std::int64_t m_pid;
    std::int64_t m_connectedUs;
    std::vector<Subscription> m_subscriptions;
    std::vector<std::string> m_callpoints;
    std::vector<StateProvision> m_providers;
    std::uint64_t m_welcomeCommit = 0;
    std::uint64_t m_sentCommit = 0;          // the last change set sent; 0: none
    std::uint64_t m_acknowledgedCommit = 0;  // likewise
    std::int64_t m_acknowledgedUs = 0;
    Misses m_misses;
    cdb::Role m_role = cdb::Role::kUnknown;
    std::uint64_t m_roleRequest = 0;  // the last transition sent; 0: none
    cdb::Role m_roleTold = cdb::Role::kUnknown;
    std::uint64_t m_lastRequest = 0;
    std::map<AnswerKey, AnswerHandler> m_questions;
    std::shared_ptr<void> m_helloTimer;  // until the client is ready
};

using ClientPtr = std::shared_ptr<Client>;

}  // namespace agent

#endif
