// SPDX-License-Identifier: Apache-2.0
// The changes that the editor makes, and their log. The decisions: edit.cpp.

#include <libyang/libyang.h>

#include <utility>

#include "cdb/datastore/edit.h"
#include "cdb/datastore/edit_errors.h"

namespace cdb {
namespace {

void SetLeaf(lyd_node* leaf, const char* text, bool asDefault)
{
    // The value is canonical and of this leaf's type: libyang can't refuse it, only find it equal.
    static_cast<void>(lyd_change_term_canon(leaf, text));
    if (!asDefault) {
        ClearDefaultFlag(lyd_parent(leaf));
    } else {
        leaf->flags |= LYD_DEFAULT;
        RefreshDefaultFlag(lyd_parent(leaf));
    }
}

}  // namespace

Editor::Result Editor::Create(const lyd_node* edit, EditOp operation, lyd_node* parent)
{
    const NodeId id = m_schema.IdOf(edit->schema);
    const bool isPlain = !m_asksBelow[id] && IsPlain(edit);
    const bool isPlanning = m_depth == Depth::kWayOnly;
    lyd_node* made = CopyOf(edit, parent, LYD_DUP_NO_META | (isPlain && !isPlanning ? LYD_DUP_RECURSIVE : 0));
    m_log.Made(made);
    const auto& callpoint = m_schema.Table()[id].callpoint;
    if (!callpoint.empty()) Report(made, callpoint);
    ++m_fresh;
    Result error = callpoint.empty() ? std::nullopt : Write(made, callpoint);
    if (!error && !isPlain) error = ApplyWhole(lyd_child(edit), operation, made);
    --m_fresh;
    if (m_fresh == 0 && !isPlanning) Complete(made);
    return error;
}

void Editor::Report(const lyd_node* entry, const std::string& callpoint)
{
    NewEntry created;
    created.callpoint = callpoint;
    for (auto& place : PlacesOf(m_schema, entry))
        created.path.steps.push_back({place.node, std::move(place.keys), std::nullopt});
    m_created.push_back(std::move(created));
}

Editor::Result Editor::Write(lyd_node* entry, const std::string& callpoint)
{
    const RowKey key = RowKeyOf(m_schema, entry);
    for (const auto& write : m_writes.For({key.node, key.keys})) {
        if (write.below.empty()) continue;
        lyd_node* parent = WayTo(entry, write);
        const lysc_node* leaf = m_schema.NodeOf(write.below.back().node);
        const bool isLeaf = leaf->nodetype == LYS_LEAF && !lysc_is_key(leaf);
        if (parent != nullptr && isLeaf && FindSingle(lyd_child(parent), leaf) != nullptr) continue;
        ly_err_clean(m_schema.Context(), nullptr);
        lyd_node* made = parent != nullptr && isLeaf ? MakeLeaf(parent, leaf, ToText(write.value)) : nullptr;
        if (made == nullptr) {
            const std::string why = LastMessage(m_schema.Context());
            return BadWrite(callpoint,
                            DataPath(entry) + "/" + leaf->name + " = \"" + ToText(write.value) + '"',
                            why.empty() ? "no leaf to set is there" : why);
        }
        m_log.Made(made);
        m_writtenByCallpoint.insert(made);
    }
    return std::nullopt;
}

lyd_node* Editor::WayTo(lyd_node* entry, const EditWrites::Write& write)
{
    lyd_node* at = entry;
    for (std::size_t i = 0; i + 1 < write.below.size(); ++i) {
        const auto& place = write.below[i];
        lyd_node* next = FindPlace(m_schema, lyd_child(at), place);
        if (next == nullptr) {
            const lysc_node* node = m_schema.NodeOf(place.node);
            next = node->nodetype == LYS_LIST ? MakeEntry(at, node, place.keys) : MakeContainer(at, node);
            if (next == nullptr) return nullptr;
            m_log.Made(next);
        }
        at = next;
    }
    return at;
}

bool Editor::IsThere(const lyd_node* leaf) const
{
    return leaf != nullptr && IsExplicit(leaf) && !m_writtenByCallpoint.contains(leaf);
}

void Editor::Set(const lyd_node* edit, lyd_node* present, lyd_node* parent)
{
    if (present == nullptr) {
        m_log.Made(CopyOf(edit, parent, LYD_DUP_NO_META));
        return;
    }
    m_writtenByCallpoint.erase(present);
    const char* text = lyd_get_value(edit);
    if (!IsExplicit(present) || lyd_get_value(present) != std::string_view(text))
        m_log.Change(present, text, false);
}

void Editor::Unset(lyd_node* leaf)
{
    const lyd_value* byDefault = reinterpret_cast<const lysc_node_leaf*>(leaf->schema)->dflt;
    if (byDefault != nullptr)
        m_log.Change(leaf, lyd_value_get_canonical(m_schema.Context(), byDefault), true);
    else
        m_log.TakeOut(leaf);
}

bool Editor::IsPresent(const lyd_node* edit, const lyd_node* parent) const
{
    if (m_candidate.IsUnit(edit->schema)) return m_candidate.Exists(m_candidate.PlaceOf(edit));
    lyd_node* present = nullptr;  // stays null if there is none
    static_cast<void>(lyd_find_sibling_first(SiblingsBelow(parent), edit, &present));
    return present != nullptr;
}

lyd_node* Editor::FindPresent(const lyd_node* edit, lyd_node* parent)
{
    if (m_candidate.IsUnit(edit->schema)) return m_candidate.Find(m_candidate.PlaceOf(edit));
    lyd_node* present = nullptr;
    static_cast<void>(lyd_find_sibling_first(SiblingsBelow(parent), edit, &present));
    return present;
}

void Editor::TakeOutPresent(const lyd_node* edit, lyd_node* parent)
{
    if (m_candidate.IsUnit(edit->schema)) {
        const Place place = m_candidate.PlaceOf(edit);
        const auto it = m_candidate.Dirty().find(place);
        if (it == m_candidate.Dirty().end())
            m_log.Hide(place);
        else if (it->second.node != nullptr)
            m_log.TakeOut(it->second.node);
        return;
    }
    lyd_node* present = FindPresent(edit, parent);
    // Units below a presence container of the trunk need not be in the tree: they are deleted too.
    if (m_candidate.IsTrunk(present->schema)) EmptyTrunk(present);
    m_log.TakeOut(present);
}

lyd_node* Editor::Empty(lyd_node* container)
{
    if (m_candidate.IsTrunk(container->schema)) {
        EmptyTrunk(container);
        return container;
    }
    if (!IsExplicit(container)) return container;
    lyd_node* parent = lyd_parent(container);
    m_log.TakeOut(container);
    lyd_node* fresh = MakeContainer(parent, container->schema);
    m_log.Made(fresh);
    return fresh;
}

void Editor::EmptyTrunk(lyd_node* container)
{
    const auto& table = m_schema.Table();
    for (const NodeId id : table[m_schema.IdOf(container->schema)].children) {
        if (table[id].kind == NodeKind::kList) {
            EmptyList(id);
            continue;
        }
        lyd_node* child = FindSingle(lyd_child(container), m_schema.NodeOf(id));
        if (child == nullptr) continue;
        if (table[id].kind == NodeKind::kLeaf) {
            if (IsExplicit(child)) Unset(child);
            continue;
        }
        EmptyTrunk(child);
        if (table[id].kind == NodeKind::kPresenceContainer) m_log.TakeOut(child);
    }
}

void Editor::EmptyList(NodeId list)
{
    std::vector<lyd_node*> standing;
    const auto& dirty = m_candidate.Dirty();
    for (auto it = dirty.lower_bound({list, {}}); it != dirty.end() && it->first.node == list; ++it)
        if (it->second.node != nullptr) standing.push_back(it->second.node);
    for (lyd_node* unit : standing) m_log.TakeOut(unit);
    for (const Place& unit : m_candidate.Clean(list)) m_log.Hide(unit);
}

void Editor::EmptyUnmentioned(const lyd_node* edit)
{
    for (lyd_node* top = m_candidate.Tree(); top != nullptr; top = top->next) {
        bool isMentioned = false;
        for (const lyd_node* node = edit; node != nullptr; node = node->next)
            isMentioned = isMentioned || node->schema == top->schema;
        if (!isMentioned) Empty(top);
    }
}

lyd_node* Editor::SiblingsBelow(const lyd_node* parent) const
{
    return parent != nullptr ? lyd_child(parent) : m_candidate.Tree();
}

void EditLog::Made(lyd_node* node)
{
    if (IsExplicit(node)) ClearDefaultFlag(lyd_parent(node));
    if (m_candidate.IsUnit(node->schema)) m_candidate.Stands(node);
    Step step;
    step.node = node;
    m_changes.push_back(std::move(step));
}

void EditLog::TakeOut(lyd_node* node)
{
    Step step;
    step.parent = lyd_parent(node);
    if (m_candidate.IsUnit(node->schema)) m_candidate.Leaves(node);
    lyd_unlink_tree(node);
    RefreshDefaultFlag(step.parent);
    step.taken.reset(node);
    m_changes.push_back(std::move(step));
}

void EditLog::Hide(const Place& unit)
{
    m_candidate.Hide(unit);
    Step step;
    step.hidden = std::make_unique<Place>(unit);
    m_changes.push_back(std::move(step));
}

void EditLog::Change(lyd_node* leaf, const char* text, bool asDefault)
{
    Step step;
    step.node = leaf;
    step.text = lyd_get_value(leaf);
    step.wasDefault = !IsExplicit(leaf);
    step.changed = true;
    SetLeaf(leaf, text, asDefault);
    m_changes.push_back(std::move(step));
}

void EditLog::RollBackTo(std::size_t mark)
{
    while (m_changes.size() > mark) {
        TakeBack(m_changes.back());
        m_changes.pop_back();
    }
}

void EditLog::TakeBack(Step& step)
{
    if (step.hidden) {
        m_candidate.Show(*step.hidden);
    } else if (step.taken) {
        // It was there before, so the schema can't object.
        lyd_node* node = step.taken.release();
        static_cast<void>(lyd_insert_child(step.parent, node));
        if (IsExplicit(node)) ClearDefaultFlag(step.parent);
        if (m_candidate.IsUnit(node->schema)) m_candidate.Stands(node);
    } else if (step.changed) {
        SetLeaf(step.node, step.text.c_str(), step.wasDefault);
    } else {
        lyd_node* parent = lyd_parent(step.node);
        if (m_candidate.IsUnit(step.node->schema)) m_candidate.Leaves(step.node);
        lyd_free_tree(step.node);
        RefreshDefaultFlag(parent);
    }
}

}  // namespace cdb
