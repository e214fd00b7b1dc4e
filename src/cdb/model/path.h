// SPDX-License-Identifier: Apache-2.0
// Paths of the client API: "/config/oam/sflow/interface{eth1}/sampling-rate". The text in braces is the key;
// several keys are separated by single spaces; "[n]" is an index from 0.

#ifndef CDB_MODEL_PATH_H
#define CDB_MODEL_PATH_H

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/expected.h"
#include "cdb/model/schema_table.h"

namespace cdb {

/// One step of a path: the schema node, and its keys if it is a list entry.
struct Step {
    NodeId node = kNoNode;
    std::vector<std::string> keys{};     // of a list entry; empty for other nodes or the list itself
    std::optional<std::size_t> index{};  // "[n]"; not yet resolved to keys
    friend bool operator==(const Step&, const Step&) = default;
};

struct Path {
    std::vector<Step> steps;  // from the root
    [[nodiscard]] NodeId Node() const { return steps.empty() ? kNoNode : steps.back().node; }
    friend bool operator==(const Path&, const Path&) = default;
};

/// The path, or a text that says what is wrong with it and where.
base::expected<Path, std::string> ParsePath(const SchemaTable& schema, std::string_view text);

std::string ToText(const SchemaTable& schema, const Path& path);

}  // namespace cdb

#endif
