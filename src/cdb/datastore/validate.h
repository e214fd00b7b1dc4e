// SPDX-License-Identifier: Apache-2.0
// Validates the candidate where it was touched: libyang looks at the trunk and the touched units, and the
// references that leave a unit are looked up here. Where the schema's constraints reach further, everything
// is validated. Used by the datastore.

#ifndef CDB_DATASTORE_VALIDATE_H
#define CDB_DATASTORE_VALIDATE_H

#include <vector>

#include "cdb/datastore/candidate.h"
#include "cdb/schema/reach.h"

namespace cdb {

class Validator {
public:
    /// From here on libyang leaves the references of the schema's Constraints() to this class. `schema`
    /// outlives it.
    explicit Validator(const Schema& schema);

    /// The errors of the candidate, at most kMostErrors and one that counts the rest; running is valid. While
    /// a Reading of the candidate lives.
    [[nodiscard]] std::vector<Error> Check(const Candidate& candidate) const;

    /// The errors of a whole datastore, its tree complete.
    [[nodiscard]] std::vector<Error> Everything(lyd_node* tree, RowView& rows) const;

    static constexpr std::size_t kMostErrors = 20;

private:
    const Schema& m_schema;
};

}  // namespace cdb

#endif
