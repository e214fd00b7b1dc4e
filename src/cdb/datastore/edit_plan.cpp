// SPDX-License-Identifier: Apache-2.0
// Finds the entries with a callpoint that an edit creates.

#include <libyang/libyang.h>

#include <map>
#include <set>

#include "cdb/datastore/edit.h"
#include "cdb/datastore/edit_operation.h"

namespace cdb {
namespace {

/// Walks an edit through the trunk and keeps the units that it makes and takes out. That suffices if only
/// outermost lists have callpoints.
class Planner {
public:
    Planner(const Schema& schema, const Candidate& candidate, ErrorOption onError)
        : m_schema(schema), m_table(schema.Table()), m_candidate(candidate), m_onError(onError)
    {
    }

    std::vector<NewEntry> Run(const lyd_node* edit, DefaultOperation operation)
    {
        if (operation == DefaultOperation::kReplace)
            for (const auto& node : m_table.Nodes())
                if (node.kind == NodeKind::kList) EmptyList(node.id);
        static_cast<void>(Siblings(edit, InitialOperation(operation)));  // an error ends the plan there
        return std::move(m_created);
    }

private:
    // Both return false at an error, which ends the edit.
    bool Siblings(const lyd_node* edit, EditOp operation)
    {
        for (const lyd_node* node = edit; node != nullptr; node = node->next)
            if (!Node(node, operation) && m_onError == ErrorOption::kWhole) return false;
        return true;
    }

    bool Node(const lyd_node* edit, EditOp inherited)
    {
        const NodeId id = m_schema.IdOf(edit->schema);
        if (id == kNoNode) return edit->schema == nullptr;  // an opaque node has nothing below it to create
        const auto operation = OperationOf(edit, inherited);
        if (!operation) return false;
        if (m_table[id].kind == NodeKind::kLeaf) return true;
        if (m_table[id].kind == NodeKind::kList) return Unit(edit, id, *operation);
        if (*operation != EditOp::kMerge && *operation != EditOp::kNone && *operation != EditOp::kCreate)
            EmptyBelow(id);
        if (*operation == EditOp::kDelete || *operation == EditOp::kRemove) return true;
        return Siblings(lyd_child(edit), *operation);
    }

    bool Unit(const lyd_node* edit, NodeId list, EditOp operation)
    {
        if (m_table[list].callpoint.empty()) return true;
        Place place = m_candidate.PlaceOf(edit);
        const bool isThere = Exists(place);
        const bool takesOut = operation == EditOp::kDelete || operation == EditOp::kRemove;
        if (operation == EditOp::kCreate && isThere) return false;
        if (operation == EditOp::kDelete && !isThere) return false;
        if (operation == EditOp::kNone) return isThere;
        if (takesOut) {
            m_known[place] = false;
        } else if (!isThere || operation == EditOp::kReplace) {
            Report(edit, list, place);
            m_known[std::move(place)] = true;
        }
        return true;
    }

    void Report(const lyd_node* edit, NodeId list, const Place& place)
    {
        NewEntry entry;
        entry.callpoint = m_table[list].callpoint;
        for (auto& step : PlacesOf(m_schema, edit)) entry.path.steps.push_back({step.node, {}, std::nullopt});
        entry.path.steps.back().keys = place.keys;
        m_created.push_back(std::move(entry));
    }

    [[nodiscard]] bool Exists(const Place& place) const
    {
        if (const auto it = m_known.find(place); it != m_known.end()) return it->second;
        return !m_emptied.contains(place.node) && m_candidate.Exists(place);
    }

    void EmptyList(NodeId list)
    {
        m_emptied.insert(list);
        const auto first = m_known.lower_bound({list, {}});
        auto last = first;
        while (last != m_known.end() && last->first.node == list) ++last;
        m_known.erase(first, last);
    }

    void EmptyBelow(NodeId container)
    {
        for (const NodeId child : m_table[container].children) {
            if (m_table[child].kind == NodeKind::kList)
                EmptyList(child);
            else if (m_table[child].kind != NodeKind::kLeaf)
                EmptyBelow(child);
        }
    }

    const Schema& m_schema;
    const SchemaTable& m_table;
    const Candidate& m_candidate;
    const ErrorOption m_onError;
    std::vector<NewEntry> m_created;
    std::map<Place, bool> m_known;  // units that the edit has made (true) or taken out
    std::set<NodeId> m_emptied;     // lists
};

bool AsksInUnits(const SchemaTable& table, const Candidate& candidate)
{
    for (const auto& node : table.Nodes())
        if (!node.callpoint.empty() && candidate.ListOf(node.id) != node.id) return true;
    return false;
}

}  // namespace

std::vector<NewEntry> PlanCreations(const Schema& schema, Candidate& candidate, const lyd_node* edit,
                                    DefaultOperation operation, ErrorOption onError)
{
    if (!AsksInUnits(schema.Table(), candidate))
        return Planner(schema, candidate, onError).Run(edit, operation);
    // Applies the edit itself, without the content of new entries, and undoes it.
    EditLog log(candidate);
    const EditWrites none;
    Editor editor(schema, candidate, log, none, Editor::Depth::kWayOnly, onError);
    static_cast<void>(editor.Apply(edit, operation));
    log.RollBack();
    return editor.Created();
}

}  // namespace cdb
