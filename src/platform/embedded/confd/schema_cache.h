// SPDX-License-Identifier: Apache-2.0
// Derived once from the schema and used by every session: the shapes of paths and the layouts of entries. The
// daemon reads tens of thousands of paths in a row that differ only in their keys: such a shape is looked up
// in the schema once; after that a path costs a comparison and its keys.

#ifndef PLATFORM_EMBEDDED_CONFD_SCHEMA_CACHE_H
#define PLATFORM_EMBEDDED_CONFD_SCHEMA_CACHE_H

#include <confd_lib.h>

#include <cstddef>
#include <functional>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/model/row.h"
#include "cdb/model/schema_table.h"

namespace embedded {

/// The positions of one list entry's or container's values in a value array, and the defaults for those that
/// a row lacks.
class EntryLayout {
public:
    /// `schema` must outlive it.
    EntryLayout(const cdb::SchemaTable& schema, cdb::NodeId entry);

    [[nodiscard]] std::size_t Size() const { return m_slots.size(); }

    /// The number of keys of the entry itself, without those of the lists above.
    [[nodiscard]] std::size_t KeyCount() const { return m_keyCount; }

    /// Writes `count` values: those of the entry, then empty ones. `keys` are the entry's own. The caller
    /// frees the values.
    void Fill(std::span<const std::string> keys, const cdb::Row& row, confd_value_t* values,
              std::size_t count) const;

    /// One leaf's value, which the caller frees; empty (C_NOEXISTS) if it has none.
    [[nodiscard]] confd_value_t ValueOf(cdb::NodeId leaf, std::span<const std::string> keys,
                                        const cdb::Row& row) const;

private:
    static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

    struct Slot {
        const cdb::SchemaNode* leaf = nullptr;
        std::size_t key = kNone;         // position among the entry's keys
        std::size_t substitute = kNone;  // the slot whose value replaces a missing one
    };

    [[nodiscard]] confd_value_t Value(std::size_t slot, std::span<const std::string> keys,
                                      const cdb::Row& row) const;

    std::vector<Slot> m_slots;
    std::size_t m_keyCount = 0;
};

/// What the store needs of a path.
struct ReadPath {
    cdb::NodeId node = cdb::kNoNode;
    std::vector<std::string> keys;  // of every list entry on the path, from the root
    bool isEntry = false;           // for a list: an entry of it, not the list itself
};

class PathReader {
public:
    /// The keys of a list's nth entry below the parent keys. Throws ClientError if there is none.
    using Resolve = std::function<std::vector<std::string>(
        cdb::NodeId list, const std::vector<std::string>& parentKeys, std::size_t index)>;

    /// `schema` must outlive it.
    explicit PathReader(const cdb::SchemaTable& schema) : m_schema(schema) {}

    /// Valid until the next call. Throws ClientError that says what is wrong with the path.
    const ReadPath& Read(std::string_view text, const Resolve& resolve);

private:
    /// A path's text without its keys, "/config/oam/sflow/interface{}/enabled", and its schema node.
    struct Shape {
        std::string text;
        cdb::NodeId node = cdb::kNoNode;
        bool isEntry = false;
    };

    bool Split(std::string_view text);
    void ReadAnew(std::string_view text, const Resolve& resolve);

    const cdb::SchemaTable& m_schema;
    std::vector<Shape> m_shapes;  // few; the last one used is in front
    std::string m_shape;
    ReadPath m_path;
};

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

}  // namespace embedded

#endif
