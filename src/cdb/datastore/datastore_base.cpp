// SPDX-License-Identifier: Apache-2.0
// What the datastore does about a candidate's base: candidates of their own, and carrying changes over to
// running as it is now.

#include <utility>

#include "cdb/datastore/datastore.h"
#include "cdb/datastore/rebase.h"
#include "cdb/datastore/tree_load.h"

namespace cdb {

std::unique_ptr<Datastore> Datastore::Fork() const
{
    return std::unique_ptr<Datastore>(new Datastore(m_schema, m_store, m_validator, m_kept));
}

std::optional<Error> Datastore::Prepare(bool mayMove)
{
    if (!m_candidate.IsBehind()) return std::nullopt;
    if (auto error = m_candidate.Prepare()) return error;
    if (mayMove && m_follows && !Changed()) Settle();
    return std::nullopt;
}

std::vector<Error> Datastore::CarryOver(OnConflict onConflict, std::optional<Before>& before)
{
    if (!m_candidate.IsBehind()) return {};
    if (auto error = m_candidate.Prepare()) return {std::move(*error)};
    auto rebased = Rebase(m_schema, m_store, ChangedRows(), m_candidate.Base());
    if (!rebased.conflicts.empty() && onConflict == OnConflict::kRefuse) return std::move(rebased.conflicts);
    const bool wasVerified = std::exchange(m_isVerified, false);
    try {
        before = Before{m_candidate.Replace(rebased.rows), wasVerified};
    } catch (const RowRefused& refused) {
        m_isVerified = wasVerified;
        return {{.tag = ErrorTag::kOperationFailed, .message = refused.what()}};
    }
    return std::move(rebased.conflicts);
}

void Datastore::PutBack(std::optional<Before> before)
{
    if (!before) return;
    m_candidate.Restore(std::move(before->state));
    m_isVerified = before->isVerified;
}

std::vector<Error> Datastore::CheckCarriedOver(const std::optional<Before>& before)
{
    auto errors = Check();
    if (before && !errors.empty())
        errors.push_back({.tag = ErrorTag::kOperationFailed,
                          .message = "others have committed since this candidate began with commit " +
                                     std::to_string(before->state.base) +
                                     "; an update takes these commits into it"});
    return errors;
}

std::vector<Error> Datastore::Validate()
{
    std::optional<Before> before;
    auto errors = CarryOver(OnConflict::kRefuse, before);
    if (errors.empty()) errors = CheckCarriedOver(before);
    PutBack(std::move(before));
    return errors;
}

base::expected<std::vector<Error>, std::vector<Error>> Datastore::Update(OnConflict onConflict)
{
    std::optional<Before> before;
    auto conflicts = CarryOver(onConflict, before);
    if (!before && !conflicts.empty()) return base::Unexpected(std::move(conflicts));
    if (before) Free(std::move(before->state.tree), before->state.units.size());
    return conflicts;
}

}  // namespace cdb
