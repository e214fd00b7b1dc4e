#include "agent/state.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <utility>

#include "agent/ask.h"
#include "agent/provided_state.h"
#include "agent/system_state.h"
#include "agent/wanted_configuration.h"
#include "log/log.h"

namespace agent {
namespace {

constexpr std::string_view kNamespace = "urn:switch:yang:switch-state";
constexpr std::string_view kRoot = "state";

/// Whether the filter may select something below /state/NAME.
bool Wants(const std::optional<SubtreeFilter>& filter, std::string_view name)
{
    if (!filter) return true;
    return std::any_of(filter->begin(), filter->end(), [name](const FilterNode& node) {
        if (!Concerns({node}, kNamespace, kRoot)) return false;
        return node.children.empty() || Concerns(node.children, kNamespace, name);
    });
}

/// "oam" of "/state/oam/sflow"
std::string_view SecondName(std::string_view path)
{
    path.remove_prefix(std::min(path.size(), kRoot.size() + 2));
    return path.substr(0, path.find('/'));
}

}  // namespace

StateSource::StateSource(boost::asio::io_context& loop, const cdb::Schema& schema, const cdb::Store& store,
                         const cdb::Datastore& datastore, const Clients& clients,
                         std::chrono::milliseconds timeout)
    : m_loop(loop),
      m_schema(schema),
      m_store(store),
      m_datastore(datastore),
      m_clients(clients),
      m_timeout(timeout)
{
}

void StateSource::Collect(const std::optional<SubtreeFilter>& filter, std::function<void(const Tree&)> done)
{
    const auto providers = ProvidersFor(filter);
    const bool system = Wants(filter, "system");
    if (providers.empty()) return done(system ? MakeSystemState() : Tree());
    const auto ask = [this](Client& client) {
        Question question{{ipc::cdb::ClientMessage::kStateReply, client.NextRequest()}};
        question.message->mutable_state_request()->set_request(question.key.second);
        AddWantedConfiguration(m_schema, *m_datastore.Running(), client,
                               *question.message->mutable_state_request());
        return question;
    };
    const auto take = [this, system, done = std::move(done)](const std::vector<Answer>& answers) {
        Tree state = system ? MakeSystemState() : Tree();
        for (const Answer& answer : answers) {
            const std::string problem = AddProvidedState(m_schema.Context(), answer, state);
            if (!problem.empty())
                slog::Error("the state goes without the part of {}: {}", answer.client->Name(), problem);
        }
        done(state);
    };
    AskAll(m_loop, providers, ask, m_timeout, take);
}

std::vector<ClientPtr> StateSource::ProvidersFor(const std::optional<SubtreeFilter>& filter) const
{
    std::vector<ClientPtr> providers;
    for (const ClientPtr& client : m_clients.Ready()) {
        const auto& provided = client->Providers();
        if (std::any_of(provided.begin(), provided.end(), [&filter](const StateProvision& each) {
                return Wants(filter, SecondName(each.path));
            }))
            providers.push_back(client);
    }
    return providers;
}

Tree StateSource::MakeSystemState() const
{
    return agent::MakeSystemState(m_schema.Context(), m_clients.Known(), m_role, m_store);
}

}  // namespace agent
