// SPDX-License-Identifier: Apache-2.0
// The switch's processes, their faults and versions as text: what `show system` and `show version` print.

#ifndef CLI_STATE_TEXT_H
#define CLI_STATE_TEXT_H

#include <string>

struct lyd_node;

namespace cli {

/// The tree is the top-level container `state`, or null when the database has none.
std::string ProcessesText(const lyd_node* state);
std::string FaultsText(const lyd_node* state);
/// This program's version is in it also without a tree.
std::string VersionsText(const lyd_node* state);

}  // namespace cli

#endif
