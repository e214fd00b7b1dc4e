// SPDX-License-Identifier: Apache-2.0
// The candidate as a libyang tree, as far as it may differ from running: the trunk, that is the containers
// and leaves outside of lists, and those units, the entries of outermost lists, that were touched. A unit is
// loaded from the store's rows when it is first touched; what was not touched is running's. Knows no edit
// and no commit. Used by the files of the datastore.

#ifndef CDB_DATASTORE_CANDIDATE_H
#define CDB_DATASTORE_CANDIDATE_H

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <vector>

#include "cdb/datastore/tree.h"
#include "cdb/rows/row_view.h"

namespace cdb {

class Candidate {
public:
    struct Unit {
        lyd_node* node = nullptr;  // null: gone
        bool inRunning = false;
    };
    using Units = std::map<Place, Unit>;

    /// As running is. Both outlive it.
    Candidate(const Schema& schema, const Store& store);

    /// While one of these lives, running is read as of one moment. They nest.
    class Reading {
    public:
        explicit Reading(const Candidate& candidate);
        ~Reading();
        Reading(const Reading&) = delete;
        Reading& operator=(const Reading&) = delete;

    private:
        const Candidate& m_candidate;
    };

    /// The first top-level node. Plain containers of the trunk are there for ever.
    [[nodiscard]] lyd_node* Tree() const { return m_tree.get(); }

    /// What was touched, by list and keys.
    [[nodiscard]] const Units& Touched() const { return m_units; }

    /// While a Reading lives.
    [[nodiscard]] RowView& Running() const { return *m_running; }

    /// The number of the commit that running is at.
    [[nodiscard]] std::uint64_t Base() const { return m_base; }

    [[nodiscard]] bool IsUnit(const lysc_node* node) const;
    [[nodiscard]] bool IsTrunk(const lysc_node* node) const;
    /// The outermost list that the node is in, itself included; kNoNode: it is in the trunk.
    [[nodiscard]] NodeId ListOf(NodeId node) const { return m_unitOf[node]; }

    /// Where an entry of an outermost list stands.
    [[nodiscard]] Place PlaceOf(const lyd_node* unit) const;

    /// The unit, loaded where need be; null: there is none.
    lyd_node* Find(const Place& place);
    [[nodiscard]] bool Exists(const Place& place) const;

    /// Whether anything explicit is in a container of the trunk.
    [[nodiscard]] bool HasContent(const lyd_node* container) const;

    /// The units of the list that are running's and were not touched, in order.
    [[nodiscard]] std::vector<Place> Untouched(NodeId list) const;

    // For the log of an edit: what it does to the tree, and takes back.

    /// The unit stands in the tree now.
    void Stands(lyd_node* unit);
    /// The unit that stands in the tree leaves it.
    void Leaves(const lyd_node* unit);
    /// A unit of running that was not touched is gone, or is as in running again.
    void Hide(const Place& place) { m_units[place] = {nullptr, true}; }
    void Show(const Place& place) { m_units.erase(place); }

    /// Is as running is, as of now. What was there is handed over: to free a large tree takes time.
    [[nodiscard]] TreePtr Reset();

    /// Takes over the rows given, nullopt for one that is gone; the rest stays.
    using RowChanges = std::map<std::pair<NodeId, std::vector<std::string>>, std::optional<Row>>;
    void Patch(const RowChanges& rows);

private:
    /// Into the tree that begins with this node.
    lyd_node* Load(const Place& place, const Row& row, RowView& rows, lyd_node* tree) const;
    [[nodiscard]] lyd_node* ParentIn(lyd_node* tree, NodeId list) const;
    [[nodiscard]] bool HasUnits(NodeId list) const;

    const Schema& m_schema;
    const Store& m_store;
    std::vector<NodeId> m_unitOf;  // by NodeId: the outermost list that the node is in, or kNoNode
    TreePtr m_tree;
    Units m_units;
    std::uint64_t m_base = 0;
    mutable std::unique_ptr<RowView> m_running;
    mutable int m_readings = 0;
};

}  // namespace cdb

#endif
