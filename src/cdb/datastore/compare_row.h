// SPDX-License-Identifier: Apache-2.0
// The leaves of one entry or container: their row for the store, and their effective values.

#ifndef CDB_DATASTORE_COMPARE_ROW_H
#define CDB_DATASTORE_COMPARE_ROW_H

#include <vector>

#include "cdb/model/row.h"
#include "cdb/schema/schema.h"

struct lyd_node;

namespace cdb {

/// The explicit leaves of an entry or container of a tree, in schema order, keys left out.
Row RowOf(const Schema& schema, const lyd_node* holder);

/// One leaf of an entry or container.
struct LeafState {
    NodeId node = kNoNode;
    Value own;        // its explicit value
    Value effective;  // its own, else that of the leaf its default refers to, else its default
};

/// All leaves that the schema has in this node, in schema order, without keys.
std::vector<LeafState> LeavesOf(const SchemaTable& table, NodeId id, const Row& row);

}  // namespace cdb

#endif
