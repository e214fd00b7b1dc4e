// SPDX-License-Identifier: Apache-2.0
// The rows of one datastore at one moment, for readers in any thread (a view is for one thread at a time).
// The store's rows are here; those of the candidate are in datastore/candidate_view.h.

#ifndef CDB_ROWS_ROW_VIEW_H
#define CDB_ROWS_ROW_VIEW_H

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "cdb/model/row.h"

namespace cdb {

class Environment;
class StoreReader;

namespace codec {
class RowKeys;
}

/// Every call may throw FatalError if the rows can't be read any more.
class RowView {
public:
    /// Gets the entry's own keys and its row; returns false to stop.
    using EntryVisit = std::function<bool(std::span<const std::string_view> ownKeys, const Row& row)>;

    RowView() = default;
    RowView(const RowView&) = delete;
    RowView& operator=(const RowView&) = delete;
    virtual ~RowView() = default;

    /// Null if there is no such row. Valid until the next Get of this view.
    virtual const Row* Get(NodeId node, std::span<const std::string> keys) = 0;

    /// Visits the entries below the parent with these keys in ascending byte order of their own. Visits
    /// nest: ForEach and Get inside a visit leave the outer row and keys valid.
    virtual void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) = 0;
};

/// The running datastore as it is now. A view is for one request: while it lives the store's file grows with
/// each commit.
std::unique_ptr<RowView> MakeRowView(const StoreReader& store);

/// The same for the files of the store: with one cursor for each list.
std::unique_ptr<RowView> MakeRowView(std::shared_ptr<Environment> environment,
                                     std::shared_ptr<const codec::RowKeys> keys);

}  // namespace cdb

#endif
