// SPDX-License-Identifier: Apache-2.0
// The configuration as text: blocks for reading, `set` lines for typing again, differences.

#ifndef CLI_DATA_CONFIG_TEXT_H
#define CLI_DATA_CONFIG_TEXT_H

#include <string>
#include <vector>

struct lyd_node;

namespace cli {

/// Blocks in braces, indented by four; the root container is left out, and so are containers without
/// content. A leaf that has its default has a comment that says so.
std::string ToBlocks(const lyd_node* tree);

/// The same for single nodes, each with its own head: what a path selects.
std::string ToBlocks(const std::vector<const lyd_node*>& nodes);

/// One `set` command a leaf, and one for an entry that has nothing but its keys.
std::string ToSetLines(const lyd_node* tree);

/// What leads from the first tree to the second: "- PATH [VALUE]" for what goes, "+ PATH [VALUE]" for
/// what comes; empty for equal trees. A list's entry that goes or comes as a whole has a line of its own
/// before those of what it has.
std::string Differences(const lyd_node* before, const lyd_node* after);

}  // namespace cli

#endif
