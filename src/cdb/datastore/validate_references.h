// SPDX-License-Identifier: Apache-2.0
// Looks up what leafrefs to the entries of outermost lists name: a hash or the store knows at once what an
// XPath over all entries finds slowly. Used by the validator.

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

/// libyang no longer resolves the references that are known here. Doing it again changes nothing.
void TakeOverReferences(const Schema& schema);

class DanglingReferences {
public:
    /// Beyond `limit` they are counted only.
    DanglingReferences(const Schema& schema, std::size_t limit);

    /// Of what was touched, and of what refers to units that are gone.
    void InCandidate(const Candidate& candidate);

    /// Of everything.
    void InRows(RowView& rows);

    void AppendTo(std::vector<Error>& errors) const;

private:
    void InTree(const Candidate& candidate, const lyd_node* node);
    void OfGone(const Candidate& candidate);
    void Add(const Reference& reference, const std::vector<std::string>& keys, const std::string& target);

    /// Every value of the reference's leaf, with all keys on the way to its entry or container.
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
