// SPDX-License-Identifier: Apache-2.0
// The part of a datastore by which access control judges an edit: the entries that it names and those that it
// takes out, as a complete tree. Built from rows; knows no rule and applies nothing. Used by the agent's
// access control.

#ifndef CDB_DATASTORE_TREE_FOR_EDIT_H
#define CDB_DATASTORE_TREE_FOR_EDIT_H

#include "cdb/datastore/datastore.h"
#include "cdb/datastore/tree.h"
#include "cdb/rows/row_view.h"

namespace cdb {

/// The trunk, the entries of outermost lists that the edit names, each with everything below it, and all
/// entries below a container that the edit deletes, removes or replaces. So the cost depends on the edit, not
/// on the rest of the configuration. `edit` as in Datastore::Edit; null: an empty one. Throws FatalError.
TreePtr LoadTreeForEdit(const Schema& schema, RowView& rows, const lyd_node* edit,
                        DefaultOperation operation);

}  // namespace cdb

#endif
