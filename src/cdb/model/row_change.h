// SPDX-License-Identifier: Apache-2.0
// One row that differs between two states of a datastore: what is written to the store, and what a commit is
// judged by.

#ifndef CDB_MODEL_ROW_CHANGE_H
#define CDB_MODEL_ROW_CHANGE_H

#include <optional>

#include "cdb/model/row.h"

namespace cdb {

/// A row that is different now.
struct RowChange {
    RowKey key;
    std::optional<Row> before;  // nullopt: there was none
    std::optional<Row> now;     // nullopt: it is gone
    friend bool operator==(const RowChange&, const RowChange&) = default;
};

}  // namespace cdb

#endif
