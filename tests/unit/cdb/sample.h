// SPDX-License-Identifier: Apache-2.0
// The tree's own schema, and rows for it.

#ifndef TESTS_UNIT_CDB_SAMPLE_H
#define TESTS_UNIT_CDB_SAMPLE_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/schema/schema.h"
#include "cdb/store/store.h"

namespace sample {

/// Compiled once a process.
inline const cdb::Schema& Schema()
{
    static const auto schema = cdb::Schema::Load(SFLOW_TEST_YANG_DIR);
    return *schema;
}

inline const cdb::SchemaTable& Table() { return Schema().Table(); }

inline cdb::NodeId Node(std::string_view path) { return Table().Find(path); }

inline const std::string kCollector = "/config/oam/sflow/collector";
inline const std::string kInterface = "/config/oam/sflow/interface";
inline const std::string kFlow = "/config/oam/sflow/interface/flow-sampling-collector";
inline const std::string kMgmt = "/config/interface/mgmt";

inline cdb::RowKey Key(std::string_view path, std::vector<std::string> keys)
{
    return {Node(path), std::move(keys)};
}

inline cdb::Row RateRow(std::uint32_t rate) { return {{{"sampling-rate", rate}}}; }

/// An entry in a scan.
struct Entry {
    std::vector<std::string> keys;
    cdb::Row row;
    friend bool operator==(const Entry&, const Entry&) = default;
};

inline std::vector<Entry> ScanAll(const cdb::StoreReader::Snapshot& snapshot, std::string_view list,
                                  const std::vector<std::string>& parents = {}, std::size_t first = 0)
{
    std::vector<Entry> entries;
    snapshot.Scan(Node(list), parents, first, [&](const auto& keys, const auto& row) {
        entries.push_back({keys, row});
        return true;
    });
    return entries;
}

inline std::vector<std::string> Names(const std::vector<Entry>& entries)
{
    std::vector<std::string> names;
    for (const auto& entry : entries) names.push_back(entry.keys.at(0));
    return names;
}

inline cdb::HistoryEntry History(std::uint64_t commit)
{
    return {commit, static_cast<std::int64_t>(commit) * 1000, "operator", "netconf", "why", "undo"};
}

}  // namespace sample

#endif
