// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/compare.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <utility>

#include "cdb/datastore/tree.h"

namespace cdb {
namespace {

/// One leaf of an entry or container.
struct LeafState {
    NodeId node = kNoNode;
    Value own;        // its explicit value
    Value effective;  // its own, else that of the leaf its default refers to, else its default
};

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

/// All leaves that the schema has in this node, in schema order, without keys.
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

/// An entry or a container with everything below it, without libyang and without defaults.
struct Branch {
    NodeId node = kNoNode;
    std::vector<std::string> keys;  // own
    std::optional<Row> row;         // of a plain container: only if a leaf is explicit
    std::vector<Branch> below;      // by schema order and keys
};

using Order = std::pair<NodeId, const std::vector<std::string>&>;
Order OrderOf(const Branch& branch) { return {branch.node, branch.keys}; }

/// A branch of running.
Branch ReadBranch(const SchemaTable& table, RowView& rows, NodeId id, const std::vector<std::string>& allKeys,
                  std::optional<Row> row)
{
    Branch branch{id, {}, std::move(row), {}};
    const auto own = static_cast<std::ptrdiff_t>(table[id].keys.size());
    branch.keys.assign(allKeys.end() - own, allKeys.end());
    for (const NodeId child : table[id].children) {
        if (table[child].kind == NodeKind::kLeaf) continue;
        if (table[child].kind != NodeKind::kList) {
            const Row* found = rows.Get(child, allKeys);
            if (found == nullptr && table[child].kind == NodeKind::kPresenceContainer) continue;
            branch.below.push_back(ReadBranch(table, rows, child, allKeys,
                                              found != nullptr ? std::optional<Row>(*found) : std::nullopt));
            continue;
        }
        rows.ForEach(child, allKeys, [&](std::span<const std::string_view> keys, const Row& entry) {
            std::vector<std::string> below = allKeys;
            below.insert(below.end(), keys.begin(), keys.end());
            branch.below.push_back(ReadBranch(table, rows, child, below, entry));
            return true;
        });
    }
    return branch;
}

/// A branch of a tree.
Branch ReadBranch(const Schema& schema, const lyd_node* node)
{
    const auto& table = schema.Table();
    Branch branch{schema.IdOf(node->schema), KeysOf(node), RowOf(schema, node), {}};
    if (table[branch.node].kind == NodeKind::kContainer && branch.row->leaves.empty()) branch.row.reset();
    for (const lyd_node* child = lyd_child_no_keys(node); child != nullptr; child = child->next)
        if (child->schema->nodetype != LYS_LEAF) branch.below.push_back(ReadBranch(schema, child));
    const auto less = [](const Branch& a, const Branch& b) { return OrderOf(a) < OrderOf(b); };
    if (!std::is_sorted(branch.below.begin(), branch.below.end(), less))
        std::sort(branch.below.begin(), branch.below.end(), less);
    return branch;
}

bool Says(const ChangeNode& change) { return change.op != ChangeOp::kNone || !change.children.empty(); }

void SortChildren(ChangeNode& change)
{
    // Entries are in order already; leaves and the rest are put into the schema's order.
    std::stable_sort(change.children.begin(), change.children.end(),
                     [](const ChangeNode& a, const ChangeNode& b) { return a.node < b.node; });
}

class Comparer {
public:
    Comparer(const Schema& schema, const Candidate& candidate, bool firstOnly)
        : m_schema(schema), m_table(schema.Table()), m_candidate(candidate), m_firstOnly(firstOnly)
    {
    }

    /// Compares a container of the trunk; `now` is null if a presence container does not exist. Returns
    /// whether it has changes.
    bool Trunk(NodeId id, const lyd_node* now, ChangeNode& change)
    {
        change.node = id;
        std::optional<Row> before;
        if (const Row* row = m_candidate.Running().Get(id, {})) before = *row;
        std::optional<Row> after;
        if (now != nullptr) after = RowOf(m_schema, now);
        if (after && IsPlain(id) && after->leaves.empty()) after.reset();
        const bool hadIt = IsPlain(id) || before;
        const bool hasIt = IsPlain(id) || now != nullptr;
        if (!hadIt && !hasIt) return false;
        if (hadIt && hasIt) {
            Leaves(id, before, after, change);
        } else {
            change.op = hasIt ? ChangeOp::kCreated : ChangeOp::kDeleted;
            LeavesOneSided(id, hasIt ? *after : *before, hasIt ? ChangeOp::kValueSet : ChangeOp::kDeleted,
                           change);
            m_rows.push_back({{id, {}}, before, after});
        }
        for (const NodeId child : m_table[id].children) {
            if (IsEnough()) return true;
            if (m_table[child].kind == NodeKind::kList) {
                Units(child, change);
            } else if (m_table[child].kind != NodeKind::kLeaf) {
                ChangeNode below;
                const lyd_node* node =
                    now != nullptr ? FindSingle(lyd_child(now), m_schema.NodeOf(child)) : nullptr;
                if (Trunk(child, node, below)) change.children.push_back(std::move(below));
            }
        }
        SortChildren(change);
        if (!IsPlain(id) && change.op == ChangeOp::kNone && !change.children.empty())
            change.op = ChangeOp::kModified;
        return Says(change);
    }

    std::vector<RowChange> TakeRows() { return std::move(m_rows); }
    [[nodiscard]] bool HasRows() const { return !m_rows.empty(); }

private:
    void Units(NodeId list, ChangeNode& change)
    {
        const auto& dirty = m_candidate.Dirty();
        for (auto it = dirty.lower_bound({list, {}}); it != dirty.end() && it->first.node == list; ++it) {
            if (IsEnough()) return;
            std::optional<Branch> before;
            std::optional<Branch> now;
            if (it->second.inRunning) {
                const Row* row = m_candidate.Running().Get(list, it->first.keys);
                before = ReadBranch(m_table, m_candidate.Running(), list, it->first.keys,
                                    row != nullptr ? *row : Row{});
            }
            if (it->second.node != nullptr) now = ReadBranch(m_schema, it->second.node);
            ChangeNode unit;
            if (Place(before ? &*before : nullptr, now ? &*now : nullptr, unit))
                change.children.push_back(std::move(unit));
        }
    }

    bool Place(const Branch* before, const Branch* now, ChangeNode& change)
    {
        if (before == nullptr && now == nullptr) return false;
        const Branch& any = now != nullptr ? *now : *before;
        change.node = any.node;
        change.keys = any.keys;
        m_keys.insert(m_keys.end(), any.keys.begin(), any.keys.end());
        if (before == nullptr)
            OneSided(*now, ChangeOp::kCreated, change);
        else if (now == nullptr)
            OneSided(*before, ChangeOp::kDeleted, change);
        else
            Both(*before, *now, change);
        m_keys.resize(m_keys.size() - any.keys.size());
        return Says(change);
    }

    void Both(const Branch& before, const Branch& now, ChangeNode& change)
    {
        Leaves(now.node, before.row, now.row, change);
        auto old = before.below.begin();
        auto fresh = now.below.begin();
        while (old != before.below.end() || fresh != now.below.end()) {
            const bool hasOld =
                old != before.below.end() && (fresh == now.below.end() || !(OrderOf(*fresh) < OrderOf(*old)));
            const bool hasFresh =
                fresh != now.below.end() && (old == before.below.end() || !(OrderOf(*old) < OrderOf(*fresh)));
            ChangeNode child;
            if (Place(hasOld ? &*old : nullptr, hasFresh ? &*fresh : nullptr, child))
                change.children.push_back(std::move(child));
            if (hasOld) ++old;
            if (hasFresh) ++fresh;
        }
        SortChildren(change);
        if (!IsPlain(now.node) && !change.children.empty()) change.op = ChangeOp::kModified;
    }

    void Leaves(NodeId id, const std::optional<Row>& before, const std::optional<Row>& now,
                ChangeNode& change)
    {
        if (before == now) return;
        const Row none;
        const auto old = LeavesOf(m_table, id, before ? *before : none);
        const auto fresh = LeavesOf(m_table, id, now ? *now : none);
        bool differs = false;  // leaves that the schema no longer has do not count
        for (std::size_t i = 0; i < fresh.size(); ++i) {
            differs = differs || old[i].own != fresh[i].own;
            if (old[i].effective == fresh[i].effective) continue;
            ChangeNode leaf;
            leaf.node = fresh[i].node;
            leaf.op = fresh[i].effective == Value{} ? ChangeOp::kDeleted : ChangeOp::kValueSet;
            leaf.value = fresh[i].effective;
            change.children.push_back(std::move(leaf));
        }
        if (differs) m_rows.push_back({{id, m_keys}, before, now});
    }

    void OneSided(const Branch& branch, ChangeOp op, ChangeNode& change)
    {
        const bool isNew = op == ChangeOp::kCreated;
        if (!IsPlain(branch.node)) change.op = op;
        if (branch.row) {
            LeavesOneSided(branch.node, *branch.row, isNew ? ChangeOp::kValueSet : ChangeOp::kDeleted,
                           change);
            m_rows.push_back({{branch.node, m_keys}, {}, {}});
            (isNew ? m_rows.back().now : m_rows.back().before) = branch.row;
        }
        for (const Branch& below : branch.below) {
            ChangeNode child;
            if (Place(isNew ? nullptr : &below, isNew ? &below : nullptr, child))
                change.children.push_back(std::move(child));
        }
        SortChildren(change);
    }

    void LeavesOneSided(NodeId id, const Row& row, ChangeOp op, ChangeNode& change)
    {
        for (const auto& [name, value] : row.leaves) {
            ChangeNode leaf;
            leaf.node = m_table.Child(id, name);
            if (leaf.node == kNoNode) continue;  // of an older schema
            leaf.op = op;
            if (op == ChangeOp::kValueSet) leaf.value = value;
            change.children.push_back(std::move(leaf));
        }
    }

    [[nodiscard]] bool IsPlain(NodeId id) const { return m_table[id].kind == NodeKind::kContainer; }
    [[nodiscard]] bool IsEnough() const { return m_firstOnly && !m_rows.empty(); }

    const Schema& m_schema;
    const SchemaTable& m_table;
    const Candidate& m_candidate;
    const bool m_firstOnly;
    std::vector<RowChange> m_rows;
    std::vector<std::string> m_keys;  // of the entries on the path, the current one included
};

}  // namespace

Difference Compare(const Schema& schema, const Candidate& candidate)
{
    Comparer comparer(schema, candidate, false);
    Difference difference;
    const lyd_node* top = candidate.Tree();
    difference.root.node = schema.IdOf(top->schema);
    comparer.Trunk(difference.root.node, top, difference.root);
    difference.rows = comparer.TakeRows();
    return difference;
}

bool Differs(const Schema& schema, const Candidate& candidate)
{
    Comparer comparer(schema, candidate, true);
    ChangeNode ignored;
    const lyd_node* top = candidate.Tree();
    comparer.Trunk(schema.IdOf(top->schema), top, ignored);
    return comparer.HasRows();
}

}  // namespace cdb
