// SPDX-License-Identifier: Apache-2.0
// A commit's entry in the history.

#ifndef CDB_MODEL_HISTORY_H
#define CDB_MODEL_HISTORY_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cdb/model/row.h"

namespace cdb {

/// A row as it was before a commit.
struct UndoRow {
    std::string key;         // as stored: Store::StoredKey
    std::optional<Row> row;  // nullopt: the row did not exist
    friend bool operator==(const UndoRow&, const UndoRow&) = default;
};

struct HistoryEntry {
    std::uint64_t commit = 0;
    std::int64_t timeUs = 0;  // since the epoch
    std::string user;
    std::string source;  // "netconf", "init", "import"
    std::string comment;
    // Undoes the commit: an edit as XML (written by older versions), or rows. An entry has at most one of
    // them.
    std::string undo;
    std::vector<UndoRow> undoRows{};
};

}  // namespace cdb

#endif
