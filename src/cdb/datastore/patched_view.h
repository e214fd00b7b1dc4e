// SPDX-License-Identifier: Apache-2.0
// Rows with changes on top, before they are in any datastore. Used by the candidate.

#ifndef CDB_DATASTORE_PATCHED_VIEW_H
#define CDB_DATASTORE_PATCHED_VIEW_H

#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "cdb/rows/row_view.h"

namespace cdb {

/// By node and all keys from the root; nullopt: the row is deleted.
using RowPatch = std::map<std::pair<NodeId, std::vector<std::string>>, std::optional<Row>>;

/// Rows with changes applied on top. Both must outlive it.
class PatchedView final : public RowView {
public:
    PatchedView(RowView& below, const RowPatch& changes) : m_below(below), m_changes(changes) {}

    const Row* Get(NodeId node, std::span<const std::string> keys) override;
    void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) override;

private:
    RowView& m_below;
    const RowPatch& m_changes;
};

}  // namespace cdb

#endif
