// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/past.h"

#include <string>
#include <utility>

#include "cdb/rows/codec.h"

namespace cdb {
namespace {

std::string GoBackNoFurther(std::uint64_t commit)
{
    return "; go back no further than to commit " + std::to_string(commit) +
           ", or load a configuration from a file";
}

/// Why the row can't stand in the schema; empty if it can, as far as it shows without libyang.
std::string Misfit(const SchemaTable& table, const RowKey& key, const Row& row)
{
    if (table[key.node].kind == NodeKind::kLeaf) return "is a leaf there";
    std::size_t keys = 0;
    for (const NodeId id : table.WayTo(key.node)) keys += table[id].keys.size();
    if (keys != key.keys.size()) return "has other keys there";
    for (const auto& [name, value] : row.leaves) {
        const NodeId leaf = table.Child(key.node, name);
        if (leaf == kNoNode || table[leaf].kind != NodeKind::kLeaf) return "has no leaf " + name + " there";
        if (table[leaf].type != TypeOf(value)) return "has a leaf " + name + " of another type there";
    }
    return {};
}

Error DoesNotFit(std::uint64_t commit, const std::string& what)
{
    return {.tag = ErrorTag::kOperationFailed,
            .message = "commit " + std::to_string(commit) +
                       " can't be undone, because the YANG modules have changed since: " + what +
                       GoBackNoFurther(commit)};
}

}  // namespace

std::optional<Error> TakeBack(const Schema& schema, const Store& store, std::uint64_t commit, RowPatch& rows)
{
    const auto& table = schema.Table();
    auto entry = store.HistoryUndo(commit);
    if (!entry) {
        Error error = std::move(entry.error());
        if (error.tag == ErrorTag::kDataMissing) error.message += GoBackNoFurther(commit);
        return error;
    }
    if (entry->undoRows.empty())
        return Error{.tag = ErrorTag::kOperationFailed,
                     .message = "commit " + std::to_string(commit) +
                                " was made by an older version, whose undo this one can't carry out" +
                                GoBackNoFurther(commit)};
    for (UndoRow& undo : entry->undoRows) {
        auto key = store.RowKeyOf(undo.key);
        if (!key && !undo.row) continue;  // the row was not there before, and is not there now
        if (!key) return DoesNotFit(commit, "they have no " + codec::Readable(undo.key));
        if (const std::string why = Misfit(table, *key, undo.row ? *undo.row : Row{}); !why.empty())
            return DoesNotFit(commit, codec::Readable(undo.key) + ' ' + why);
        rows.insert_or_assign(std::pair(key->node, std::move(key->keys)), std::move(undo.row));
    }
    return std::nullopt;
}

base::expected<RowPatch, Error> RowsAfter(const Schema& schema, const Store& store, std::uint64_t commit,
                                          std::uint64_t newest)
{
    if (commit > newest)
        return base::Unexpected(Error{.tag = ErrorTag::kInvalidValue,
                                      .message = "there is no commit " + std::to_string(commit) +
                                                 "; the last one is " + std::to_string(newest)});
    RowPatch rows;
    for (std::uint64_t each = newest; each > commit; --each)
        if (auto error = TakeBack(schema, store, each, rows)) return base::Unexpected(std::move(*error));
    return rows;
}

}  // namespace cdb
