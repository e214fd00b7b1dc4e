// SPDX-License-Identifier: Apache-2.0
// Compares running and the candidate in the dirty set: the change set for subscribers, and the
// rows before and after for the store. Changes neither. Used by the datastore.

#ifndef CDB_DATASTORE_COMPARE_H
#define CDB_DATASTORE_COMPARE_H

#include <vector>

#include "cdb/datastore/candidate.h"
#include "cdb/model/change_set.h"
#include "cdb/model/row.h"

namespace cdb {

struct Difference {
    ChangeNode root;              // as in ChangeSet
    std::vector<RowChange> rows;  // parents before their children
};

/// Only while a Reading of the candidate lives.
Difference Compare(const Schema& schema, const Candidate& candidate);

/// Whether any row differs; stops at the first one. Only while a Reading of the candidate lives.
bool Differs(const Schema& schema, const Candidate& candidate);

}  // namespace cdb

#endif
