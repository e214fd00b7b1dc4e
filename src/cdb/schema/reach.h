// SPDX-License-Identifier: Apache-2.0
// How far the schema's constraints reach, read from their expressions when the schema is loaded. It decides
// what must be validated again after a change. Used by the validator.
//
// A unit is validated as a whole: an outermost list entry with everything below it, or the trunk, that is all
// containers and leaves outside of lists.

#ifndef CDB_SCHEMA_REACH_H
#define CDB_SCHEMA_REACH_H

#include <vector>

#include "cdb/schema/derive.h"

namespace cdb {

/// A leafref to the only key of an outermost list.
struct Reference {
    NodeId leaf = kNoNode;
    NodeId list = kNoNode;
};

struct Reach {
    std::vector<Reference> references;
    /// The nodes with a constraint that reaches beyond its unit and the keys above. If there are any, every
    /// change needs a validation of everything.
    std::vector<NodeId> wide;
    /// Whether there is any "when": validation may then remove nodes.
    bool hasWhen = false;

    [[nodiscard]] bool EverythingAlways() const { return !wide.empty(); }
};

Reach ExamineConstraints(const DerivedSchema& schema);

}  // namespace cdb

#endif
