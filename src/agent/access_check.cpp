// Whether a user may make an edit or a commit: which nodes it creates, updates and deletes, and what the
// grant says of each.

#include <libyang/libyang.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <variant>

#include "agent/access_grant.h"
#include "cdb/edit_operation.h"

namespace agent {
namespace {

using cdb::EditOp;

const char* NameOf(AccessOperation operation)
{
    switch (operation) {
    case AccessOperation::kCreate:
        return "create";
    case AccessOperation::kDelete:
        return "delete";
    default:
        return "change";
    }
}

cdb::Error Denied(const AccessUser& user, AccessOperation operation, const std::string& path)
{
    cdb::Error error;
    error.tag = cdb::ErrorTag::kAccessDenied;
    error.message = user.name + " may not " + NameOf(operation) + " " + path +
                    "; a rule of access (cdbd --access) can permit it";
    error.path = path;
    return error;
}

bool IsPlainContainer(const lysc_node* node)
{
    return node->nodetype == LYS_CONTAINER && (node->flags & LYS_PRESENCE) == 0;
}

bool IsDefault(const lyd_node* node) { return (node->flags & LYD_DEFAULT) != 0; }

bool IsKey(const lyd_node* node) { return node->schema != nullptr && lysc_is_key(node->schema); }

std::string PathOf(const lyd_node* node)
{
    char* text = lyd_path(node, LYD_PATH_STD, nullptr, 0);
    std::string path = text == nullptr ? "" : text;
    std::free(text);
    return path;
}

/// The schema node of an edit's node: an opaque one (deleting a leaf whose type takes no empty text is such)
/// has it by its name. Null where the schema has none.
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

    /// The siblings of an edit: `existing` is the first of those that are there.
    void Siblings(const lyd_node* first, const lysc_node* parent, EditOp inherited, const lyd_node* existing)
    {
        if (inherited == EditOp::kReplace) Unmentioned(first, existing);
        for (const lyd_node* node = first; node != nullptr && !m_error; node = node->next)
            if (!IsKey(node)) Node(node, SchemaOf(node, parent), inherited, existing);
    }

    std::optional<cdb::Error> Result() { return std::move(m_error); }

private:
    void Node(const lyd_node* edit, const lysc_node* schema, EditOp inherited, const lyd_node* siblings);
    void Inner(const lyd_node* edit, const lysc_node* schema, EditOp operation, const lyd_node* there);
    void Leaf(const lyd_node* edit, const lysc_node* schema, const lyd_node* there);
    void Unmentioned(const lyd_node* edit, const lyd_node* existing);
    bool MayDelete(const lyd_node* there);
    void Require(AccessOperation operation, const lyd_node* edit, const lysc_node* schema);
    const lyd_node* Existing(const lyd_node* edit, const lysc_node* schema, const lyd_node* siblings) const;

    const AccessGrant& m_grant;
    const AccessGrant::Find& m_find;
    std::optional<cdb::Error> m_error;
};

/// A plain container is there always, a leaf at its default never.
const lyd_node* EditCheck::Existing(const lyd_node* edit, const lysc_node* schema,
                                    const lyd_node* siblings) const
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

void EditCheck::Require(AccessOperation operation, const lyd_node* edit, const lysc_node* schema)
{
    const auto keys = KeysOnTheWay(edit);
    if (!m_error && m_grant.Look(operation, schema, keys) == Visibility::kHidden)
        m_error = Denied(m_grant.User(), operation, PathOf(edit));
}

void EditCheck::Node(const lyd_node* edit, const lysc_node* schema, EditOp inherited,
                     const lyd_node* siblings)
{
    const auto own = cdb::OperationOf(edit, inherited);
    if (schema == nullptr || std::holds_alternative<cdb::Error>(own)) return;  // the datastore refuses it
    const EditOp operation = std::get<EditOp>(own);
    const lyd_node* there = Existing(edit, schema, siblings);
    if (operation == EditOp::kDelete || operation == EditOp::kRemove) {
        if (there != nullptr && !MayDelete(there))
            m_error = Denied(m_grant.User(), AccessOperation::kDelete, PathOf(edit));
        return;
    }
    if ((schema->nodetype & (LYS_CONTAINER | LYS_LIST)) != 0) return Inner(edit, schema, operation, there);
    if (operation != EditOp::kNone) Leaf(edit, schema, there);
}

void EditCheck::Inner(const lyd_node* edit, const lysc_node* schema, EditOp operation, const lyd_node* there)
{
    if (there == nullptr && !IsPlainContainer(schema) && operation != EditOp::kNone)
        Require(AccessOperation::kCreate, edit, schema);
    Siblings(lyd_child(edit), schema, operation, there == nullptr ? nullptr : lyd_child(there));
}

void EditCheck::Leaf(const lyd_node* edit, const lysc_node* schema, const lyd_node* there)
{
    if (there == nullptr) return Require(AccessOperation::kCreate, edit, schema);
    const bool isSame = edit->schema != nullptr && (schema->nodetype & LYD_NODE_TERM) != 0 &&
                        std::strcmp(lyd_get_value(edit), lyd_get_value(there)) == 0;
    if (!isSame) Require(AccessOperation::kUpdate, edit, schema);
}

/// What a replaced node has and the edit does not mention goes.
void EditCheck::Unmentioned(const lyd_node* edit, const lyd_node* existing)
{
    std::vector<const lyd_node*> kept;
    for (const lyd_node* node = edit; node != nullptr; node = node->next)
        if (node->schema != nullptr)
            if (const lyd_node* there = m_find(node)) kept.push_back(there);
    for (const lyd_node* node = existing; node != nullptr && !m_error; node = node->next) {
        if (node->schema == nullptr || IsKey(node)) continue;
        if (std::find(kept.begin(), kept.end(), node) != kept.end() || MayDelete(node)) continue;
        // The path is that of what is replaced: what it holds may be none of the user's business.
        const lyd_node* replaced = edit == nullptr ? lyd_parent(node) : lyd_parent(edit);
        m_error =
            Denied(m_grant.User(), AccessOperation::kDelete, replaced == nullptr ? "/" : PathOf(replaced));
    }
}

bool EditCheck::MayDelete(const lyd_node* there)
{
    if (there->schema == nullptr || (IsDefault(there) && !IsPlainContainer(there->schema))) return true;
    const Visibility visibility = m_grant.Look(AccessOperation::kDelete, there->schema, KeysOnTheWay(there));
    if (visibility == Visibility::kWhole) return true;
    if (visibility == Visibility::kHidden && !IsPlainContainer(there->schema)) return false;
    for (const lyd_node* child = lyd_child_no_keys(there); child != nullptr; child = child->next)
        if (!MayDelete(child)) return false;
    return true;
}

class ChangeCheck {
public:
    ChangeCheck(const AccessGrant& grant, const cdb::Schema& schema) : m_grant(grant), m_schema(schema) {}

    [[nodiscard]] std::optional<cdb::Error> Node(const cdb::ChangeNode& node, bool isNew)
    {
        m_keys.insert(m_keys.end(), node.keys.begin(), node.keys.end());
        auto error = Own(node, isNew);
        const bool created = isNew || node.op == cdb::ChangeOp::kCreated;
        for (const cdb::ChangeNode& child : node.children)
            if (!error) error = Node(child, created);
        m_keys.resize(m_keys.size() - node.keys.size());
        return error;
    }

private:
    [[nodiscard]] bool May(AccessOperation operation, const cdb::ChangeNode& node) const
    {
        const lysc_node* schema = m_schema.NodeOf(node.node);
        return schema != nullptr && m_grant.Look(operation, schema, m_keys) != Visibility::kHidden;
    }

    [[nodiscard]] std::optional<cdb::Error> Own(const cdb::ChangeNode& node, bool isNew) const
    {
        AccessOperation operation = AccessOperation::kUpdate;
        bool may = true;
        switch (node.op) {
        case cdb::ChangeOp::kNone:
        case cdb::ChangeOp::kModified:
            return std::nullopt;
        case cdb::ChangeOp::kCreated:
            operation = AccessOperation::kCreate;
            may = May(operation, node);
            break;
        case cdb::ChangeOp::kDeleted:
            operation = AccessOperation::kDelete;
            may = May(operation, node);
            break;
        case cdb::ChangeOp::kValueSet:
            // The set does not tell whether the leaf was there before, and a fall back to the default is a
            // new value too: the edit has been asked about it exactly.
            if (isNew) operation = AccessOperation::kCreate;
            may = May(operation, node) ||
                  (!isNew && (May(AccessOperation::kCreate, node) || May(AccessOperation::kDelete, node)));
            break;
        }
        if (may) return std::nullopt;
        return Denied(m_grant.User(), operation, m_schema.Table().PathOf(node.node));
    }

    const AccessGrant& m_grant;
    const cdb::Schema& m_schema;
    std::vector<std::string> m_keys;
};

EditOp Inherited(cdb::DefaultOperation operation)
{
    switch (operation) {
    case cdb::DefaultOperation::kReplace:
        return EditOp::kReplace;
    case cdb::DefaultOperation::kNone:
        return EditOp::kNone;
    case cdb::DefaultOperation::kMerge:
        break;
    }
    return EditOp::kMerge;
}

}  // namespace

std::optional<cdb::Error> AccessGrant::CheckEdit(const lyd_node* edit, cdb::DefaultOperation operation,
                                                 const lyd_node* existing, const Find& find) const
{
    if (m_writesAll) return std::nullopt;
    EditCheck check(*this, find);
    check.Siblings(edit, nullptr, Inherited(operation), existing);
    return check.Result();
}

std::optional<cdb::Error> AccessGrant::CheckChanges(const cdb::Schema& schema,
                                                    const cdb::ChangeSet& changes) const
{
    if (m_writesAll || changes.Empty()) return std::nullopt;
    return ChangeCheck(*this, schema).Node(changes.root, false);
}

}  // namespace agent
