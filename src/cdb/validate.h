// Validates a candidate where it was touched. What has changed, and what refers to entries that have
// gone, is copied into a small tree with what it refers to, and libyang validates that. Where the
// schema's constraints reach further, or most has changed, everything is validated. Used by the
// datastore.

#ifndef CDB_VALIDATE_H
#define CDB_VALIDATE_H

#include <vector>

#include "cdb/tree_touched.h"
#include "cdb/validate_reach.h"

namespace cdb {

class Validator {
public:
    explicit Validator(const Schema& schema);

    /// The errors of the candidate, of what was touched since it was equal to the valid `running`, at
    /// most kMostErrors.
    [[nodiscard]] std::vector<Error> Touched(const lyd_node* running, lyd_node* candidate,
                                             const cdb::Touched& touched) const;

    /// The errors of the whole tree, in at most one error a unit and kMostErrors in all.
    [[nodiscard]] std::vector<Error> Everything(lyd_node* tree) const;

    [[nodiscard]] const Reach& Constraints() const { return m_reach; }

    static constexpr std::size_t kMostErrors = 20;

private:
    const Schema& m_schema;
    const Reach m_reach;
};

}  // namespace cdb

#endif
