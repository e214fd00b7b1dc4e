// SPDX-License-Identifier: Apache-2.0
// The reads of one session, which sees one commit of the running datastore. The client API's functions are a
// thin layer over it.

#ifndef PLATFORM_EMBEDDED_CONFD_READ_SESSION_H
#define PLATFORM_EMBEDDED_CONFD_READ_SESSION_H

#include <confd_lib.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "cdb/model/schema_table.h"
#include "cdb/rows/reader.h"
#include "platform/embedded/confd/entry_layout.h"
#include "platform/embedded/confd/read_path.h"

namespace embedded {

/// Derived once from the schema and used by every session.
class SchemaCache {
public:
    /// `schema` must outlive it.
    explicit SchemaCache(const cdb::SchemaTable& table) : schema(table), paths(table) {}

    const EntryLayout& LayoutOf(cdb::NodeId entry);

    const cdb::SchemaTable& schema;
    PathReader paths;

private:
    std::map<cdb::NodeId, EntryLayout> m_layouts;
};

/// Every operation throws ClientError that says what is wrong, or cdb::FatalError if the store can't be read.
/// The caller frees the values.
class ReadSession {
public:
    ReadSession(SchemaCache& cache, std::shared_ptr<const cdb::StoreReader::Snapshot> view);

    /// The number of entries of a list.
    [[nodiscard]] int NumInstances(std::string_view path);
    /// Reads `count` entries from index `first` on, `perEntry` values each; fewer entries are an error.
    /// Returns the number of values that an entry has.
    int GetObjects(confd_value_t* values, int perEntry, int first, int count, std::string_view path);
    /// Reads `count` values of an entry or container. Returns the number of values that it has.
    int GetObject(confd_value_t* values, int count, std::string_view path);
    /// Reads one leaf; one without a value is an error.
    void Get(confd_value_t* value, std::string_view path);

private:
    struct Entry {
        std::vector<std::string> keys;
        cdb::Row row;
    };

    const ReadPath& Resolved(std::string_view path);
    const ReadPath& ResolvedList(std::string_view path);
    [[nodiscard]] std::vector<std::string> KeysAt(cdb::NodeId list,
                                                  const std::vector<std::string>& parentKeys,
                                                  std::size_t index) const;
    [[nodiscard]] bool Exists(cdb::NodeId node, const std::vector<std::string>& keys) const;
    [[nodiscard]] cdb::Row RowOf(cdb::NodeId entry, const std::vector<std::string>& keys,
                                 std::string_view path) const;

    SchemaCache& m_cache;
    std::shared_ptr<const cdb::StoreReader::Snapshot> m_view;
    const PathReader::Resolve m_resolve;

    // The entries of the short list counted last: a reader counts a list and then reads it.
    std::string m_countedPath;
    std::vector<Entry> m_counted;
};

}  // namespace embedded

#endif
