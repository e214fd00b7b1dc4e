// SPDX-License-Identifier: Apache-2.0
#include "agent/state/state.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <utility>

#include "agent/data/errors.h"
#include "agent/state/yang_library.h"
#include "base/environment.h"
#include "log/log.h"

namespace agent {
namespace {

constexpr std::string_view kSystem = "/state/system";

/// A silent client is tried again after this time, then after twice the time each: few questions wait for a
/// stopped process, however long it is stopped.
constexpr std::chrono::seconds kAskAgain{30};

/// Causes that are logged for one path until its state is whole again.
constexpr std::size_t kMaxCauses = 32;

/// The data path, as libyang writes it.
std::string DataPath(const lysc_node* node)
{
    if (node == nullptr) return {};
    const bool same = node->parent != nullptr && node->parent->module == node->module;
    return DataPath(node->parent) + "/" + (same ? "" : std::string(node->module->name) + ":") + node->name;
}

/// What starts a process that is not there.
std::string WithRemedy(const std::string& process, bool hasUnits)
{
    return process + " is not connected; " +
           (hasUnits ? "systemctl start " + process
                     : "start " + process + ", or the whole switch with tools/switch up");
}

}  // namespace

StateSource::StateSource(boost::asio::io_context& loop, base::Timers& timers, const cdb::Schema& schema,
                         const cdb::Store& store, const Clients& clients, const Access& access,
                         std::chrono::milliseconds timeout)
    : m_loop(loop),
      m_timers(timers),
      m_schema(schema),
      m_store(store),
      m_clients(clients),
      m_access(access),
      m_timeout(timeout),
      m_system(FindProviderNode(schema.Context(), kSystem)),
      m_netconf(FindProviderNode(schema.Context(), "/netconf-state")),
      m_expected(ExpectedProviders(schema.Context())),
      m_hasUnits(base::Variable("NOTIFY_SOCKET").has_value())
{
    for (const char* path : {"/yang-library", "/modules-state"})
        if (const lysc_node* library = FindProviderNode(schema.Context(), path))
            m_libraries.push_back(library);
}

std::vector<const lysc_node*> StateSource::Containers() const
{
    std::vector<const lysc_node*> containers;
    for (const ClientPtr& client : m_clients.Ready())
        for (const StateProvision& provided : client->Providers())
            containers.push_back(FindProviderNode(m_schema.Context(), provided.path));
    for (const ExpectedProcess& expected : m_expected) containers.push_back(expected.container);
    if (m_system != nullptr) containers.push_back(m_system);
    if (m_netconf != nullptr) containers.push_back(m_netconf);
    containers.insert(containers.end(), m_libraries.begin(), m_libraries.end());
    for (const auto& [container, add] : m_own) containers.push_back(container);
    return containers;
}

void StateSource::Collect(StateSelections& selections, const Done& done)
{
    CollectedState collected;
    auto questions = Questions(selections, collected);
    AddMissing(selections, collected);
    auto tree = std::make_shared<StateTree>();
    collected.data = tree;
    AddSystem(selections, *tree);
    AddServer(selections, *tree);
    if (questions.empty()) return done(std::move(collected));
    auto finish = [this, tree, collected, done](std::vector<StateOutcome>&& outcomes) mutable {
        for (StateOutcome& outcome : outcomes) Add(outcome, *tree, collected);
        done(std::move(collected));
    };
    std::make_shared<StateQuery>(m_loop, m_timers, m_schema.Context(), m_timeout, std::move(finish))
        ->Run(std::move(questions));
}

std::vector<StateQuestion> StateSource::Questions(StateSelections& selections, CollectedState& collected)
{
    std::vector<StateQuestion> questions;
    for (const ClientPtr& client : m_clients.Ready()) {
        StateQuestion question{client, {}};
        for (const StateProvision& provided : client->Providers()) {
            auto wanted = selections.Take(FindProviderNode(m_schema.Context(), provided.path));
            if (!wanted) continue;
            auto& part = *question.request.add_parts();
            part.set_path(provided.path);
            part.mutable_children()->Swap(&wanted->children);
        }
        if (question.request.parts().empty()) continue;
        if (MayAsk(client)) {
            questions.push_back(std::move(question));
            continue;
        }
        for (const auto& part : question.request.parts()) WarnOfSilence(part.path(), *client, collected);
    }
    return questions;
}

void StateSource::AddMissing(StateSelections& selections, CollectedState& collected)
{
    const auto ready = m_clients.Ready();
    for (const ExpectedProcess& expected : m_expected) {
        const auto provides = [&expected](const ClientPtr& client) {
            const auto& provided = client->Providers();
            return std::any_of(provided.begin(), provided.end(), [&expected](const StateProvision& each) {
                return (expected.path + "/").starts_with(each.path + "/");
            });
        };
        if (std::any_of(ready.begin(), ready.end(), provides) || !selections.Take(expected.container))
            continue;
        Warn(expected.path, WithRemedy(expected.process, m_hasUnits), collected);
    }
}

void StateSource::Provide(const std::string& path, AddOwn add)
{
    if (const lysc_node* container = FindProviderNode(m_schema.Context(), path))
        m_own.emplace_back(container, std::move(add));
}

void StateSource::AddSystem(StateSelections& selections, StateTree& tree) const
{
    for (const auto& [container, add] : m_own)
        if (selections.Take(container)) add(container, tree);
    if (m_system == nullptr) return;
    const auto wanted = selections.Take(m_system);
    if (!wanted) return;
    SystemState system(m_schema.Context(), m_system, tree);
    if (wanted->Has("version")) system.AddVersion();
    if (wanted->Has("role") || wanted->Has("role-since") || wanted->Has("role-by")) system.AddRole(m_role);
    if (wanted->Has("process")) system.AddProcesses(m_clients);
    if (wanted->Has("fault")) system.AddFaults(m_store);
    if (wanted->Has("history")) system.AddHistory(m_store, m_unconfirmed ? m_unconfirmed() : std::nullopt);
    if (wanted->Has("access")) system.AddDenials(m_access.Denied());
}

void StateSource::AddServer(StateSelections& selections, StateTree& tree) const
{
    if (m_netconf != nullptr && m_netconfFacts)
        if (const auto wanted = selections.Take(m_netconf))
            NetconfState(m_schema.Context(), m_netconf, tree).Add(*wanted, m_netconfFacts());
    for (const lysc_node* library : m_libraries)
        if (selections.Take(library)) AddYangLibrary(m_schema, library, tree);
}

void StateSource::Add(StateOutcome& outcome, StateTree& tree, CollectedState& collected)
{
    if (outcome.late)
        Remember(outcome);
    else
        ForgetSilence(outcome.client.get());
    const std::string& name = outcome.client->Name();
    for (const std::string& path : outcome.paths) {
        if (outcome.late) {
            WarnOfSilence(path, *outcome.client, collected);
            continue;
        }
        if (!outcome.problem.empty()) {
            Warn(path, "no state of " + path + ": " + name + " " + outcome.problem, collected);
            continue;
        }
        if (outcome.state->Warnings().empty()) Told(path);
        for (const std::string& warning : outcome.state->Warnings()) Warn(path, warning, collected);
    }
    if (outcome.late || !outcome.problem.empty()) return;
    collected.bytes += outcome.state->Bytes();
    tree.Adopt(std::move(outcome.state->Tree()));
}

StateSource::Silence* StateSource::SilenceOf(const Client& client)
{
    const auto found = std::find_if(m_silences.begin(), m_silences.end(), [&client](const Silence& each) {
        return each.client.lock().get() == &client;
    });
    return found == m_silences.end() ? nullptr : &*found;
}

bool StateSource::MayAsk(const ClientPtr& client)
{
    Silence* silence = SilenceOf(*client);
    if (silence == nullptr) return true;
    const auto now = m_timers.Now();
    const std::chrono::steady_clock::duration pause = kAskAgain;
    if (now - silence->asked < std::max(pause, silence->asked - silence->since)) return false;
    silence->asked = now;  // by one question; who asks meanwhile is answered at once
    return true;
}

void StateSource::Remember(const StateOutcome& late)
{
    const auto now = m_timers.Now();
    if (SilenceOf(*late.client) == nullptr) m_silences.push_back({late.client, now - m_timeout, now});
    // A late answer shows that the client works again.
    late.client->Expect(
        late.key, [this, client = late.client.get()](const auto* /*answer*/) { ForgetSilence(client); });
}

void StateSource::ForgetSilence(const Client* client)
{
    std::erase_if(m_silences, [client](const Silence& each) {
        const auto silent = each.client.lock();
        return silent == nullptr || silent.get() == client;
    });
}

void StateSource::WarnOfSilence(const std::string& path, const Client& client, CollectedState& collected)
{
    const std::string silent = client.Name() + " does not answer";
    const Silence* silence = SilenceOf(client);
    const auto since = silence == nullptr
                           ? m_timeout
                           : std::chrono::floor<std::chrono::milliseconds>(m_timers.Now() - silence->since);
    const bool isLong = since >= std::chrono::seconds(1);
    Warn(path,
         silent + " since " + DurationText(isLong ? std::chrono::floor<std::chrono::seconds>(since) : since),
         collected, silent);
}

void StateSource::Warn(const std::string& path, const std::string& message, CollectedState& collected,
                       const std::string& cause)
{
    auto& logged = m_logged[path];
    if (logged.size() < kMaxCauses && logged.insert(cause.empty() ? message : cause).second)
        slog::Error("the state of {} is not whole: {}", path, message);
    cdb::Error error;
    error.tag = cdb::ErrorTag::kOperationFailed;
    error.message = message;
    error.path = DataPath(FindProviderNode(m_schema.Context(), path));
    collected.warnings.push_back(ToRpcError(error, m_schema.Context()));
    collected.warnings.back().severity = "warning";
}

void StateSource::Told(const std::string& path)
{
    if (m_logged.erase(path) != 0) slog::Notice("the state of {} is whole again", path);
}

}  // namespace agent
