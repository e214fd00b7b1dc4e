// SPDX-License-Identifier: Apache-2.0
#include "cdb/datastore/validate.h"

#include <libyang/libyang.h>

#include <algorithm>

#include "cdb/datastore/candidate_view.h"
#include "cdb/datastore/tree_load.h"
#include "cdb/datastore/validate_references.h"
#include "cdb/datastore/validate_unit.h"

namespace cdb {
namespace {

using Units = std::vector<const lyd_node*>;

template <typename Visit>
void ForEachUnit(const lyd_node* trunk, Visit&& visit)
{
    for (const lyd_node* child = lyd_child(trunk); child != nullptr; child = child->next) {
        if (child->schema->nodetype == LYS_LIST)
            visit(child);
        else if (child->schema->nodetype == LYS_CONTAINER)
            ForEachUnit(child, visit);
    }
}

void AddOnce(std::vector<Error>& errors, Error error)
{
    if (std::find(errors.begin(), errors.end(), error) == errors.end()) errors.push_back(std::move(error));
}

/// libyang stops at a tree's first error, so each unit is then validated by itself. At most kMaxErrors.
std::vector<Error> StructureErrors(const Schema& schema, lyd_node* tree)
{
    auto first = ValidateTree(schema, tree);
    if (!first) return {};
    std::vector<Error> errors;
    Units units;
    ForEachUnit(tree, [&units](const lyd_node* unit) { units.push_back(unit); });
    for (const lyd_node* unit : units) {
        if (errors.size() == Validator::kMaxErrors) break;
        if (auto error = ValidateUnit(schema, tree, unit)) AddOnce(errors, std::move(*error));
    }
    if (std::find(errors.begin(), errors.end(), *first) != errors.end()) return errors;
    if (errors.size() == Validator::kMaxErrors) errors.pop_back();
    errors.insert(errors.begin(), std::move(*first));
    return errors;
}

}  // namespace

Validator::Validator(const Schema& schema) : m_schema(schema) { TakeOverReferences(schema); }

std::vector<Error> Validator::Check(const Candidate& candidate) const
{
    if (m_schema.Constraints().EverythingAlways()) {
        CandidateView rows(m_schema, candidate);
        const TreePtr whole = LoadTree(m_schema, rows);
        return Everything(whole.get(), rows);
    }
    auto errors = StructureErrors(m_schema, candidate.Tree());
    DanglingReferences dangling(m_schema, kMaxErrors - errors.size());
    dangling.InCandidate(candidate);
    dangling.AppendTo(errors);
    return errors;
}

std::vector<Error> Validator::Everything(lyd_node* tree, RowView& rows) const
{
    auto errors = StructureErrors(m_schema, tree);
    DanglingReferences dangling(m_schema, kMaxErrors - errors.size());
    dangling.InRows(rows);
    dangling.AppendTo(errors);
    return errors;
}

}  // namespace cdb
