// SPDX-License-Identifier: Apache-2.0
#include "agent/clients/clients.h"

#include <algorithm>
#include <array>
#include <utility>

#include "agent/clients/provider_node.h"
#include "base/user.h"
#include "ipc/frame.h"
#include "log/log.h"

namespace agent {
namespace {

/// Far more processes than a switch has.
constexpr std::size_t kMaxClients = 128;

/// Provided by cdbd itself.
constexpr std::array kOwnState{"/state/system", "/netconf"};

bool Holds(const std::vector<std::string>& names, const std::string& name)
{
    return std::find(names.begin(), names.end(), name) != names.end();
}

/// Whether one of the paths is the other or leads to it.
bool Overlap(const std::string& a, const std::string& b)
{
    return (a + "/").starts_with(b + "/") || (b + "/").starts_with(a + "/");
}

bool Provides(const Client& client, const std::string& path)
{
    const auto& provided = client.Providers();
    return std::any_of(provided.begin(), provided.end(),
                       [&path](const StateProvision& each) { return Overlap(each.path, path); });
}

bool IsCallpoint(const cdb::SchemaTable& table, const std::string& name)
{
    const auto nodes = table.Nodes();
    return !name.empty() && std::any_of(nodes.begin(), nodes.end(), [&name](const cdb::SchemaNode& node) {
        return node.callpoint == name;
    });
}

class PendingRequests : public std::enable_shared_from_this<PendingRequests> {
public:
    explicit PendingRequests(std::function<void(const std::vector<Answer>&)> done) : m_done(std::move(done))
    {
    }

    void Run(base::Timers& timers, const std::vector<ClientPtr>& clients,
             const std::function<OutgoingRequest(Client&)>& makeRequest, std::chrono::milliseconds timeout)
    {
        const auto self = shared_from_this();
        m_open = clients.size();
        for (std::size_t i = 0; i < clients.size(); ++i) {
            const OutgoingRequest outgoing = makeRequest(*clients[i]);
            m_keys.push_back(outgoing.key);
            m_answers.push_back({clients[i], Outcome::kLate, {}});
            const auto take = [self, i](const ipc::cdb::ClientMessage* message) { self->Take(i, message); };
            if (clients[i]->Ask(outgoing.key, outgoing.Content(), take)) continue;
            m_answers.back().outcome = Outcome::kGone;
            --m_open;
        }
        if (m_open == 0) return Finish();
        m_timer = timers.After(timeout, [weak = weak_from_this()] {
            if (const auto late = weak.lock()) late->Finish();
        });
    }

private:
    void Take(std::size_t index, const ipc::cdb::ClientMessage* message)
    {
        Answer& answer = m_answers[index];
        answer.outcome = message == nullptr ? Outcome::kGone : Outcome::kAnswered;
        if (message != nullptr) answer.message = *message;
        if (--m_open == 0) Finish();
    }

    void Finish()
    {
        if (!m_done) return;
        m_timer.reset();
        for (std::size_t i = 0; i < m_answers.size(); ++i)
            if (m_answers[i].outcome == Outcome::kLate) m_answers[i].client->Forget(m_keys[i]);
        std::exchange(m_done, nullptr)(m_answers);
    }

    std::shared_ptr<void> m_timer;
    std::function<void(const std::vector<Answer>&)> m_done;
    std::vector<Answer> m_answers;
    std::vector<Client::AnswerKey> m_keys;
    std::size_t m_open = 0;
};

}  // namespace

Clients::Clients(const cdb::Schema& schema, const cdb::Store& store, base::Timers& timers, Options options)
    : m_schema(schema),
      m_store(store),
      m_timers(timers),
      m_options(std::move(options)),
      m_quota(m_options.maxPerUser),
      m_faults(timers, m_options.now, m_options.keepFaults)
{
}

Clients::~Clients() { DisconnectAll("cdbd ends"); }

void Clients::DisconnectAll(const std::string& reason)
{
    const std::vector<ClientPtr> clients = m_clients;  // a copy, because each removes itself
    for (const ClientPtr& client : clients) client->Disconnect(reason);
}

void Clients::Add(std::shared_ptr<ipc::Channel> channel)
{
    const std::uint32_t uid = channel->Peer().uid;
    const auto refuse = [&channel](const std::string& reason) {
        slog::Error("a client of {} (process {}) is turned away: {}", base::UserName(channel->Peer().uid),
                    channel->Peer().pid, reason);
        ipc::cdb::ServerMessage message;
        message.mutable_refused()->set_reason(reason);
        static_cast<void>(channel->Send(message));  // the client is turned away in any case
        channel->Close();
    };
    if (m_clients.size() >= kMaxClients)
        return refuse(std::to_string(m_clients.size()) + " are connected already; end one of them");
    if (!m_quota.Take(uid))
        return refuse("this user has " + std::to_string(m_quota.Most()) +
                      " connections already; end one of them");
    const auto client = std::make_shared<Client>(std::move(channel), *this, m_options.now());
    m_clients.push_back(client);
    client->Start(m_timers, m_options.helloTimeout);
}

std::optional<Refusal> Clients::CheckRole(const Client& client, ipc::Role role)
{
    const auto why = m_options.trust.Refusal(role, client.Peer());
    return why ? std::optional(Refusal{*why, 0}) : std::nullopt;
}

std::vector<ClientPtr> Clients::Greeted() const
{
    std::vector<ClientPtr> known;
    for (const ClientPtr& client : m_clients)
        if (client->CurrentPhase() != Client::Phase::kNew) known.push_back(client);
    return known;
}

std::vector<ClientPtr> Clients::Ready() const
{
    std::vector<ClientPtr> ready;
    for (const ClientPtr& client : m_clients)
        if (client->CurrentPhase() == Client::Phase::kReady) ready.push_back(client);
    return ready;
}

ClientPtr Clients::CallpointHolder(const std::string& name) const
{
    for (const ClientPtr& client : Ready())
        if (Holds(client->Callpoints(), name)) return client;
    return nullptr;
}

std::optional<Refusal> Clients::CheckSubscription(const ipc::cdb::Subscribe& wanted, cdb::NodeId& point)
{
    const cdb::SchemaTable& table = m_schema.Table();
    point = table.Find(wanted.path());
    if (point == cdb::kNoNode)
        return Refusal{"there is no configuration node " + wanted.path() + " to subscribe to", 0};
    if (table[point].ns != static_cast<std::uint32_t>(wanted.ns()))
        return Refusal{wanted.path() + " is in the namespace with the hash " +
                           std::to_string(table[point].ns) + ", not " + std::to_string(wanted.ns()) +
                           ": the client was built with other YANG modules",
                       0};
    return std::nullopt;
}

std::optional<Refusal> Clients::CheckCallpoint(const Client& client, const std::string& name)
{
    if (!IsCallpoint(m_schema.Table(), name)) return Refusal{"the YANG modules name no callpoint " + name, 0};
    for (const ClientPtr& other : m_clients)
        if (other.get() != &client && Holds(other->Callpoints(), name))
            return Refusal{"the callpoint " + name + " is taken by " + other->Process(), other->Pid()};
    return std::nullopt;
}

std::optional<Refusal> Clients::CheckProvider(const Client& client, const StateProvision& wanted)
{
    if (FindProviderNode(m_schema.Context(), wanted.path) == nullptr)
        return Refusal{"there is no container of state at " + wanted.path, 0};
    for (const char* own : kOwnState)
        if (Overlap(wanted.path, own))
            return Refusal{std::string("cdbd tells the state of ") + own + " itself", 0};
    for (const ClientPtr& other : m_clients)
        if (other.get() != &client && Provides(*other, wanted.path))
            return Refusal{"the state of " + wanted.path + " is provided by " + other->Process(),
                           other->Pid()};
    return std::nullopt;
}

ipc::cdb::Welcome Clients::MakeWelcome()
{
    ipc::cdb::Welcome welcome;
    welcome.set_store_dir(m_store.Directory().string());
    welcome.set_commit(m_store.LastCommit());
    return welcome;
}

void Clients::OnFault(const Client& client, const ipc::cdb::FaultReport& report)
{
    cdb::Fault fault;
    fault.timeUs = report.time_us() != 0 ? report.time_us() : m_options.now();
    fault.process = report.process();
    // As for the hello, the kernel's process id counts.
    fault.pid = client.Peer().pid > 0 ? client.Peer().pid : report.pid();
    fault.kind = report.kind();
    fault.function = report.function();
    fault.file = report.file();
    fault.line = report.line();
    fault.text = report.text();
    // Counted by what the kernel says, which the reporter can't choose.
    const std::string reporter =
        "process " + std::to_string(client.Peer().pid) + ", uid " + std::to_string(client.Peer().uid);
    m_faults.Take(reporter, std::move(fault));
}

void Clients::AddMisses(const std::function<bool(const MissingSubscriber&)>& misses)
{
    for (MissingSubscriber& each : m_missing) {
        if (!misses(each)) continue;
        each.misses.Add(NowUs());
        if (each.misses.commits == Misses::kMostAwaited)
            slog::Error(
                "{} has missed {} commits in a row; commits do not wait for it until it has loaded the "
                "configuration",
                each.Name(), each.misses.commits);
    }
}

/// The process itself comes before one of the same name, which is its successor.
Misses Clients::TakeMisses(const Client& client)
{
    const auto isNamed = [&](const MissingSubscriber& each) { return each.process == client.Process(); };
    const auto isSame = [&](const MissingSubscriber& each) {
        return isNamed(each) && each.pid == client.Pid();
    };
    auto found = std::find_if(m_missing.begin(), m_missing.end(), isSame);
    if (found == m_missing.end()) found = std::find_if(m_missing.begin(), m_missing.end(), isNamed);
    if (found == m_missing.end()) return {};
    const Misses misses = found->misses;
    m_missing.erase(found);
    return misses;
}

/// Remembers a subscriber that has ended with commits missed, for the next commits and the one that comes
/// back.
void Clients::RememberMissing(const Client& client)
{
    if (m_missing.size() >= kMaxClients) m_missing.erase(m_missing.begin());
    MissingSubscriber missing{client.Process(), client.Pid(),           client.Version(), {},
                              client.Missed(),  client.AcknowledgedUs()};
    for (const Subscription& each : client.Subscriptions()) missing.points.push_back(each.point);
    m_missing.push_back(std::move(missing));
}

void Clients::OnProblems(const ipc::cdb::ProblemChanges& changes)
{
    if (m_options.onProblems) m_options.onProblems(changes);
}

void Clients::OnReady(Client& client)
{
    if (m_options.onReady) m_options.onReady(client);
}

void Clients::OnGone(const ClientPtr& client, const std::string& reason)
{
    if (client->Missed().Any()) RememberMissing(*client);
    if (std::erase(m_clients, client) > 0) m_quota.GiveBack(client->Peer().uid);
    if (client->HasBeenReady() && m_options.onLost) m_options.onLost(*client, reason);
}

void RequestAll(base::Timers& timers, const std::vector<ClientPtr>& clients,
                const std::function<OutgoingRequest(Client& client)>& makeRequest,
                std::chrono::milliseconds timeout,
                std::function<void(const std::vector<Answer>& answers)> done)
{
    std::make_shared<PendingRequests>(std::move(done))->Run(timers, clients, makeRequest, timeout);
}

}  // namespace agent
