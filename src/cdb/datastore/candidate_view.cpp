// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/candidate_view.h"

#include <libyang/libyang.h>

#include <algorithm>

#include "cdb/datastore/tree.h"

namespace cdb {
namespace {

std::vector<std::string_view> Views(const std::vector<std::string>& keys)
{
    return {keys.begin(), keys.end()};
}

}  // namespace

CandidateView::CandidateView(const Schema& schema, const Candidate& candidate)
    : m_schema(schema), m_candidate(candidate), m_reading(candidate)
{
}

const Candidate::Unit* CandidateView::UnitOf(NodeId node, std::span<const std::string> keys) const
{
    const NodeId unit = m_candidate.ListOf(node);
    const std::size_t count = m_schema.Table()[unit].keys.size();
    if (keys.size() < count) return nullptr;
    const auto own = keys.first(count);
    const auto it = m_candidate.Dirty().find({unit, {own.begin(), own.end()}});
    return it == m_candidate.Dirty().end() ? nullptr : &it->second;
}

const Row* CandidateView::Get(NodeId node, std::span<const std::string> keys)
{
    const bool isTrunk = m_candidate.ListOf(node) == kNoNode;
    if (!isTrunk && UnitOf(node, keys) == nullptr) return m_candidate.Running().Get(node, keys);
    const lyd_node* holder = FindRow(m_schema, m_candidate.Tree(), {node, {keys.begin(), keys.end()}});
    if (holder == nullptr) return nullptr;
    m_row = RowOf(m_schema, holder);
    const bool needsNone = m_schema.Table()[node].kind == NodeKind::kContainer && m_row.leaves.empty();
    return needsNone ? nullptr : &m_row;
}

void CandidateView::ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit)
{
    if (m_candidate.ListOf(list) == list) return ForEachUnit(list, visit);
    const auto* unit = UnitOf(list, parentKeys);
    if (unit == nullptr) return m_candidate.Running().ForEach(list, parentKeys, visit);
    if (unit->node != nullptr) ForEachIn(unit->node, list, parentKeys, visit);
}

void CandidateView::ForEachUnit(NodeId list, const EntryVisit& visit)
{
    const auto& units = m_candidate.Dirty();
    auto next = units.lower_bound({list, {}});
    bool goesOn = true;
    // Shows the dirty units before `keys`, or all if it is null.
    const auto showDirty = [&](const std::vector<std::string>* keys) {
        for (; goesOn && next != units.end() && next->first.node == list; ++next) {
            if (keys != nullptr && !(next->first.keys < *keys)) return;
            if (next->second.node != nullptr)
                goesOn = visit(Views(next->first.keys), RowOf(m_schema, next->second.node));
        }
    };
    Place place{list, {}};
    m_candidate.Running().ForEach(list, {}, [&](std::span<const std::string_view> keys, const Row& row) {
        place.keys.assign(keys.begin(), keys.end());
        showDirty(&place.keys);
        if (goesOn && !units.contains(place)) goesOn = visit(keys, row);
        return goesOn;
    });
    showDirty(nullptr);
}

void CandidateView::ForEachIn(const lyd_node* unit, NodeId list, std::span<const std::string> parentKeys,
                              const EntryVisit& visit)
{
    const lyd_node* parent = FindRow(m_schema, m_candidate.Tree(),
                                     {m_schema.Table()[list].parent, {parentKeys.begin(), parentKeys.end()}});
    if (parent == nullptr) parent = unit;
    std::vector<std::pair<std::vector<std::string>, const lyd_node*>> entries;
    const lysc_node* schema = m_schema.NodeOf(list);
    for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next)
        if (child->schema == schema) entries.emplace_back(KeysOf(child), child);
    std::sort(entries.begin(), entries.end());
    for (const auto& [keys, node] : entries)
        if (!visit(Views(keys), RowOf(m_schema, node))) return;
}

void UnitsView::ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit)
{
    if (m_candidate.ListOf(list) != list) return m_rows->ForEach(list, parentKeys, visit);
    for (auto it = m_units.lower_bound({list, {}}); it != m_units.end() && it->node == list; ++it) {
        const Row* row = m_rows->Get(list, it->keys);
        if (row == nullptr) continue;
        const Row kept = *row;  // the visit may call Get
        if (!visit(Views(it->keys), kept)) return;
    }
}

}  // namespace cdb
