// SPDX-License-Identifier: Apache-2.0
// The path of a read, resolved as far as the store needs it. Paths of one shape differ in their keys
// only, and the daemon reads tens of thousands of one shape in a row: the shape is looked up in the
// schema once, after that a path costs a comparison and its keys.

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
    std::vector<std::string> keys;  // of every list entry on the way, from the root
    bool isEntry = false;           // of a list: an entry of it, not the list itself
};

class PathReader {
public:
    /// The keys of a list's nth entry below the parent keys. Throws ClientError where it has none.
    using Resolve = std::function<std::vector<std::string>(
        cdb::NodeId list, const std::vector<std::string>& parentKeys, std::size_t index)>;

    /// `schema` must outlive it.
    explicit PathReader(const cdb::SchemaTable& schema) : m_schema(schema) {}

    /// Valid until the next call. Throws ClientError that says what is wrong with the path.
    const ReadPath& Read(std::string_view text, const Resolve& resolve);

private:
    /// A path's text without its keys, "/config/oam/sflow/interface{}/enabled", and where it leads.
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
