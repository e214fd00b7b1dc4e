// SPDX-License-Identifier: Apache-2.0
// The changes that one edit has made to the candidate, in order, so that they can be undone. Every change by
// an edit goes through here. Owns the nodes that the edit has taken out.

#ifndef CDB_DATASTORE_EDIT_LOG_H
#define CDB_DATASTORE_EDIT_LOG_H

#include <string>
#include <vector>

#include "cdb/datastore/candidate.h"

namespace cdb {

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
    void RollBack();

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

}  // namespace cdb

#endif
