// A small tree with some units of a large one, for libyang to validate: the trunk always, the units
// asked for, and those that they refer to.

#ifndef CDB_VALIDATE_SLICE_H
#define CDB_VALIDATE_SLICE_H

#include <map>
#include <optional>
#include <unordered_set>
#include <vector>

#include "cdb/tree.h"
#include "cdb/validate_reach.h"

namespace cdb {

class Slice {
public:
    /// `tree` is the large one; it stays untouched.
    Slice(const Schema& schema, const Reach& reach, const lyd_node* tree);

    /// Copies the unit, an entry of an outermost list of the large tree, with what it refers to.
    void Add(const lyd_node* unit);

    /// The first error; nullopt where the slice is valid.
    std::optional<Error> Validate();

private:
    void CopyTrunk(const lyd_node* node, lyd_node* copy);
    void AddReferences(const lyd_node* node);

    const Schema& m_schema;
    const Reach& m_reach;
    const lyd_node* const m_tree;
    TreePtr m_slice;
    std::map<const lyd_node*, lyd_node*> m_containers;  // of the trunk: large tree's to the slice's
    std::unordered_set<const lyd_node*> m_added;
};

/// Validates a complete tree of the datastore; the first error.
std::optional<Error> ValidateTree(const Schema& schema, const Reach& reach, lyd_node* tree);

}  // namespace cdb

#endif
