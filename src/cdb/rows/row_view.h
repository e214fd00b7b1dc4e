// SPDX-License-Identifier: Apache-2.0
// The rows of one datastore as of one moment, for readers in any thread (one thread at a time a view).
// The store's own rows here; those of the candidate are made of a tree elsewhere.

#ifndef CDB_ROWS_ROW_VIEW_H
#define CDB_ROWS_ROW_VIEW_H

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "cdb/model/row.h"

namespace cdb {

class StoreReader;

/// Every call may throw FatalError when the rows can't be read any more.
class RowView {
public:
    /// The entry's own keys, and its row. False: stop.
    using EntryVisit = std::function<bool(std::span<const std::string_view> ownKeys, const Row& row)>;

    RowView() = default;
    RowView(const RowView&) = delete;
    RowView& operator=(const RowView&) = delete;
    virtual ~RowView() = default;

    /// Null: there is none. Valid until the next Get of this view.
    virtual const Row* Get(NodeId node, std::span<const std::string> keys) = 0;

    /// Visits the entries below the parent with these keys in ascending byte order of their own. Visits
    /// nest: ForEach and Get inside a visit leave the outer row and keys valid.
    virtual void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) = 0;
};

/// The running datastore as of now. The view is for one request: a moment that is kept makes the store's
/// file grow, and nothing is kept once the view is gone.
std::unique_ptr<RowView> MakeRowView(const StoreReader& store);

}  // namespace cdb

#endif
