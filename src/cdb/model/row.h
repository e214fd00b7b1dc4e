// SPDX-License-Identifier: Apache-2.0
// The form in which configuration is stored: one row for each entry or container, with its explicit values.

#ifndef CDB_MODEL_ROW_H
#define CDB_MODEL_ROW_H

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cdb/model/schema_table.h"
#include "cdb/model/value.h"

namespace cdb {

/// The explicit values of one entry's or container's own leaves, keys left out, by leaf name. A leaf
/// that the schema no longer has is ignored by readers; one that it has gained reads as its default.
struct Row {
    std::vector<std::pair<std::string, Value>> leaves;
    friend bool operator==(const Row&, const Row&) = default;
};

/// A row's place: the list or container, and the keys of all list entries on the path from the root, its own
/// included.
struct RowKey {
    NodeId node = kNoNode;
    std::vector<std::string> keys;
    friend bool operator==(const RowKey&, const RowKey&) = default;
};

/// A row before and after: one that differs between two states of a datastore.
struct RowChange {
    RowKey key;
    std::optional<Row> before;  // nullopt: it did not exist
    std::optional<Row> now;     // nullopt: it does not exist any more
    friend bool operator==(const RowChange&, const RowChange&) = default;
};

}  // namespace cdb

#endif
