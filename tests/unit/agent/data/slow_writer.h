// SPDX-License-Identifier: Apache-2.0
// The reference for what filters select and how data is written.

#ifndef AGENT_SLOW_WRITER_H
#define AGENT_SLOW_WRITER_H

#include <optional>
#include <string>

#include "agent/data/data_writer.h"
#include "agent/data/subtree_filter.h"

struct lyd_node;

namespace agent_tests {

/// Appends the tree's top-level siblings. No filter: everything.
void WriteSlowly(const lyd_node* first, const std::optional<agent::SubtreeFilter>& filter,
                 agent::Defaults defaults, std::string& out);

}  // namespace agent_tests

#endif
