// SPDX-License-Identifier: Apache-2.0
#include "agent/state/system_state.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <functional>
#include <map>
#include <set>
#include <utility>

#include "agent/data/yang_tree.h"
#include "base/text.h"
#include "base/version.h"
#include "log/log.h"

namespace agent {
namespace {

constexpr std::size_t kFaultsShown = 1000;
constexpr std::size_t kCommitsShown = 1000;

const char* RoleName(cdb::Role role)
{
    static constexpr std::array kNames{"unknown", "active", "standby"};
    return kNames.at(static_cast<std::size_t>(role));
}

const char* PhaseName(const Client& client)
{
    if (client.CurrentPhase() != Client::Phase::kReady) return "registering";
    return client.IsApplying() ? "applying" : "ready";
}

/// The oldest commit whose configuration can be had again. `entries`: newest first.
std::uint64_t Reach(const std::vector<cdb::HistoryEntry>& entries, std::uint64_t newest)
{
    std::uint64_t reach = newest;
    for (const cdb::HistoryEntry& entry : entries) {
        if (entry.commit != reach || !entry.undoKept) break;
        --reach;
    }
    return reach;
}

/// The keys of the list of processes.
using Keys = std::pair<std::string, std::string>;

Keys KeysOf(const Client& client) { return {client.Process(), std::to_string(client.Pid())}; }
Keys KeysOf(const MissingSubscriber& missing) { return {missing.process, std::to_string(missing.pid)}; }

const char* HealthName(const Misses& misses)
{
    if (!misses.Any()) return "ok";
    return misses.Awaited() ? "late" : "not-awaited";
}

}  // namespace

SystemState::SystemState(const ly_ctx* context, const lysc_node* system, StateTree& tree)
    : m_system(system), m_tree(tree), m_checker(context)
{
}

StateTree::Node* SystemState::Entry(const char* list, std::initializer_list<std::string> keys)
{
    const lysc_node* schema = SchemaChild(m_system, list);
    if (schema == nullptr) return nullptr;
    std::vector<std::string_view> kept;
    for (const std::string& key : keys) kept.push_back(m_tree.Keep(key));
    return StateTree::Append(m_tree.At(m_system), schema, std::move(kept));
}

void SystemState::Leaf(StateTree::Node& node, const char* parent, const char* name, std::string_view value)
{
    Leaf(node, SchemaChild(SchemaChild(m_system, parent), name), value);
}

void SystemState::Leaf(StateTree::Node& node, const lysc_node* leaf, std::string_view value)
{
    const auto checked = leaf == nullptr ? std::nullopt : m_checker.Check(leaf, value);
    if (checked)
        node.leaves.push_back({leaf, m_tree.Keep(*checked)});
    else
        slog::Debug("state: {} can't be \"{}\"", leaf == nullptr ? "a leaf" : leaf->name, value);
}

void SystemState::AddVersion()
{
    Leaf(m_tree.At(m_system), SchemaChild(m_system, "version"), base::Version());
}

void SystemState::AddRole(const cdb::NodeRole& role)
{
    StateTree::Node& system = m_tree.At(m_system);
    Leaf(system, SchemaChild(m_system, "role"), RoleName(role.role));
    if (role.role == cdb::Role::kUnknown) return;
    Leaf(system, SchemaChild(m_system, "role-since"), DateAndTime(role.sinceUs));
    Leaf(system, SchemaChild(m_system, "role-by"), role.user);
}

void SystemState::AddProcesses(const Clients& clients)
{
    std::multimap<Keys, std::function<void()>>
        sorted;  // the connected ones before the others of the same keys
    for (const ClientPtr& client : clients.Greeted())
        sorted.emplace(KeysOf(*client), [this, client] { AddProcess(*client); });
    for (const MissingSubscriber& missing : clients.Missing())
        sorted.emplace(KeysOf(missing), [this, &missing] { AddMissing(missing); });
    for (const auto& [keys, add] : sorted) add();
}

void SystemState::AddMissing(const MissingSubscriber& missing)
{
    static constexpr const char* kList = "process";
    const auto [name, pid] = KeysOf(missing);
    StateTree::Node* entry = Entry(kList, {name, pid});
    if (entry == nullptr) return;  // it is connecting again
    if (!missing.version.empty()) Leaf(*entry, kList, "version", missing.version);
    Leaf(*entry, kList, "role", RoleName(cdb::Role::kUnknown));
    Leaf(*entry, kList, "state", "disconnected");
    AddHealth(*entry, missing.misses, missing.acknowledgedUs);
}

void SystemState::AddHealth(StateTree::Node& entry, const Misses& misses, std::int64_t acknowledgedUs)
{
    static constexpr const char* kList = "process";
    Leaf(entry, kList, "health", HealthName(misses));
    if (misses.Any()) Leaf(entry, kList, "health-since", DateAndTime(misses.sinceUs));
    Leaf(entry, kList, "missed-commits", std::to_string(misses.commits));
    if (acknowledgedUs != 0) Leaf(entry, kList, "last-acknowledgement", DateAndTime(acknowledgedUs));
}

void SystemState::AddProcess(const Client& client)
{
    static constexpr const char* kList = "process";
    const auto [name, pid] = KeysOf(client);
    StateTree::Node* entry = Entry(kList, {name, pid});
    if (entry == nullptr) return;  // a process may have several connections
    if (!client.Version().empty()) Leaf(*entry, kList, "version", client.Version());
    Leaf(*entry, kList, "connected-since", DateAndTime(client.ConnectedUs()));
    Leaf(*entry, kList, "role", RoleName(client.TakenRole()));
    Leaf(*entry, kList, "state", PhaseName(client));
    if (!client.Subscriptions().empty()) AddHealth(*entry, client.Missed(), client.AcknowledgedUs());
    std::set<std::string> paths;
    for (const Subscription& each : client.Subscriptions())
        if (paths.insert(each.path).second) Leaf(*entry, kList, "subscription", each.path);
    for (const std::string& each : client.Callpoints()) Leaf(*entry, kList, "callpoint", each);
}

void SystemState::AddFaults(const cdb::Store& store)
{
    auto faults = store.Faults(kFaultsShown);
    std::sort(faults.begin(), faults.end(), [](const cdb::Fault& a, const cdb::Fault& b) {
        return std::to_string(a.number) < std::to_string(b.number);
    });
    for (const cdb::Fault& fault : faults) AddFault(fault);
}

void SystemState::AddFault(const cdb::Fault& fault)
{
    static constexpr const char* kList = "fault";
    StateTree::Node* entry = Entry(kList, {std::to_string(fault.number)});
    if (entry == nullptr) return;
    Leaf(*entry, kList, "time", DateAndTime(fault.timeUs));
    Leaf(*entry, kList, "process", fault.process);
    Leaf(*entry, kList, "pid", std::to_string(fault.pid));
    Leaf(*entry, kList, "kind", std::to_string(fault.kind));
    Leaf(*entry, kList, "function", fault.function);
    Leaf(*entry, kList, "file", fault.file);
    Leaf(*entry, kList, "line", std::to_string(fault.line));
    Leaf(*entry, kList, "text", fault.text);
}

void SystemState::AddHistory(const cdb::Store& store, const std::optional<PendingConfirmation>& pending)
{
    const lysc_node* schema = SchemaChild(m_system, "history");
    if (schema == nullptr) return;
    StateTree::Node& history = StateTree::ContainerIn(m_tree.At(m_system), schema);
    std::uint64_t newest = store.LastCommit();
    const auto checkpoints = store.Checkpoints();
    auto entries = store.History(kCommitsShown);
    if (!entries.empty()) newest = std::max(newest, entries.front().commit);  // committed meanwhile
    const std::uint64_t reach = Reach(entries, newest);
    history.leaves.push_back({SchemaChild(schema, "newest"), m_tree.Keep(std::to_string(newest))});
    const lysc_node* waiting = SchemaChild(schema, "pending-confirmation");
    if (pending && waiting != nullptr) AddPending(history, waiting, *pending);
    std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) {
        return std::to_string(a.commit) < std::to_string(b.commit);
    });
    for (const cdb::HistoryEntry& entry : entries) AddCommit(history, entry, checkpoints);
    const lysc_node* list = SchemaChild(schema, "checkpoint");
    for (const cdb::Checkpoint& checkpoint : checkpoints) {
        StateTree::Node* entry = StateTree::Append(history, list, {m_tree.Keep(checkpoint.name)});
        if (entry == nullptr) continue;
        Leaf(*entry, SchemaChild(list, "commit"), std::to_string(checkpoint.commit));
        Leaf(*entry, SchemaChild(list, "time"), DateAndTime(checkpoint.timeUs));
        Leaf(*entry, SchemaChild(list, "user"), checkpoint.user);
        Leaf(*entry, SchemaChild(list, "in-reach"), checkpoint.commit >= reach ? "true" : "false");
    }
}

void SystemState::AddPending(StateTree::Node& history, const lysc_node* schema,
                             const PendingConfirmation& pending)
{
    StateTree::Node& node = StateTree::ContainerIn(history, schema);
    const auto leaf = [&](const char* name, const std::string& value) {
        Leaf(node, SchemaChild(schema, name), value);
    };
    if (pending.last != pending.returnTo) leaf("commit", std::to_string(pending.last));
    leaf("return-to", std::to_string(pending.returnTo));
    leaf("user", pending.user);
    if (pending.session != 0) leaf("session", std::to_string(pending.session));
    leaf("persistent", pending.isPersistent ? "true" : "false");
    leaf("deadline", DateAndTime(pending.deadlineUs));
    leaf("time-left", std::to_string(pending.secondsLeft));
    if (!pending.problem.empty()) leaf("problem", pending.problem);
}

void SystemState::AddCommit(StateTree::Node& history, const cdb::HistoryEntry& entry,
                            const std::vector<cdb::Checkpoint>& checkpoints)
{
    const lysc_node* list = SchemaChild(SchemaChild(m_system, "history"), "commit");
    StateTree::Node* node = StateTree::Append(history, list, {m_tree.Keep(std::to_string(entry.commit))});
    if (node == nullptr) return;
    Leaf(*node, SchemaChild(list, "time"), DateAndTime(entry.timeUs));
    Leaf(*node, SchemaChild(list, "user"), entry.user);
    Leaf(*node, SchemaChild(list, "source"), entry.source);
    if (!entry.comment.empty()) Leaf(*node, SchemaChild(list, "comment"), entry.comment);
    if (entry.changes > 0) Leaf(*node, SchemaChild(list, "changes"), std::to_string(entry.changes));
    Leaf(*node, SchemaChild(list, "undo-kept"), entry.undoKept ? "true" : "false");
    for (const cdb::Checkpoint& checkpoint : checkpoints)
        if (checkpoint.commit == entry.commit) Leaf(*node, SchemaChild(list, "checkpoint"), checkpoint.name);
}

void SystemState::AddDenials(const Access::Denials& denials)
{
    static constexpr const char* kContainer = "access";
    const lysc_node* schema = SchemaChild(m_system, kContainer);
    if (schema == nullptr) return;
    StateTree::Node& access = StateTree::ContainerIn(m_tree.At(m_system), schema);
    Leaf(access, kContainer, "denied-operations", std::to_string(denials.operations));
    Leaf(access, kContainer, "denied-data-writes", std::to_string(denials.dataWrites));
}

std::string DateAndTime(std::int64_t timeUs)
{
    using std::chrono::microseconds;
    const auto seconds =
        static_cast<std::time_t>(std::chrono::floor<std::chrono::seconds>(microseconds(timeUs)).count());
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    std::array<char, 32> date{};
    std::strftime(date.data(), date.size(), "%Y-%m-%dT%H:%M:%S", &parts);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%s.%06ldZ", date.data(),
                  static_cast<long>(timeUs - static_cast<std::int64_t>(seconds) * 1'000'000));
    return text.data();
}

}  // namespace agent
