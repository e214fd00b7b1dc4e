// SPDX-License-Identifier: Apache-2.0
// Finds the entries with a callpoint that an edit creates, before it is applied, and leaves the candidate as
// it was. Used by the datastore.

#ifndef CDB_DATASTORE_EDIT_PLAN_H
#define CDB_DATASTORE_EDIT_PLAN_H

#include <vector>

#include "cdb/datastore/candidate.h"
#include "cdb/datastore/edit_records.h"

namespace cdb {

/// In the edit's order, up to its first error. Only while a Reading of the candidate lives.
std::vector<NewEntry> PlanCreations(const Schema& schema, Candidate& candidate, const lyd_node* edit,
                                    DefaultOperation operation);

}  // namespace cdb

#endif
