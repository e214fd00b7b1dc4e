// SPDX-License-Identifier: Apache-2.0
// The history in the store: an entry a commit in the database "history", what undoes it in chunks in the
// database "undo", and in "meta" how many bytes that is together. Used by the store's writer only.

#ifndef CDB_STORE_HISTORY_H
#define CDB_STORE_HISTORY_H

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

#include "cdb/rows/environment.h"
#include "cdb/store/store.h"

namespace cdb {
class WriteTransaction;
}

namespace cdb::history {

struct Limits {
    std::size_t entries = 0;
    std::size_t bytes = 0;
    std::int64_t ageUs = 0;  // 0: none
};

/// An entry as it will be stored.
struct Addition {
    std::uint64_t commit = 0;
    std::int64_t timeUs = 0;
    std::string payload;
    std::string undo;
};
Addition Encode(const HistoryEntry& entry, const Limits& limits);

/// Adds it, and drops the oldest entries beyond the limits; never the one added.
void Append(WriteTransaction& write, const Environment& environment, const Addition& addition,
            const Limits& limits);

/// Drops the oldest entries until half of the bytes are left, the last one excepted. How many were dropped.
std::size_t DropHalf(WriteTransaction& write, const Environment& environment);

/// Writes the count as it is.
void WriteAgain(WriteTransaction& write, const Environment& environment);

std::variant<HistoryEntry, Error> WithUndo(const Environment& environment, MDB_txn* transaction,
                                           std::uint64_t commit);

/// The bytes of both databases, counted by what their keys say of the values.
std::uint64_t CountBytes(const Environment& environment, MDB_txn* transaction);

}  // namespace cdb::history

#endif
