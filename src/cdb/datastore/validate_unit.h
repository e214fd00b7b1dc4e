// SPDX-License-Identifier: Apache-2.0
// Validates trees with libyang: a whole one, or the trunk with a single unit. Used by the validator.

#ifndef CDB_DATASTORE_VALIDATE_UNIT_H
#define CDB_DATASTORE_VALIDATE_UNIT_H

#include <optional>

#include "cdb/datastore/tree.h"

namespace cdb {

/// Validates a complete tree and returns the first error. The tree stays as it is.
std::optional<Error> ValidateTree(const Schema& schema, lyd_node* tree);

/// Validates a copy of one unit of the tree together with the trunk and returns the first error.
std::optional<Error> ValidateUnit(const Schema& schema, const lyd_node* tree, const lyd_node* unit);

}  // namespace cdb

#endif
