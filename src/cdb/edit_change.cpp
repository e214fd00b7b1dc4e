// The changes that the editor makes. What calls for them: edit.cpp.

#include <libyang/libyang.h>

#include "cdb/edit.h"
#include "cdb/edit_errors.h"

namespace cdb {
namespace {

lyd_node* Copy(const lyd_node* node, lyd_node* parent, bool whole)
{
    lyd_node* copy = nullptr;
    const std::uint32_t options = LYD_DUP_NO_META | (whole ? LYD_DUP_RECURSIVE : 0);
    if (lyd_dup_single(node, reinterpret_cast<lyd_node_inner*>(parent), options, &copy) != LY_SUCCESS)
        throw std::bad_alloc();  // the node is in one tree already: nothing else can go wrong
    return copy;
}

}  // namespace

Editor::Result Editor::Create(const lyd_node* edit, EditOp operation, lyd_node* parent)
{
    const NodeId id = m_schema.IdOf(edit->schema);
    const bool isPlain = !m_asksBelow[id] && IsPlain(edit);
    const bool isPlanning = m_touched == nullptr;
    lyd_node* made = Copy(edit, parent, isPlain && !isPlanning);
    m_log.Made(made);
    MarkWhole(made);
    const auto& callpoint = m_schema.Table()[id].callpoint;
    if (!callpoint.empty()) Report(made, callpoint);
    ++m_fresh;
    Result error = callpoint.empty() ? std::nullopt : Write(made, callpoint);
    if (!error && !isPlain) error = ApplySiblings(lyd_child(edit), operation, made);
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
    MarkLeaves(parent);
    if (present == nullptr) {
        m_log.Made(Copy(edit, parent, false));
        return;
    }
    m_writtenByCallpoint.erase(present);
    const char* text = lyd_get_value(edit);
    if (!IsExplicit(present) || lyd_get_value(present) != std::string_view(text))
        m_log.Change(present, text, false);
}

void Editor::Unset(lyd_node* leaf)
{
    MarkLeaves(lyd_parent(leaf));
    const lyd_value* byDefault = reinterpret_cast<const lysc_node_leaf*>(leaf->schema)->dflt;
    if (byDefault != nullptr)
        m_log.Change(leaf, lyd_value_get_canonical(m_schema.Context(), byDefault), true);
    else
        m_log.TakeOut(leaf);
}

void Editor::TakeOut(lyd_node* node)
{
    MarkWhole(node);
    m_log.TakeOut(node);
}

lyd_node* Editor::Empty(lyd_node* container)
{
    if (!IsExplicit(container)) return container;
    if (lyd_node* parent = lyd_parent(container); parent != nullptr) {
        TakeOut(container);
        lyd_node* fresh = MakeContainer(parent, container->schema);
        m_log.Made(fresh);
        return fresh;
    }
    lyd_node* next = nullptr;
    for (lyd_node* child = lyd_child(container); child != nullptr; child = next) {
        next = child->next;
        if (!IsExplicit(child)) continue;
        if (child->schema->nodetype == LYS_LEAF)
            Unset(child);
        else if (child->schema->nodetype == LYS_CONTAINER && (child->schema->flags & LYS_PRESENCE) == 0)
            Empty(child);
        else
            TakeOut(child);
    }
    return container;
}

void Editor::EmptyUnmentioned(const lyd_node* edit)
{
    for (lyd_node* top = m_tree; top != nullptr; top = top->next) {
        bool isMentioned = false;
        for (const lyd_node* node = edit; node != nullptr; node = node->next)
            isMentioned = isMentioned || node->schema == top->schema;
        if (!isMentioned) Empty(top);
    }
}

void Editor::MarkLeaves(const lyd_node* parent)
{
    // What is inside an entry just made is marked with the entry.
    if (m_touched != nullptr && m_fresh == 0) m_touched->MarkLeaves(parent);
}

void Editor::MarkWhole(const lyd_node* node)
{
    if (m_touched != nullptr && m_fresh == 0) m_touched->MarkWhole(node);
}

lyd_node* Editor::SiblingsBelow(const lyd_node* parent) const
{
    return parent != nullptr ? lyd_child(parent) : m_tree;
}

}  // namespace cdb
