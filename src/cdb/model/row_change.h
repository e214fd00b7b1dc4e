// SPDX-License-Identifier: Apache-2.0
// One row that differs between two states of a datastore: written to the store by a commit, and checked by
// access control.

#ifndef CDB_MODEL_ROW_CHANGE_H
#define CDB_MODEL_ROW_CHANGE_H

#include <optional>

#include "cdb/model/row.h"

namespace cdb {

/// A row before and after.
struct RowChange {
    RowKey key;
    std::optional<Row> before;  // nullopt: it did not exist
    std::optional<Row> now;     // nullopt: it does not exist any more
    friend bool operator==(const RowChange&, const RowChange&) = default;
};

}  // namespace cdb

#endif
