// SPDX-License-Identifier: Apache-2.0
// What the store keeps beside the rows: a commit's entry in the history, the checkpoints, the confirmed
// commit that waits, the node's role, and the faults of processes.

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
    std::string source;  // "netconf", "init", "import", "rollback"
    std::string comment;
    // Undoes the commit: an edit as XML (written by older versions), or rows. An entry has at most one of
    // them.
    std::string undo;
    std::vector<UndoRow> undoRows{};
    std::uint32_t changes = 0;  // rows that it changed; 0: unknown, the entry is of an older version
    bool undoKept = false;      // set when it is read: what undoes it is in the store
};

/// A commit marked by a name: the configuration as it was after it.
struct Checkpoint {
    std::string name;
    std::uint64_t commit = 0;  // 0: the empty configuration before the first commit
    std::int64_t timeUs = 0;   // when it was marked, since the epoch
    std::string user;          // who has set it
    friend bool operator==(const Checkpoint&, const Checkpoint&) = default;
};

/// A confirmed commit that waits for its confirmation (RFC 6241, section 8.4), with those that have extended
/// it. Without a confirmation running becomes again what it was before them.
struct PendingCommit {
    std::uint64_t returnTo = 0;        // the commit before them, whose configuration comes back
    std::uint64_t last = 0;            // the last of them; as returnTo: none has changed anything
    std::int64_t deadlineUs = 0;       // since the epoch
    std::uint32_t timeoutSeconds = 0;  // of the last of them
    std::string user{};                // who has made the first one
    std::string persistId{};           // the token that confirms it; empty: it ends with its session
    friend bool operator==(const PendingCommit&, const PendingCommit&) = default;
};

/// The role of this node in a redundant pair.
enum class Role : std::uint8_t { kUnknown, kActive, kStandby };

struct NodeRole {
    Role role = Role::kUnknown;  // unknown: none has been asked for
    std::int64_t sinceUs = 0;    // when it was asked for first, since the epoch
    std::string user{};          // who has asked
    friend bool operator==(const NodeRole&, const NodeRole&) = default;
};

/// A fault that a process has reported of itself.
struct Fault {
    std::uint64_t number = 0;  // assigned by the store
    std::int64_t timeUs = 0;
    std::string process;
    std::int64_t pid = 0;
    std::int32_t kind = 0;
    std::string function;
    std::string file;
    std::int32_t line = 0;
    std::string text;
};

}  // namespace cdb

#endif
