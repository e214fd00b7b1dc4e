// SPDX-License-Identifier: Apache-2.0
// Whether a user may make a commit: what its rows create, update and delete, and what the grant says of each.

#include <algorithm>
#include <utility>

#include "agent/access/access.h"

namespace agent {
namespace {

class RowCheck {
public:
    RowCheck(const AccessGrant& grant, const cdb::Schema& schema, const cdb::RowChange& change)
        : m_grant(grant), m_schema(schema), m_change(change)
    {
    }

    std::optional<cdb::Error> Run()
    {
        const cdb::NodeId node = m_change.key.node;
        // A plain container is neither created nor deleted.
        if (m_schema.Table()[node].kind != cdb::NodeKind::kContainer) {
            if (!m_change.before) Require(AccessOperation::kCreate, node);
            if (!m_change.now) Require(AccessOperation::kDelete, node);
        }
        for (const auto& [name, value] : Leaves(m_change.now)) {
            const cdb::Value* before = Find(m_change.before, name);
            if (before == nullptr)
                RequireLeaf(AccessOperation::kCreate, name);
            else if (*before != value)
                RequireLeaf(AccessOperation::kUpdate, name);
        }
        for (const auto& [name, value] : Leaves(m_change.before))
            if (Find(m_change.now, name) == nullptr) RequireLeaf(AccessOperation::kDelete, name);
        return std::move(m_error);
    }

private:
    using Leaf = std::pair<std::string, cdb::Value>;

    static std::span<const Leaf> Leaves(const std::optional<cdb::Row>& row)
    {
        return row ? std::span<const Leaf>(row->leaves) : std::span<const Leaf>();
    }

    static const cdb::Value* Find(const std::optional<cdb::Row>& row, const std::string& name)
    {
        const auto leaves = Leaves(row);
        const auto at = std::find_if(leaves.begin(), leaves.end(),
                                     [&name](const Leaf& leaf) { return leaf.first == name; });
        return at == leaves.end() ? nullptr : &at->second;
    }

    void RequireLeaf(AccessOperation operation, const std::string& name)
    {
        const cdb::NodeId leaf = m_schema.Table().Child(m_change.key.node, name);
        if (leaf != cdb::kNoNode) Require(operation, leaf);  // else of an older schema; no edit names it
    }

    void Require(AccessOperation operation, cdb::NodeId node)
    {
        const auto& keys = m_change.key.keys;
        if (m_error || m_grant.Look(operation, m_schema.NodeOf(node), keys) != Visibility::kHidden) return;
        m_error = m_grant.Denied(operation, cdb::DataPath(m_schema.Table(), {node, keys}));
    }

    const AccessGrant& m_grant;
    const cdb::Schema& m_schema;
    const cdb::RowChange& m_change;
    std::optional<cdb::Error> m_error;
};

const char* NameOf(AccessOperation operation)
{
    if (operation == AccessOperation::kCreate) return "create";
    return operation == AccessOperation::kDelete ? "delete" : "change";
}

}  // namespace

std::optional<cdb::Error> AccessGrant::CheckChanges(const cdb::Schema& schema,
                                                    std::span<const cdb::RowChange> changes) const
{
    if (m_writesAll) return std::nullopt;
    for (const cdb::RowChange& change : changes)
        if (auto error = RowCheck(*this, schema, change).Run()) return error;
    return std::nullopt;
}

cdb::Error AccessGrant::Denied(AccessOperation operation, const std::string& path) const
{
    return {.tag = cdb::ErrorTag::kAccessDenied,
            .message = m_user.name + " may not " + NameOf(operation) + " " + path +
                       "; a rule of access (cdbd --access) can permit it",
            .path = path};
}

}  // namespace agent
