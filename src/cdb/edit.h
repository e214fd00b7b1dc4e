// Applies one edit (RFC 6241, section 7.2) to a tree in place. Every change goes into the log that it
// is given, and every place changed into the record of what was touched. Whether the result is
// valid is not looked at here. Used by the datastore.

#ifndef CDB_EDIT_H
#define CDB_EDIT_H

#include <optional>
#include <unordered_set>
#include <vector>

#include "cdb/datastore.h"
#include "cdb/edit_log.h"
#include "cdb/edit_operation.h"
#include "cdb/edit_writes.h"
#include "cdb/tree_touched.h"

namespace cdb {

class Editor {
public:
    /// `touched` null: this only finds out which entries would be created; the log is to be rolled
    /// back.
    Editor(const Schema& schema, lyd_node* tree, Touched* touched, EditLog& log, const EditWrites& writes);

    /// The first error; what was applied before it stays applied.
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

    /// Makes the list entry or presence container, with what the edit says of it.
    Result Create(const lyd_node* edit, EditOp operation, lyd_node* parent);
    Result Write(lyd_node* entry, const std::string& callpoint);
    lyd_node* WayTo(lyd_node* entry, const EditWrites::Write& write);
    void Report(const lyd_node* entry, const std::string& callpoint);

    [[nodiscard]] bool IsThere(const lyd_node* leaf) const;
    void Set(const lyd_node* edit, lyd_node* present, lyd_node* parent);
    void Unset(lyd_node* leaf);
    void TakeOut(lyd_node* node);
    /// Takes out everything explicit in a plain container; returns the container that stands there now.
    lyd_node* Empty(lyd_node* container);
    void EmptyUnmentioned(const lyd_node* edit);

    void MarkLeaves(const lyd_node* parent);
    void MarkWhole(const lyd_node* node);
    [[nodiscard]] lyd_node* SiblingsBelow(const lyd_node* parent) const;

    const Schema& m_schema;
    lyd_node* const m_tree;
    Touched* const m_touched;
    EditLog& m_log;
    const EditWrites& m_writes;
    std::vector<NewEntry> m_created;
    std::vector<bool> m_asksBelow;                             // by NodeId: a list below has a callpoint
    std::unordered_set<const lyd_node*> m_writtenByCallpoint;  // leaves: absent for the rest of the edit
    int m_fresh = 0;                                           // inside so many entries just made
};

}  // namespace cdb

#endif
