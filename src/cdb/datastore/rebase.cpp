// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/rebase.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <utility>

#include "cdb/datastore/tree.h"
#include "cdb/rows/row_view.h"

namespace cdb {
namespace {

using Key = RowPatch::key_type;

RowKey ToRowKey(const Key& key) { return {key.first, key.second}; }

struct Conflict {
    enum class Kind {
        kChanged,      // both have made the row something else
        kDeletedHere,  // running has other or more rows of an entry that the candidate deletes
        kDeletedThere  // running has no such entry any more
    };
    Key key;
    Kind kind = Kind::kChanged;
    std::vector<std::string> leaves;  // that both have changed
};

/// The list entries and presence containers from the root to the row, itself included: what has to be there
/// for the row to be there.
std::vector<Key> HoldersOf(const SchemaTable& table, const Key& key)
{
    std::vector<Key> holders;
    std::size_t keys = 0;
    for (const NodeId id : table.WayTo(key.first)) {
        keys += table[id].keys.size();
        if (table[id].kind != NodeKind::kList && table[id].kind != NodeKind::kPresenceContainer) continue;
        const auto end = key.second.begin() + static_cast<std::ptrdiff_t>(std::min(keys, key.second.size()));
        holders.push_back({id, {key.second.begin(), end}});
    }
    return holders;
}

class Rebaser {
public:
    Rebaser(const SchemaTable& table, RowView& running, const std::vector<RowChange>& changes)
        : m_table(table), m_running(running), m_changes(changes)
    {
        for (const RowChange& change : changes) m_own.emplace(KeyOf(change), &change);
    }

    void Run()
    {
        for (const RowChange& change : m_changes) TakeRow(change);
        for (const RowChange& change : m_changes) CheckPlace(change);
        DropConflicting();
    }

    RowPatch TakeRows() { return std::move(m_rows); }
    [[nodiscard]] const std::vector<Conflict>& Conflicts() const { return m_conflicts; }

private:
    static Key KeyOf(const RowChange& change) { return {change.key.node, change.key.keys}; }

    std::optional<Row> Running(const Key& key)
    {
        const Row* row = m_running.Get(key.first, key.second);
        return row != nullptr ? std::optional(*row) : std::nullopt;
    }

    void TakeRow(const RowChange& change)
    {
        const Key key = KeyOf(change);
        const auto there = Running(key);
        if (there == change.now) return;
        if (there == change.before) {
            m_rows.emplace(key, change.now);
            return;
        }
        if (const Key* deleted = DeletedHere(key)) return Add({*deleted, Conflict::Kind::kDeletedHere, {}});
        if (const auto gone = GoneThere(key)) return Add({*gone, Conflict::Kind::kDeletedThere, {}});
        Add({key, Conflict::Kind::kChanged, LeavesOfBoth(change, there)});
    }

    /// What a change makes or leaves has to have its parents; what it deletes must leave nothing below.
    void CheckPlace(const RowChange& change)
    {
        const Key key = KeyOf(change);
        if (!m_rows.contains(key)) return;
        if (change.now) {
            if (const auto gone = GoneThere(key)) Add({*gone, Conflict::Kind::kDeletedThere, {}});
        } else if (m_table[key.first].kind != NodeKind::kContainer && HasBelow(key.first, key.second)) {
            Add({*DeletedHere(key), Conflict::Kind::kDeletedHere, {}});
        }
    }

    /// The topmost entry around the row, or itself, that the candidate deletes; null if there is none.
    const Key* DeletedHere(const Key& key) const
    {
        for (const Key& holder : HoldersOf(m_table, key)) {
            const auto it = m_own.find(holder);
            if (it != m_own.end() && !it->second->now) return &it->first;
        }
        return nullptr;
    }

    /// The topmost entry around the row, or itself, that would not be there.
    std::optional<Key> GoneThere(const Key& key)
    {
        for (Key& holder : HoldersOf(m_table, key))
            if (!Exists(holder)) return std::move(holder);
        return std::nullopt;
    }

    bool Exists(const Key& key)
    {
        const auto it = m_rows.find(key);
        return it != m_rows.end() ? it->second.has_value() : m_running.Get(key.first, key.second) != nullptr;
    }

    bool HasBelow(NodeId node, const std::vector<std::string>& keys)
    {
        for (const NodeId child : m_table[node].children) {
            const NodeKind kind = m_table[child].kind;
            if (kind == NodeKind::kLeaf) continue;
            if (kind != NodeKind::kList) {
                if (Exists({child, keys}) || HasBelow(child, keys)) return true;
                continue;
            }
            bool has = false;
            m_running.ForEach(child, keys, [&](std::span<const std::string_view> own, const Row&) {
                Key key{child, keys};
                key.second.insert(key.second.end(), own.begin(), own.end());
                const auto it = m_rows.find(key);
                has = it == m_rows.end() || it->second.has_value();
                return !has;
            });
            if (has) return true;
        }
        return false;
    }

    static std::vector<std::string> LeavesOfBoth(const RowChange& change, const std::optional<Row>& there)
    {
        const auto values = [](const std::optional<Row>& row) {
            std::map<std::string, Value> map;
            if (row) map.insert(row->leaves.begin(), row->leaves.end());
            return map;
        };
        const auto before = values(change.before);
        const auto now = values(change.now);
        const auto running = values(there);
        const auto differs = [](const auto& a, const auto& b, const std::string& name) {
            const auto inA = a.find(name);
            const auto inB = b.find(name);
            if (inA == a.end() || inB == b.end()) return (inA == a.end()) != (inB == b.end());
            return inA->second != inB->second;
        };
        std::set<std::string> names;
        for (const auto* each : {&before, &now, &running})
            for (const auto& [name, value] : *each)
                if (differs(before, now, name) && differs(before, running, name)) names.insert(name);
        return {names.begin(), names.end()};
    }

    void Add(Conflict conflict)
    {
        if (m_inConflict.emplace(conflict.key, conflict.kind).second)
            m_conflicts.push_back(std::move(conflict));
    }

    /// Running's side of what is in conflict stays as a whole.
    void DropConflicting()
    {
        if (m_conflicts.empty()) return;
        std::erase_if(m_rows, [this](const auto& row) {
            for (const Key& holder : HoldersOf(m_table, row.first)) {
                const auto it = m_inConflict.find(holder);
                if (it != m_inConflict.end() && it->second != Conflict::Kind::kChanged) return true;
            }
            return false;
        });
    }

    const SchemaTable& m_table;
    RowView& m_running;
    const std::vector<RowChange>& m_changes;
    std::map<Key, const RowChange*> m_own;
    RowPatch m_rows;
    std::vector<Conflict> m_conflicts;
    std::map<Key, Conflict::Kind> m_inConflict;
};

/// "by alice in commit 8", for each of the first conflicts; empty if the history does not say. Looks at the
/// commits after the base, the newest first.
std::vector<std::string> Authors(const Schema& schema, const Store& store,
                                 const std::vector<Conflict>& conflicts, std::size_t count,
                                 std::uint64_t base)
{
    const auto& table = schema.Table();
    std::vector<std::string> authors(count);
    std::map<Key, std::size_t> wanted;
    for (std::size_t i = 0; i < count; ++i) wanted.emplace(conflicts[i].key, i);
    for (std::uint64_t commit = store.LastCommit(); commit > base && !wanted.empty(); --commit) {
        const auto entry = store.HistoryUndo(commit);
        if (!entry) break;
        for (const UndoRow& undo : entry->undoRows) {
            auto key = store.RowKeyOf(undo.key);
            if (!key) continue;
            std::vector<Key> touched = HoldersOf(table, {key->node, key->keys});
            const bool isEntry = !touched.empty() && touched.back().first == key->node;
            if (!isEntry) touched.push_back({key->node, std::move(key->keys)});
            for (const Key& each : touched) {
                const auto it = wanted.find(each);
                if (it == wanted.end()) continue;
                // A row below says who only where the entry as a whole is in conflict.
                if (each != touched.back() && conflicts[it->second].kind == Conflict::Kind::kChanged)
                    continue;
                authors[it->second] = " by " + entry->user + " in commit " + std::to_string(commit);
                wanted.erase(it);
            }
        }
    }
    return authors;
}

Error ToError(const SchemaTable& table, const Conflict& conflict, const std::string& author)
{
    const RowKey key = ToRowKey(conflict.key);
    Error error;
    error.tag = ErrorTag::kOperationFailed;
    error.appTag = "conflict";
    error.path = DataPath(table, key);
    std::string what = Describe(table, key);
    const NodeId leaf =
        conflict.leaves.size() == 1 ? table.Child(key.node, conflict.leaves.front()) : kNoNode;
    if (leaf != kNoNode) {
        error.path = DataPath(table, {leaf, key.keys});
        what = "leaf \"" + conflict.leaves.front() + "\" of " + what;
    }
    switch (conflict.kind) {
    case Conflict::Kind::kChanged:
        error.message = what + " was changed" + author + ", and otherwise in this candidate";
        break;
    case Conflict::Kind::kDeletedHere:
        error.message = what + " was changed" + author + ", and is deleted in this candidate";
        break;
    case Conflict::Kind::kDeletedThere:
        error.message = what + " was deleted" + author + ", and is changed in this candidate";
        break;
    }
    error.message +=
        "; an update that decides for running drops the change here, discarding the candidate drops all";
    return error;
}

}  // namespace

Rebased Rebase(const Schema& schema, const Store& store, const std::vector<RowChange>& changes,
               std::uint64_t base)
{
    const auto running = MakeRowView(store);
    Rebaser rebaser(schema.Table(), *running, changes);
    rebaser.Run();
    Rebased rebased{rebaser.TakeRows(), {}};
    const auto& conflicts = rebaser.Conflicts();
    const std::size_t count = std::min(conflicts.size(), kMaxConflicts);
    const auto authors = Authors(schema, store, conflicts, count, base);
    for (std::size_t i = 0; i < count; ++i)
        rebased.conflicts.push_back(ToError(schema.Table(), conflicts[i], authors[i]));
    if (conflicts.size() > count)
        rebased.conflicts.push_back(
            {.tag = ErrorTag::kOperationFailed,
             .message = std::to_string(conflicts.size() - count) + " more entries are in conflict",
             .appTag = "conflict"});
    return rebased;
}

}  // namespace cdb
