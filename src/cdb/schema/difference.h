// SPDX-License-Identifier: Apache-2.0
// The differences between two revisions of the schema, for a store that was written with the older and is
// read with the newer one: new and removed nodes, changed values, and changes that make rows unreadable.
// Knows no rows.

#ifndef CDB_SCHEMA_DIFFERENCE_H
#define CDB_SCHEMA_DIFFERENCE_H

#include <cstdint>
#include <string>
#include <vector>

#include "cdb/model/schema_table.h"

namespace cdb {

enum class SchemaChangeKind : std::uint8_t {
    kAdded,      // node; `after`: a leaf's default
    kRemoved,    // node; its values are no longer read
    kDefault,    // a leaf without a value of its own reads differently
    kRange,      // validation finds stored values outside of it
    kMandatory,  // a leaf must have a value now; validation finds a missing one
    kType,       // stored values are of another type
    kKeys,       // a list has other keys
    kKind        // for example, a container has become a list
};

/// The effect of a change on a store's rows.
enum class SchemaChangeEffect : std::uint8_t {
    kNone,      // rows are read as they are
    kValidate,  // rows can be read; they may be invalid now
    kUnfit      // rows of this node, if there are any, can't be read
};

struct SchemaChange {
    SchemaChangeKind kind = SchemaChangeKind::kAdded;
    SchemaChangeEffect effect = SchemaChangeEffect::kNone;
    std::string path;    // of the node: "/config/oam/sflow/collector/port"
    std::string before;  // the default, range, type, keys or kind; may be empty
    std::string after;
    friend bool operator==(const SchemaChange&, const SchemaChange&) = default;
};

/// In schema order of the newer table, removed nodes last. Nodes below one that is added, removed or of
/// another kind are not listed. Tags, namespaces and callpoints do not affect rows and are ignored.
std::vector<SchemaChange> DifferenceOf(const SchemaTable& older, const SchemaTable& newer);

/// One sentence without a full stop: "/config/oam/sflow/collector/port has the default 6344 instead of 6343".
std::string Describe(const SchemaChange& change);

/// The error text if the changes make rows unreadable; empty if none does.
std::string Obstacle(const std::vector<SchemaChange>& changes);

}  // namespace cdb

#endif
