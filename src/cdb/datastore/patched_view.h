// SPDX-License-Identifier: Apache-2.0
// Rows with others in the place of some of them: running as it was before some commits. Used by the
// candidate and the datastore.

#ifndef CDB_DATASTORE_PATCHED_VIEW_H
#define CDB_DATASTORE_PATCHED_VIEW_H

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "cdb/rows/row_view.h"

namespace cdb {

/// By node and all keys from the root; nullopt: there is no such row.
using RowPatch = std::map<std::pair<NodeId, std::vector<std::string>>, std::optional<Row>>;

class PatchedView final : public RowView {
public:
    /// Both must outlive it.
    PatchedView(RowView& below, const RowPatch& changes) : m_below(below), m_changes(changes) {}

    const Row* Get(NodeId node, std::span<const std::string> keys) override;
    void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) override;

private:
    RowView& m_below;
    const RowPatch& m_changes;
};

/// The same with rows of its own.
class OwningPatchedView final : public RowView {
public:
    OwningPatchedView(std::unique_ptr<RowView> below, RowPatch changes)
        : m_below(std::move(below)), m_changes(std::move(changes)), m_view(*m_below, m_changes)
    {
    }

    const Row* Get(NodeId node, std::span<const std::string> keys) override { return m_view.Get(node, keys); }
    void ForEach(NodeId list, std::span<const std::string> parentKeys, const EntryVisit& visit) override
    {
        m_view.ForEach(list, parentKeys, visit);
    }

private:
    const std::unique_ptr<RowView> m_below;
    const RowPatch m_changes;
    PatchedView m_view;
};

}  // namespace cdb

#endif
