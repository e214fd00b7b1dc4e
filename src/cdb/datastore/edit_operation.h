// SPDX-License-Identifier: Apache-2.0
// The operation of an edit's node: its attribute (RFC 6241, section 7.2), or the inherited one. Used by the
// editor.

#ifndef CDB_DATASTORE_EDIT_OPERATION_H
#define CDB_DATASTORE_EDIT_OPERATION_H

#include <optional>
#include <string>

#include "base/expected.h"
#include "cdb/datastore/edit_records.h"
#include "cdb/model/error.h"

struct lyd_node;

namespace cdb {

enum class EditOp { kMerge, kReplace, kCreate, kDelete, kRemove, kNone };

/// The operation that an edit's top-level nodes inherit.
EditOp InitialOperation(DefaultOperation operation);

/// The node's own operation, else the inherited one; bad-attribute if the operation does not exist.
base::expected<EditOp, Error> OperationOf(const lyd_node* edit, EditOp inherited);

/// Whether the node can be copied as it is: nothing below it has an operation or is state, opaque or given
/// twice.
bool IsPlain(const lyd_node* edit);

}  // namespace cdb

#endif
