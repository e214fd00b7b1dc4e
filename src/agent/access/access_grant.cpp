// SPDX-License-Identifier: Apache-2.0
#include "agent/access/access.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace agent {
namespace {

bool Has(std::uint8_t operations, AccessOperation operation)
{
    return (operations & static_cast<std::uint8_t>(operation)) != 0;
}

bool FitsModule(const AccessRule& rule, const lysc_node* node)
{
    return rule.module == "*" || (node != nullptr && rule.module == node->module->name);
}

bool IsAtOrBelow(const lysc_node* node, const lysc_node* above)
{
    for (; node != nullptr; node = lysc_data_parent(node))
        if (node == above) return true;
    return false;
}

/// Whether the keys agree, as far as both are known.
bool KeysFit(const std::vector<std::optional<std::string>>& wanted, std::span<const std::string> keys)
{
    const std::size_t both = std::min(wanted.size(), keys.size());
    for (std::size_t at = 0; at < both; ++at)
        if (wanted[at] && *wanted[at] != keys[at]) return false;
    return true;
}

/// Whether the rule is about the node. Null is the root: only a rule about everything is about it.
bool IsAbout(const AccessRule& rule, const lysc_node* node, std::span<const std::string> keys)
{
    if (rule.kind == AccessRule::Kind::kAny || rule.node == nullptr) return true;
    return node != nullptr && IsAtOrBelow(node, rule.node) && rule.keys.size() <= keys.size() &&
           KeysFit(rule.keys, keys);
}

/// Whether the rule may be about something below the node.
bool MayBeBelow(const AccessRule& rule, const lysc_node* node, std::span<const std::string> keys)
{
    if (rule.kind == AccessRule::Kind::kAny || rule.node == nullptr) return true;
    return (node == nullptr || IsAtOrBelow(rule.node, node) || IsAtOrBelow(node, rule.node)) &&
           KeysFit(rule.keys, keys);
}

bool IsForData(const AccessRule& rule)
{
    return rule.kind == AccessRule::Kind::kAny || rule.kind == AccessRule::Kind::kData;
}

bool IsGuarded(const std::unordered_set<const lysc_node*>& guarded, const lysc_node* node)
{
    // A node's extension holds for everything below it.
    for (; !guarded.empty() && node != nullptr; node = node->parent)
        if (guarded.contains(node)) return true;
    return false;
}

}  // namespace

AccessGrant::AccessGrant(std::shared_ptr<const Source> source, AccessUser user, bool everything)
    : m_source(std::move(source)), m_user(std::move(user)), m_everything(everything)
{
    const AccessRules& rules = m_source->rules;
    m_everything |= !rules.enabled;
    std::set<std::string> groups;
    if (rules.externalGroups) groups.insert(m_user.groups.begin(), m_user.groups.end());
    for (const auto& [name, users] : rules.groups)
        if (users.contains(m_user.name)) groups.insert(name);
    // A user in no group has no rules: "*" is every group, not every user.
    for (const AccessRuleList& list : rules.lists) {
        const auto isTheirs = [&groups](const std::string& name) {
            return name == "*" ? !groups.empty() : groups.contains(name);
        };
        if (std::none_of(list.groups.begin(), list.groups.end(), isTheirs)) continue;
        for (const AccessRule& rule : list.rules) m_rules.push_back(&rule);
    }
    const auto all = [this](AccessOperation operation) {
        return Look(operation, nullptr, {}) == Visibility::kWhole;
    };
    m_readsAll = all(AccessOperation::kRead);
    m_writesAll =
        all(AccessOperation::kCreate) && all(AccessOperation::kUpdate) && all(AccessOperation::kDelete);
}

bool AccessGrant::MayExecute(const lysc_node* rpc) const
{
    const std::string_view module = rpc->module->name;
    const std::string_view name = rpc->name;
    const bool base = module == "ietf-netconf";
    if (m_everything || (base && name == "close-session")) return true;
    for (const AccessRule* rule : m_rules) {
        if (!Has(rule->operations, AccessOperation::kExec) || !FitsModule(*rule, rpc)) continue;
        const bool about =
            rule->kind == AccessRule::Kind::kAny ||
            (rule->kind == AccessRule::Kind::kOperation && (rule->target == "*" || rule->target == name));
        if (about) return rule->permit;
    }
    if (IsGuarded(m_source->guarded.operations, rpc) || IsGuarded(m_source->guarded.all, rpc)) return false;
    if (base && (name == "kill-session" || name == "delete-config")) return false;
    // Each checkpoint is shared by all users, and no rule about data protects it.
    if (module == "switch-history" && (name == "checkpoint" || name == "delete-checkpoint")) return false;
    // It names users and what they did, and no rule about data protects it.
    if (module == "switch-system" && name == "get-log") return false;
    return m_source->rules.execDefault;
}

bool AccessGrant::MayReceive(const lysc_node* notification) const
{
    if (m_everything) return true;
    const std::string_view name = notification->name;
    for (const AccessRule* rule : m_rules) {
        if (!Has(rule->operations, AccessOperation::kRead) || !FitsModule(*rule, notification)) continue;
        const bool about =
            rule->kind == AccessRule::Kind::kAny ||
            (rule->kind == AccessRule::Kind::kNotification && (rule->target == "*" || rule->target == name));
        if (about) return rule->permit;
    }
    return !IsGuarded(m_source->guarded.all, notification) && m_source->rules.readDefault;
}

bool AccessGrant::Default(AccessOperation operation, const lysc_node* node) const
{
    if (IsGuarded(m_source->guarded.all, node)) return false;
    if (operation == AccessOperation::kRead) return m_source->rules.readDefault;
    return !IsGuarded(m_source->guarded.writes, node) && m_source->rules.writeDefault;
}

Visibility AccessGrant::Reading(const lysc_node* node, std::span<const std::string> keys) const
{
    return m_readsAll ? Visibility::kWhole : Look(AccessOperation::kRead, node, keys);
}

Visibility AccessGrant::Look(AccessOperation operation, const lysc_node* node,
                             std::span<const std::string> keys) const
{
    if (m_everything) return Visibility::kWhole;
    // The first rule about the node decides. A rule before one that permits everything below may deny a part
    // of that.
    std::optional<bool> decision;
    bool deniedBelow = false;
    for (const AccessRule* rule : m_rules) {
        if (!IsForData(*rule) || !Has(rule->operations, operation)) continue;
        const bool about = IsAbout(*rule, node, keys);
        if (about && FitsModule(*rule, node) && !decision) {
            decision = rule->permit;
            if (!rule->permit) return Visibility::kHidden;
        }
        if (about && rule->module == "*" && rule->permit)
            return deniedBelow ? Visibility::kPartly : Visibility::kWhole;
        if (!rule->permit && MayBeBelow(*rule, node, keys)) deniedBelow = true;
    }
    if (!decision) decision = Default(operation, node);
    // The root can't be hidden.
    if (!*decision && node != nullptr) return Visibility::kHidden;
    const ProtectedNodes& guarded = m_source->guarded;
    const bool isRead = operation == AccessOperation::kRead;
    const bool permitted = isRead ? m_source->rules.readDefault : m_source->rules.writeDefault;
    const bool anyGuarded = !guarded.all.empty() || (!isRead && !guarded.writes.empty());
    return deniedBelow || !permitted || anyGuarded ? Visibility::kPartly : Visibility::kWhole;
}

std::vector<std::string> KeysOnTheWay(const lyd_node* node)
{
    std::vector<std::string> keys;
    for (; node != nullptr; node = lyd_parent(node)) {
        const auto own = cdb::KeysOf(node);
        keys.insert(keys.begin(), own.begin(), own.end());
    }
    return keys;
}

ProtectedNodes ProtectedNodes::Of(const ly_ctx* context)
{
    ProtectedNodes found;
    const auto note = [](lysc_node* node, void* data, ly_bool*) {
        auto& nodes = *static_cast<ProtectedNodes*>(data);
        for (LY_ARRAY_COUNT_TYPE at = 0; at < LY_ARRAY_COUNT(node->exts); ++at) {
            const lysc_ext* extension = node->exts[at].def;
            if (std::strcmp(extension->module->name, "ietf-netconf-acm") != 0) continue;
            const bool isOperation = (node->nodetype & (LYS_RPC | LYS_ACTION)) != 0;
            if (std::strcmp(extension->name, "default-deny-all") == 0)
                (isOperation ? nodes.operations : nodes.all).insert(node);
            if (std::strcmp(extension->name, "default-deny-write") == 0) nodes.writes.insert(node);
        }
        return LY_SUCCESS;
    };
    std::uint32_t index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(context, &index))
        if (module->implemented != 0 && module->compiled != nullptr)
            lysc_module_dfs_full(module, note, &found);
    return found;
}

AccessRules DefaultAccessRules(const std::string& adminGroup)
{
    AccessRules rules;
    rules.execDefault = false;
    AccessRule everything;
    everything.name = "everything";
    everything.permit = true;
    rules.lists.push_back({"operators", {adminGroup}, {everything}});
    AccessRuleList readers{"readers", {"*"}, {}};
    constexpr std::array<std::pair<const char*, const char*>, 7> kReading{
        {{"ietf-netconf", "get"},
         {"ietf-netconf", "get-config"},
         {"ietf-netconf-monitoring", "get-schema"},
         {"ietf-netconf-nmda", "get-data"},
         {"switch-history", "compare"},
         {"switch-history", "commit-changes"},
         {"notifications", "create-subscription"}}};
    for (const auto& [module, operation] : kReading) {
        AccessRule rule;
        rule.name = operation;
        rule.module = module;
        rule.kind = AccessRule::Kind::kOperation;
        rule.target = operation;
        rule.operations = static_cast<std::uint8_t>(AccessOperation::kExec);
        rule.permit = true;
        readers.rules.push_back(std::move(rule));
    }
    rules.lists.push_back(std::move(readers));
    return rules;
}

}  // namespace agent
