#include "cdb/compare.h"

#include <libyang/libyang.h>

#include <algorithm>

#include "cdb/compare_row.h"
#include "cdb/compare_undo.h"

namespace cdb {
namespace {

bool IsTransparent(NodeKind kind) { return kind == NodeKind::kContainer; }

class Comparer {
public:
    Comparer(const Schema& schema, bool withUndo)
        : m_schema(schema), m_table(schema.Table()), m_withUndo(withUndo), m_undo(schema)
    {
    }

    /// What became of one place. Below `touched` only; null: everything. True where `change` says
    /// something.
    bool Place(NodeId id, const lyd_node* before, const lyd_node* now, const Touched::Node* touched,
               UndoEdit::At* above, ChangeNode& change);

    Difference Result(ChangeNode root)
    {
        return {std::move(root), std::move(m_rows), m_withUndo ? m_undo.Text() : std::string()};
    }

private:
    using Pair = std::pair<const lyd_node*, const lyd_node*>;  // before, now
    using Pairs = std::map<cdb::Place, Pair>;

    void Both(NodeId id, const lyd_node* before, const lyd_node* now, const Touched::Node* touched,
              UndoEdit::At* above, ChangeNode& change);
    void Leaves(NodeId id, const lyd_node* before, const lyd_node* now, UndoEdit::At* at, ChangeNode& change);
    void UndoLeaf(const LeafState& before, const LeafState& now, UndoEdit::At* at);
    void Created(NodeId id, const lyd_node* now, ChangeNode& change);
    void Deleted(NodeId id, const lyd_node* before, ChangeNode& change);
    void Below(const lyd_node* node, ChangeNode& change,
               void (Comparer::*what)(NodeId, const lyd_node*, ChangeNode&));
    [[nodiscard]] Pairs AllBelow(const lyd_node* before, const lyd_node* now) const;
    void PutRow(NodeId id, std::optional<Row> row);

    const Schema& m_schema;
    const SchemaTable& m_table;
    const bool m_withUndo;
    UndoEdit m_undo;
    std::vector<RowChange> m_rows;
    std::vector<std::string> m_keys;  // of the entries on the way, the place's own included
};

bool Comparer::Place(NodeId id, const lyd_node* before, const lyd_node* now, const Touched::Node* touched,
                     UndoEdit::At* above, ChangeNode& change)
{
    if (before == nullptr && now == nullptr) return false;
    change.node = id;
    change.keys = KeysOf(now != nullptr ? now : before);
    m_keys.insert(m_keys.end(), change.keys.begin(), change.keys.end());
    if (before == nullptr) {
        if (m_withUndo) m_undo.Remove(above, now);
        Created(id, now, change);
    } else if (now == nullptr) {
        if (m_withUndo) m_undo.Restore(above, before);
        Deleted(id, before, change);
    } else {
        Both(id, before, now, touched, above, change);
    }
    m_keys.resize(m_keys.size() - change.keys.size());
    return change.op == ChangeOp::kCreated || change.op == ChangeOp::kDeleted || !change.children.empty();
}

void Comparer::Both(NodeId id, const lyd_node* before, const lyd_node* now, const Touched::Node* touched,
                    UndoEdit::At* above, ChangeNode& change)
{
    UndoEdit::At at{above, now, nullptr, false};
    if (m_withUndo && IsTransparent(m_table[id].kind) && !IsExplicit(before) && IsExplicit(now)) {
        m_undo.Remove(above, now);  // there was nothing: one word takes it all back
        at.settled = true;
    }
    const bool isWhole = touched == nullptr || touched->whole;
    if (isWhole || touched->leaves) Leaves(id, before, now, &at, change);
    const auto look = [&](const cdb::Place& place, const lyd_node* old, const lyd_node* fresh,
                          const Touched::Node* deeper) {
        ChangeNode child;
        if (Place(place.node, old, fresh, deeper, &at, child)) change.children.push_back(std::move(child));
    };
    if (isWhole) {
        for (const auto& [place, pair] : AllBelow(before, now)) look(place, pair.first, pair.second, nullptr);
    } else {
        for (const auto& [place, deeper] : touched->below) {
            const auto both = FindBoth(m_schema, lyd_child(before), lyd_child(now), place);
            look(place, both.before, both.now, &deeper);
        }
    }
    // Entries stand in order already; leaves and the rest are put into the schema's order.
    std::stable_sort(change.children.begin(), change.children.end(),
                     [](const ChangeNode& a, const ChangeNode& b) { return a.node < b.node; });
    if (!IsTransparent(m_table[id].kind) && !change.children.empty()) change.op = ChangeOp::kModified;
}

void Comparer::Leaves(NodeId id, const lyd_node* before, const lyd_node* now, UndoEdit::At* at,
                      ChangeNode& change)
{
    const auto old = LeavesIn(m_schema, id, before);
    const auto fresh = LeavesIn(m_schema, id, now);
    bool differs = false;
    for (std::size_t i = 0; i < fresh.size(); ++i) {
        if (old[i].own != fresh[i].own) {
            differs = true;
            if (m_withUndo) UndoLeaf(old[i], fresh[i], at);
        }
        if (old[i].effective == fresh[i].effective) continue;
        ChangeNode leaf;
        leaf.node = fresh[i].node;
        leaf.op = fresh[i].effective == Value{} ? ChangeOp::kDeleted : ChangeOp::kValueSet;
        leaf.value = fresh[i].effective;
        change.children.push_back(std::move(leaf));
    }
    if (!differs) return;
    Row row = RowOf(m_table, fresh);
    const bool needsNone = IsTransparent(m_table[id].kind) && row.leaves.empty();
    PutRow(id, needsNone ? std::nullopt : std::optional<Row>(std::move(row)));
}

void Comparer::UndoLeaf(const LeafState& before, const LeafState& now, UndoEdit::At* at)
{
    if (before.data != nullptr)
        m_undo.Restore(at, before.data);
    else
        m_undo.Remove(at, now.data);
}

void Comparer::Created(NodeId id, const lyd_node* now, ChangeNode& change)
{
    if (!IsTransparent(m_table[id].kind)) change.op = ChangeOp::kCreated;
    auto leaves = LeavesIn(m_schema, id, now);
    Row row = RowOf(m_table, leaves);
    for (auto& leaf : leaves) {
        if (leaf.data == nullptr) continue;
        ChangeNode child;
        child.node = leaf.node;
        child.op = ChangeOp::kValueSet;
        child.value = std::move(leaf.own);
        change.children.push_back(std::move(child));
    }
    if (!IsTransparent(m_table[id].kind) || !row.leaves.empty()) PutRow(id, std::move(row));
    Below(now, change, &Comparer::Created);
}

void Comparer::Deleted(NodeId id, const lyd_node* before, ChangeNode& change)
{
    if (!IsTransparent(m_table[id].kind)) change.op = ChangeOp::kDeleted;
    bool hasRow = !IsTransparent(m_table[id].kind);
    for (const auto& leaf : LeavesIn(m_schema, id, before)) {
        if (leaf.data == nullptr) continue;
        ChangeNode child;
        child.node = leaf.node;
        child.op = ChangeOp::kDeleted;
        change.children.push_back(std::move(child));
        hasRow = true;
    }
    if (hasRow) PutRow(id, std::nullopt);
    Below(before, change, &Comparer::Deleted);
}

void Comparer::Below(const lyd_node* node, ChangeNode& change,
                     void (Comparer::*what)(NodeId, const lyd_node*, ChangeNode&))
{
    for (const auto& [place, pair] : AllBelow(nullptr, node)) {
        ChangeNode child;
        child.node = place.node;
        child.keys = place.keys;
        m_keys.insert(m_keys.end(), place.keys.begin(), place.keys.end());
        (this->*what)(place.node, pair.second, child);
        m_keys.resize(m_keys.size() - place.keys.size());
        if (child.op != ChangeOp::kNone || !child.children.empty())
            change.children.push_back(std::move(child));
    }
    std::stable_sort(change.children.begin(), change.children.end(),
                     [](const ChangeNode& a, const ChangeNode& b) { return a.node < b.node; });
}

Comparer::Pairs Comparer::AllBelow(const lyd_node* before, const lyd_node* now) const
{
    Pairs pairs;
    const auto add = [&](const lyd_node* parent, const lyd_node* Pair::*side) {
        if (parent == nullptr) return;
        for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next)
            if (child->schema->nodetype != LYS_LEAF)
                pairs[{m_schema.IdOf(child->schema), KeysOf(child)}].*side = child;
    };
    add(before, &Pair::first);
    add(now, &Pair::second);
    return pairs;
}

void Comparer::PutRow(NodeId id, std::optional<Row> row) { m_rows.push_back({{id, m_keys}, std::move(row)}); }

}  // namespace

Difference Compare(const Schema& schema, const lyd_node* running, const lyd_node* candidate,
                   const Touched& touched, WithUndo withUndo)
{
    Comparer comparer(schema, withUndo == WithUndo::kYes);
    ChangeNode root;
    root.node = schema.Table().Size() != 0 ? 0 : kNoNode;
    if (touched.Empty() || running == nullptr) return comparer.Result(std::move(root));
    const NodeId top = schema.IdOf(running->schema);
    const cdb::Place place{top, {}};
    const auto& all = touched.Root();
    const auto it = all.below.find(place);
    const Touched::Node* below = it != all.below.end() ? &it->second : nullptr;
    if (all.whole || below != nullptr)
        comparer.Place(top, running, candidate, all.whole ? nullptr : below, nullptr, root);
    return comparer.Result(std::move(root));
}

}  // namespace cdb
