// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/rebase.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <string>
#include <utility>

namespace cdb {
namespace {

using Leaf = std::pair<std::string, Value>;

const Value* Find(const std::optional<Row>& row, const std::string& name)
{
    if (!row) return nullptr;
    const auto found = std::find_if(row->leaves.begin(), row->leaves.end(),
                                    [&name](const Leaf& leaf) { return leaf.first == name; });
    return found == row->leaves.end() ? nullptr : &found->second;
}

void Set(Row& row, const std::string& name, const Value& value)
{
    std::erase_if(row.leaves, [&name](const Leaf& leaf) { return leaf.first == name; });
    row.leaves.emplace_back(name, value);
}

/// The row with the edit's leaves.
Row Merged(Row row, const RowChange& edit)
{
    if (edit.before)
        for (const auto& [name, value] : edit.before->leaves)
            if (Find(edit.now, name) == nullptr)
                std::erase_if(row.leaves, [&gone = name](const Leaf& leaf) { return leaf.first == gone; });
    if (edit.now)
        for (const auto& [name, value] : edit.now->leaves) {
            const Value* before = Find(edit.before, name);
            if (before == nullptr || *before != value) Set(row, name, value);
        }
    return row;
}

class Carrier {
public:
    Carrier(const SchemaTable& table, RowView& edited, RowView& running)
        : m_table(table), m_edited(edited), m_running(running)
    {
    }

    void Take(const RowChange& edit)
    {
        // Its row comes and goes with its leaves.
        const bool isPlain = m_table[edit.key.node].kind == NodeKind::kContainer;
        if (!edit.now && !isPlain) {
            if (m_running.Get(edit.key.node, edit.key.keys) != nullptr) Put(edit.key, std::nullopt);
            return;
        }
        if (const auto missing = FirstMissing(edit.key)) {
            // Taken as a whole before, where another edit is of the same entry.
            if (!m_patch.contains({missing->node, missing->keys})) TakeAll(missing->node, missing->keys);
            return;
        }
        const Row* row = m_running.Get(edit.key.node, edit.key.keys);
        Row merged = Merged(row != nullptr ? *row : Row{}, edit);
        Put(edit.key, isPlain && merged.leaves.empty() ? std::nullopt : std::optional(std::move(merged)));
    }

    RowPatch Result() { return std::move(m_patch); }

private:
    /// The first list entry on the way to the row, itself included, that running does not have.
    std::optional<RowKey> FirstMissing(const RowKey& key)
    {
        std::size_t count = 0;
        for (const NodeId id : m_table.WayTo(key.node)) {
            if (m_table[id].kind != NodeKind::kList) continue;
            count += m_table[id].keys.size();
            RowKey entry{id, {key.keys.begin(), key.keys.begin() + static_cast<std::ptrdiff_t>(count)}};
            if (m_running.Get(entry.node, entry.keys) == nullptr) return entry;
        }
        return std::nullopt;
    }

    /// The candidate's rows at and below the node.
    void TakeAll(NodeId node, const std::vector<std::string>& keys)
    {
        if (const Row* row = m_edited.Get(node, keys)) Put({node, keys}, *row);
        for (const NodeId child : m_table[node].children) {
            if (m_table[child].kind == NodeKind::kLeaf) continue;
            if (m_table[child].kind != NodeKind::kList) {
                TakeAll(child, keys);
                continue;
            }
            std::vector<std::vector<std::string>> entries;
            m_edited.ForEach(child, keys, [&](std::span<const std::string_view> own, const Row&) {
                entries.push_back(keys);
                entries.back().insert(entries.back().end(), own.begin(), own.end());
                return true;
            });
            for (const auto& entry : entries) TakeAll(child, entry);
        }
    }

    void Put(const RowKey& key, std::optional<Row> row)
    {
        m_patch.insert_or_assign(std::pair(key.node, key.keys), std::move(row));
    }

    const SchemaTable& m_table;
    RowView& m_edited;
    RowView& m_running;
    RowPatch m_patch;
};

}  // namespace

RowPatch CarryOver(const SchemaTable& table, const std::vector<RowChange>& edits, RowView& edited,
                   RowView& running)
{
    Carrier carrier(table, edited, running);
    for (const RowChange& edit : edits) carrier.Take(edit);
    return carrier.Result();
}

}  // namespace cdb
