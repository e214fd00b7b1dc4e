// SPDX-License-Identifier: Apache-2.0
#include "agent/state/netconf_state.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <utility>

#include "agent/data/schema_list.h"
#include "agent/data/yang_tree.h"
#include "agent/state/system_state.h"
#include "log/log.h"

namespace agent {
namespace {

constexpr std::string_view kYang = "ietf-netconf-monitoring:yang";

constexpr std::string_view kSsh = "ietf-netconf-monitoring:netconf-ssh";
/// The standard has no name for it.
constexpr std::string_view kUnixSocket = "switch-system:netconf-unix-socket";
}  // namespace

NetconfState::NetconfState(const ly_ctx* context, const lysc_node* container, StateTree& tree)
    : m_context(context), m_container(container), m_tree(tree), m_checker(context)
{
}

void NetconfState::Add(const StateWanted& wanted, const NetconfFacts& facts)
{
    if (wanted.Has("capabilities")) AddCapabilities(facts.capabilities);
    if (wanted.Has("datastores")) AddDatastores(facts.datastores);
    if (wanted.Has("schemas")) AddSchemas();
    if (wanted.Has("sessions")) AddSessions(facts.sessions);
    if (wanted.Has("statistics")) AddStatistics(facts);
}

void NetconfState::Leaf(StateTree::Node& node, const lysc_node* parent, const char* name,
                        std::string_view value)
{
    const lysc_node* leaf = SchemaChild(parent, name);
    const auto checked = leaf == nullptr ? std::nullopt : m_checker.Check(leaf, value);
    if (checked)
        node.leaves.push_back({leaf, m_tree.Keep(*checked)});
    else
        slog::Debug("netconf-state: {} can't be \"{}\"", name, value);
}

void NetconfState::AddCapabilities(const std::vector<std::string>& capabilities)
{
    const lysc_node* schema = SchemaChild(m_container, "capabilities");
    if (schema == nullptr) return;
    StateTree::Node& node = StateTree::ContainerIn(m_tree.At(m_container), schema);
    for (const std::string& each : capabilities) Leaf(node, schema, "capability", each);
}

void NetconfState::AddDatastores(std::vector<NetconfFacts::Lock> datastores)
{
    const lysc_node* list = SchemaChild(SchemaChild(m_container, "datastores"), "datastore");
    if (list == nullptr) return;
    std::sort(datastores.begin(), datastores.end(),
              [](const auto& a, const auto& b) { return a.datastore < b.datastore; });
    for (const NetconfFacts::Lock& each : datastores) {
        StateTree::Node* entry =
            StateTree::Append(m_tree.At(list->parent), list, {m_tree.Keep(each.datastore)});
        if (entry == nullptr || each.session == 0) continue;
        const lysc_node* locks = SchemaChild(list, "locks");
        const lysc_node* global = SchemaChild(locks, "global-lock");
        if (global == nullptr) continue;
        StateTree::Node& lock = StateTree::ContainerIn(StateTree::ContainerIn(*entry, locks), global);
        Leaf(lock, global, "locked-by-session", std::to_string(each.session));
        Leaf(lock, global, "locked-time", DateAndTime(each.sinceUs));
    }
}

void NetconfState::AddSchemas()
{
    const lysc_node* list = SchemaChild(SchemaChild(m_container, "schemas"), "schema");
    if (list == nullptr) return;
    for (const SchemaText& each : SchemasOf(m_context)) {
        StateTree::Node* entry =
            StateTree::Append(m_tree.At(list->parent), list,
                              {m_tree.Keep(each.name), m_tree.Keep(each.revision), m_tree.Keep(kYang)});
        if (entry == nullptr) continue;
        Leaf(*entry, list, "namespace", each.ns);
        Leaf(*entry, list, "location", "NETCONF");
    }
}

void NetconfState::AddSessions(const std::vector<NetconfFacts::Session>& sessions)
{
    const lysc_node* list = SchemaChild(SchemaChild(m_container, "sessions"), "session");
    if (list == nullptr) return;
    std::vector<std::pair<std::string, const NetconfFacts::Session*>> sorted;
    sorted.reserve(sessions.size());
    for (const auto& each : sessions) sorted.emplace_back(std::to_string(each.id), &each);
    std::sort(sorted.begin(), sorted.end());
    for (const auto& [id, session] : sorted) {
        StateTree::Node* entry = StateTree::Append(m_tree.At(list->parent), list, {m_tree.Keep(id)});
        if (entry == nullptr) continue;
        Leaf(*entry, list, "transport", session->overSsh ? kSsh : kUnixSocket);
        Leaf(*entry, list, "username", session->user);
        if (!session->sourceHost.empty()) Leaf(*entry, list, "source-host", session->sourceHost);
        Leaf(*entry, list, "login-time", DateAndTime(session->loginUs));
        AddCounters(*entry, list, session->counters);
    }
}

void NetconfState::AddStatistics(const NetconfFacts& facts)
{
    const lysc_node* schema = SchemaChild(m_container, "statistics");
    if (schema == nullptr) return;
    StateTree::Node& node = StateTree::ContainerIn(m_tree.At(m_container), schema);
    Leaf(node, schema, "netconf-start-time", DateAndTime(facts.startUs));
    Leaf(node, schema, "in-bad-hellos", std::to_string(facts.inBadHellos));
    Leaf(node, schema, "in-sessions", std::to_string(facts.inSessions));
    Leaf(node, schema, "dropped-sessions", std::to_string(facts.droppedSessions));
    AddCounters(node, schema, facts.counters);
}

void NetconfState::AddCounters(StateTree::Node& node, const lysc_node* schema,
                               const NetconfCounters& counters)
{
    Leaf(node, schema, "in-rpcs", std::to_string(counters.inRpcs));
    Leaf(node, schema, "in-bad-rpcs", std::to_string(counters.inBadRpcs));
    Leaf(node, schema, "out-rpc-errors", std::to_string(counters.outRpcErrors));
    Leaf(node, schema, "out-notifications", std::to_string(counters.outNotifications));
}

}  // namespace agent
