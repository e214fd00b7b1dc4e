// SPDX-License-Identifier: Apache-2.0
// What the datastore does with commits of the past: rolling back, restoring, and comparing.

#include <utility>

#include "cdb/datastore/candidate_view.h"
#include "cdb/datastore/datastore.h"
#include "cdb/datastore/past.h"
#include "cdb/datastore/rebase.h"
#include "cdb/datastore/tree_load.h"

namespace cdb {

base::expected<std::uint64_t, Error> Datastore::CommitOf(const Moment& moment) const
{
    const std::uint64_t newest = m_store.LastCommit();
    if (moment.commit) return *moment.commit;  // RowsAfter says if there is none
    if (moment.back) {
        if (*moment.back <= newest) return newest - *moment.back;
        return base::Unexpected(Error{.tag = ErrorTag::kInvalidValue,
                                      .message = "there are no " + std::to_string(*moment.back) +
                                                 " commits to go back; the last one is number " +
                                                 std::to_string(newest)});
    }
    const auto checkpoint = m_store.FindCheckpoint(moment.checkpoint);
    if (!checkpoint) return base::Unexpected(checkpoint.error());
    return checkpoint->commit;
}

std::vector<Error> Datastore::RollBack(const Moment& moment, const Permit& permit)
{
    const auto commit = CommitOf(moment);
    if (!commit) return {commit.error()};
    const auto rows = RowsAfter(m_schema, m_store, *commit, m_store.LastCommit());
    if (!rows) return {rows.error()};
    Candidate::State before;
    try {
        before = m_candidate.Replace(*rows);
    } catch (const RowRefused& refused) {
        return {{.tag = ErrorTag::kOperationFailed,
                 .message = "the configuration of commit " + std::to_string(*commit) +
                            " can't be restored: " + refused.what()}};
    }
    const bool wasVerified = std::exchange(m_isVerified, false);
    std::vector<Error> errors;
    if (auto denied = permit ? permit(ChangedRows()) : std::nullopt) errors = {std::move(*denied)};
    if (errors.empty()) errors = Check();
    if (!errors.empty()) {
        m_candidate.Restore(std::move(before));
        m_isVerified = wasVerified;
    } else {
        Free(std::move(before.tree), before.units.size());
    }
    return errors;
}

base::expected<Committed, std::vector<Error>> Datastore::Restore(std::uint64_t commit, const CommitInfo& info)
{
    const auto fork = Fork();
    if (auto errors = fork->RollBack({.commit = commit}); !errors.empty())
        return base::Unexpected(std::move(errors));
    auto made = fork->Commit(info);
    if (made) static_cast<void>(Prepare(true));  // its commit is in the history
    return made;
}

base::expected<Datastore::Comparison, Error> Datastore::CompareWith(const Moment& moment) const
{
    const auto commit = CommitOf(moment);
    if (!commit) return base::Unexpected(commit.error());
    auto rows = RowsAfter(m_schema, m_store, *commit, m_store.LastCommit());
    if (!rows) return base::Unexpected(std::move(rows.error()));
    std::set<Place> units = m_candidate.UnitsOf(*rows);
    units.merge(UnitsOfCandidate());
    {
        const cdb::Candidate::Reading reading(m_candidate);
        units.merge(m_candidate.UnitsOf(m_candidate.Since()));
    }
    auto before = std::make_unique<OwningPatchedView>(Running(), *std::move(rows));
    return Comparison{std::make_unique<UnitsView>(m_candidate, units, std::move(before)),
                      std::make_unique<UnitsView>(m_candidate, units, Candidate())};
}

base::expected<Datastore::Comparison, Error> Datastore::ChangesOf(std::uint64_t commit) const
{
    if (commit == 0)
        return base::Unexpected(
            Error{.tag = ErrorTag::kInvalidValue, .message = "there is no commit 0; the first one is 1"});
    auto after = RowsAfter(m_schema, m_store, commit, m_store.LastCommit());
    if (!after) return base::Unexpected(std::move(after.error()));
    RowPatch own;
    if (auto error = TakeBack(m_schema, m_store, commit, own)) return base::Unexpected(std::move(*error));
    const std::set<Place> units = m_candidate.UnitsOf(own);
    RowPatch before = *after;
    for (auto& [key, row] : own) before.insert_or_assign(key, std::move(row));
    const auto view = [&](RowPatch rows) {
        auto all = std::make_unique<OwningPatchedView>(Running(), std::move(rows));
        return std::make_unique<UnitsView>(m_candidate, units, std::move(all));
    };
    return Comparison{view(std::move(before)), view(*std::move(after))};
}

}  // namespace cdb
