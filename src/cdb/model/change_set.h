// SPDX-License-Identifier: Apache-2.0
// The changes of a commit, and the walk over them that subscribers see. cdbd makes a change set from the
// datastores before and after and sends it to clients, which walk it. Independent of libyang.

#ifndef CDB_MODEL_CHANGE_SET_H
#define CDB_MODEL_CHANGE_SET_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "cdb/model/schema_table.h"
#include "cdb/model/value.h"

namespace ipc::cdb {
class ChangeNode;
}

namespace cdb {

enum class ChangeOp : std::uint8_t {
    kNone,      // a plain container, always entered and never reported
    kCreated,   // list entry or presence container
    kDeleted,   // list entry, presence container; or a leaf without a default that lost its value
    kModified,  // list entry or presence container with a change below it
    kValueSet   // leaf with a new effective value
};

/// One changed node. Children in schema order, entries of one list in ascending byte order of their keys.
/// Below a created entry: the leaves with an explicit value, and entries. Below a deleted entry: everything
/// that it held, as deleted.
struct ChangeNode {
    NodeId node = kNoNode;
    std::vector<std::string> keys;  // list entries
    ChangeOp op = ChangeOp::kNone;
    Value value;  // kValueSet
    std::vector<ChangeNode> children;
    friend bool operator==(const ChangeNode&, const ChangeNode&) = default;
};

struct ChangeSet {
    std::uint64_t commit = 0;
    ChangeNode root;  // the top-level container; no children: nothing changed
    [[nodiscard]] bool Empty() const { return root.children.empty(); }
    friend bool operator==(const ChangeSet&, const ChangeSet&) = default;
};

/// How the walk continues after a node.
enum class Visit : std::uint8_t { kStop, kRecurse, kContinue, kUp };

/// Walks the changes at and below the point's schema path (`point`, a path without instances), parents before
/// children. `ancestry` holds the nodes from the root to the reported one. Nodes above the point are passed
/// through whatever their operation, so a point that is a leaf of a deleted entry is reported.
using Visitor = std::function<Visit(const std::vector<const ChangeNode*>& ancestry)>;
void Walk(const SchemaTable& schema, const ChangeSet& changes, NodeId point, const Visitor& visitor);

/// Whether the walk would report any node.
bool Touches(const SchemaTable& schema, const ChangeSet& changes, NodeId point);

void ToMessage(const ChangeNode& node, ipc::cdb::ChangeNode& message);
/// Throws std::invalid_argument for nodes, operations or values that do not fit the schema.
ChangeNode FromMessage(const SchemaTable& schema, const ipc::cdb::ChangeNode& message);

}  // namespace cdb

#endif
