// SPDX-License-Identifier: Apache-2.0
// Who may read what.

#ifndef AGENT_DATA_READ_ACCESS_H
#define AGENT_DATA_READ_ACCESS_H

#include <functional>
#include <span>
#include <string>

struct lysc_node;

namespace agent {

/// Asked of each node before it is read, the nodes above it first: whether it may be. `keys` are those of
/// all list entries on the way, the node's own included. What may not be read is not there, neither in what
/// is written nor for a filter's content matches. An entry with a key that may not be read is left out.
/// Null: everything may be read.
using ReadAccess = std::function<bool(const lysc_node* node, std::span<const std::string> keys)>;

}  // namespace agent

#endif
