// SPDX-License-Identifier: Apache-2.0
// What libyang says of an invalid tree, in words that name the thing and the remedy.

#ifndef CDB_DATASTORE_VALIDATE_ERRORS_H
#define CDB_DATASTORE_VALIDATE_ERRORS_H

#include "cdb/model/error.h"
#include "cdb/schema/schema.h"

struct lyd_node;

namespace cdb {

/// libyang's last message as an error. `tree`: what was validated, any top-level node.
Error ValidationError(const Schema& schema, const lyd_node* tree);

}  // namespace cdb

#endif
