// Builds the edit that takes a change back, node by node while the change is being found. The way to
// a node is made when something is to stand there, so the edit is as large as the change.

#ifndef CDB_COMPARE_UNDO_H
#define CDB_COMPARE_UNDO_H

#include <string>

#include "cdb/tree.h"

namespace cdb {

class UndoEdit {
public:
    /// One node on the way to where the comparison is. `data` is the node in either tree.
    struct At {
        At* above = nullptr;
        const lyd_node* data = nullptr;
        lyd_node* made = nullptr;
        bool settled = false;  // what is below needs no mention any more
    };

    explicit UndoEdit(const Schema& schema) : m_schema(schema) {}

    /// The node is to be as it was before, with everything below.
    void Restore(At* above, const lyd_node* before);
    /// The node is to go.
    void Remove(At* above, const lyd_node* now);

    /// Empty where nothing was mentioned.
    [[nodiscard]] std::string Text() const;

private:
    lyd_node* Copy(At* above, const lyd_node* node, bool whole);
    lyd_node* Way(At* at);

    const Schema& m_schema;
    TreePtr m_root;
};

}  // namespace cdb

#endif
