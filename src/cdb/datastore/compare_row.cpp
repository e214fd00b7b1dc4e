// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/compare_row.h"

#include <libyang/libyang.h>

#include "cdb/datastore/tree.h"

namespace cdb {
namespace {

Value Effective(const SchemaTable& table, const std::vector<LeafState>& leaves, const LeafState& leaf)
{
    if (leaf.own != Value{}) return leaf.own;
    const auto& node = table[leaf.node];
    if (node.defaultRef == kNoNode) return node.defaultValue;
    // The leaf referred to is in this entry, and refers to no other.
    for (const auto& other : leaves)
        if (other.node == node.defaultRef)
            return other.own != Value{} ? other.own : table[other.node].defaultValue;
    return node.defaultValue;
}

}  // namespace

Row RowOf(const Schema& schema, const lyd_node* holder)
{
    // libyang keeps the children of a node in schema order.
    Row row;
    for (const lyd_node* child = lyd_child_no_keys(holder); child != nullptr; child = child->next) {
        if (child->schema->nodetype != LYS_LEAF || !IsExplicit(child)) continue;
        const auto& leaf = schema.Table()[schema.IdOf(child->schema)];
        row.leaves.emplace_back(leaf.name, ValueOf(child, leaf.type));
    }
    return row;
}

std::vector<LeafState> LeavesOf(const SchemaTable& table, NodeId id, const Row& row)
{
    std::vector<LeafState> leaves;
    leaves.reserve(table[id].children.size());
    for (const NodeId child : table[id].children) {
        if (table[child].kind != NodeKind::kLeaf || table[child].isKey) continue;
        LeafState state;
        state.node = child;
        for (const auto& [name, value] : row.leaves)
            if (name == table[child].name) state.own = value;
        leaves.push_back(std::move(state));
    }
    for (auto& leaf : leaves) leaf.effective = Effective(table, leaves, leaf);
    return leaves;
}

}  // namespace cdb
