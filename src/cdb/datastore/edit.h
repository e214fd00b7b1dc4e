// SPDX-License-Identifier: Apache-2.0
// Applies one edit (RFC 6241, section 7.2) to the candidate in place. Every change goes into the given log.
// Does not validate the result. Used by the datastore.

#ifndef CDB_DATASTORE_EDIT_H
#define CDB_DATASTORE_EDIT_H

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "cdb/datastore/candidate.h"
#include "cdb/datastore/edit_operation.h"

namespace cdb {

/// The changes that one edit has made to the candidate, in order, so that they can be undone. Every change by
/// an edit goes through here. Owns the nodes that the edit has taken out.
class EditLog {
public:
    explicit EditLog(Candidate& candidate) : m_candidate(candidate) {}
    ~EditLog() = default;
    EditLog(const EditLog&) = delete;
    EditLog& operator=(const EditLog&) = delete;

    /// Records a new node that is in the tree.
    void Made(lyd_node* node);

    /// Takes the node out of the tree. It must not be a top-level node.
    void TakeOut(lyd_node* node);

    /// Deletes a clean unit of running.
    void Hide(const Place& unit);

    /// Gives the leaf another canonical value, explicit or as its default.
    void Change(lyd_node* leaf, const char* text, bool asDefault);

    /// Undoes everything, the last change first.
    void RollBack() { RollBackTo(0); }

    /// A place in the log, and undoing what came after it.
    [[nodiscard]] std::size_t Mark() const { return m_changes.size(); }
    void RollBackTo(std::size_t mark);

    /// Keeps the changes and frees what they replaced.
    void Keep() { m_changes.clear(); }

private:
    struct Step {
        lyd_node* node = nullptr;  // made, or changed
        TreePtr taken;             // taken out of `parent`
        lyd_node* parent = nullptr;
        std::unique_ptr<Place> hidden;
        std::string text;  // the leaf's value before
        bool wasDefault = false;
        bool changed = false;
    };
    void TakeBack(Step& step);

    Candidate& m_candidate;
    std::vector<Step> m_changes;
};

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
           Depth depth = Depth::kAll, ErrorOption onError = ErrorOption::kWhole);

    /// Returns the first error; earlier changes stay applied. With kContinue nothing of the parts that fail
    /// stays, and Failed has their errors.
    std::optional<Error> Apply(const lyd_node* edit, DefaultOperation operation);

    /// With kContinue: the errors of the parts that failed, in the edit's order, at most kMaxErrors and one
    /// that counts the rest.
    [[nodiscard]] std::vector<Error> Failed() const;
    static constexpr std::size_t kMaxErrors = 20;

    /// The created entries of lists with a callpoint, in the edit's order.
    [[nodiscard]] const std::vector<NewEntry>& Created() const { return m_created; }

private:
    using Result = std::optional<Error>;

    Result ApplySiblings(const lyd_node* edit, EditOp operation, lyd_node* parent);
    /// The same for what stands or falls as a whole.
    Result ApplyWhole(const lyd_node* edit, EditOp operation, lyd_node* parent);
    void NoteFailed(Error error);
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
    const ErrorOption m_onError;
    std::vector<Error> m_failed;
    std::size_t m_failedMore = 0;
    int m_whole = 0;  // how many parts that stand or fall as a whole are around the node
    std::vector<NewEntry> m_created;
    std::vector<bool> m_asksBelow;                             // by NodeId: a list below has a callpoint
    std::unordered_set<const lyd_node*> m_writtenByCallpoint;  // leaves: absent for the rest of the edit
    int m_fresh = 0;                                           // how many new entries are around the node
};

/// Finds the entries with a callpoint that an edit creates, before it is applied, and leaves the candidate as
/// it was. In the edit's order, up to its first error; with kContinue all of them, perhaps of parts that
/// fail. Only while a Reading of the candidate lives.
std::vector<NewEntry> PlanCreations(const Schema& schema, Candidate& candidate, const lyd_node* edit,
                                    DefaultOperation operation, ErrorOption onError = ErrorOption::kWhole);

}  // namespace cdb

#endif
