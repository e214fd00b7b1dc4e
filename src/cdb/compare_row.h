// The leaves of one entry or container: their row for the store, and their effective values.

#ifndef CDB_COMPARE_ROW_H
#define CDB_COMPARE_ROW_H

#include <vector>

#include "cdb/schema.h"
#include "cdb/store.h"

struct lyd_node;

namespace cdb {

/// One leaf of an entry or container.
struct LeafState {
    NodeId node = kNoNode;
    const lyd_node* data = nullptr;  // where it is explicit
    Value own;                       // its explicit value
    Value effective;                 // its own, else of the leaf that its default refers to, else its default
};

/// The leaves in schema order, keys left out. `holder` null: nothing is explicit.
std::vector<LeafState> LeavesIn(const Schema& schema, NodeId id, const lyd_node* holder);

Row RowOf(const SchemaTable& table, const std::vector<LeafState>& leaves);

}  // namespace cdb

#endif
