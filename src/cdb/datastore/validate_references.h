// SPDX-License-Identifier: Apache-2.0
// Checks leafrefs to the entries of outermost lists by looking the entries up, which is much faster than an
// XPath over all entries. Used by the validator.

#ifndef CDB_DATASTORE_VALIDATE_REFERENCES_H
#define CDB_DATASTORE_VALIDATE_REFERENCES_H

#include <cstddef>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "cdb/datastore/candidate.h"
#include "cdb/schema/reach.h"

namespace cdb {

/// Makes libyang ignore the references that are checked here. Repeating it has no effect.
void TakeOverReferences(const Schema& schema);

class DanglingReferences {
public:
    /// Beyond `limit`, errors are only counted.
    DanglingReferences(const Schema& schema, std::size_t limit);

    /// Checks the references of the dirty set, and those to deleted units. Needs a Reading of the
    /// candidate.
    void InCandidate(const Candidate& candidate);

    /// Checks all references.
    void InRows(RowView& rows);

    void AppendTo(std::vector<Error>& errors) const;

private:
    void InTree(const Candidate& candidate, const lyd_node* node);
    void OfGone(const Candidate& candidate);
    void Add(const Reference& reference, const std::vector<std::string>& keys, const std::string& target);

    /// Visits every value of the reference's leaf, with all keys on the path to its entry or container.
    template <typename Visit>
    void ForEachValue(RowView& rows, const Reference& reference, Visit&& visit) const;

    const Schema& m_schema;
    const SchemaTable& m_table;
    const std::size_t m_limit;
    std::map<const lysc_node*, const Reference*> m_byLeaf;
    std::vector<Error> m_errors;
    std::size_t m_more = 0;
};

}  // namespace cdb

#endif
