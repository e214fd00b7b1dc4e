// SPDX-License-Identifier: Apache-2.0
// The history in the store: an entry for each commit in the database "history", its undo in chunks in the
// database "undo", and in "meta" the number of bytes of both. Used by the store's writer only.

#ifndef CDB_STORE_HISTORY_H
#define CDB_STORE_HISTORY_H

#include <cstdint>
#include <string>

#include "base/expected.h"
#include "cdb/model/error.h"
#include "cdb/model/history.h"
#include "cdb/rows/environment.h"

namespace cdb {
class WriteTransaction;
}

namespace cdb::history {

struct Limits {
    std::size_t entries = 0;
    std::size_t bytes = 0;
    std::int64_t ageUs = 0;  // 0: no limit
};

/// An encoded entry. Its undo is empty if it alone is beyond the limit on bytes.
struct Addition {
    std::uint64_t commit = 0;
    std::int64_t timeUs = 0;
    std::string payload;
    std::string undo;
    bool undoLeftOut = false;
};
Addition Encode(const HistoryEntry& entry, const Limits& limits);

// What undoes the commits that wait for a confirmation, by the record of PendingCommit as `write` has it, is
// never dropped.

/// Adds it, replacing an entry of the same commit, and drops the oldest entries beyond the limits; never the
/// one added. Fails with kResourceDenied if those that must stay are beyond the limits. Errors stay in
/// `write`.
void Append(WriteTransaction& write, const Environment& environment, const Addition& addition,
            const Limits& limits);

/// Drops the oldest entries until half of the bytes are left, but never the last one. Returns how many it
/// dropped; errors stay in `write`.
std::size_t DropHalf(WriteTransaction& write, const Environment& environment);

/// Writes the unchanged count, for the sake of the write.
void WriteAgain(WriteTransaction& write, const Environment& environment);

base::expected<HistoryEntry, Error> WithUndo(const Environment& environment, MDB_txn* transaction,
                                             std::uint64_t commit);

/// The bytes of both databases' values, from their sizes. Throws FatalError.
std::uint64_t CountBytes(const Environment& environment, MDB_txn* transaction);

}  // namespace cdb::history

#endif
