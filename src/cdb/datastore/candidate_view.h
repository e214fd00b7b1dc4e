// SPDX-License-Identifier: Apache-2.0
// The candidate's rows: running's, except for the dirty units and the trunk. And a view that restricts other
// rows to some units.

#ifndef CDB_DATASTORE_CANDIDATE_VIEW_H
#define CDB_DATASTORE_CANDIDATE_VIEW_H

#include <memory>
#include <set>
#include <string>
#include <utility>

#include "cdb/datastore/candidate.h"

namespace cdb {

/// The candidate's rows. Valid until the candidate changes.
class CandidateView final : public RowView {
public:
    CandidateView(const Schema& schema, const Candidate& candidate);

    const Row* Get(NodeId node, std::span<const std::string> keys) override;
    void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) override;

private:
    /// The dirty unit that these keys begin with; null if it is clean.
    [[nodiscard]] const Candidate::Unit* UnitOf(NodeId node, std::span<const std::string> keys) const;
    void ForEachUnit(NodeId list, const EntryVisit& visit);
    void ForEachIn(const lyd_node* unit, NodeId list, std::span<const std::string> parentKeys,
                   const EntryVisit& visit);

    const Schema& m_schema;
    const Candidate& m_candidate;
    const Candidate::Reading m_reading;
    Row m_row;
};

/// Running as of the candidate's base. Valid until the candidate changes.
class BaseView final : public RowView {
public:
    explicit BaseView(const Candidate& candidate) : m_candidate(candidate), m_reading(candidate) {}

    const Row* Get(NodeId node, std::span<const std::string> keys) override
    {
        return m_candidate.Running().Get(node, keys);
    }
    void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) override
    {
        m_candidate.Running().ForEach(list, parentKeys, visit);
    }

private:
    const Candidate& m_candidate;
    const Candidate::Reading m_reading;
};

/// Restricts other rows to the trunk and these units.
class UnitsView final : public RowView {
public:
    UnitsView(const Candidate& candidate, std::set<Place> units, std::unique_ptr<RowView> rows)
        : m_candidate(candidate), m_units(std::move(units)), m_rows(std::move(rows))
    {
    }

    const Row* Get(NodeId node, std::span<const std::string> keys) override
    {
        return m_rows->Get(node, keys);
    }
    void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) override;

private:
    const Candidate& m_candidate;  // says which lists have units
    const std::set<Place> m_units;
    const std::unique_ptr<RowView> m_rows;
};

}  // namespace cdb

#endif
