// SPDX-License-Identifier: Apache-2.0
// What differs between running and the candidate, looked for only where the candidate was touched: the change
// set for subscribers, the rows for the store, and the rows as they were. Changes neither. Used by the
// datastore.

#ifndef CDB_DATASTORE_COMPARE_H
#define CDB_DATASTORE_COMPARE_H

#include <vector>

#include "cdb/datastore/candidate.h"
#include "cdb/model/change_set.h"
#include "cdb/model/row_change.h"

namespace cdb {

struct Difference {
    ChangeNode root;              // as in ChangeSet
    std::vector<RowChange> rows;  // parents before what is below them
};

/// While a Reading of the candidate lives.
Difference Compare(const Schema& schema, const Candidate& candidate);

/// Whether any row differs; ends at the first one.
bool Differs(const Schema& schema, const Candidate& candidate);

}  // namespace cdb

#endif
