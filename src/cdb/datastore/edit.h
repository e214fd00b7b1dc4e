// SPDX-License-Identifier: Apache-2.0
// Applies one edit (RFC 6241, section 7.2) to the candidate in place. Every change goes into the given log.
// Does not validate the result. Used by the datastore.

#ifndef CDB_DATASTORE_EDIT_H
#define CDB_DATASTORE_EDIT_H

#include <map>
#include <optional>
#include <unordered_set>
#include <vector>

#include "cdb/datastore/candidate.h"
#include "cdb/datastore/edit_log.h"
#include "cdb/datastore/edit_operation.h"
#include "cdb/datastore/edit_records.h"

namespace cdb {

/// The callpoints' writes of one edit, by the entry whose creation they belong to.
class EditWrites {
public:
    struct Write {
        std::vector<Place> below;  // from the entry down to the leaf
        Value value;
    };

    EditWrites() = default;
    EditWrites(const SchemaTable& table, const std::vector<LeafWrite>& writes);

    /// The writes for this entry; empty if there are none.
    [[nodiscard]] const std::vector<Write>& For(const Place& entry) const;

private:
    std::map<Place, std::vector<Write>> m_writes;  // by the list and all keys from the root
};

class Editor {
public:
    /// Only while a Reading of the candidate lives. `kWayOnly`: new entries are made without their content,
    /// only to find them; the caller must roll the log back.
    enum class Depth { kAll, kWayOnly };
    Editor(const Schema& schema, Candidate& candidate, EditLog& log, const EditWrites& writes,
           Depth depth = Depth::kAll);

    /// Returns the first error; earlier changes stay applied.
    std::optional<Error> Apply(const lyd_node* edit, DefaultOperation operation);

    /// The created entries of lists with a callpoint, in the edit's order.
    [[nodiscard]] const std::vector<NewEntry>& Created() const { return m_created; }

private:
    using Result = std::optional<Error>;

    Result ApplySiblings(const lyd_node* edit, EditOp operation, lyd_node* parent);
    Result ApplyNode(const lyd_node* edit, EditOp inherited, lyd_node* parent);
    Result ApplyOpaque(const lyd_node* edit, EditOp inherited, lyd_node* parent);
    Result ApplyLeaf(const lyd_node* edit, EditOp operation, lyd_node* parent);
    Result ApplyContainer(const lyd_node* edit, EditOp operation, lyd_node* parent);
    Result ApplyEntry(const lyd_node* edit, EditOp operation, lyd_node* parent);

    /// Makes the list entry or presence container with the edit's content.
    Result Create(const lyd_node* edit, EditOp operation, lyd_node* parent);
    Result Write(lyd_node* entry, const std::string& callpoint);
    lyd_node* WayTo(lyd_node* entry, const EditWrites::Write& write);
    void Report(const lyd_node* entry, const std::string& callpoint);

    [[nodiscard]] bool IsThere(const lyd_node* leaf) const;
    void Set(const lyd_node* edit, lyd_node* present, lyd_node* parent);
    void Unset(lyd_node* leaf);
    /// The candidate's node for the edit's entry or presence container; null if there is none.
    lyd_node* FindPresent(const lyd_node* edit, lyd_node* parent);
    /// Whether FindPresent would return one, without loading it.
    [[nodiscard]] bool IsPresent(const lyd_node* edit, const lyd_node* parent) const;
    void TakeOutPresent(const lyd_node* edit, lyd_node* parent);

    /// Removes everything explicit from a plain container; returns the container that is there now.
    lyd_node* Empty(lyd_node* container);
    void EmptyTrunk(lyd_node* container);
    void EmptyList(NodeId list);
    void EmptyUnmentioned(const lyd_node* edit);

    [[nodiscard]] lyd_node* SiblingsBelow(const lyd_node* parent) const;

    const Schema& m_schema;
    Candidate& m_candidate;
    EditLog& m_log;
    const EditWrites& m_writes;
    const Depth m_depth;
    std::vector<NewEntry> m_created;
    std::vector<bool> m_asksBelow;                             // by NodeId: a list below has a callpoint
    std::unordered_set<const lyd_node*> m_writtenByCallpoint;  // leaves: absent for the rest of the edit
    int m_fresh = 0;                                           // how many new entries are around the node
};

}  // namespace cdb

#endif
