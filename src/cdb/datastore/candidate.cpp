// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/candidate.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <utility>

#include "cdb/datastore/past.h"
#include "cdb/datastore/tree_load.h"

namespace cdb {
namespace {

/// So many rows each candidate keeps in any case.
constexpr std::size_t kAlwaysKept = 1000;

}  // namespace

Candidate::Reading::Reading(const Candidate& candidate) : m_candidate(candidate)
{
    if (m_candidate.m_readings == 0) m_candidate.BeginReading();
    ++m_candidate.m_readings;
}

Candidate::Reading::~Reading()
{
    if (--m_candidate.m_readings == 0) m_candidate.EndReading();
}

void Candidate::BeginReading() const
{
    if (const auto error = Prepare()) throw FatalError(error->message);
    auto newest = MakeRowView(m_store);
    if (m_since.rows.empty()) {
        m_running = std::move(newest);
        return;
    }
    m_newestRows = std::move(newest);
    m_running = std::make_unique<PatchedView>(*m_newestRows, m_since.rows);
}

void Candidate::EndReading() const
{
    m_running.reset();
    m_newestRows.reset();
    CountKept();
    // What is not kept is read again.
    if (m_kept->now <= m_kept->most || m_counted <= kAlwaysKept) return;
    m_since = {};
    CountKept();
}

void Candidate::CountKept() const
{
    m_kept->now += m_since.rows.size();
    m_kept->now -= std::exchange(m_counted, m_since.rows.size());
}

std::optional<Error> Candidate::Prepare() const
{
    const std::uint64_t newest = m_store.LastCommit();
    const std::uint64_t known = std::max(m_base, m_since.newest);
    if (newest == known) return std::nullopt;
    auto rows = RowsAfter(m_schema, m_store, known, newest);
    if (!rows)
        return Error{.tag = ErrorTag::kOperationFailed,
                     .message = "this candidate began with commit " + std::to_string(m_base) +
                                ", which can't be looked at any more: " + rows.error().message +
                                "; discard the candidate's changes"};
    m_since.rows.merge(*rows);  // of a row that is there already, the older state stays
    m_since.newest = newest;
    return std::nullopt;
}

Candidate::Candidate(const Schema& schema, const Store& store, KeptRowsPtr kept)
    : m_schema(schema), m_store(store), m_kept(kept ? std::move(kept) : std::make_shared<KeptRows>())
{
    const auto& table = schema.Table();
    m_unitOf.resize(table.Size(), kNoNode);
    for (const auto& node : table.Nodes()) {
        if (node.parent != kNoNode) m_unitOf[node.id] = m_unitOf[node.parent];
        if (m_unitOf[node.id] == kNoNode && node.kind == NodeKind::kList) m_unitOf[node.id] = node.id;
    }
    static_cast<void>(Reset());
}

Candidate::~Candidate() { m_kept->now -= m_counted; }

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
    m_base = m_store.Read().Commit();
    m_since = {};
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

Candidate::State Candidate::Replace(const RowPatch& rows)
{
    State before{{}, {}, std::exchange(m_base, m_store.LastCommit()), std::exchange(m_since, {})};
    try {
        const Reading reading(*this);
        PatchedView patched(*m_running, rows);
        TreePtr tree = EmptyTree(m_schema);
        LoadTrunk(m_schema, tree.get(), patched);
        DirtySet units;
        for (const Place& place : UnitsOf(rows)) {
            Unit unit;
            if (const Row* row = patched.Get(place.node, place.keys))
                unit.node = Load(place, Row(*row), patched, tree.get());
            unit.inRunning = m_running->Get(place.node, place.keys) != nullptr;
            if (unit.node != nullptr || unit.inRunning) units.emplace(place, unit);
        }
        before.tree = std::exchange(m_tree, std::move(tree));
        before.units = std::exchange(m_units, std::move(units));
    } catch (...) {
        m_base = before.base;
        m_since = std::move(before.since);
        throw;
    }
    return before;
}

void Candidate::Restore(State state)
{
    m_tree = std::move(state.tree);
    m_units = std::move(state.units);
    m_base = state.base;
    m_since = std::move(state.since);
}

std::set<Place> Candidate::UnitsOf(const RowPatch& rows) const
{
    std::set<Place> units;
    for (const auto& [key, row] : rows) {
        const NodeId list = m_unitOf[key.first];
        if (list == kNoNode) continue;
        const auto count = static_cast<std::ptrdiff_t>(m_schema.Table()[list].keys.size());
        units.insert(Place{list, {key.second.begin(), key.second.begin() + count}});
    }
    return units;
}

}  // namespace cdb
