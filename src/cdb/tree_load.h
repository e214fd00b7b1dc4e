// Builds the running tree from the rows of the store.

#ifndef CDB_TREE_LOAD_H
#define CDB_TREE_LOAD_H

#include "cdb/tree.h"

namespace cdb {

/// The complete tree. Throws FatalError that names the row which the schema does not accept.
TreePtr LoadTree(const Schema& schema, const StoreReader::Snapshot& rows);

}  // namespace cdb

#endif
