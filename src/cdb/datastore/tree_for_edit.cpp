// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/tree_for_edit.h"

#include <libyang/libyang.h>

#include <set>
#include <utility>

#include "cdb/datastore/edit_operation.h"
#include "cdb/datastore/tree_load.h"

namespace cdb {
namespace {

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

TreePtr LoadTreeForEdit(const Schema& schema, RowView& rows, const lyd_node* edit, DefaultOperation operation)
{
    EditTree tree(schema, rows);
    if (operation == DefaultOperation::kReplace) tree.AllUnits();
    tree.Siblings(edit, InitialOperation(operation));
    return tree.Tree();
}

}  // namespace cdb
