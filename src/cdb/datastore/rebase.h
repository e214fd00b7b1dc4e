// SPDX-License-Identifier: Apache-2.0
// What was edited and not committed, carried over where running changes under it. Used by the datastore.

#ifndef CDB_DATASTORE_REBASE_H
#define CDB_DATASTORE_REBASE_H

#include <vector>

#include "cdb/datastore/patched_view.h"
#include "cdb/model/row.h"
#include "cdb/model/schema_table.h"
#include "cdb/rows/row_view.h"

namespace cdb {

/// The rows of a candidate that has the same edits on another running: to be put in the place of its rows.
/// `edits`: the rows in which the candidate differs from running as it was, parents before their children.
/// `edited`: the candidate. `running`: as it will be.
///
/// Leaf by leaf: what was edited has the candidate's value, all else running's. A list entry that was edited,
/// and that the new running does not have, is in the candidate as a whole, with all below it.
RowPatch CarryOver(const SchemaTable& table, const std::vector<RowChange>& edits, RowView& edited,
                   RowView& running);

}  // namespace cdb

#endif
