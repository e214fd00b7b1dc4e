// SPDX-License-Identifier: Apache-2.0
// Ownership of libyang data trees in the agent, and look-up of their children.

#ifndef AGENT_DATA_YANG_TREE_H
#define AGENT_DATA_YANG_TREE_H

#include <string_view>

#include "cdb/schema/libyang_owner.h"

namespace agent {

using Tree = cdb::TreePtr;

/// The child of that name; null if there is none.
const lyd_node* ChildNamed(const lyd_node* parent, std::string_view name);

/// The text of that child, a leaf; empty if there is none.
std::string_view ChildText(const lyd_node* parent, std::string_view name);

}  // namespace agent

#endif
