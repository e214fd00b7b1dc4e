// SPDX-License-Identifier: Apache-2.0
// Writes data as XML: what a subtree filter selects, with defaults as asked for, nodes in schema
// order and the entries of each list in the order that the source gives. Used for <get> and <get-config>.

#ifndef AGENT_DATA_DATA_WRITER_H
#define AGENT_DATA_DATA_WRITER_H

#include <functional>
#include <span>
#include <string>
#include <string_view>

#include "agent/data/data_schema.h"
#include "agent/data/data_source.h"
#include "agent/data/filter_plan.h"

struct lysc_node;

namespace agent {

/// Whether a node may be read. The writer asks before it reads a node, about the nodes above first. `keys`
/// are those of all list entries on the way, the node's own included. A node that may not be read counts as
/// missing, in the output and for a filter's content matches. An entry with a key that may not be read is
/// left out. Null: everything may be read.
using ReadAccess = std::function<bool(const lysc_node* node, std::span<const std::string> keys)>;

/// Which leaves that have their default value are written (RFC 6243).
enum class Defaults {
    kExplicit,   // those that were set explicitly
    kTrim,       // none
    kReportAll,  // all
    kTagged      // all; those that were not set explicitly have the attribute wd:default="true"
};

/// What must be around data that is written with kTagged: the declaration of the prefix wd, with a blank
/// before it.
inline constexpr std::string_view kTagDeclaration =
    " xmlns:wd=\"urn:ietf:params:xml:ns:netconf:default:1.0\"";

struct WriteOptions {
    Defaults defaults = Defaults::kExplicit;
    const FilterPlan* filter = nullptr;  // null: everything
    ReadAccess access{};
};

/// Appends the top-level nodes of the source.
void WriteData(const DataSchema& schema, DataSource& source, const WriteOptions& options, std::string& out);

}  // namespace agent

#endif
