// SPDX-License-Identifier: Apache-2.0
// What the history keeps of a commit.

#ifndef CDB_MODEL_HISTORY_H
#define CDB_MODEL_HISTORY_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cdb/model/row.h"

namespace cdb {

/// What a row was before a commit.
struct UndoRow {
    std::string key;         // as stored: Store::StoredKey
    std::optional<Row> row;  // nullopt: there was none
    friend bool operator==(const UndoRow&, const UndoRow&) = default;
};

struct HistoryEntry {
    std::uint64_t commit = 0;
    std::int64_t timeUs = 0;  // since the epoch
    std::string user;
    std::string source;  // "netconf", "init", "import"
    std::string comment;
    // What takes the datastore back to the commit before: an edit as XML, or rows. Of one entry at most one.
    std::string undo;
    std::vector<UndoRow> undoRows{};
};

}  // namespace cdb

#endif
