// SPDX-License-Identifier: Apache-2.0
// Builds trees from rows: a whole datastore, its trunk, one entry, or the part that an edit is about.

#ifndef CDB_DATASTORE_TREE_LOAD_H
#define CDB_DATASTORE_TREE_LOAD_H

#include "cdb/datastore/edit_operation.h"
#include "cdb/datastore/tree.h"
#include "cdb/model/error.h"
#include "cdb/rows/row_view.h"

namespace cdb {

/// Names a row which the schema does not accept.
class RowRefused : public FatalError {
public:
    using FatalError::FatalError;
};

// They throw RowRefused, or FatalError if the rows can't be read.

/// The complete tree of all rows.
TreePtr LoadTree(const Schema& schema, RowView& rows);

/// Loads the containers and leaves outside of lists into an empty tree (EmptyTree), which begins with `tree`.
void LoadTrunk(const Schema& schema, lyd_node* tree, RowView& rows);

/// Loads one entry, complete, below the parent. `row` is the entry's own, and must be a copy of the view's.
lyd_node* LoadEntry(const Schema& schema, lyd_node* parent, const RowKey& key, const Row& row, RowView& rows);

/// The part of a datastore by which access control judges an edit: the trunk, the entries of outermost lists
/// that the edit names, each with everything below it, and all entries below a container that the edit
/// deletes, removes or replaces. So the cost depends on the edit, not on the rest of the configuration.
/// `edit` as in Datastore::Edit; null: an empty one.
TreePtr LoadTreeForEdit(const Schema& schema, RowView& rows, const lyd_node* edit,
                        DefaultOperation operation);

}  // namespace cdb

#endif
