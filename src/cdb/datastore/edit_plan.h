// SPDX-License-Identifier: Apache-2.0
// Finds out which entries with a callpoint an edit creates, without changing anything: whom to ask is known
// before the edit is applied. Used by the datastore.

#ifndef CDB_DATASTORE_EDIT_PLAN_H
#define CDB_DATASTORE_EDIT_PLAN_H

#include <vector>

#include "cdb/datastore/candidate.h"
#include "cdb/datastore/datastore.h"

namespace cdb {

/// In the edit's order, up to the edit's first error. While a Reading of the candidate lives.
std::vector<NewEntry> PlanCreations(const Schema& schema, Candidate& candidate, const lyd_node* edit,
                                    DefaultOperation operation);

}  // namespace cdb

#endif
