// SPDX-License-Identifier: Apache-2.0
// Writes data as XML: what a subtree filter selects, with defaults as asked for, nodes in schema
// order and the entries of each list in the order that the source gives. Used for <get> and <get-config>.

#ifndef AGENT_DATA_DATA_WRITER_H
#define AGENT_DATA_DATA_WRITER_H

#include <cstddef>
#include <functional>
#include <limits>
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

/// What must be around data that is written with `tagged` origins: the declaration of the prefix or.
inline constexpr std::string_view kOriginDeclaration =
    " xmlns:or=\"urn:ietf:params:xml:ns:yang:ietf-origin\"";

/// Where configuration comes from (RFC 8342, section 5.3.4), and what is written by that. The nodes around
/// what is written are, and the keys of entries. State has no origin.
struct Origins {
    bool tagged = false;    // the attribute or:origin, where it is not that of the node above
    bool intended = true;   // what was set explicitly
    bool byDefault = true;  // leaves that have the value that they have because they were not set
};

inline constexpr std::size_t kAllLevels = std::numeric_limits<std::size_t>::max();

struct WriteOptions {
    Defaults defaults = Defaults::kExplicit;
    const FilterPlan* filter = nullptr;  // null: everything
    ReadAccess access{};
    /// How many levels are written of each node that is selected, itself the first; at least 1. An entry's
    /// keys are on its own. Containers and entries on the last level are empty.
    std::size_t levels = kAllLevels;
    Origins origins{};
};

/// Appends the top-level nodes of the source.
void WriteData(const DataSchema& schema, DataSource& source, const WriteOptions& options, std::string& out);

}  // namespace agent

#endif
