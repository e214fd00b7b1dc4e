// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/validate_unit.h"

#include <libyang/libyang.h>

#include <new>

#include "cdb/datastore/validate_errors.h"
#include "cdb/schema/reach.h"

namespace cdb {
namespace {

lyd_node* Copy(const lyd_node* node, lyd_node* parent, bool whole)
{
    lyd_node* copy = nullptr;
    if (lyd_dup_single(node, reinterpret_cast<lyd_node_inner*>(parent), whole ? LYD_DUP_RECURSIVE : 0,
                       &copy) != LY_SUCCESS)
        throw std::bad_alloc();
    return copy;
}

/// Copies the nodes outside of lists, and the unit below its parent.
void CopyTrunk(const Schema& schema, const lyd_node* node, lyd_node* copy, const lyd_node* unit)
{
    const auto& table = schema.Table();
    if (lyd_parent(unit) == node) Copy(unit, copy, true);
    for (const NodeId id : table[schema.IdOf(node->schema)].children) {
        if (table[id].kind == NodeKind::kList) continue;
        const lyd_node* child = FindSingle(lyd_child(node), schema.NodeOf(id));
        if (child == nullptr) continue;
        lyd_node* childCopy = Copy(child, copy, false);
        if (table[id].kind != NodeKind::kLeaf) CopyTrunk(schema, child, childCopy, unit);
    }
}

}  // namespace

std::optional<Error> ValidateTree(const Schema& schema, lyd_node* tree)
{
    // Validation does not change a complete tree, unless a "when" removes nodes.
    TreePtr copy;
    if (schema.Constraints().hasWhen) {
        lyd_node* siblings = nullptr;
        if (lyd_dup_siblings(tree, nullptr, LYD_DUP_RECURSIVE, &siblings) != LY_SUCCESS)
            throw std::bad_alloc();
        copy.reset(siblings);
    }
    lyd_node* validated = copy ? copy.get() : tree;
    ly_err_clean(schema.Context(), nullptr);
    const auto result = lyd_validate_module(&validated, tree->schema->module, LYD_VALIDATE_NO_STATE, nullptr);
    if (copy) {
        static_cast<void>(copy.release());
        copy.reset(validated);
    }
    if (result == LY_SUCCESS) return std::nullopt;
    return ValidationError(schema, validated);
}

std::optional<Error> ValidateUnit(const Schema& schema, const lyd_node* tree, const lyd_node* unit)
{
    const TreePtr copy(Copy(tree, nullptr, false));
    CopyTrunk(schema, tree, copy.get(), unit);
    return ValidateTree(schema, copy.get());
}

}  // namespace cdb
