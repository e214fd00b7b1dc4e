// SPDX-License-Identifier: Apache-2.0
// What an edit is asked for with, what passes between it and the callpoints, and the operation of each of its
// nodes: its attribute (RFC 6241, section 7.2), or the inherited one.

#ifndef CDB_DATASTORE_EDIT_OPERATION_H
#define CDB_DATASTORE_EDIT_OPERATION_H

#include <cstdint>
#include <string>

#include "base/expected.h"
#include "cdb/model/error.h"
#include "cdb/model/path.h"
#include "cdb/model/value.h"

struct lyd_node;

namespace cdb {

/// The default-operation of an edit (RFC 6241, section 7.2).
enum class DefaultOperation : std::uint8_t { kMerge, kReplace, kNone };

/// The test-option of an edit (RFC 6241, section 7.2).
enum class TestOption : std::uint8_t { kSet, kTestThenSet, kTestOnly };

/// What an edit does after an error (RFC 6241, section 7.2). kWhole, for stop-on-error and rollback-on-error:
/// it is undone as a whole, since no client can know the order in which an edit is applied. kContinue: the
/// part that fails is left out and the rest is done. A part is a node, or what one operation creates or
/// replaces as a whole.
enum class ErrorOption : std::uint8_t { kWhole, kContinue };

/// An entry that an edit will create in the candidate, and the callpoint to ask about it.
struct NewEntry {
    Path path;
    std::string callpoint;
    friend bool operator==(const NewEntry&, const NewEntry&) = default;
};

/// A leaf that a callpoint sets in the transaction of the edit.
struct LeafWrite {
    Path path;
    Value value;
};

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
