// SPDX-License-Identifier: Apache-2.0
// What lies between two revisions of the schema, for a store that was written by the one and is read by the
// other: what is new, what is gone, what reads otherwise, and what its rows can't be read by. Knows no rows.

#ifndef CDB_SCHEMA_DIFFERENCE_H
#define CDB_SCHEMA_DIFFERENCE_H

#include <cstdint>
#include <string>
#include <vector>

#include "cdb/model/schema_table.h"

namespace cdb {

enum class SchemaChangeKind : std::uint8_t {
    kAdded,      // node; `after`: a leaf's default
    kRemoved,    // node; its values are not read any more
    kDefault,    // a leaf without a value of its own reads otherwise
    kRange,      // stored values may be outside of it: validation says
    kMandatory,  // a leaf has to have a value now: validation says whether one is missing
    kType,       // stored values are of another type
    kKeys,       // a list's entries are told apart otherwise
    kKind        // a container has become a list, or the like
};

/// How a change concerns a store's rows.
enum class SchemaChangeEffect : std::uint8_t {
    kNone,      // rows are read as they are
    kValidate,  // rows are read; they may not be valid any more
    kUnfit      // rows of this node, where there are any, can't be read
};

struct SchemaChange {
    SchemaChangeKind kind = SchemaChangeKind::kAdded;
    SchemaChangeEffect effect = SchemaChangeEffect::kNone;
    std::string path;    // of the node: "/config/oam/sflow/collector/port"
    std::string before;  // the default, range, type, keys or kind; may be empty
    std::string after;
    friend bool operator==(const SchemaChange&, const SchemaChange&) = default;
};

/// In schema order of the newer table, what is gone last. Nodes below one that is added, removed or of
/// another kind are not listed. Tags, namespaces and callpoints concern no rows.
std::vector<SchemaChange> DifferenceOf(const SchemaTable& older, const SchemaTable& newer);

/// One sentence without a full stop: "/config/oam/sflow/collector/port has the default 6344 instead of 6343".
std::string Describe(const SchemaChange& change);

/// What to say where the changes leave rows that can't be read; empty where none of them does.
std::string Obstacle(const std::vector<SchemaChange>& changes);

}  // namespace cdb

#endif
