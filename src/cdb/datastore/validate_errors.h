// SPDX-License-Identifier: Apache-2.0
// Turns libyang's message about an invalid tree into an error that names the thing and the remedy.

#ifndef CDB_DATASTORE_VALIDATE_ERRORS_H
#define CDB_DATASTORE_VALIDATE_ERRORS_H

#include "cdb/model/error.h"
#include "cdb/schema/schema.h"

struct lyd_node;

namespace cdb {

/// libyang's last message as an error. `tree`: any top-level node of the validated tree.
Error ValidationError(const Schema& schema, const lyd_node* tree);

}  // namespace cdb

#endif
