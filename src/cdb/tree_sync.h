// Makes one tree equal to another where they may differ: running after a commit, the candidate when
// it is discarded.

#ifndef CDB_TREE_SYNC_H
#define CDB_TREE_SYNC_H

#include "cdb/tree_touched.h"

namespace cdb {

/// Both trees are complete and have the same top-level containers. Elsewhere than at what was
/// touched they are equal already.
void Synchronize(const Schema& schema, lyd_node* tree, const lyd_node* model, const Touched& touched);

}  // namespace cdb

#endif
