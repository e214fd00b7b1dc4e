// SPDX-License-Identifier: Apache-2.0
// Whether a user may make an edit: which nodes it creates, updates and deletes, and what the grant says of
// each.

#include <libyang/libyang.h>

#include <cstring>
#include <unordered_set>
#include <utility>

#include "agent/access/access.h"
#include "cdb/datastore/edit_operation.h"
#include "cdb/datastore/tree_load.h"

namespace agent {
namespace {

using cdb::EditOp;

bool IsPlainContainer(const lysc_node* node)
{
    return node->nodetype == LYS_CONTAINER && (node->flags & LYS_PRESENCE) == 0;
}

bool IsDefault(const lyd_node* node) { return (node->flags & LYD_DEFAULT) != 0; }

bool IsKey(const lyd_node* node) { return node->schema != nullptr && lysc_is_key(node->schema); }

/// The schema node of an edit's node. For an opaque node (as of a leaf that is deleted without a value) it
/// is found by name. Null if the schema has none.
const lysc_node* SchemaOf(const lyd_node* edit, const lysc_node* parent)
{
    if (edit->schema != nullptr || parent == nullptr) return edit->schema;
    const auto* opaque = reinterpret_cast<const lyd_node_opaq*>(edit);
    const lysc_node* child = nullptr;
    while ((child = lys_getnext(child, parent, nullptr, 0)) != nullptr) {
        const char* ns = opaque->name.module_ns;
        if (std::strcmp(child->name, opaque->name.name) == 0 &&
            (ns == nullptr || std::strcmp(child->module->ns, ns) == 0 ||
             std::strcmp(child->module->name, ns) == 0))
            return child;
    }
    return nullptr;
}

class EditCheck {
public:
    EditCheck(const AccessGrant& grant, const AccessGrant::Find& find) : m_grant(grant), m_find(find) {}

    /// Checks the siblings of an edit. `existing`: the datastore's first sibling at this place, or null.
    void Siblings(const lyd_node* first, const lysc_node* parent, EditOp inherited, const lyd_node* existing)
    {
        if (inherited == EditOp::kReplace) Unmentioned(first, existing);
        for (const lyd_node* node = first; node != nullptr && !m_error; node = node->next)
            if (!IsKey(node)) Node(node, SchemaOf(node, parent), inherited, existing);
    }

    std::optional<cdb::Error> Result() { return std::move(m_error); }

private:
    void Node(const lyd_node* edit, const lysc_node* schema, EditOp inherited, const lyd_node* siblings)
    {
        const auto own = cdb::OperationOf(edit, inherited);
        if (schema == nullptr || !own) return;  // the datastore refuses it
        // A leaf that is tagged as a default (RFC 6243, section 4.5.2) becomes as if it were not set.
        const bool isTagged = edit->schema != nullptr && schema->nodetype == LYS_LEAF && IsDefault(edit);
        const EditOp operation = isTagged ? EditOp::kRemove : *own;
        const lyd_node* there = Existing(edit, schema, siblings);
        if (operation == EditOp::kDelete || operation == EditOp::kRemove) {
            if (there != nullptr && !MayDelete(there))
                m_error = m_grant.Denied(AccessOperation::kDelete, cdb::DataPath(edit));
            return;
        }
        if ((schema->nodetype & (LYS_CONTAINER | LYS_LIST)) != 0)
            return Inner(edit, schema, operation, there);
        if (operation != EditOp::kNone) Leaf(edit, schema, there);
    }

    void Inner(const lyd_node* edit, const lysc_node* schema, EditOp operation, const lyd_node* there)
    {
        if (there == nullptr && !IsPlainContainer(schema) && operation != EditOp::kNone)
            Require(AccessOperation::kCreate, edit, schema);
        Siblings(lyd_child(edit), schema, operation, there == nullptr ? nullptr : lyd_child(there));
    }

    void Leaf(const lyd_node* edit, const lysc_node* schema, const lyd_node* there)
    {
        if (there == nullptr) return Require(AccessOperation::kCreate, edit, schema);
        const bool isSame = edit->schema != nullptr && (schema->nodetype & LYD_NODE_TERM) != 0 &&
                            std::strcmp(lyd_get_value(edit), lyd_get_value(there)) == 0;
        if (!isSame) Require(AccessOperation::kUpdate, edit, schema);
    }

    /// Checks the nodes that a replacement deletes: those that the edit does not mention.
    void Unmentioned(const lyd_node* edit, const lyd_node* existing)
    {
        std::unordered_set<const lyd_node*> kept;
        for (const lyd_node* node = edit; node != nullptr; node = node->next)
            if (node->schema != nullptr)
                if (const lyd_node* there = m_find(node)) kept.insert(there);
        for (const lyd_node* node = existing; node != nullptr && !m_error; node = node->next) {
            if (node->schema == nullptr || IsKey(node)) continue;
            if (kept.contains(node) || MayDelete(node)) continue;
            // The path is that of the replaced node: the user may not be allowed to know what it holds.
            const lyd_node* replaced = edit == nullptr ? lyd_parent(node) : lyd_parent(edit);
            m_error =
                m_grant.Denied(AccessOperation::kDelete, replaced == nullptr ? "/" : cdb::DataPath(replaced));
        }
    }

    bool MayDelete(const lyd_node* there)
    {
        if (there->schema == nullptr || (IsDefault(there) && !IsPlainContainer(there->schema))) return true;
        const Visibility visibility =
            m_grant.Look(AccessOperation::kDelete, there->schema, KeysOnTheWay(there));
        if (visibility == Visibility::kWhole) return true;
        if (visibility == Visibility::kHidden && !IsPlainContainer(there->schema)) return false;
        for (const lyd_node* child = lyd_child_no_keys(there); child != nullptr; child = child->next)
            if (!MayDelete(child)) return false;
        return true;
    }

    void Require(AccessOperation operation, const lyd_node* edit, const lysc_node* schema)
    {
        const auto keys = KeysOnTheWay(edit);
        if (!m_error && m_grant.Look(operation, schema, keys) == Visibility::kHidden)
            m_error = m_grant.Denied(operation, cdb::DataPath(edit));
    }

    /// The datastore's node, or null. A plain container at its default counts as there, a leaf does not.
    const lyd_node* Existing(const lyd_node* edit, const lysc_node* schema, const lyd_node* siblings) const
    {
        const lyd_node* there = nullptr;
        if (edit->schema != nullptr) {
            there = m_find(edit);
        } else if (siblings != nullptr) {
            lyd_node* match = nullptr;
            if (lyd_find_sibling_val(siblings, schema, nullptr, 0, &match) == LY_SUCCESS) there = match;
        }
        return there != nullptr && IsDefault(there) && !IsPlainContainer(schema) ? nullptr : there;
    }

    const AccessGrant& m_grant;
    const AccessGrant::Find& m_find;
    std::optional<cdb::Error> m_error;
};

/// The edit's node in a tree of the datastore; null if it is not there.
const lyd_node* FindIn(const lyd_node* tree, const lyd_node* edit)
{
    const lyd_node* siblings = tree;
    if (const lyd_node* parent = lyd_parent(edit); parent != nullptr) {
        const lyd_node* above = FindIn(tree, parent);
        if (above == nullptr) return nullptr;
        siblings = lyd_child(above);
    }
    lyd_node* match = nullptr;
    if (siblings == nullptr || edit->schema == nullptr) return nullptr;
    if ((edit->schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) != 0)
        return lyd_find_sibling_first(siblings, edit, &match) == LY_SUCCESS ? match : nullptr;
    return lyd_find_sibling_val(siblings, edit->schema, nullptr, 0, &match) == LY_SUCCESS ? match : nullptr;
}

}  // namespace

std::optional<cdb::Error> AccessGrant::CheckEdit(const lyd_node* edit, cdb::DefaultOperation operation,
                                                 const lyd_node* existing, const Find& find) const
{
    if (m_writesAll) return std::nullopt;
    EditCheck check(*this, find);
    check.Siblings(edit, nullptr, cdb::InitialOperation(operation), existing);
    return check.Result();
}

std::optional<cdb::Error> AccessGrant::CheckEdit(const lyd_node* edit, cdb::DefaultOperation operation,
                                                 const cdb::Schema& schema, cdb::RowView& candidate) const
{
    if (m_writesAll) return std::nullopt;
    const cdb::TreePtr tree = cdb::LoadTreeForEdit(schema, candidate, edit, operation);
    return CheckEdit(edit, operation, tree.get(),
                     [&tree](const lyd_node* node) { return FindIn(tree.get(), node); });
}

}  // namespace agent
