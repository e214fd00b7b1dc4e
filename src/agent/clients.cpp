#include "agent/clients.h"

#include <algorithm>

#include "agent/provider_node.h"
#include "ipc/frame.h"
#include "log/log.h"

namespace agent {
namespace {

/// Far more processes than a switch has.
constexpr std::size_t kMaxClients = 128;

/// How much of a fault's texts is kept.
constexpr std::size_t kMaxFaultText = 4096;

/// cdbd's own.
constexpr const char* kSystemState = "/state/system";

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

}  // namespace

Clients::Clients(const cdb::Schema& schema, cdb::Store& store, std::function<std::int64_t()> now)
    : m_schema(schema), m_store(store), m_now(std::move(now))
{
}

Clients::~Clients() { DisconnectAll("cdbd ends"); }

void Clients::DisconnectAll(const std::string& reason)
{
    const std::vector<ClientPtr> clients = m_clients;  // each takes itself out
    for (const ClientPtr& client : clients) client->Disconnect(reason);
}

void Clients::Add(std::shared_ptr<ipc::Channel> channel)
{
    if (m_clients.size() >= kMaxClients) {
        slog::Error("a client is turned away: {} are connected already", m_clients.size());
        return channel->Close(true);
    }
    const auto client = std::make_shared<Client>(std::move(channel), *this, m_now());
    m_clients.push_back(client);
    client->Start();
}

std::vector<ClientPtr> Clients::Known() const
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
    if (Overlap(wanted.path, kSystemState))
        return Refusal{std::string("cdbd tells the state of ") + kSystemState + " itself", 0};
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

void Clients::OnFault(const ipc::cdb::FaultReport& report)
{
    cdb::Fault fault;
    fault.timeUs = report.time_us() != 0 ? report.time_us() : m_now();
    fault.process = report.process().substr(0, kMaxFaultText);
    fault.pid = report.pid();
    fault.kind = report.kind();
    fault.function = report.function().substr(0, kMaxFaultText);
    fault.file = report.file().substr(0, kMaxFaultText);
    fault.line = report.line();
    fault.text = report.text().substr(0, kMaxFaultText);
    slog::Error("{} reports a fault of kind {} in {} ({}:{}): {}", fault.process, fault.kind, fault.function,
                fault.file, fault.line, fault.text);
    if (const auto error = m_store.AddFault(std::move(fault)))
        slog::Error("the fault can't be kept: {}", error->message);
}

void Clients::OnGone(const ClientPtr& client) { std::erase(m_clients, client); }

}  // namespace agent
