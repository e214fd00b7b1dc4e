// SPDX-License-Identifier: Apache-2.0
// Builds trees from rows: a whole datastore, its trunk, or one entry.

#ifndef CDB_DATASTORE_TREE_LOAD_H
#define CDB_DATASTORE_TREE_LOAD_H

#include "cdb/datastore/tree.h"
#include "cdb/rows/row_view.h"

namespace cdb {

// All of them throw FatalError that names the row which the schema does not accept.

/// The complete tree of everything.
TreePtr LoadTree(const Schema& schema, RowView& rows);

/// The containers and leaves outside of lists, into the tree with nothing set that begins with this node.
void LoadTrunk(const Schema& schema, lyd_node* tree, RowView& rows);

/// One entry, complete, below the parent. `row`: the entry's own, no longer the view's.
lyd_node* LoadEntry(const Schema& schema, lyd_node* parent, const RowKey& key, const Row& row, RowView& rows);

}  // namespace cdb

#endif
