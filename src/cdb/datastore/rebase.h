// SPDX-License-Identifier: Apache-2.0
// Carries a candidate's changes over to running as it is now, after others have committed. What counts is how
// rows differ, not the operations that made them. Used by the datastore.
//
// A row is an entry's or container's own leaves. Where running has the row as it was in the base, the
// candidate's is taken; where running has it as the candidate, there is nothing to do; else the row is in
// conflict. So is an entry that one side has deleted and the other has changed or filled.

#ifndef CDB_DATASTORE_REBASE_H
#define CDB_DATASTORE_REBASE_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "cdb/datastore/patched_view.h"
#include "cdb/model/error.h"
#include "cdb/model/row.h"
#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

namespace cdb {

struct Rebased {
    /// To stand in the place of running's: the changes that are not in conflict and not there already.
    RowPatch rows;
    /// In the order of the changes: at most kMaxConflicts, and one that counts the rest. Each has the path of
    /// the entry or leaf, and says who changed it in which commit.
    std::vector<Error> conflicts;
};

constexpr std::size_t kMaxConflicts = 32;

/// `changes`: of the candidate against its base, the commit of that number, parents before their children.
/// Throws FatalError if the store can't be read.
Rebased Rebase(const Schema& schema, const Store& store, const std::vector<RowChange>& changes,
               std::uint64_t base);

}  // namespace cdb

#endif
