// SPDX-License-Identifier: Apache-2.0
// The candidate as a libyang tree, sparse: it has the trunk, that is the containers and leaves outside of
// lists, and the dirty units, that is entries of outermost lists which an edit has named. A unit is loaded
// from the store's rows when an edit first names it; clean units are as in running. Running means here the
// running datastore as of one commit, the base: where others have committed since, their commits are seen
// through what undoes them. Knows no edit and no commit. Used by the files of the datastore.

#ifndef CDB_DATASTORE_CANDIDATE_H
#define CDB_DATASTORE_CANDIDATE_H

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include "cdb/datastore/patched_view.h"
#include "cdb/datastore/tree.h"
#include "cdb/model/error.h"
#include "cdb/rows/row_view.h"

namespace cdb {

/// What several candidates may keep between requests of what undoes the commits after their bases: the memory
/// for what others commit is bounded, however many candidates there are.
struct KeptRows {
    static constexpr std::size_t kMost = 200'000;
    std::size_t most = kMost;
    std::atomic<std::size_t> now{0};
};
using KeptRowsPtr = std::shared_ptr<KeptRows>;

class Candidate {
public:
    struct Unit {
        lyd_node* node = nullptr;  // null: deleted
        bool inRunning = false;
    };
    using DirtySet = std::map<Place, Unit>;

    /// Begins equal to running. `kept`: of all candidates together; null: of this one alone. Schema and store
    /// must outlive it. Throws FatalError.
    Candidate(const Schema& schema, const Store& store, KeptRowsPtr kept = nullptr);
    ~Candidate();
    Candidate(const Candidate&) = delete;
    Candidate& operator=(const Candidate&) = delete;

    /// While a Reading lives, running is read as of the base. They nest.
    class Reading {
    public:
        /// Throws FatalError if the rows of the base can't be had (Prepare).
        explicit Reading(const Candidate& candidate);
        ~Reading();
        Reading(const Reading&) = delete;
        Reading& operator=(const Reading&) = delete;

    private:
        const Candidate& m_candidate;
    };

    /// The first top-level node. Plain containers of the trunk are always present.
    [[nodiscard]] lyd_node* Tree() const { return m_tree.get(); }

    /// The dirty units, by list and keys.
    [[nodiscard]] const DirtySet& Dirty() const { return m_units; }

    /// Running's rows. Only while a Reading lives.
    [[nodiscard]] RowView& Running() const { return *m_running; }

    /// The number of the commit that the candidate began with.
    [[nodiscard]] std::uint64_t Base() const { return m_base; }

    /// Whether there are commits after the base.
    [[nodiscard]] bool IsBehind() const { return m_store.LastCommit() != m_base; }

    /// Learns what the commits after the base have changed, at the cost of what is new since the last time.
    /// The error, if that is not kept in the history, names the remedy.
    [[nodiscard]] std::optional<Error> Prepare() const;

    /// The rows that commits after the base have changed, as they were. Only while a Reading lives.
    [[nodiscard]] const RowPatch& Since() const { return m_since.rows; }

    [[nodiscard]] bool IsUnit(const lysc_node* node) const;
    [[nodiscard]] bool IsTrunk(const lysc_node* node) const;
    /// The outermost list that the node is in, or is itself; kNoNode if it is in the trunk.
    [[nodiscard]] NodeId ListOf(NodeId node) const { return m_unitOf[node]; }

    /// The place of an entry of an outermost list.
    [[nodiscard]] Place PlaceOf(const lyd_node* unit) const;

    /// The unit, loaded if it is clean; null if there is none. Find and Exists need a Reading.
    lyd_node* Find(const Place& place);
    [[nodiscard]] bool Exists(const Place& place) const;

    /// Whether a container of the trunk has anything explicit. Needs a Reading.
    [[nodiscard]] bool HasContent(const lyd_node* container) const;

    /// The units of the list that are in running and clean, in order. Needs a Reading.
    [[nodiscard]] std::vector<Place> Clean(NodeId list) const;

    // For the log of an edit, which makes and undoes changes of the tree:

    /// The unit is in the tree now.
    void Stands(lyd_node* unit);
    /// The unit leaves the tree.
    void Leaves(const lyd_node* unit);
    /// A clean unit of running is deleted, or is as in running again.
    void Hide(const Place& place) { m_units[place] = {nullptr, true}; }
    void Show(const Place& place) { m_units.erase(place); }

    /// Makes the candidate equal to running as it is now, which becomes the base. Returns the old tree, since
    /// freeing a large one takes time. Throws FatalError.
    [[nodiscard]] TreePtr Reset();

    /// The commits after the base: what undoes them, up to this commit. Empty: not looked at.
    struct Later {
        std::uint64_t newest = 0;
        RowPatch rows;
    };

    /// What edits have made of it.
    struct State {
        TreePtr tree;
        DirtySet units;
        std::uint64_t base = 0;
        Later since;
    };
    /// Makes the candidate running as it is now, the new base, with these rows in the place of running's; all
    /// other changes are gone. Returns what was there before, for Restore. On an exception the candidate is
    /// as before: RowRefused if the schema does not accept a row, FatalError.
    [[nodiscard]] State Replace(const RowPatch& rows);
    void Restore(State state);

    /// The units that the rows belong to.
    [[nodiscard]] std::set<Place> UnitsOf(const RowPatch& rows) const;

private:
    /// Loads the unit into the tree that begins with this node.
    lyd_node* Load(const Place& place, const Row& row, RowView& rows, lyd_node* tree) const;
    [[nodiscard]] lyd_node* ParentIn(lyd_node* tree, NodeId list) const;
    [[nodiscard]] bool HasUnits(NodeId list) const;
    void BeginReading() const;
    void EndReading() const;
    void CountKept() const;

    const Schema& m_schema;
    const Store& m_store;
    std::vector<NodeId> m_unitOf;  // by NodeId: the outermost list that the node is in, or kNoNode
    TreePtr m_tree;
    DirtySet m_units;
    std::uint64_t m_base = 0;
    mutable Later m_since;
    const KeptRowsPtr m_kept;
    mutable std::size_t m_counted = 0;              // of m_since, in m_kept
    mutable std::unique_ptr<RowView> m_newestRows;  // below m_running, where that is another one
    mutable std::unique_ptr<RowView> m_running;
    mutable int m_readings = 0;
};

}  // namespace cdb

#endif
