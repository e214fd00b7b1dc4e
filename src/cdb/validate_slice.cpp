#include "cdb/validate_slice.h"

#include <libyang/libyang.h>

#include <new>

#include "cdb/validate_errors.h"

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

}  // namespace

Slice::Slice(const Schema& schema, const Reach& reach, const lyd_node* tree)
    : m_schema(schema), m_reach(reach), m_tree(tree)
{
    m_slice.reset(Copy(tree, nullptr, false));
    CopyTrunk(tree, m_slice.get());
}

void Slice::CopyTrunk(const lyd_node* node, lyd_node* copy)
{
    m_containers.emplace(node, copy);
    const auto& table = m_schema.Table();
    for (const NodeId id : table[m_schema.IdOf(node->schema)].children) {
        if (table[id].kind == NodeKind::kList) continue;
        const lyd_node* child = FindSingle(lyd_child(node), m_schema.NodeOf(id));
        if (child == nullptr) continue;
        lyd_node* childCopy = Copy(child, copy, false);
        if (table[id].kind == NodeKind::kLeaf)
            AddReferences(child);
        else
            CopyTrunk(child, childCopy);
    }
}

void Slice::Add(const lyd_node* unit)
{
    if (!m_added.insert(unit).second) return;
    Copy(unit, m_containers.at(lyd_parent(unit)), true);
    if (!m_reach.references.empty()) AddReferences(unit);
}

void Slice::AddReferences(const lyd_node* node)
{
    for (const lyd_node* child = lyd_child(node); child != nullptr; child = child->next) AddReferences(child);
    if (node->schema->nodetype != LYS_LEAF) return;
    for (const auto& reference : m_reach.references) {
        if (m_schema.NodeOf(reference.leaf) != node->schema) continue;
        const RowKey key{reference.list, {lyd_get_value(node)}};
        if (const lyd_node* target = FindRow(m_schema, m_tree, key); target != nullptr) Add(target);
    }
}

std::optional<Error> Slice::Validate() { return ValidateTree(m_schema, m_reach, m_slice.get()); }

std::optional<Error> ValidateTree(const Schema& schema, const Reach& reach, lyd_node* tree)
{
    // A complete tree stays as it is under validation, unless a "when" takes something out.
    TreePtr copy;
    if (reach.hasWhen) {
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
    return ValidationError(schema, reach, validated);
}

}  // namespace cdb
