// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/candidate.h"

#include <libyang/libyang.h>

#include <algorithm>

#include "cdb/datastore/tree_load.h"

namespace cdb {
namespace {

/// Rows with changes applied on top. Both must outlive it.
class PatchedView final : public RowView {
public:
    PatchedView(RowView& below, const RowPatch& changes) : m_below(below), m_changes(changes) {}

    const Row* Get(NodeId node, std::span<const std::string> keys) override;
    void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) override;

private:
    RowView& m_below;
    const RowPatch& m_changes;
};

const Row* PatchedView::Get(NodeId node, std::span<const std::string> keys)
{
    const auto it = m_changes.find({node, {keys.begin(), keys.end()}});
    if (it == m_changes.end()) return m_below.Get(node, keys);
    return it->second ? &*it->second : nullptr;
}

void PatchedView::ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit)
{
    const std::vector<std::string> parent(parentKeys.begin(), parentKeys.end());
    const auto isBelow = [&](const auto& key) {
        return key.first == list && key.second.size() > parent.size() &&
               std::equal(parent.begin(), parent.end(), key.second.begin());
    };
    auto next = m_changes.lower_bound({list, parent});
    while (next != m_changes.end() && next->first.first == list && next->first.second == parent) ++next;
    bool goesOn = true;
    const auto own = [&](const std::vector<std::string>& keys) {
        return std::vector<std::string>(keys.begin() + static_cast<std::ptrdiff_t>(parent.size()),
                                        keys.end());
    };
    const auto showPatched = [&](const std::vector<std::string>* before) {
        for (; goesOn && next != m_changes.end() && isBelow(next->first); ++next) {
            const auto keys = own(next->first.second);
            if (before != nullptr && !(keys < *before)) return;
            const std::vector<std::string_view> shown(keys.begin(), keys.end());
            if (next->second) goesOn = visit(shown, *next->second);
        }
    };
    m_below.ForEach(list, parentKeys, [&](std::span<const std::string_view> keys, const Row& row) {
        const std::vector<std::string> text(keys.begin(), keys.end());
        showPatched(&text);
        std::vector<std::string> all = parent;
        all.insert(all.end(), text.begin(), text.end());
        if (goesOn && !m_changes.contains({list, all})) goesOn = visit(keys, row);
        return goesOn;
    });
    showPatched(nullptr);
}

}  // namespace

Candidate::Reading::Reading(const Candidate& candidate) : m_candidate(candidate)
{
    if (m_candidate.m_readings++ == 0) m_candidate.m_running = MakeRowView(m_candidate.m_store);
}

Candidate::Reading::~Reading()
{
    if (--m_candidate.m_readings == 0) m_candidate.m_running.reset();
}

Candidate::Candidate(const Schema& schema, const Store& store) : m_schema(schema), m_store(store)
{
    const auto& table = schema.Table();
    m_unitOf.resize(table.Size(), kNoNode);
    for (const auto& node : table.Nodes()) {
        if (node.parent != kNoNode) m_unitOf[node.id] = m_unitOf[node.parent];
        if (m_unitOf[node.id] == kNoNode && node.kind == NodeKind::kList) m_unitOf[node.id] = node.id;
    }
    static_cast<void>(Reset());
}

bool Candidate::IsUnit(const lysc_node* node) const
{
    const NodeId id = m_schema.IdOf(node);
    return id != kNoNode && m_unitOf[id] == id;
}

bool Candidate::IsTrunk(const lysc_node* node) const
{
    const NodeId id = m_schema.IdOf(node);
    return id != kNoNode && m_unitOf[id] == kNoNode;
}

Place Candidate::PlaceOf(const lyd_node* unit) const { return {m_schema.IdOf(unit->schema), KeysOf(unit)}; }

lyd_node* Candidate::Find(const Place& place)
{
    if (const auto it = m_units.find(place); it != m_units.end()) return it->second.node;
    const Row* row = m_running->Get(place.node, place.keys);
    if (row == nullptr) return nullptr;
    const Row kept = *row;
    lyd_node* node = Load(place, kept, *m_running, m_tree.get());
    m_units.emplace(place, Unit{node, true});
    return node;
}

bool Candidate::Exists(const Place& place) const
{
    if (const auto it = m_units.find(place); it != m_units.end()) return it->second.node != nullptr;
    return m_running->Get(place.node, place.keys) != nullptr;
}

bool Candidate::HasUnits(NodeId list) const
{
    bool has = false;
    const auto first = m_units.lower_bound({list, {}});
    for (auto it = first; it != m_units.end() && it->first.node == list && !has; ++it)
        has = it->second.node != nullptr;
    if (has) return true;
    Place place{list, {}};
    m_running->ForEach(list, {}, [&](std::span<const std::string_view> keys, const Row&) {
        place.keys.assign(keys.begin(), keys.end());
        has = !m_units.contains(place);
        return !has;
    });
    return has;
}

bool Candidate::HasContent(const lyd_node* container) const
{
    const auto& table = m_schema.Table();
    for (const NodeId id : table[m_schema.IdOf(container->schema)].children) {
        if (table[id].kind == NodeKind::kList) {
            if (HasUnits(id)) return true;
            continue;
        }
        const lyd_node* child = FindSingle(lyd_child(container), m_schema.NodeOf(id));
        if (child == nullptr) continue;
        const bool has = table[id].kind == NodeKind::kContainer ? HasContent(child) : IsExplicit(child);
        if (has) return true;
    }
    return false;
}

std::vector<Place> Candidate::Clean(NodeId list) const
{
    std::vector<Place> places;
    m_running->ForEach(list, {}, [&](std::span<const std::string_view> keys, const Row&) {
        Place place{list, {keys.begin(), keys.end()}};
        if (!m_units.contains(place)) places.push_back(std::move(place));
        return true;
    });
    return places;
}

void Candidate::Stands(lyd_node* unit) { m_units[PlaceOf(unit)].node = unit; }

void Candidate::Leaves(const lyd_node* unit)
{
    const auto it = m_units.find(PlaceOf(unit));
    if (it == m_units.end()) return;
    if (it->second.inRunning)
        it->second.node = nullptr;
    else
        m_units.erase(it);
}

TreePtr Candidate::Reset()
{
    TreePtr before = std::move(m_tree);
    m_units.clear();
    m_tree = EmptyTree(m_schema);
    const auto snapshot = m_store.Read();
    m_base = snapshot.Commit();
    const Reading reading(*this);
    LoadTrunk(m_schema, m_tree.get(), *m_running);
    return before;
}

lyd_node* Candidate::Load(const Place& place, const Row& row, RowView& rows, lyd_node* tree) const
{
    return LoadEntry(m_schema, ParentIn(tree, place.node), {place.node, place.keys}, row, rows);
}

lyd_node* Candidate::ParentIn(lyd_node* tree, NodeId list) const
{
    lyd_node* at = nullptr;
    for (const NodeId id : m_schema.Table().WayTo(m_schema.Table()[list].parent)) {
        lyd_node* next = FindSingle(at == nullptr ? tree : lyd_child(at), m_schema.NodeOf(id));
        at = next != nullptr ? next : MakeContainer(at, m_schema.NodeOf(id));
    }
    return at;
}

void Candidate::Patch(RowView& now, const RowPatch& changes)
{
    const Reading reading(*this);
    PatchedView patched(now, changes);
    // Everything is read before anything changes, since the view reads the tree.
    TreePtr tree = EmptyTree(m_schema);
    LoadTrunk(m_schema, tree.get(), patched);
    DirtySet units;
    for (const auto& [key, ignored] : changes) {
        const NodeId list = m_unitOf[key.first];
        if (list == kNoNode) continue;
        const auto count = static_cast<std::ptrdiff_t>(m_schema.Table()[list].keys.size());
        const Place place{list, {key.second.begin(), key.second.begin() + count}};
        if (units.contains(place)) continue;
        Unit unit;
        if (const Row* row = patched.Get(place.node, place.keys))
            unit.node = Load(place, Row(*row), patched, tree.get());
        unit.inRunning = m_running->Get(place.node, place.keys) != nullptr;
        if (unit.node != nullptr || unit.inRunning) units.emplace(place, unit);
    }
    for (const auto& [place, unit] : m_units) {
        if (!units.try_emplace(place, unit).second || unit.node == nullptr) continue;
        lyd_unlink_tree(unit.node);
        // It was in such a tree before, so the schema can't object.
        static_cast<void>(lyd_insert_child(ParentIn(tree.get(), place.node), unit.node));
    }
    m_units = std::move(units);
    m_tree = std::move(tree);
}

}  // namespace cdb
