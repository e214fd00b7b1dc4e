// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/tree_load.h"

#include <libyang/libyang.h>

#include <set>
#include <utility>

namespace cdb {
namespace {

class Loader {
public:
    Loader(const Schema& schema, RowView& rows, bool withLists)
        : m_schema(schema), m_table(schema.Table()), m_rows(rows), m_withLists(withLists)
    {
    }

    void Container(lyd_node* parent, lyd_node* present, const RowKey& key)
    {
        const Row* row = m_rows.Get(key.node, key.keys);
        lyd_node* container = present;
        if (container == nullptr) {
            const bool isPresence = m_table[key.node].kind == NodeKind::kPresenceContainer;
            if (isPresence && row == nullptr) return;
            container = MakeContainer(parent, m_schema.NodeOf(key.node));
            if (container == nullptr) Refuse(key, "it can't be made");
        }
        if (row != nullptr) Leaves(container, key, *row);
        Below(container, key);
    }

    lyd_node* Entry(lyd_node* parent, const RowKey& key, const Row& row)
    {
        const auto count = static_cast<std::ptrdiff_t>(m_table[key.node].keys.size());
        lyd_node* entry =
            MakeEntry(parent, m_schema.NodeOf(key.node), {key.keys.end() - count, key.keys.end()});
        if (entry == nullptr) Refuse(key, "its keys");
        ClearDefaultFlag(parent);
        Leaves(entry, key, row);
        Below(entry, key);
        return entry;
    }

private:
    void Below(lyd_node* parent, const RowKey& key)
    {
        for (const NodeId child : m_table[key.node].children) {
            if (m_table[child].kind == NodeKind::kList) {
                if (m_withLists) List(parent, child, key.keys);
            } else if (m_table[child].kind != NodeKind::kLeaf) {
                Container(parent, FindSingle(lyd_child(parent), m_schema.NodeOf(child)), {child, key.keys});
            }
        }
    }

    void List(lyd_node* parent, NodeId list, const std::vector<std::string>& parentKeys)
    {
        m_rows.ForEach(list, parentKeys, [&](std::span<const std::string_view> own, const Row& row) {
            RowKey key{list, parentKeys};
            key.keys.insert(key.keys.end(), own.begin(), own.end());
            Entry(parent, key, row);
            return true;
        });
    }

    void Leaves(lyd_node* holder, const RowKey& key, const Row& row)
    {
        for (const auto& [name, value] : row.leaves) {
            const NodeId leaf = m_table.Child(key.node, name);
            if (leaf == kNoNode || m_table[leaf].kind != NodeKind::kLeaf) continue;  // of an older schema
            const std::string text = ToText(value);
            if (TypeOf(value) != m_table[leaf].type || !SetLeaf(holder, m_schema.NodeOf(leaf), text))
                Refuse(key, "leaf " + name + " with the value \"" + text + '"');
        }
    }

    static bool SetLeaf(lyd_node* holder, const lysc_node* leaf, const std::string& text)
    {
        ClearDefaultFlag(holder);
        // Top-level containers have their default leaves already.
        if (lyd_node* present = FindSingle(lyd_child(holder), leaf); present != nullptr) {
            const auto result = lyd_change_term(present, text.c_str());
            return result == LY_SUCCESS || result == LY_EEXIST || result == LY_ENOT;
        }
        return MakeLeaf(holder, leaf, text) != nullptr;
    }

    [[noreturn]] void Refuse(const RowKey& key, const std::string& what) const
    {
        throw RowRefused("the stored row " + TextOf(m_table, key) +
                         " does not fit the YANG modules: " + what + " (" + LastMessage(m_schema.Context()) +
                         "); start with the modules that it was written with, or restore another store");
    }

    const Schema& m_schema;
    const SchemaTable& m_table;
    RowView& m_rows;
    const bool m_withLists;
};

class EditTree {
public:
    EditTree(const Schema& schema, RowView& rows)
        : m_schema(schema), m_table(schema.Table()), m_rows(rows), m_tree(EmptyTree(schema))
    {
        LoadTrunk(m_schema, m_tree.get(), m_rows);
    }

    void Siblings(const lyd_node* edit, EditOp operation)
    {
        for (const lyd_node* node = edit; node != nullptr; node = node->next) Node(node, operation);
    }

    void AllUnits()
    {
        for (const SchemaNode& node : m_table.Nodes())
            if (node.parent == kNoNode) UnitsBelow(node.id);
    }

    TreePtr Tree() { return std::move(m_tree); }

private:
    void Node(const lyd_node* edit, EditOp inherited)
    {
        const NodeId id = edit->schema == nullptr ? kNoNode : m_schema.IdOf(edit->schema);
        if (id == kNoNode || m_table[id].kind == NodeKind::kLeaf) return;
        if (m_table[id].kind == NodeKind::kList) return Unit({id, KeysOf(edit)});
        const auto operation = OperationOf(edit, inherited);
        if (!operation) return;  // the datastore refuses it
        const bool takesOut =
            *operation == EditOp::kReplace || *operation == EditOp::kDelete || *operation == EditOp::kRemove;
        if (takesOut) UnitsBelow(id);
        Siblings(lyd_child(edit), *operation);
    }

    void Unit(Place place)
    {
        if (place.keys.size() != m_table[place.node].keys.size()) return;
        if (const Row* row = m_rows.Get(place.node, place.keys)) Load(std::move(place), Row(*row));
    }

    void UnitsBelow(NodeId id)
    {
        if (m_table[id].kind == NodeKind::kList) {
            m_rows.ForEach(id, {}, [&](std::span<const std::string_view> keys, const Row& row) {
                Load({id, {keys.begin(), keys.end()}}, row);
                return true;
            });
            return;
        }
        for (const NodeId child : m_table[id].children) UnitsBelow(child);
    }

    void Load(Place place, const Row& row)
    {
        lyd_node* parent = FindRow(m_schema, m_tree.get(), {m_table[place.node].parent, {}});
        const auto [at, isNew] = m_loaded.insert(std::move(place));
        if (isNew && parent != nullptr) LoadEntry(m_schema, parent, {at->node, at->keys}, row, m_rows);
    }

    const Schema& m_schema;
    const SchemaTable& m_table;
    RowView& m_rows;
    TreePtr m_tree;
    std::set<Place> m_loaded;  // an edit may name an entry more than once
};

}  // namespace

TreePtr LoadTree(const Schema& schema, RowView& rows)
{
    TreePtr tree = EmptyTree(schema);
    Loader loader(schema, rows, true);
    for (lyd_node* top = tree.get(); top != nullptr; top = top->next)
        loader.Container(nullptr, top, {schema.IdOf(top->schema), {}});
    for (lyd_node* top = tree.get(); top != nullptr; top = top->next) Complete(top);
    return tree;
}

void LoadTrunk(const Schema& schema, lyd_node* tree, RowView& rows)
{
    Loader loader(schema, rows, false);
    for (lyd_node* top = tree; top != nullptr; top = top->next)
        loader.Container(nullptr, top, {schema.IdOf(top->schema), {}});
    for (lyd_node* top = tree; top != nullptr; top = top->next) Complete(top);
}

lyd_node* LoadEntry(const Schema& schema, lyd_node* parent, const RowKey& key, const Row& row, RowView& rows)
{
    lyd_node* entry = Loader(schema, rows, true).Entry(parent, key, row);
    Complete(entry);
    return entry;
}

TreePtr LoadTreeForEdit(const Schema& schema, RowView& rows, const lyd_node* edit, DefaultOperation operation)
{
    EditTree tree(schema, rows);
    if (operation == DefaultOperation::kReplace) tree.AllUnits();
    tree.Siblings(edit, InitialOperation(operation));
    return tree.Tree();
}

}  // namespace cdb
