// SPDX-License-Identifier: Apache-2.0
// Validates the candidate where edits have changed it: libyang validates the trunk and the dirty units, and
// this class looks up the references that leave a unit. If the schema's constraints reach further, it
// validates everything. Used by the datastore.

#ifndef CDB_DATASTORE_VALIDATE_H
#define CDB_DATASTORE_VALIDATE_H

#include <vector>

#include "cdb/datastore/candidate.h"
#include "cdb/schema/reach.h"

namespace cdb {

class Validator {
public:
    /// From now on libyang ignores the references of the schema's Constraints(), which this class checks.
    /// `schema` must outlive it.
    explicit Validator(const Schema& schema);

    /// The errors of the candidate, provided that running is valid: at most kMaxErrors and one that counts
    /// the rest. Only while a Reading of the candidate lives.
    [[nodiscard]] std::vector<Error> Check(const Candidate& candidate) const;

    /// The errors of a whole datastore, given its complete tree and its rows.
    [[nodiscard]] std::vector<Error> Everything(lyd_node* tree, RowView& rows) const;

    static constexpr std::size_t kMaxErrors = 20;

private:
    const Schema& m_schema;
};

}  // namespace cdb

#endif
