// The rows of one datastore as of one moment. Readers use it in any thread, one thread at a time for each
// view. Knows no libyang. Used by the agent's reads and by the datastore.

#ifndef CDB_ROW_VIEW_H
#define CDB_ROW_VIEW_H

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "cdb/schema_table.h"
#include "cdb/store.h"

namespace cdb {

class RowView {
public:
    /// False ends the visit.
    using EntryVisit = std::function<bool(std::span<const std::string_view> ownKeys, const Row& row)>;

    RowView() = default;
    RowView(const RowView&) = delete;
    RowView& operator=(const RowView&) = delete;
    virtual ~RowView() = default;

    /// The row of an entry or container; null: there is none. Valid until the next Get of this view.
    virtual const Row* Get(NodeId node, std::span<const std::string> keys) = 0;

    /// The rows below these keys in ascending byte order of their keys. Visits nest: the outer row and keys
    /// stay valid.
    virtual void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) = 0;
};

/// Running, as of now. Nothing is pinned once it is destroyed.
std::unique_ptr<RowView> MakeRowView(const Store& store);

}  // namespace cdb

#endif
