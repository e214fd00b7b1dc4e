// What differs between running and candidate, looked for only where the candidate was touched: the
// change set for subscribers, the rows for the store, and the edit that takes the change back.
// Changes neither tree. Used by the datastore.

#ifndef CDB_COMPARE_H
#define CDB_COMPARE_H

#include <optional>
#include <string>
#include <vector>

#include "cdb/change_set.h"
#include "cdb/store.h"
#include "cdb/tree_touched.h"

namespace cdb {

/// A row that is different now; nullopt: it is gone.
struct RowChange {
    RowKey key;
    std::optional<Row> row;
    friend bool operator==(const RowChange&, const RowChange&) = default;
};

struct Difference {
    ChangeNode root;              // as in ChangeSet
    std::vector<RowChange> rows;  // parents before what is below them
    std::string undo;             // XML content of a <config> to be merged; empty where not asked for
};

enum class WithUndo { kNo, kYes };

Difference Compare(const Schema& schema, const lyd_node* running, const lyd_node* candidate,
                   const Touched& touched, WithUndo withUndo);

}  // namespace cdb

#endif
