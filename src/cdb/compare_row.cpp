#include "cdb/compare_row.h"

#include <libyang/libyang.h>

#include "cdb/tree.h"

namespace cdb {
namespace {

Value Effective(const SchemaTable& table, const std::vector<LeafState>& leaves, const LeafState& leaf)
{
    if (leaf.own != Value{}) return leaf.own;
    const auto& node = table[leaf.node];
    if (node.defaultRef == kNoNode) return node.defaultValue;
    // The leaf referred to is another one of this entry, and refers no further.
    for (const auto& other : leaves)
        if (other.node == node.defaultRef)
            return other.own != Value{} ? other.own : table[other.node].defaultValue;
    return node.defaultValue;
}

}  // namespace

std::vector<LeafState> LeavesIn(const Schema& schema, NodeId id, const lyd_node* holder)
{
    const auto& table = schema.Table();
    std::vector<LeafState> leaves;
    leaves.reserve(table[id].children.size());
    for (const NodeId child : table[id].children) {
        if (table[child].kind != NodeKind::kLeaf || table[child].isKey) continue;
        LeafState state;
        state.node = child;
        const lyd_node* data =
            holder != nullptr ? FindSingle(lyd_child(holder), schema.NodeOf(child)) : nullptr;
        if (data != nullptr && IsExplicit(data)) {
            state.data = data;
            state.own = ValueOf(data, table[child].type);
        }
        leaves.push_back(std::move(state));
    }
    for (auto& leaf : leaves) leaf.effective = Effective(table, leaves, leaf);
    return leaves;
}

Row RowOf(const SchemaTable& table, const std::vector<LeafState>& leaves)
{
    Row row;
    for (const auto& leaf : leaves)
        if (leaf.data != nullptr) row.leaves.emplace_back(table[leaf.node].name, leaf.own);
    return row;
}

}  // namespace cdb
