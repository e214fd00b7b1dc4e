// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/validate_references.h"

#include <libyang/libyang.h>

#include <algorithm>

namespace cdb {
namespace {

/// libyang's data path of a row: "/switch-config:config/switch-oam-sflow:oam/sflow/interface[name='eth1']".
std::string DataPathOf(const SchemaTable& table, const RowKey& key)
{
    std::vector<NodeId> way;
    for (NodeId id = key.node; id != kNoNode; id = table[id].parent) way.push_back(id);
    std::string path;
    auto next = key.keys.begin();
    for (auto it = way.rbegin(); it != way.rend(); ++it) {
        const auto& node = table[*it];
        const bool isSame = node.parent != kNoNode && table[node.parent].module == node.module;
        path += '/' + (isSame ? "" : node.module + ':') + node.name;
        for (const NodeId id : node.keys) {
            if (next == key.keys.end()) break;
            const char quote = next->find('\'') == std::string::npos ? '\'' : '"';
            path += '[' + table[id].name + '=' + quote + *next++ + quote + ']';
        }
    }
    return path;
}

/// `interface "eth1"`
std::string DescribeRow(const SchemaTable& table, const RowKey& key)
{
    const auto& node = table[key.node];
    if (node.kind != NodeKind::kList) return "container \"" + node.name + '"';
    std::string keys;
    for (auto it = key.keys.end() - static_cast<std::ptrdiff_t>(node.keys.size()); it != key.keys.end(); ++it)
        keys += (keys.empty() ? "" : " ") + *it;
    return node.name + " \"" + keys + '"';
}

}  // namespace

void TakeOverReferences(const Schema& schema)
{
    for (const auto& reference : schema.Constraints().references) {
        const auto* leaf = reinterpret_cast<const lysc_node_leaf*>(schema.NodeOf(reference.leaf));
        const_cast<lysc_type_leafref*>(reinterpret_cast<const lysc_type_leafref*>(leaf->type))
            ->require_instance = 0;
    }
}

DanglingReferences::DanglingReferences(const Schema& schema, std::size_t limit)
    : m_schema(schema), m_table(schema.Table()), m_limit(limit)
{
    for (const auto& reference : schema.Constraints().references)
        m_byLeaf.emplace(schema.NodeOf(reference.leaf), &reference);
}

void DanglingReferences::InCandidate(const Candidate& candidate)
{
    if (m_byLeaf.empty()) return;
    for (const lyd_node* top = candidate.Tree(); top != nullptr; top = top->next) InTree(candidate, top);
    OfGone(candidate);
}

void DanglingReferences::InTree(const Candidate& candidate, const lyd_node* node)
{
    for (const lyd_node* child = lyd_child(node); child != nullptr; child = child->next) {
        if (child->schema->nodetype != LYS_LEAF) {
            InTree(candidate, child);
            continue;
        }
        const auto it = m_byLeaf.find(child->schema);
        if (it == m_byLeaf.end()) continue;
        const std::string target = lyd_get_value(child);
        if (candidate.Exists({it->second->list, {target}})) continue;
        Add(*it->second, RowKeyOf(m_schema, node).keys, target);
    }
}

void DanglingReferences::OfGone(const Candidate& candidate)
{
    const auto& dirty = candidate.Dirty();
    std::set<NodeId> lists;  // with deleted units
    for (const auto& [place, unit] : dirty)
        if (unit.node == nullptr) lists.insert(place.node);
    for (const auto& reference : m_schema.Constraints().references) {
        if (!lists.contains(reference.list)) continue;
        const NodeId unitList = candidate.ListOf(reference.leaf);
        if (unitList == kNoNode) continue;  // in the trunk: checked in the tree
        const auto count = static_cast<std::ptrdiff_t>(m_table[unitList].keys.size());
        Place target{reference.list, {""}};
        ForEachValue(candidate.Running(), reference,
                     [&](std::vector<std::string> keys, const std::string& value) {
                         target.keys.front() = value;
                         const auto it = dirty.find(target);
                         if (it == dirty.end() || it->second.node != nullptr) return;
                         // Dirty units are checked in the tree.
                         if (!dirty.contains({unitList, {keys.begin(), keys.begin() + count}}))
                             Add(reference, keys, value);
                     });
    }
}

void DanglingReferences::InRows(RowView& rows)
{
    for (const auto& reference : m_schema.Constraints().references)
        ForEachValue(rows, reference, [&](std::vector<std::string> keys, const std::string& value) {
            if (rows.Get(reference.list, std::vector{value}) == nullptr) Add(reference, keys, value);
        });
}

template <typename Visit>
void DanglingReferences::ForEachValue(RowView& rows, const Reference& reference, Visit&& visit) const
{
    const auto& leaf = m_table[reference.leaf];
    // Without parent keys, all rows of the node are visited, each with all its keys.
    rows.ForEach(leaf.parent, {}, [&](std::span<const std::string_view> keys, const Row& row) {
        if (leaf.isKey) {
            const auto& own = m_table[leaf.parent].keys;
            const auto index = std::find(own.begin(), own.end(), reference.leaf) - own.begin();
            const auto at = static_cast<std::ptrdiff_t>(keys.size() - own.size()) + index;
            visit({keys.begin(), keys.end()}, std::string(keys[static_cast<std::size_t>(at)]));
            return true;
        }
        for (const auto& [name, value] : row.leaves)
            if (name == leaf.name) visit({keys.begin(), keys.end()}, ToText(value));
        return true;
    });
}

void DanglingReferences::Add(const Reference& reference, const std::vector<std::string>& keys,
                             const std::string& target)
{
    if (m_errors.size() >= m_limit) {
        ++m_more;
        return;
    }
    const auto& leaf = m_table[reference.leaf];
    const RowKey holder{leaf.parent, keys};
    RowKey referrer = holder;
    std::string as = leaf.name;
    if (leaf.isKey && m_table[leaf.parent].parent != kNoNode) {
        as = m_table[leaf.parent].name;
        referrer.node = m_table[leaf.parent].parent;
        referrer.keys.resize(keys.size() - m_table[leaf.parent].keys.size());
    }
    Error error;
    error.tag = ErrorTag::kDataMissing;
    error.appTag = "instance-required";
    error.path = DataPathOf(m_table, holder) + '/' + leaf.name;
    error.message = "there is no " + m_table[reference.list].name + " \"" + target + "\", which " +
                    DescribeRow(m_table, referrer) + " refers to as its " + as +
                    "; create it or take the reference out";
    m_errors.push_back(std::move(error));
}

void DanglingReferences::AppendTo(std::vector<Error>& errors) const
{
    errors.insert(errors.end(), m_errors.begin(), m_errors.end());
    if (m_more == 0) return;
    Error rest;
    rest.tag = ErrorTag::kDataMissing;
    rest.appTag = "instance-required";
    rest.message = std::to_string(m_more) + " more references name entries that are not there";
    errors.push_back(std::move(rest));
}

}  // namespace cdb
