// SPDX-License-Identifier: Apache-2.0
// Configuration as data, straight from a datastore's rows; the schema's defaults stand for what is not
// set.

#ifndef AGENT_DATA_DATA_SOURCE_ROWS_H
#define AGENT_DATA_DATA_SOURCE_ROWS_H

#include <string>
#include <vector>

#include "agent/data/data_schema.h"
#include "agent/data/data_source.h"
#include "cdb/rows/row_view.h"

namespace agent {

class RowSource final : public DataSource {
public:
    /// Both must outlive this.
    RowSource(const DataSchema& schema, cdb::RowView& rows);

    void Values(Handle at, const lysc_node* leaf, const ValueVisit& visit) override;
    void Container(Handle at, const lysc_node* container, const NodeVisit& visit) override;
    void Entries(Handle at, const lysc_node* list, const NodeVisit& visit) override;
    void Entry(Handle at, const lysc_node* list, std::span<const std::string_view> keys,
               const NodeVisit& visit) override;

private:
    struct Place;
    static std::size_t KeysOf(Handle at);
    [[nodiscard]] const DataNode* Configured(const lysc_node* schema) const;
    const cdb::Row* KeepRow(const DataNode& node, std::size_t keys);

    const DataSchema& m_schema;
    cdb::RowView& m_rows;
    std::vector<std::string> m_keys;  // of the entries on the way to the visited node
    std::vector<cdb::Row> m_kept;     // by depth: a looked-up row is kept while the nodes below it are read
};

}  // namespace agent

#endif
