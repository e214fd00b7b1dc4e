// SPDX-License-Identifier: Apache-2.0
// Resolves the path of a read as far as the store needs it. The daemon reads tens of thousands of paths in a
// row that differ only in their keys: such a shape is looked up in the schema once; after that a path costs a
// comparison and its keys.

#ifndef PLATFORM_EMBEDDED_CONFD_READ_PATH_H
#define PLATFORM_EMBEDDED_CONFD_READ_PATH_H

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "cdb/model/schema_table.h"

namespace embedded {

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

}  // namespace embedded

#endif
