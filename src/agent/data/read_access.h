// SPDX-License-Identifier: Apache-2.0
// The question whether a reader may see a node.

#ifndef AGENT_DATA_READ_ACCESS_H
#define AGENT_DATA_READ_ACCESS_H

#include <functional>
#include <span>
#include <string>

struct lysc_node;

namespace agent {

/// Whether a node may be read. The writer asks before it reads a node, about the nodes above first. `keys`
/// are those of all list entries on the way, the node's own included. A node that may not be read counts as
/// missing, in the output and for a filter's content matches. An entry with a key that may not be read is
/// left out. Null: everything may be read.
using ReadAccess = std::function<bool(const lysc_node* node, std::span<const std::string> keys)>;

}  // namespace agent

#endif
